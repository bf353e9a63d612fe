// Rows of a query that were read before somebody asked for them.
#ifndef OCI8_SQLITE_ROWS_H
#define OCI8_SQLITE_ROWS_H

#include <cstdio>
#include <exception>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "engine.h"

namespace oci8 {

/// A queue of rows, with what comes after the last one. What is too much for the memory lies in a
/// file that has no name.
class KeptRows {
 public:
  explicit KeptRows(size_t columns) : row_(columns) {}

  /// Adds the current row of a query, as a whole or not at all.
  void add(Statement& query);
  /// From now on the rows end with this failure instead of their end.
  void end_with(std::exception_ptr failure) { failure_ = std::move(failure); }
  /// Takes the next row; false at the end.
  bool next();
  /// The row that was taken last. It stays in place until the next one is taken, also when rows are
  /// added.
  std::span<const Value> row() const { return row_; }

 private:
  struct CloseFile {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
  };

  void put(const Value& value);
  Value take();
  template <class T>
  T take_as();
  const char* take_bytes(size_t size);
  void write_block();
  void read_block();

  std::vector<Value> row_;
  std::string taken_;  // whole rows, from which the next ones are taken
  size_t at_ = 0;  // in taken_
  std::string added_;  // whole rows, behind those in the file
  std::unique_ptr<std::FILE, CloseFile> file_;
  std::vector<size_t> blocks_;  // sizes of what was in added_ when it was written
  size_t block_ = 0;  // the next one to read
  long long read_end_ = 0;  // of the blocks that were read, in the file
  long long end_ = 0;  // of the file
  std::exception_ptr failure_;
};

}  // namespace oci8

#endif
