// Statements that were closed, kept for the next one of the same text: programs that prepare each
// statement anew mostly prepare the same few.
#ifndef OCI8_SQLITE_CACHE_H
#define OCI8_SQLITE_CACHE_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dialect.h"
#include "sqlite_handle.h"

namespace oci8 {

/// A text's translation, and what SQLite has made of it.
struct Translated {
  Translation translation;
  SqliteStatementOwner statement;  // of a query or a change
  int schema_version = 0;  // that the translation belongs to
  ub4 placeholders = 0;  // of SQLite's statement
};

/// The statements of one session that nobody uses. They are reset and hold no values, so that they
/// are in nobody's way. A text means the same here as long as user and schema are the same: the
/// owner empties the cache for another user and does not use what is of another schema.
class StatementCache {
 public:
  /// Takes the statement of this text out, if there is one.
  std::optional<Translated> take(std::string_view text);
  /// Keeps a statement; the one that was kept for longest makes room.
  void keep(std::string_view text, Translated&& statement) noexcept;
  void clear() noexcept { entries_.clear(); }

 private:
  struct Entry {
    std::string text;
    Translated translated;
  };

  std::vector<Entry> entries_;  // the one kept last at the end; one for each text
};

}  // namespace oci8

#endif
