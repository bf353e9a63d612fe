// Numbers and dates, back and forth between their forms. What is written must read back as the
// same value, and nothing that is read may be outside of what a column can keep.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "date.h"
#include "number.h"
#include "number_format.h"
#include "require.h"

namespace {

using namespace oci8;

std::string show(const Number& value) {
  // Exactly as large as promised, on the heap: one byte more is seen.
  const std::unique_ptr<char[]> out(new char[kNumberTextSize]);
  const size_t size = value.is_integer ? number_to_text(value.integer, out.get())
                                       : number_to_text(value.real, out.get());
  require(size > 0 && size <= kNumberTextSize);
  return {out.get(), size};
}

void require_kept(const Number& value) {
  Number again;
  require(parse_number(show(value), again) == NumberParse::Ok && show(again) == show(value));
}

void number_text(FuzzedDataProvider& input) {
  const std::string text = input.ConsumeRandomLengthString();
  const std::string model = input.ConsumeRemainingBytesAsString();
  Number value;
  if (!model.empty()) {
    value = parse_number(text, model);
    require(value.is_integer || std::isfinite(value.real), text);
  } else if (parse_number(text, value) == NumberParse::Ok) {
    require_kept(value);
  }
}

Number any_number(FuzzedDataProvider& input) {
  if (input.ConsumeBool()) return {true, input.ConsumeIntegral<long long>(), 0};
  return {false, 0, std::bit_cast<double>(input.ConsumeIntegral<uint64_t>())};
}

bool in_range(const Number& value) {
  const double size = std::abs(value.real);  // of an integer: 0
  return size == 0 || (size < 9.99e125 && size >= 1e-130);
}

void number_rounding(FuzzedDataProvider& input) {
  Number value = any_number(input);
  show(value);
  if (!in_range(value)) return;
  require_kept(value);
  const int precision = input.ConsumeIntegralInRange(0, 38), scale = input.ConsumeIntegral<sb1>();
  if (!fit_number(value, precision, scale)) return;
  if (in_range(value)) require_kept(value);
  Number again = value;
  require(fit_number(again, precision, scale) && show(again) == show(value), show(value));
}

void number_model(FuzzedDataProvider& input) {
  const Number value = any_number(input);
  if (!in_range(value)) return;
  const std::string model = input.ConsumeRemainingBytesAsString();
  const std::string shown = format_number(value, model);
  if (shown.find('#') != std::string::npos) return;
  const Number read = parse_number(shown, model);
  // A double shows no more digits than it keeps of every decimal.
  const auto digits = std::ranges::count_if(shown, [](char c) { return c >= '0' && c <= '9'; });
  if (!read.is_integer && digits > std::numeric_limits<double>::digits10) return;
  require(format_number(read, model) == shown, shown);
}

void require_date(const DateFields& fields, std::string_view shown = {}) {
  require(valid_date(pack_date(fields).data()), shown);
}

void date_bytes(FuzzedDataProvider& input) {
  const double days = input.ConsumeFloatingPoint<double>();
  const std::vector<ub1> bytes = input.ConsumeBytes<ub1>(kDateSize);
  if (bytes.size() < kDateSize) return require_date(days_to_date(days));
  if (!valid_date(bytes.data())) return;
  const DateFields fields = unpack_date(bytes.data());
  const DateBytes packed = pack_date(fields);
  require(std::equal(packed.begin(), packed.end(), bytes.begin()));
  require(pack_date(days_to_date(date_to_days(fields))) == packed);
}

void date_model(FuzzedDataProvider& input) {
  DateFields fields;
  fields.year = input.ConsumeIntegralInRange(-4713, 10000);
  for (int* field : {&fields.month, &fields.day, &fields.hour, &fields.minute, &fields.second}) {
    *field = input.ConsumeIntegralInRange(-1, 61);
  }
  require_date(fields);
  const std::string model = input.ConsumeRemainingBytesAsString();
  require_date(parse_date(format_date(fields, model), model), model);
}

void date_by_model(FuzzedDataProvider& input) {
  const std::string model = input.ConsumeRandomLengthString();
  require_date(parse_date(input.ConsumeRemainingBytesAsString(), model), model);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static constexpr void (*kChecks[])(FuzzedDataProvider&) = {
      number_text, number_rounding, number_model, date_bytes, date_model, date_by_model};
  FuzzedDataProvider input(data, size);
  try {
    input.PickValueInArray(kChecks)(input);
  } catch (const oci8::Failure& failure) {
    require_proper(failure);
  }
  return 0;
}
