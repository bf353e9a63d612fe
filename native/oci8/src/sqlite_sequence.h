// Sequences: rows of OCI8$SEQUENCES, and the values that this session drew from them.
//
//   sequence_nextval(name)  ORA-02289 without the sequence, ORA-08004 when it is exhausted
//   sequence_currval(name)  ORA-08002 before the session's first value
//
// What differs from the server: a value that is drawn inside a transaction is part of it, so that
// a rollback gives it back, and another session waits for the end of the transaction.
#ifndef OCI8_SQLITE_SEQUENCE_H
#define OCI8_SQLITE_SEQUENCE_H

#include <map>
#include <string>
#include <string_view>

#include "sqlite_handle.h"

namespace oci8 {

class SqliteSession;

class Sequences {
 public:
  explicit Sequences(SqliteSession& session) : session_(session) {}

  /// This object outlives the connection's use of the functions.
  void register_functions();
  /// The next value, which the session remembers as its current one.
  long long next(std::string_view name);
  /// The value that this session drew last.
  long long current(std::string_view name);
  /// Forgets the values drawn so far, for a new session.
  void forget() { drawn_.clear(); }

 private:
  void advance(std::string_view name, long long value);

  SqliteSession& session_;
  std::map<std::string, long long, std::less<>> drawn_;
  SqliteStatementOwner find_;
  SqliteStatementOwner advance_;
};

}  // namespace oci8

#endif
