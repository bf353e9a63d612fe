// FROM clauses: tables, inline views, joins in both syntaxes.
// The reader fills the scope and gives back engine SQL for each item between commas. Outer joins by
// (+) are known only when the WHERE clause has been read, which is why joining the items is a
// second step (join_sources).
#include <algorithm>

#include "declared_type.h"
#include "dialect_query.h"

namespace oci8 {
namespace {

// The bits of one machine word, which is also as many as the engine joins.
constexpr size_t kMaxSources = 64;

// These end a table's alias although the server reserves none of them.
bool at_join_word(const Tokens& tokens) {
  static constexpr std::string_view kJoinWords[] = {"JOIN", "INNER",   "LEFT",  "RIGHT",
                                                    "FULL", "NATURAL", "CROSS", "USING"};
  return std::ranges::any_of(kJoinWords,
                             [&](std::string_view word) { return tokens.is_word(word); });
}

// The join may put a row of NULLs in the place of these tables' rows.
void make_nullable(Scope& scope, size_t from, size_t to) {
  for (size_t i = from; i < to; ++i) {
    for (ScopeColumn& column : scope.sources[i].columns) {
      column.info.nullable = true;
      column.info.not_null = false;
    }
  }
}

class FromReader {
 public:
  FromReader(Context& context, Scope& scope) : context_(context), scope_(scope) {}

  FromClause read() {
    do {
      clause_.items.push_back(item());
    } while (tokens().accept_symbol(","));
    return std::move(clause_);
  }

 private:
  Tokens& tokens() { return context_.tokens; }

  // A table and all that is joined to it, up to the next comma. Joins group to the left.
  Fragment item() {
    const Nesting nesting(context_);
    // Sources from here on belong to this item: a join's condition may rename or null the columns
    // of its own tables only.
    const size_t first = scope_.sources.size();
    Fragment left = table();
    while (at_join_word(tokens()) && !tokens().is_word("USING")) left = join(left, first);
    return left;
  }

  // Parentheses hold a query or a join; nothing tells them apart but the word behind them.
  Fragment table() {
    const ub4 offset = tokens().offset();
    if (!tokens().is_symbol("(")) return named_table(offset);
    tokens().skip();
    if (at_query(tokens())) return inline_view(offset);
    Fragment inner = fragment("(", offset);
    inner.add(item()).add(")");
    deepen(inner, 3);
    clause_.joins = true;
    tokens().expect_symbol(")", 907);
    return inner;
  }

  // The alias is written even where it repeats the name: columns are always named with it.
  Fragment named_table(ub4 offset) {
    const std::string name = tokens().object_name(context_.schema.user(), 903);
    if (tokens().is_symbol("@")) tokens().fail_here(2019);
    std::vector<ColumnInfo> columns = table_columns(context_, name, offset);
    Fragment result = fragment(quote_name(name), offset);
    std::string alias = read_alias();
    if (alias.empty()) alias = name;
    result.add(add_source(alias, std::move(columns), offset));
    return result;
  }

  // An inner query sees the queries around this one, but not the tables beside it.
  Fragment inline_view(ub4 offset) {
    const size_t drawn = context_.sequences.size();
    Query inner = query(context_, scope_.outer, Naming::Names);
    if (context_.sequences.size() > drawn) fail(2287, {}, static_cast<int>(offset));
    tokens().expect_symbol(")", 907);
    std::string alias = read_alias();
    if (alias.empty()) alias = "OCI8$V" + std::to_string(++context_.names_made);
    Fragment result = fragment("(", offset);
    result.add(inner.limited ? fenced(inner.sql) : inner.sql);
    // Without a limit the engine may take the order of an inner query for meaningless.
    if (inner.ordered && !inner.limited) result.add(" LIMIT -1");
    result.add(")").add(add_source(alias, std::move(inner.columns), offset));
    deepen(result, 6);
    Source& source = scope_.sources.back();
    source.rowid.clear();
    // A literal NULL is described with one byte, and is text as any column without a value.
    for (size_t i = 0; i < inner.types.size(); ++i) {
      const StaticType& type = inner.types[i];
      source.columns[i].given = type.open || (type.code == 0 && source.columns[i].info.size > 1);
    }
    return result;
  }

  std::string read_alias() {
    if (!tokens().at_name() || at_join_word(tokens())) return {};
    return tokens().name(933);
  }

