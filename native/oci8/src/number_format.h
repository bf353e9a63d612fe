// Number format models: 9 0 . D , G $ L S MI PR B EEEE FM, for TO_CHAR also RN and XXXX.
#ifndef OCI8_NUMBER_FORMAT_H
#define OCI8_NUMBER_FORMAT_H

#include <string>
#include <string_view>

#include "number.h"

namespace oci8 {

/// The value as the model shows it, filled with '#' where it has no room. Raises ORA-01481 for text
/// that is no model.
std::string format_number(const Number& value, std::string_view format);

/// Reads text that the model could have written; ORA-01722 for any other.
Number parse_number(std::string_view text, std::string_view format);

}  // namespace oci8

#endif
