// What tests of the engine share: rows as text, and failures caught.
#ifndef OCI8_TESTS_ENGINE_FIXTURE_H
#define OCI8_TESTS_ENGINE_FIXTURE_H

#include <gtest/gtest.h>

#include <string>

#include "engine.h"
#include "error.h"

namespace oci8 {

inline std::string text_of(const Value& value) {
  if (value.kind == Value::Kind::Integer) return std::to_string(value.integer);
  if (value.kind == Value::Kind::Real) return std::to_string(value.real);
  return value.kind == Value::Kind::Null ? "NULL" : std::string(value.data, value.size);
}

/// The first column of all rows, blank between.
inline std::string rows_of(Statement& statement) {
  std::string rows;
  while (statement.step()) rows += (rows.empty() ? "" : " ") + text_of(statement.column(0));
  return rows;
}
inline std::string query(Connection& connection, std::string_view sql) {
  const SqlText source = tokenize(sql);
  return rows_of(*connection.prepare(source));
}

/// What `body` fails with; code 0 and no text where it succeeds.
template <class Body>
Failure failure(Body&& body) {
  try {
    body();
  } catch (const Failure& raised) {
    return raised;
  }
  return {};
}

}  // namespace oci8

#endif
