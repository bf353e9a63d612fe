// Prints the engine's settings of a database as the client library opens it.
#include <cstdio>
#include <exception>
#include <string>

#include "error.h"
#include "sqlite_session.h"

namespace {

constexpr const char* kNames[] = {"journal_mode", "synchronous", "page_size",
                                  "cache_size",   "mmap_size",   "foreign_keys"};

void print(const char* path) {
  oci8::SqliteSession session(path);
  for (const char* name : kNames) {
    const auto row = oci8::prepare_sql(session.db(), std::string("PRAGMA ") + name);
    // A pragma without a row: this SQLite was built without it.
    const bool known = oci8::step_sql(row.get());
    const std::string value(known ? oci8::column_text(row.get(), 0) : "0");
    std::printf("%s=%s ", name, value.c_str());
  }
  std::printf("\n");
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) return 2;
  try {
    print(arguments[1]);
    return 0;
  } catch (const oci8::Failure& failure) {
    std::fprintf(stderr, "%s", failure.text.c_str());
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
  }
  return 1;
}
