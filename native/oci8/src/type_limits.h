// What the server's release 8 says of its types, where several modules have to know it.
#ifndef OCI8_TYPE_LIMITS_H
#define OCI8_TYPE_LIMITS_H

#include <cstddef>

#include "oci.h"

namespace oci8 {

/// Bytes of a VARCHAR2. An expression's text must fit one, whatever it is used for.
inline constexpr size_t kMaxText = 4000;

/// The scale that is reported for a NUMBER without one, and for FLOAT.
inline constexpr sb1 kNoScale = -127;

}  // namespace oci8

#endif
