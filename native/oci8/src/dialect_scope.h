// What a name in a statement can mean: the tables of the query around it, and of the queries
// around that.
// Bits that stand for tables count the sources of one scope, in the order in which they were read;
// they mean nothing outside of it. dialect_from.cpp fills a scope, expressions read it.
#ifndef OCI8_DIALECT_SCOPE_H
#define OCI8_DIALECT_SCOPE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dialect_fragment.h"
#include "dialect_tokens.h"

namespace oci8 {

/// The first use of a sequence in a statement.
struct SequenceUse {
  std::string name;
  bool drawn = false;  // by NEXTVAL, in every row and before what follows in the text
};

/// Bytes of the calling thread's stack that reading a statement may take, and a little more. With
/// them every thread of at least twice as many can make any call; what the engine takes afterwards,
/// for a statement that was let through, is less. Sanitizers, and compilers that do not optimise,
/// make frames several times as large.
#if defined(__OPTIMIZE__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
constexpr std::uintptr_t kStackToRead = std::uintptr_t{128} * 1024;
#else
constexpr std::uintptr_t kStackToRead = std::uintptr_t{1024} * 1024;
#endif

/// A statement being translated.
struct Context {
  Context(const SqlText& sql, Schema& of_session) : tokens(sql), schema(of_session) {}

  Tokens tokens;
  Schema& schema;
  // Where the thread's stack stood when the translation began. Not the address of a variable, which
  // sanitizers may keep elsewhere.
  std::uintptr_t stack = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
  int depth = 0;  // how many expressions and queries are open around the current token
  int queries = 0;  // SELECTs read so far, at any depth
  int names_made = 0;  // for inline views without a name
  std::string object;  // the first table that the statement names
  std::string defines;  // the view that the statement defines
  std::vector<SequenceUse> sequences;  // used so far
  std::vector<LargePlace> large_places;
  std::vector<StoredPlace> stored_places;
  Checks checks = Checks::All;
  bool large = false;  // as in Translation
  bool draws = false;
  bool nowait = false;
  std::optional<size_t> item;  // first token of the value being read, where all are made in order
};

/// Counts one nesting level for its own lifetime; ORA-03001 where a statement nests too deeply, or
/// the stack does not hold more of it.
class Nesting {
 public:
  explicit Nesting(Context& context);
  ~Nesting() { --context_.depth; }
  Nesting(const Nesting&) = delete;
  Nesting& operator=(const Nesting&) = delete;

 private:
  Context& context_;
};

/// A column that can be named. Its SQL changes while the query is read: when its join merges it
/// with others, or when a row limit puts its tables into a subquery.
struct ScopeColumn {
  ColumnInfo info;
  std::string sql;  // how engine SQL names it
  bool merged = false;  // stands for the same column of a table before it (JOIN ... USING)
  bool given = false;  // of an inline view, and what it holds is known at run time only

  StaticType type() const;
};

/// A table, view or inline view of a FROM clause.
struct Source {
  std::string name;  // alias, else table name
  std::vector<ScopeColumn> columns;
  std::string rowid;  // how engine SQL names the row number; empty where there is none
  bool rowid_used = false;
};

/// The names that one query offers to its expressions, and what may stand in the clause that is
/// being read. Outer scopes outlive inner ones: they are on the stack of the functions around.
struct Scope {
  explicit Scope(Scope* around) : outer(around) {}

  Scope* outer;
  std::vector<Source> sources;
  std::vector<std::pair<std::string, Fragment>> aliases;  // of the select list, for ORDER BY
  std::vector<std::string> group_keys;
  std::uint64_t correlated = 0;  // tables that queries inside read, as bits
  bool select_list = false;  // ROWNUM numbers rows here
  std::string row_number;  // how engine SQL names ROWNUM; empty where rows have no number yet
  bool row_number_used = false;
  bool aggregates = false;  // group functions may stand here
  bool in_aggregate = false;
  bool grouped = false;  // holds group functions, or has a GROUP BY
  bool sequences = true;  // NEXTVAL may stand here
};

/// Columns of the table or view `name`; ORA-00942 where the user sees none of that name.
std::vector<ColumnInfo> table_columns(Context& context, const std::string& name, ub4 offset);

/// Resolves [table.]column from the innermost scope outwards; nothing where no scope has it.
/// ORA-00918 where one scope has it twice.
std::optional<Fragment> find_column(Scope& scope, const std::string& table,
                                    const std::string& column, ub4 offset);

/// The ROWID pseudo column of `table` (empty: of the only table of the scope).
std::optional<Fragment> find_rowid(Scope& scope, const std::string& table, ub4 offset);

/// A source for a table of the database under its name or alias.
Source table_source(const std::string& name, std::vector<ColumnInfo> columns);

}  // namespace oci8

#endif
