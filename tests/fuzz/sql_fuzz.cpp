// Statement texts, one a line: split into tokens, translated, and run on a database in memory, with
// a limit on the engine's steps in the place of the break.
#include <algorithm>
#include <cstdint>
#include <memory>
#include <numeric>
#include <string>

#include "block.h"
#include "engine.h"
#include "require.h"
#include "sqlite_handle.h"

namespace {

using namespace oci8;

sqlite3* opened = nullptr;
int calls_left = 0;

std::unique_ptr<Connection> fresh_database() {
  std::unique_ptr<Connection> connection = open_database(":memory:");
  connection->log_in("scott", "");
  const auto count_down = [](void*) { return --calls_left < 0 ? 1 : 0; };
  sqlite3_progress_handler(opened, 500, count_down, nullptr);
  sqlite3_limit(opened, SQLITE_LIMIT_LENGTH, 200000);
  return connection;
}

// Tokens are in order, apart, and inside of the text.
void check_tokens(const SqlText& source) {
  size_t end = 0;
  for (const Token& token : source.tokens) {
    require(token.size > 0 && token.offset >= end);
    end = size_t{token.offset} + token.size;
    require(end <= source.text.size());
  }
  for (const Placeholder& placeholder : source.placeholders) {
    require(placeholder.offset < end && source.text[placeholder.offset] == ':');
  }
}

void touch(const Value& value) {
  volatile int sum = std::accumulate(value.data, value.data + value.size, 0);
  static_cast<void>(sum);
}

void run_block(Connection& connection, const SqlText& source) {
  Block block(source, connection);
  const auto count = static_cast<ub4>(source.placeholders.size());
  std::ranges::fill(block.inputs(), Value{Value::Kind::Text, 0, 0, "7", 1});
  block.run();
  for (ub4 i = 1; i <= count; ++i) {
    if (const Value* value = block.assigned(i)) touch(*value);
  }
}

void run_statement(Connection& connection, const SqlText& source) {
  const std::unique_ptr<Statement> statement = connection.prepare(source);
  for (int row = 0; row < 50 && statement->step(); ++row) {
    for (const Value& value : statement->row()) touch(value);
  }
}

void run(Connection& connection, std::string_view text) {
  const SqlText source = tokenize(text);
  check_tokens(source);
  calls_left = 400;
  try {
    const bool block = source.type == OCI_STMT_BEGIN || source.type == OCI_STMT_DECLARE;
    (block ? run_block : run_statement)(connection, source);
  } catch (const Failure& failure) {
    require_proper(failure);
    require(failure.offset >= -1 && failure.offset <= static_cast<int>(text.size()));
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const auto remember = [](sqlite3* db, char**, const sqlite3_api_routines*) {
    opened = db;
    return SQLITE_OK;
  };
  return sqlite3_auto_extension(reinterpret_cast<void (*)()>(+remember));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::unique_ptr<Connection> connection = fresh_database();
  run(*connection, "CREATE TABLE T(N NUMBER(8,2), V VARCHAR2(20), C CHAR(5), D DATE, R RAW(8))");
  run(*connection, "INSERT INTO T VALUES(1.5, 'one', 'c', SYSDATE, '00ff')");
  std::string_view rest(reinterpret_cast<const char*>(data), size);
  while (!rest.empty()) {
    const size_t end = std::min(rest.find('\n'), rest.size());
    run(*connection, rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return 0;
}
