// Names are looked up among the columns that the schema has reported and not left to the engine:
// what is written around a name depends on its type, and the errors need its place.
#include "dialect_scope.h"

#include "ascii.h"
#include "declared_type.h"

namespace oci8 {
namespace {

// Some 40 parentheses or 13 queries inside one another: about what the engine's own parser takes.
constexpr int kMaxNesting = 120;

// The engine's names are case-blind, also where ours are quoted: a quoted lower-case name would
// reach the same table.
bool is_hidden(std::string_view name) {
  return starts_with(name, "OCI8$") || starts_with(name, "SQLITE_");
}

struct Match {
  size_t source;
  const ScopeColumn* column;
};

// The whole scope is searched even after a match, for the second one that makes it ambiguous.
std::optional<Match> find_in(const Scope& scope, const std::string& table,
                             const std::string& column, ub4 offset) {
  std::optional<Match> match;
  for (size_t i = 0; i < scope.sources.size(); ++i) {
    const Source& source = scope.sources[i];
    if (!table.empty() && source.name != table) continue;
    for (const ScopeColumn& candidate : source.columns) {
      if (candidate.info.name != column || (table.empty() && candidate.merged)) continue;
      if (match) fail(918, {}, static_cast<int>(offset));
      match = Match{i, &candidate};
    }
  }
  return match;
}

// Bits are counted within one query only: for the query inside, a column of the outer one is as
// good as a constant.
void note_use(Scope& innermost, Scope& found, size_t source, Fragment& use) {
  const std::uint64_t bit = std::uint64_t{1} << source;
  if (&innermost == &found) {
    use.sources = bit;
    use.bare = static_cast<int>(use.offset);
  } else {
    found.correlated |= bit;
  }
}

}  // namespace

// A sum with a placeholder is open; what is given without one has no type at all.
StaticType ScopeColumn::type() const {
  StaticType type = type_of(info);
  if (!given) return type;
  if (type.code == SQLT_CHR) return {};
  return open_type(type.code == SQLT_DAT);
}

Nesting::Nesting(Context& context) : context_(context) {
  const auto here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
  if (context.depth >= kMaxNesting || context.stack - here > kStackToRead) {
    context.tokens.fail_here(3001);
  }
  ++context.depth;
}

// The system's own tables are not there for users, whatever the engine would say.
std::vector<ColumnInfo> table_columns(Context& context, const std::string& name, ub4 offset) {
  if (context.object.empty()) context.object = name;
  if (!context.defines.empty() && name == context.defines) {
    fail(1731, {}, static_cast<int>(offset));
  }
  std::optional<std::vector<ColumnInfo>> columns;
  if (!is_hidden(name)) columns = context.schema.columns_of(name);
  if (!columns) fail(942, {}, static_cast<int>(offset));
  return std::move(*columns);
}

// The innermost query that has the column wins, as in the engine, to which the qualified name is
// written: it comes to the same table by the same rule.
std::optional<Fragment> find_column(Scope& scope, const std::string& table,
                                    const std::string& column, ub4 offset) {
  for (Scope* at = &scope; at != nullptr; at = at->outer) {
    const std::optional<Match> match = find_in(*at, table, column, offset);
    if (!match) continue;
    Fragment use = fragment(match->column->sql, offset);
    use.type = match->column->type();
    use.nullable = match->column->info.nullable;
    use.not_null = match->column->info.not_null;
    note_use(scope, *at, match->source, use);
    return use;
  }
  return std::nullopt;
}

// The nearest tables decide, whether or not they have row numbers: a ROWID from a query further out
// would be a surprise.
std::optional<Fragment> find_rowid(Scope& scope, const std::string& table, ub4 offset) {
  for (Scope* at = &scope; at != nullptr; at = at->outer) {
    for (size_t i = 0; i < at->sources.size(); ++i) {
      Source& source = at->sources[i];
      if (!table.empty() && source.name != table) continue;
      // Every table has a ROWID, so that an unqualified one is ambiguous as soon as there are two.
      if (table.empty() && at->sources.size() > 1) fail(918, {}, static_cast<int>(offset));
      if (source.rowid.empty()) return std::nullopt;
      Fragment use = fragment("rowid_text(" + source.rowid + ")", offset);
      use.rowid = source.rowid;
      source.rowid_used = true;
      use.type = {SQLT_RID, 18, 0, 0, 0};
      use.nullable = false;
      deepen(use, 3);
      note_use(scope, *at, i, use);
      return use;
    }
  }
  return std::nullopt;
}

Source table_source(const std::string& name, std::vector<ColumnInfo> columns) {
  Source source;
  source.name = name;
  const std::string prefix = quote_name(name) + ".";
  for (ColumnInfo& column : columns) {
    std::string sql = prefix + quote_name(column.name);
    source.columns.push_back({std::move(column), std::move(sql)});
  }
  source.rowid = prefix + "rowid";
  return source;
}

}  // namespace oci8
