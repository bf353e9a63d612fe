// Sums of many numbers, for SUM and AVG. Doubles added up drift away from the decimals that they
// stand for, and 64 bits hold the greatest integers or the smallest places, but not both.
#ifndef OCI8_NUMBER_SUM_H
#define OCI8_NUMBER_SUM_H

#include "number.h"

namespace oci8 {

/// A sum that is exact as long as integers and decimals of up to 18 places come in. Zeroed memory
/// is a sum of nothing, as SQLite gives it to an aggregate.
class NumberSum {
 public:
  void add(const Number& value);
  /// How many were added.
  long long count() const { return count_; }
  /// The nearest double where not all digits can be kept. Other doubles, such as quotients, make it
  /// a double that stands for no decimal.
  Number total() const;

 private:
  long long count_;
  // The digits of the sum in groups of 18, the last one behind the point. Each group is less than
  // 10^18 and has a sign of its own.
  long long upper_, lower_, places_;
  // What the other doubles make, and what their sum has lost in rounding.
  double others_, lost_;
};

}  // namespace oci8

#endif
