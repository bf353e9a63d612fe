// What the setters of a column's bind value share.
#ifndef ORALAYER_COLUMNJNI8_H
#define ORALAYER_COLUMNJNI8_H

#include "oralayer8.h"
#include "records.h"

/// Internal and external type alike; the internal one keeps the low 16 bits.
inline void set_types(columndata& col, jint type) {
  col.internal_dbtype = static_cast<sb2>(type);
  col.external_dbtype = type;
}

/// False after raising: the record was made without rows, so there is no place for a value.
inline bool has_value_row(JNIEnv* env, const columndata& col) {
  if (col.vectsize >= 1) return true;
  TV_ThrowIndexOutOfBounds(env, "the column has no row to hold a value");
  return false;
}

#endif