  // Returns how engine SQL gives the table its name. Two tables may share one as long as no column
  // is asked for by it; the engine needs two.
  std::string add_source(const std::string& name, std::vector<ColumnInfo> columns, ub4 offset) {
    if (scope_.sources.size() >= kMaxSources) fail(3001, {}, static_cast<int>(offset));
    const auto same = [&](const Source& source) { return source.name == name; };
    const std::string own = std::ranges::any_of(scope_.sources, same)
                                ? "OCI8$V" + std::to_string(++context_.names_made)
                                : name;
    Source source = table_source(own, std::move(columns));
    // Found under the name that the statement gives it, written under the one that the engine can
    // tell apart.
    source.name = name;
    scope_.sources.push_back(std::move(source));
    return " AS " + quote_name(own);
  }

  // left [NATURAL] [INNER | CROSS | LEFT | RIGHT | FULL [OUTER]] JOIN right [ON ... | USING (...)]
  Fragment join(const Fragment& left, size_t first) {
    clause_.joins = true;
    const bool natural = tokens().accept_word("NATURAL");
    const bool cross = tokens().accept_word("CROSS");
    std::string_view kind = cross ? " CROSS JOIN " : " JOIN ";
    if (!cross) kind = join_kind();
    tokens().expect_word("JOIN");
    // The tables of the left side are those from `first` to here, those of the right side the ones
    // behind.
    const size_t middle = scope_.sources.size();
    Fragment result = fragment("", left.offset);
    result.add(left).add(kind).add(table());
    if (cross) return result;
    // RIGHT and FULL keep rows of the right side whose left side is missing: the left columns may
    // be NULL then, and the merged ones are read from either.
    const bool keeps_right = kind == " RIGHT JOIN " || kind == " FULL JOIN ";
    if (keeps_right) make_nullable(scope_, first, middle);
    if (kind == " LEFT JOIN " || kind == " FULL JOIN ") make_nullable(scope_, middle, end());
    result.add(" ON ");
    if (natural || tokens().is_word("USING")) {
      return result.add(same_columns(first, middle, natural, keeps_right));
    }
    tokens().expect_word("ON");
    return result.add(condition(context_, scope_));
  }

  // OUTER adds nothing to LEFT, RIGHT and FULL.
  std::string_view join_kind() {
    std::string_view kind = " JOIN ";
    if (tokens().accept_word("INNER")) return kind;
    if (tokens().accept_word("LEFT")) kind = " LEFT JOIN ";
    if (tokens().accept_word("RIGHT")) kind = " RIGHT JOIN ";
    if (tokens().accept_word("FULL")) kind = " FULL JOIN ";
    if (kind != " JOIN ") tokens().accept_word("OUTER");
    return kind;
  }

  // The first table that has the column stands for all that were merged with it.
  ScopeColumn* find(const std::string& name, size_t from, size_t to) {
    for (size_t i = from; i < to; ++i) {
      for (ScopeColumn& column : scope_.sources[i].columns) {
        if (column.info.name == name && !column.merged) return &column;
      }
    }
    return nullptr;
  }

  // USING lists its columns; NATURAL means all that both sides have, in the order of the right one.
  std::vector<std::string> joined_names(size_t first, size_t middle, bool natural) {
    std::vector<std::string> names;
    if (!natural) {
      tokens().skip();
      tokens().expect_symbol("(", 906);
      do {
        const size_t at = tokens().position();
        names.push_back(tokens().name(904));
        if (find(names.back(), first, middle) && find(names.back(), middle, end())) continue;
        tokens().seek(at);
        tokens().fail_here(904, names.back());
      } while (tokens().accept_symbol(","));
      tokens().expect_symbol(")", 907);
      return names;
    }
    for (size_t i = middle; i < end(); ++i) {
      for (const ScopeColumn& column : scope_.sources[i].columns) {
        if (!column.merged && find(column.info.name, first, middle)) {
          names.push_back(column.info.name);
        }
      }
    }
    return names;
  }

  size_t end() const { return scope_.sources.size(); }

