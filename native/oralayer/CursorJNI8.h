// What the modules of the cursor family share among themselves.
#ifndef ORALAYER_CURSORJNI8_H
#define ORALAYER_CURSORJNI8_H

#include <algorithm>
#include <cstddef>
#include <limits>

#include "oralayer8.h"

/// Bytes of user memory that a cursor asks for with its statement handle.
inline constexpr std::size_t kStatementMemorySize = 100;

// A statement writes as many rows into its columns' arrays as a fetch asks for, so no fetch may ask
// for more than the smallest array holds. That number lives and goes with the statement handle, in
// its user memory.

/// The rows that every column defined on the open statement has room for.
inline sb4 defined_rows(const cdadata& cda) {
  return cda.tmp != nullptr ? *static_cast<const sb4*>(cda.tmp) : std::numeric_limits<sb4>::max();
}

/// After open and prepare: no column is defined.
inline void forget_defined_rows(cdadata& cda) {
  if (cda.tmp != nullptr) *static_cast<sb4*>(cda.tmp) = std::numeric_limits<sb4>::max();
}

inline void column_defined(cdadata& cda, sb4 rows) {
  if (cda.tmp != nullptr) *static_cast<sb4*>(cda.tmp) = std::min(defined_rows(cda), rows);
}

#endif
