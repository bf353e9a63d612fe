#include "number_sum.h"

#include <cmath>
#include <cstdio>

#include "decimal.h"

namespace oci8 {
namespace {

constexpr int kPlaces = 18;
constexpr long long kBase = 1000000000000000000;

// Keeps 18 digits of the group; the others belong to the group before it.
void carry(long long& group, long long& before) {
  before += group / kBase;
  group %= kBase;
}

void borrow(long long& group, long long& before) {
  if (group >= 0) return;
  group += kBase;
  --before;
}

}  // namespace

// No group overflows: even the first one takes in no more than 10 with each number.
void NumberSum::add(const Number& value) {
  ++count_;
  Scaled scaled;
  if (!scaled_of(value, scaled) || scaled.places < 0 || scaled.places > kPlaces) {
    const double sum = others_ + value.real;
    const bool grows = std::abs(others_) < std::abs(value.real);
    lost_ += grows ? value.real - sum + others_ : others_ - sum + value.real;
    others_ = sum;
    return;
  }
  long long unit = 1;
  for (int i = 0; i < scaled.places; ++i) unit *= 10;
  const long long whole = scaled.digits / unit;
  places_ += scaled.digits % unit * (kBase / unit);
  lower_ += whole % kBase;
  upper_ += whole / kBase;
  carry(places_, lower_);
  carry(lower_, upper_);
}

Number NumberSum::total() const {
  constexpr double kUnit = kBase;
  Number result;
  if (others_ != 0 || lost_ != 0) {
    result.is_integer = false;
    result.real = static_cast<double>(upper_) * kUnit + static_cast<double>(lower_) +
                  static_cast<double>(places_) / kUnit + lost_ + others_;
    return result;
  }
  // The first group that is not zero has the sign of all; the digits of the others must share it.
  const long long leading = upper_ != 0 ? upper_ : lower_ != 0 ? lower_ : places_;
  const long long sign = leading < 0 ? -1 : 1;
  long long upper = upper_ * sign, lower = lower_ * sign, places = places_ * sign;
  borrow(places, lower);
  borrow(lower, upper);
  char text[3 * kPlaces + 16];
  const int size = std::snprintf(text, sizeof text, "%lld%018lld.%018lld", upper, lower, places);
  Decimal decimal;
  read_decimal({text, static_cast<size_t>(size)}, decimal);
  decimal.negative = decimal.size > 0 && sign < 0;
  nearest_number(decimal, result);
  return result;
}

}  // namespace oci8
