// Large values: what CLOB and BLOB cells, and those of long LONGs, name by a number.
//
//   OCI8$LARGE   id, stamp, unit, size   a row for each value; the size in units of the value
//   OCI8$CHUNKS  place, data             place = id << 20 | number of the chunk, from 0
//
// - A chunk holds kChunkSize bytes of the value, at number * kChunkSize. It may be shorter, or not
//   be there: what is missing of it up to the value's size reads as zeros, of characters as blanks.
// - Characters that are all below U+0100 are kept as a byte each, which most text is: half to write
//   and to read. The data's odd length tells: one byte or two follow, the last says how many.
// - A cell holds the id and owns the value: every row has values of its own, and copies are whole.
//   Triggers on its table (dialect_large.cpp) take the value away with the row, or when the cell
//   gets another; one on OCI8$LARGE takes the chunks. The type that the cell's column was declared
//   with makes an integer in it an id.
// - Ids come back once their value is gone. The stamp is random and tells a name that was given out
//   before from the value that has its id now.
// - Everything here runs within the transaction and the view of whatever runs around it. What takes
//   several steps is made whole by the caller (SqliteSession::Whole).
#ifndef OCI8_SQLITE_LARGE_H
#define OCI8_SQLITE_LARGE_H

#include <memory>

#include "engine.h"
#include "sqlite_handle.h"

namespace oci8 {

// About as long as the pieces in which clients read and write, so that each of these touches one or
// two, and long enough for a step of SQLite's to cost little beside the copying. A multiple of
// every unit.
constexpr size_t kChunkSize = kLargePart;

/// A large value that is bound to a statement.
struct LargeInput {
  LargeName name;  // of its latest copy, once it has one
  bool given = false;  // to the first cell that stores it; all others get copies
  bool taken = false;
};
/// The type under which SQLite hands a LargeInput to functions: no ordinary value has one.
inline constexpr const char* kLargeInput = "oci8 large";

class LargeStore {
 public:
  explicit LargeStore(sqlite3* db) : db_(db) {}

  /// Makes the tables where they are missing.
  static void create_tables(sqlite3* db);
  /// Registers what the dialect stores large values with, once the functions of sqlite_control.h
  /// are there; this object outlives their use.
  ///
  ///   take_large(v, type)  a bound large value as a cell of a column of that SQLT_ type; NULL for
  ///                        any other value
  ///   copy_large(v, type)  a cell's value for another cell: a copy where it is large
  ///   store_clob(v)        a new value of text or a number
  ///   store_blob(v)        a new value of bytes, text being read as hexadecimal
  void register_functions();

  /// A new empty value. Without an owner until a cell names it: whoever makes it sees to that, or
  /// removes it.
  LargeName create(LargeName::Unit unit);
  /// The name of the value of a cell. A value that is not there shows when the name is used.
  LargeName name_of(long long id, LargeName::Unit unit);
  unsigned long long size(const LargeName& name);
  /// Reads up to `units` units from `place` on into `target`; returns how many there were, 0 beyond
  /// the end. `viewed` says that a query is open: its view of the database is also that of a chunk
  /// that the read leaves open for the next one. ORA-22275 for the empty name, ORA-22922 for a
  /// value that is gone, as all that take a name.
  size_t read(const LargeName& name, unsigned long long place, void* target, size_t units,
              bool viewed);
  /// Returns a statement that stands on a row: all reads see one moment until the caller resets it.
  sqlite3_stmt* view();
  /// Lets go of what reads have left open: before a change, and with the last open query.
  void let_go() noexcept { shown_.reset(); }
  /// ORA-22925 for a value of more units than an ub4 can count.
  void write(const LargeName& name, unsigned long long place, const void* source, size_t units);
  /// A value of its own with the same content, chunk by chunk.
  LargeName copy(const LargeName& name);
  /// Ends a value; its chunks go by the trigger.
  void remove(const LargeName& name);

 private:
  sqlite3_stmt* find(const LargeName& name);
  sqlite3_stmt* chunks(long long id, unsigned long long first, unsigned long long last);
  bool show(long long place) noexcept;
  bool read_in_place(long long id, unsigned long long begin, unsigned long long end, char* target);
  void put(long long id, unsigned long long number, const void* data, size_t size);
  void put_units(long long id, LargeName::Unit unit, unsigned long long number, const char* data,
                 size_t size);
  void put_part(long long id, LargeName::Unit unit, unsigned long long at, const char* data,
                size_t size, unsigned long long old_end);
  void resize(long long id, unsigned long long units);

  sqlite3* db_;
  SqliteStatementOwner view_;
  SqliteStatementOwner find_;
  SqliteStatementOwner create_;
  SqliteStatementOwner resize_;
  SqliteStatementOwner remove_;
  SqliteStatementOwner chunks_;
  SqliteStatementOwner put_;
  SqliteBlobOwner shown_;  // the chunk that was read last, while a query is open
  std::unique_ptr<char[]> scratch_;  // a chunk, from the first that is written in part on
  std::unique_ptr<char[]> narrow_;  // a chunk of characters, from the first one on
};

}  // namespace oci8

#endif