  // Written as a condition, so that the sides are converted as any comparison's are. Where a row
  // may lack its left side the merged column is read from whichever side there is.
  Fragment same_columns(size_t first, size_t middle, bool natural, bool keeps_right) {
    const ub4 offset = tokens().offset();
    std::vector<Fragment> equal;
    for (const std::string& name : joined_names(first, middle, natural)) {
      ScopeColumn* const left = find(name, first, middle);
      ScopeColumn* const right = find(name, middle, end());
      if (left == nullptr || right == nullptr) continue;
      Fragment left_value = fragment(left->sql, offset);
      left_value.type = left->type();
      Fragment right_value = fragment(right->sql, offset);
      right_value.type = right->type();
      make_comparable({&left_value, &right_value});
      equal.push_back(infix(left_value, " = ", right_value));
      right->merged = true;
      if (keeps_right) left->sql = "coalesce(" + left->sql + "," + right->sql + ")";
    }
    return join_conditions(equal, " AND ");
  }

  Context& context_;
  Scope& scope_;
  FromClause clause_;
};

// Takes the conditions out that mark `bit`.
std::vector<Fragment> take_marked(std::vector<Fragment>& conditions, std::uint64_t bit) {
  std::vector<Fragment> marked;
  for (Fragment& part : conditions) {
    if (part.outer == bit) marked.push_back(std::move(part));
  }
  std::erase_if(conditions, [bit](const Fragment& part) { return part.outer == bit; });
  // In the ON clause of an outer join they are conditions like any others.
  for (Fragment& part : marked) part.outer = 0;
  return marked;
}

// The two join syntaxes do not mix on the server either; and a condition says for one table only
// that its row may be missing.
std::uint64_t marked_sources(const FromClause& clause, const std::vector<Fragment>& conditions) {
  std::uint64_t marked = 0;
  for (const Fragment& part : conditions) {
    const bool several = (part.outer & (part.outer - 1)) != 0;
    if (several) fail(1468, {}, static_cast<int>(part.offset));
    if (part.outer != 0 && clause.joins) fail(3001, {}, static_cast<int>(part.offset));
    marked |= part.outer;
  }
  return marked;
}

// Tables that the marked conditions of `bit` read beside its own.
std::uint64_t needed_sources(const std::vector<Fragment>& conditions, std::uint64_t bit) {
  std::uint64_t needed = 0;
  for (const Fragment& part : conditions) {
    if (part.outer == bit) needed |= part.sources & ~bit;
  }
  return needed;
}

}  // namespace

FromClause from_clause(Context& context, Scope& scope) {
  return FromReader(context, scope).read();
}

// Known before the select list is read: what can be NULL is described so, and sorted so.
void note_outer_joins(Scope& scope, const std::vector<Fragment>& conditions) {
  for (const Fragment& part : conditions) {
    for (size_t i = 0; i < scope.sources.size(); ++i) {
      if ((part.outer >> i & 1) != 0) make_nullable(scope, i, i + 1);
    }
  }
}

// Tables without a mark come first; each other one follows the tables that its conditions read.
Fragment join_sources(const FromClause& clause, std::vector<Fragment>& conditions) {
  std::uint64_t waiting = marked_sources(clause, conditions);
  // Of a single table a mark says nothing, as on the server.
  if (clause.items.size() == 1) {
    for (Fragment& part : conditions) part.outer = 0;
    waiting = 0;
  }
  Fragment result = fragment("", 0);
  for (size_t i = 0; i < clause.items.size(); ++i) {
    if ((waiting >> i & 1) != 0) continue;
    result.add(result.sql.empty() ? "" : ", ").add(clause.items[i]);
  }
  while (waiting != 0) {
    const std::uint64_t before = waiting;
    for (size_t i = 0; i < clause.items.size(); ++i) {
      const std::uint64_t bit = std::uint64_t{1} << i;
      if ((waiting & bit) == 0 || (needed_sources(conditions, bit) & waiting) != 0) continue;
      // Every table is marked: there is no row for the first of them to be joined to.
      if (result.sql.empty()) fail(1416, {}, static_cast<int>(clause.items[i].offset));
      result.add(" LEFT JOIN ").add(clause.items[i]).add(" ON ");
      result.add(join_conditions(take_marked(conditions, bit), " AND "));
      waiting &= ~bit;
    }
    // No table of those that are left can be joined next: each waits for another one, in a circle.
    if (waiting == before) fail(1416, {}, static_cast<int>(clause.items.front().offset));
  }
  return result;
}

}  // namespace oci8
