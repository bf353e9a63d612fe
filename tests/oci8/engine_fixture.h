// What tests of the engine share: tables of cases, rows as text, and failures caught.
#ifndef OCI8_TESTS_ENGINE_FIXTURE_H
#define OCI8_TESTS_ENGINE_FIXTURE_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "accounts.h"
#include "engine.h"
#include "error.h"
#include "number.h"
#include "sqlite_catalogue.h"
#include "sqlite_handle.h"

namespace oci8 {

/// The cases "input -> expected" of a text: several on a line with " | " between, or one on several
/// lines.
inline std::vector<std::pair<std::string, std::string>> cases(std::string text) {
  for (size_t bar; (bar = text.find(" | ")) != std::string::npos;) text.replace(bar, 3, "\n");
  std::vector<std::pair<std::string, std::string>> found;
  std::istringstream lines(text);
  std::string input;
  for (std::string line; std::getline(lines, line);) {
    line.erase(0, line.find_first_not_of(' '));
    input += (input.empty() ? "" : " ") + line;
    const size_t arrow = input.rfind(" ->");
    if (arrow == std::string::npos) continue;
    found.emplace_back(input.substr(0, arrow), input.substr(std::min(arrow + 4, input.size())));
    input.clear();
  }
  EXPECT_EQ(input, "");
  return found;
}

inline std::string text_of(const Value& value) {
  if (value.kind == Value::Kind::Integer) return std::to_string(value.integer);
  if (value.kind == Value::Kind::Real) {
    char text[kNumberTextSize];
    return {text, number_to_text(value.real, text)};
  }
  return value.kind == Value::Kind::Null ? "NULL" : std::string(value.data, value.size);
}

/// The first column of all rows, blank between.
inline std::string rows_of(Statement& statement) {
  std::string rows;
  while (statement.step()) rows += (rows.empty() ? "" : " ") + text_of(statement.row()[0]);
  return rows;
}

/// Values to be bound; the bytes stay the caller's.
inline Value number(long long value) {
  return {Value::Kind::Integer, value};
}
inline Value words(std::string_view bytes, Value::Kind kind = Value::Kind::Text) {
  return {kind, 0, 0, bytes.data(), bytes.size()};
}

/// A statement beside its text, which has to outlive it.
struct Prepared {
  Prepared(Connection& connection, std::string_view sql)
      : source(tokenize(sql)), statement(connection.prepare(source)) {}
  Statement* operator->() const { return statement.get(); }

  SqlText source;
  std::unique_ptr<Statement> statement;
};

/// Runs a statement to its end; the first column of all rows.
inline std::string query(Connection& connection, std::string_view sql) {
  return rows_of(*Prepared(connection, sql).statement);
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

inline int code_of(Connection& connection, std::string_view sql) {
  return failure([&] { query(connection, sql); }).code;
}

/// What SQLite itself makes of a database file: the first value of a statement.
inline std::string in_file(const std::string& file, const std::string& sql) {
  const auto db = open_file(file, SQLITE_OPEN_READWRITE);
  const auto row = prepare_sql(db.get(), sql.c_str());
  return step_sql(row.get()) ? std::string(column_text(row.get(), 0)) : "";
}

/// A folder with the database TEST.db, where scott has an account.
class DatabaseTest : public testing::Test {
 protected:
  DatabaseTest() {
    const auto db = open_file(database_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    create_system_objects(db.get());
    add_account(db.get(), "scott", "tiger");
  }
  ~DatabaseTest() override { std::filesystem::remove_all(folder_); }

  char name_[25] = "/tmp/oci8-test-XXXXXX";
  const std::filesystem::path folder_ = mkdtemp(name_);
  const std::string database_ = folder_ / "TEST.db";
};

}  // namespace oci8

#endif
