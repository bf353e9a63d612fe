// The border to the database engine. Everything that is particular to one engine is behind these
// three classes; the rest of the client library knows values, columns and Oracle errors only.
// Operations raise Failure (error.h). A connection and its statements are used by one thread at
// a time, except Connection::interrupt.
// sqlite_engine.cpp and sqlite_statement.cpp implement them. Another engine would have to give what
// is written here and nothing else.
#ifndef OCI8_ENGINE_H
#define OCI8_ENGINE_H

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "oci.h"
#include "sql_text.h"
#include "type_limits.h"

namespace oci8 {

/// A select-list column as the describe reports it.
struct ColumnInfo {
  std::string name;
  ub2 type = SQLT_CHR;  // internal type: 1, 2, 8, 11, 12, 23, 24, 96, 112, 113
  ub2 size = 0;  // OCI_ATTR_DATA_SIZE: bytes; NUMBER 22, DATE 7, ROWID 18, LONG 0
  sb2 precision = 0;  // NUMBER: 0 without declared precision
  sb1 scale = 0;  // NUMBER: kNoScale without declared precision, and for FLOAT
  bool nullable = true;
  bool not_null = false;  // a table's, declared so and not by its primary key; copies have it, too
};

/// The name of a large value: one that the database keeps in chunks outside of its row. A copy
/// names the same value. Whether the value still stands shows when the name is used.
struct LargeName {
  enum class Unit : ub1 {
    Byte,  // BLOB, LONG and LONG RAW
    Character  // CLOB: UCS-2 in machine byte order
  };
  long long id = 0;  // 0 names nothing
  long long stamp = 0;  // tells the value from one that had the same id before
  Unit unit = Unit::Byte;
};

/// Large values are best written in parts of this many bytes, and from multiples of it on; values
/// up to this size are better kept in the row, where the column allows.
inline constexpr size_t kLargePart = 32768;

/// One value on the border: a view of bytes that somebody else owns.
struct Value {
  // Named after what the bytes are, not after the column's type: an expression may give another
  // kind than its column was described with.
  enum class Kind : ub1 {
    Null,
    Integer,  // NUMBER
    Real,  // NUMBER
    Text,  // character data in the database's character set, LONG, ROWID; no terminator
    Bytes,  // RAW, LONG RAW; DATE as its seven bytes
    Large  // CLOB and BLOB always, LONG and LONG RAW where they are long
  };
  Kind kind = Kind::Null;
  long long integer = 0;
  double real = 0;
  const char* data = nullptr;
  size_t size = 0;
  LargeName large{};
  // A bound large value: the first cell that stores it takes it over instead of a copy; without
  // one it ends with the statement's success.
  bool given = false;
};

/// A prepared statement.
class Statement {
 public:
  virtual ~Statement() = default;

  /// The select list; empty for a statement that is no query.
  /// The reference and its elements stay in place as long as the statement, also where it is
  /// prepared again: parameter descriptors point into it.
  virtual const std::vector<ColumnInfo>& columns() const = 0;

  /// Ends the current run and gives the values of the next one, one for each placeholder and NULL
  /// at first, for the caller to set. They keep their place until the statement ends. Bytes stay
  /// the caller's and must stay in place until the statement has been stepped to its end or reset.
  /// What is wrong with a value comes up at the first step: ORA-00932 for a large one at a place
  /// that takes none, ORA-22275 for one that names nothing.
  virtual std::span<Value> inputs() = 0;

  /// The type of the LONG, LONG RAW, CLOB or BLOB column that the placeholder's value goes into as
  /// it is, so that a large value may be bound to it: a LONG takes given ones only. 0 for every
  /// other placeholder, where a large value is ORA-00932.
  virtual ub2 takes_large(ub4 position) const = 0;

  /// Runs to the next row: true when a row stands, false at the end (a statement that is no query
  /// is then done, and has taken effect as a whole or, having raised, not at all).
  virtual bool step() = 0;

  /// The values of the current row, one for each column. They can be asked for until the next step
  /// or reset, and stay in place until then or until the session changes something.
  virtual std::span<const Value> row() = 0;

  /// Rows that the last run inserted, updated or deleted.
  virtual ub4 rows_changed() const = 0;

  /// Ends the current run and gives back what it holds; the inputs are kept.
  virtual void reset() = 0;
};

/// A database that a server handle is attached to, with the session that runs on it.
class Connection {
 public:
  virtual ~Connection() = default;

  /// Checks user and password: ORA-01017, after the same work whether or not the user exists.
  virtual void log_in(std::string_view user, std::string_view password) = 0;
  /// Checks an account that the operating system vouches for ("OPS$" and the system's user name).
  virtual void log_in_external() = 0;

  /// Prepares a statement; data changes begin a transaction when they run, DDL commits before and
  /// after itself, and raises what is wrong with its names when it runs. `text` stays the caller's
  /// and outlives the statement.
  /// Errors have an offset into `text` where there is a place to point at.
  virtual std::unique_ptr<Statement> prepare(const SqlText& text) = 0;

  /// ORA-02091 when the transaction could not be committed: it is rolled back then, not left open.
  virtual void commit() = 0;
  virtual void rollback() = 0;

  /// Notes where the transaction stands, for a unit of several statements that takes effect as a
  /// whole or not at all. One mark at a time; commit and rollback move it to where they end.
  virtual void mark() = 0;
  /// Forgets the mark: all savepoints that were set since go with it.
  virtual void release_mark() noexcept = 0;
  /// Undoes what was done since the mark, and forgets it. A transaction that began since is gone.
  virtual void return_to_mark() noexcept = 0;

  // Large values. Sizes and places are in units of the value, places from 0. ORA-22275 for a name
  // that names nothing, ORA-22922 where the value is gone.

  /// A new empty value, which belongs to no row until a bind gives it to one. Begins a transaction
  /// where none is open.
  virtual LargeName create_large(LargeName::Unit unit) = 0;
  virtual unsigned long long large_size(const LargeName& name) = 0;
  /// Reads up to `units` units into `target`; returns how many there were.
  virtual size_t read_large(const LargeName& name, unsigned long long place, void* target,
                            size_t units) = 0;
  /// Runs `body`, in which all reads of large values are of the same moment, whatever other
  /// sessions commit meanwhile.
  virtual void in_one_view(const std::function<void()>& body) = 0;
  /// Overwrites and extends; what lies between the old end and `place` reads as zeros (blanks for
  /// characters). ORA-22920 where the session holds no lock for writing. Takes effect as a whole or
  /// not at all.
  virtual void write_large(const LargeName& name, unsigned long long place, const void* source,
                           size_t units) = 0;
  /// The same for a part of a unit that has a mark. What is left of a write that fails is undone
  /// with the unit.
  virtual void write_part(const LargeName& name, unsigned long long place, const void* source,
                          size_t units) = 0;
  /// Ends a value that belongs to no row. ORA-22920 as for a write.
  virtual void remove_large(const LargeName& name) = 0;

  /// Stops the operation that runs on another thread with ORA-01013; without one, does nothing,
  /// also not to a later operation. Any thread.
  virtual void interrupt() noexcept = 0;
};

/// Opens the database that a connect string names: a net service name ([A-Za-z0-9_.$-]+, the file
/// NAME.db in the folder of the environment variable OCI8_DATA), ":memory:", or a path with a
/// slash. ORA-12154 for anything else and for a file that is not there.
std::unique_ptr<Connection> open_database(std::string_view connect_string);

}  // namespace oci8

#endif
