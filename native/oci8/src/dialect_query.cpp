// SELECT blocks and their combinations. Blocks are written in the engine's own order of clauses,
// which is the server's; what differs is when rows are counted (ROWNUM), how NULLs sort, and what
// the engine lets pass that the server refuses.

#include "dialect_query.h"

#include <algorithm>
#include <set>
#include <utility>

#include "declared_type.h"

namespace oci8 {
namespace {

constexpr std::string_view kInner = "\"OCI8$Q\"";

struct Item {
  Fragment value;
  std::string name;
};

bool at_set_operator(const Tokens& tokens) {
  return tokens.is_word("UNION") || tokens.is_word("INTERSECT") || tokens.is_word("MINUS");
}

// Looks ahead only: a wrong guess costs a row limit in a query of its own, nothing else.
bool at_aggregate(const Tokens& tokens) {
  static constexpr std::string_view kNames[] = {"COUNT", "SUM", "AVG", "MIN", "MAX"};
  return tokens.is_symbol("(", 1) &&
         std::ranges::any_of(kNames, [&](std::string_view name) { return tokens.is_word(name); });
}

// The server sorts NULL as the greatest value, the engine as the least.
std::string direction(Tokens& tokens, bool nullable) {
  const bool descending = tokens.accept_word("DESC");
  if (!descending) tokens.accept_word("ASC");
  bool last = !descending;
  if (tokens.is_word("NULLS")) {
    tokens.skip();
    last = tokens.is_word("LAST");
    if (!last && !tokens.is_word("FIRST")) tokens.fail_here(905);
    tokens.skip();
  }
  std::string result = descending ? " DESC" : "";
  if (nullable) result += last ? " NULLS LAST" : " NULLS FIRST";
  return result;
}

// One SELECT ... FROM ... WHERE ... GROUP BY ... HAVING, with ORDER BY where it stands alone.
// Reading jumps about in the tokens: FROM, WHERE, GROUP BY and HAVING first, then back to the
// select list, then on to the ORDER BY. The state between these steps is the block's members.
class SelectBlock {
 public:
  SelectBlock(Context& context, Scope* outer, Naming naming)
      : context_(context), scope_(outer), naming_(naming) {}

  // FROM and WHERE are read before the select list, because its names mean columns of the tables;
  // the ORDER BY after it, because that may mean its aliases.
  Query read(bool with_order) {
    tokens().expect_word("SELECT", 928);
    distinct_ = tokens().accept_word("DISTINCT") || tokens().accept_word("UNIQUE");
    if (!distinct_) tokens().accept_word("ALL");
    const size_t list = tokens().position();
    find_from();
    const size_t from = tokens().position();
    tokens().skip();
    // As on the server: a draw in a condition would advance the sequence for rows that are thrown
    // away.
    scope_.sequences = false;
    from_ = from_clause(context_, scope_);
    read_where(with_order);
    read_grouping();
    // Behind a member of a set operation it would be that of the whole, which order_whole reads.
    with_order = with_order && tokens().is_word("ORDER");
    const size_t behind = tokens().position();
    // Only the rows of the statement itself can draw, each once, and none that others are made of.
    scope_.sequences =
        scope_.outer == nullptr && !distinct_ && !scope_.grouped && !tokens().is_word("ORDER");
    tokens().seek(list);
    read_list(from);
    tokens().seek(behind);
    if (with_order) read_order();
    return finish(with_order);
  }

 private:
  Tokens& tokens() { return context_.tokens; }

  // Tables must be known before the select list that names their columns.
  void find_from() {
    for (size_t depth = 0;; tokens().skip()) {
      if (tokens().at_end()) tokens().fail_here(923);
      if (depth == 0 && tokens().is_word("FROM")) return;
      list_aggregates_ = list_aggregates_ || at_aggregate(tokens());
      list_numbers_ = list_numbers_ || tokens().is_word("ROWNUM");
      if (tokens().is_symbol("(")) ++depth;
      if (!tokens().is_symbol(")")) continue;
      if (depth == 0) tokens().fail_here(923);
      --depth;
    }
  }

  // Whether anything counts or sorts the rows must be known now: from here on columns are named
  // as the limited rows have them.
  void read_where(bool with_order) {
    if (tokens().accept_word("WHERE")) conditions_ = conjuncts(context_, scope_);
    limit_ = take_limit(conditions_);
    note_outer_joins(scope_, conditions_);
    if (tokens().is_word("CONNECT") || tokens().is_word("START")) tokens().fail_here(3001);
    const bool counts_first = distinct_ || list_aggregates_ || tokens().is_word("GROUP") ||
                              tokens().is_word("HAVING") ||
                              (with_order && tokens().is_word("ORDER"));
    // A window cannot stand inside of a group function: there the rows bring their numbers along.
    const bool numbers_first = list_aggregates_ && list_numbers_;
    if ((!limit_.empty() && counts_first) || numbers_first) limit_sources();
    if (numbers_first) number_sources();
  }

  // Keys are kept as engine SQL: an expression of the select list is the key when it is written
  // the same.
  // HAVING may stand in front of GROUP BY, too, but needs its keys.
  void read_grouping() {
    const size_t having = tokens().position();
    const bool having_first = tokens().is_word("HAVING");
    if (having_first) find_groups();
    const size_t groups = tokens().position();
    if (tokens().accept_word("GROUP")) read_groups();
    const size_t behind = tokens().position();
    if (having_first) tokens().seek(having);
    if (tokens().accept_word("HAVING")) read_having();
    scope_.aggregates = true;
    if (!having_first || groups == behind) return;
    if (tokens().position() != groups) tokens().fail_here(933);
    tokens().seek(behind);
  }

  // From a HAVING to the GROUP BY behind it, or to the end of the block.
  void find_groups() {
    while (!tokens().at_end() && !tokens().is_word("GROUP") && !tokens().is_word("ORDER") &&
           !tokens().is_symbol(")") && !at_set_operator(tokens())) {
      if (tokens().accept_symbol("(")) {
        tokens().skip_parenthesis();
      } else {
        tokens().skip();
      }
    }
  }

  void read_having() {
    scope_.aggregates = true;
    scope_.grouped = true;
    having_ = condition(context_, scope_);
    check_grouping(*having_);
  }

  void read_groups() {
    tokens().expect_word("BY", 924);
    scope_.grouped = true;
    std::vector<std::string> keys;
    do {
      Fragment key = expression(context_, scope_);
      refuse_large(key);
      if (key.integer) key.sql = constant(key);
      groups_.add(groups_.sql.empty() ? "" : ", ").add(key);
      keys.push_back(key.sql);
    } while (tokens().accept_symbol(","));
    scope_.group_keys = std::move(keys);
  }

  // The engine would take a plain number for a position in the select list.
  static std::string constant(const Fragment& number) { return "(0+" + number.sql + ")"; }

  // The engine would answer with the column of some row of the group.
  void check_grouping(const Fragment& value) const {
    if (scope_.grouped && value.bare >= 0) {
      fail(scope_.group_keys.empty() ? 937 : 979, {}, value.bare);
    }
  }

  // --- Row limits --------------------------------------------------------------------------------

  // ROWNUM counts rows before they are grouped or sorted: the limited join becomes a table of its
  // own, whose columns stand for those of its parts from here on.
  // The columns get short names of our own: two tables may have columns of one name, which a
  // subquery could not give twice.
  void limit_sources() {
    limited_ = quote_name("OCI8$R" + std::to_string(++context_.names_made));
    size_t number = 0;
    for (Source& source : scope_.sources) {
      for (ScopeColumn& column : source.columns) {
        const std::string name = quote_name("c" + std::to_string(++number));
        replaced_.push_back(column.sql + " AS " + name);
        column.sql = limited_ + "." + name;
      }
      // What the conditions used was written before and is inside; from here on it is counted for
      // those outside.
      source.rowid_used = false;
      if (source.rowid.empty()) continue;
      const std::string name = quote_name("r" + std::to_string(++number));
      rowids_.emplace_back(&source, source.rowid + " AS " + name);
      source.rowid = limited_ + "." + name;
    }
  }

  void number_sources() {
    replaced_.push_back("row_number() OVER () AS \"n\"");
    scope_.row_number = limited_ + ".\"n\"";
  }

  // Row numbers go along only where they were asked for: a view among the tables has none.
  Fragment limited_sources(const Fragment& sources) {
    Fragment inner = fragment("SELECT ", 0);
    for (const auto& [source, column] : rowids_) {
      if (source->rowid_used) replaced_.push_back(column);
    }
    for (size_t i = 0; i < replaced_.size(); ++i) {
      inner.add(i > 0 ? "," : "").add(replaced_[i]);
    }
    inner.add(" FROM ").add(sources);
    if (!conditions_.empty()) inner.add(" WHERE ").add(join_conditions(conditions_, " AND "));
    if (!limit_.empty()) inner.add(" LIMIT " + limit_);
    conditions_.clear();
    limit_.clear();
    Fragment result = fragment("(", 0);
    result.add(fenced(inner)).add(") AS " + limited_);
    deepen(result, 6);
    return result;
  }

  // --- The select list ---------------------------------------------------------------------------

  // Behind the last item must stand the very FROM that was found before.
  void read_list(size_t from) {
    scope_.select_list = true;
    do {
      const ub4 offset = tokens().offset();
      if (tokens().accept_symbol("*")) {
        for (const Source& source : scope_.sources) add_columns(source, offset);
      } else if (!table_star()) {
        items_.push_back(read_item());
      }
    } while (tokens().accept_symbol(","));
    // Something stands between the last item and FROM that is neither.
    if (tokens().position() != from) tokens().fail_here(923);
    scope_.select_list = false;
    check_items();
  }

  void check_items() const {
    for (const Item& item : items_) {
      check_grouping(item.value);
      if (distinct_) refuse_large(item.value);
    }
  }

  // name.* or owner.name.*; anything else is an expression and is left alone.
  bool table_star() {
    size_t parts = 0;
    while (tokens().at_name(2 * parts) && tokens().is_symbol(".", 2 * parts + 1)) ++parts;
    if (parts == 0 || !tokens().is_symbol("*", 2 * parts)) return false;
    const ub4 offset = tokens().offset();
    std::string table;
    for (; parts > 0; --parts) {
      table = tokens().name(903);
      tokens().skip();
    }
    tokens().skip();
    for (const Source& source : scope_.sources) {
      if (source.name != table) continue;
      add_columns(source, offset);
      return true;
    }
    fail(942, {}, static_cast<int>(offset));
  }

  // A merged column of a USING join appears once. Of two columns of one name, which an inline view
  // may have, the engine would give the first one twice.
  void add_columns(const Source& source, ub4 offset) {
    std::set<std::string_view> names;
    for (const ScopeColumn& column : source.columns) {
      if (!names.insert(column.info.name).second) fail(918, {}, static_cast<int>(offset));
      if (column.merged) continue;
      Fragment value = fragment(column.sql, offset);
      value.type = column.type();
      value.nullable = column.info.nullable;
      value.not_null = column.info.not_null;
      const bool key = std::ranges::find(scope_.group_keys, column.sql) != scope_.group_keys.end();
      if (!key) value.bare = static_cast<int>(offset);
      items_.push_back({std::move(value), column.info.name});
    }
  }

  // AS is optional, so an alias is any name that follows; a reserved word there is FROM or an
  // error.
  Item read_item() {
    const size_t first = tokens().position();
    Item result;
    context_.item = first;
    result.value = expression(context_, scope_);
    bool named = false;
    result.name = implied_name(first, named);
    const bool announced = tokens().accept_word("AS");
    if (announced || tokens().at_name()) {
      result.name = tokens().name(923);
    } else if (!named && unnamed_ < 0) {
      unnamed_ = static_cast<int>(result.value.offset);
    }
    return result;
  }

  // A column is called by its name without qualifiers, an expression by its text.
  std::string implied_name(size_t first, bool& named) {
    const size_t last = tokens().position();
    tokens().seek(first);
    while (tokens().position() + 1 < last && tokens().is_symbol(".", 1)) tokens().skip(2);
    const size_t at = tokens().position();
    const bool single = at + 1 == last;
    named = single && tokens().at_name();
    std::string name = named ? tokens().name(904) : tokens().text_of(single ? at : first, last);
    tokens().seek(last);
    return name;
  }

  // --- ORDER BY ----------------------------------------------------------------------------------

  // An item that is named by alias or position is written as its position: it is not computed
  // twice.
  void read_order() {
    tokens().skip();
    tokens().expect_word("BY", 924);
    // All at once, in front of the first key: an alias of a later item may be meant, too.
    for (size_t i = 0; i < items_.size(); ++i) {
      scope_.aliases.emplace_back(items_[i].name, items_[i].value);
    }
    do {
      const std::optional<size_t> position = ordered_item();
      Fragment key = position ? fragment(std::to_string(*position + 1), tokens().offset())
                              : expression(context_, scope_);
      refuse_large(position ? items_[*position].value : key);
      if (!position) check_key(key);
      if (!position && key.integer) key.sql = constant(key);
      const bool nullable = position ? items_[*position].value.nullable : key.nullable;
      order_.add(order_.sql.empty() ? "" : ", ").add(key).add(direction(tokens(), nullable));
    } while (tokens().accept_symbol(","));
    // A group function here groups the whole query.
    check_items();
  }

  // Rows that are distinct have no values but those of the select list.
  void check_key(const Fragment& key) const {
    const auto same = [&](const Item& item) { return item.value.sql == key.sql; };
    if (distinct_ && (key.sources != 0 || key.aggregate) && std::ranges::none_of(items_, same)) {
      fail(1791, {}, static_cast<int>(key.offset));
    }
    check_grouping(key);
  }

  // A position in the select list, or the alias of one of its items.
  std::optional<size_t> ordered_item() {
    const bool ends = tokens().is_symbol(",", 1) || tokens().is_word("ASC", 1) ||
                      tokens().is_word("DESC", 1) || tokens().is_word("NULLS", 1) ||
                      tokens().is_word("FOR", 1) || tokens().is_word("WITH", 1) ||
                      tokens().spelling(1).empty() || tokens().is_symbol(")", 1);
    if (!ends) return std::nullopt;
    if (tokens().kind() == TokenKind::Number) {
      const long long position = tokens().integer(static_cast<long long>(items_.size()), 1785);
      if (position < 1) tokens().fail_here(1785);
      return static_cast<size_t>(position) - 1;
    }
    if (!tokens().at_name()) return std::nullopt;
    const size_t first = tokens().position();
    const std::string name = tokens().name(904);
    const auto found = std::ranges::find(items_, name, &Item::name);
    if (found != items_.end()) return static_cast<size_t>(found - items_.begin());
    tokens().seek(first);
    return std::nullopt;
  }

  // --- The whole ---------------------------------------------------------------------------------

  // HAVING alone makes one group of the table, but for the engine only where the select list holds
  // a group function: one is added that leaves the item as it is.
  void group_whole_table() {
    const auto aggregate = [](const Item& item) { return item.value.aggregate; };
    if (!having_ || !groups_.sql.empty() || std::ranges::any_of(items_, aggregate)) return;
    Fragment& value = items_.front().value;
    Fragment grouped = fragment("CASE WHEN count(*) >= 0 THEN ", value.offset);
    grouped.add(value).add(" END");
    deepen(grouped, 5);
    value.sql = std::move(grouped.sql);
    value.marks = std::move(grouped.marks);
    value.weight = grouped.weight;
  }

  // Every item is given its name: the engine makes names of its own for expressions.
  void write_list(Fragment& sql, Query& result) {
    for (size_t i = 0; i < items_.size(); ++i) {
      Item& item = items_[i];
      const std::string name = naming_ == Naming::Names ? item.name : std::to_string(i + 1);
      sql.add(i > 0 ? ", " : "").add(item.value).add(" AS " + quote_name(name));
      StaticType type = item.value.type;
      // A column without a type is described as character data: one byte for NULL, the longest for
      // a placeholder.
      if (type.code == 0) type.size = item.value.null ? 1 : kMaxText;
      result.columns.push_back(describe(type, std::move(item.name), item.value.nullable));
      result.columns.back().not_null = item.value.not_null;
      result.types.push_back(item.value.type);
    }
  }

  // What is left of the limit holds for rows as they come. Only text and marks leave the block:
  // which tables it reads is nothing to the query around it.
  Query finish(bool ordered) {
    Query result;
    ++context_.queries;
    Fragment sql = fragment(distinct_ ? "SELECT DISTINCT " : "SELECT ", tokens().offset());
    group_whole_table();
    write_list(sql, result);
    Fragment sources = join_sources(from_, conditions_);
    if (!limited_.empty()) sources = limited_sources(sources);
    sql.add(" FROM ").add(sources);
    if (!conditions_.empty()) sql.add(" WHERE ").add(join_conditions(conditions_, " AND "));
    if (!groups_.sql.empty()) sql.add(" GROUP BY ").add(groups_);
    if (having_) sql.add(" HAVING ").add(*having_);
    if (ordered) sql.add(" ORDER BY ").add(order_);
    if (!limit_.empty()) sql.add(" LIMIT " + limit_);
    result.unnamed = unnamed_;
    result.ordered = ordered;
    result.limited = !limit_.empty();
    // A group function without GROUP BY makes one row, also of no rows.
    result.one_row = scope_.grouped && groups_.sql.empty();
    result.lockable = !distinct_ && !scope_.grouped;
    result.sources = std::move(scope_.sources);
    result.sql = fragment("", sql.offset);
    result.sql.sql = std::move(sql.sql);
    result.sql.marks = std::move(sql.marks);
    result.sql.weight = sql.weight;
    return result;
  }

  Context& context_;
  Scope scope_;
  const Naming naming_;
  bool distinct_ = false;
  bool list_aggregates_ = false;
  bool list_numbers_ = false;  // ROWNUM is in the select list
  FromClause from_;
  std::vector<Fragment> conditions_;
  std::string limit_;
  std::string limited_;  // the limited join's name in engine SQL, where there is one
  std::vector<std::string> replaced_;
  std::vector<std::pair<const Source*, std::string>> rowids_;
  Fragment groups_;
  std::optional<Fragment> having_;
  std::vector<Item> items_;
  int unnamed_ = -1;
  Fragment order_;
};

// --- Set operations ------------------------------------------------------------------------------

// The query as a table that is read whole.
// The engine takes neither parentheses nor ORDER BY nor LIMIT around a member of a set operation,
// but any query as a table.
void make_table(Query& inner) {
  Fragment sql = fragment("SELECT * FROM (", inner.sql.offset);
  sql.add(inner.limited ? fenced(inner.sql) : inner.sql).add(")");
  deepen(sql, 6);
  inner.sql = std::move(sql);
  inner.ordered = inner.limited = false;
}

Query term(Context& context, Scope* outer, Naming naming, bool with_order) {
  Tokens& tokens = context.tokens;
  if (!tokens.is_symbol("(")) return SelectBlock(context, outer, naming).read(with_order);
  tokens.skip();
  Query inner = query(context, outer, naming);
  tokens.expect_symbol(")", 907);
  make_table(inner);
  return inner;
}

// The engine knows no limit inside a set operation but that of a table.
void make_member(Query& member) {
  if (member.limited) make_table(member);
}

// Where a date or a number may come, both may.
bool agree(const StaticType& left, const StaticType& right) {
  const auto date_or_number = [](const StaticType& type) {
    return type.code == SQLT_NUM || type.code == SQLT_DAT;
  };
  if (left.open || right.open) return date_or_number(left) && date_or_number(right);
  return left.value_class() == right.value_class();
}

// What a placeholder holds is known at run time only, and may be of any length: beside a column
// with a type it is converted to that type's class. A literal NULL is described with one byte and
// takes the other's type as it is.
void convert_given(Query& member, const Query& other, Naming naming) {
  Fragment named = fragment("WITH ", member.sql.offset);
  named.add(kInner);
  std::vector<Fragment> values;
  bool converted = false;
  for (size_t i = 0; i < member.columns.size(); ++i) {
    ColumnInfo& column = member.columns[i];
    Fragment value = column_of(member, i);
    if (value.type.code == 0 && column.size > 1 && other.types[i].code != 0) {
      value = coerce(value, other.types[i].value_class());
      member.types[i] = value.type;
      column = describe(value.type, std::move(column.name), column.nullable);
      converted = true;
    }
    const std::string position = std::to_string(i + 1);
    named.add(i > 0 ? "," : "(").add(quote_name(position));
    value.add(" AS " + quote_name(naming == Naming::Names ? column.name : position));
    values.push_back(std::move(value));
  }
  if (!converted) return;
  named.add(") AS (").add(member.sql).add(") SELECT * FROM ").add(kInner);
  deepen(named, 6);
  member.sql = std::move(named);
  member.sql = select_from(member, values);
}

// The first query names the columns; types must agree in class and are widened.
// A large value can neither be compared with others nor be taken for another type's.
void combine_columns(Query& left, Query& right, Naming naming, bool all, ub4 offset) {
  if (left.columns.size() != right.columns.size()) fail(1789, {}, static_cast<int>(offset));
  convert_given(left, right, naming);
  convert_given(right, left, naming);
  for (size_t i = 0; i < left.columns.size(); ++i) {
    StaticType& type = left.types[i];
    const StaticType& other = right.types[i];
    if (type.code != 0 && other.code != 0 && !agree(type, other)) {
      fail(1790, {}, static_cast<int>(offset));
    }
    const bool large = may_be_large(type.code) || may_be_large(other.code);
    if (large && (!all || type.code != other.code)) fail(932, {}, static_cast<int>(offset));
    const bool nullable = left.columns[i].nullable || right.columns[i].nullable;
    const ub2 size = std::max(left.columns[i].size, right.columns[i].size);
    type = common_type(type, other);
    left.columns[i] = describe(type, std::move(left.columns[i].name), nullable);
    if (type.code == 0) left.columns[i].size = size;
  }
}

constexpr std::string_view kUnionAll = " UNION ALL ";

// All of them bind alike, from left to right, in both dialects.
std::string_view set_operator(Tokens& tokens) {
  if (tokens.accept_word("INTERSECT")) return " INTERSECT ";
  if (tokens.accept_word("MINUS")) return " EXCEPT ";
  tokens.skip();
  return tokens.accept_word("ALL") ? kUnionAll : " UNION ";
}

// A combined query has no columns but those that it gives: no expressions here.
size_t ordered_column(Tokens& tokens, const Query& whole) {
  if (tokens.kind() == TokenKind::Number) {
    const long long position = tokens.integer(static_cast<long long>(whole.columns.size()), 1785);
    if (position < 1) tokens.fail_here(1785);
    return static_cast<size_t>(position) - 1;
  }
  const size_t first = tokens.position();
  const std::string name = tokens.name(1785);
  const auto found = std::ranges::find(whole.columns, name, &ColumnInfo::name);
  if (found != whole.columns.end()) return static_cast<size_t>(found - whole.columns.begin());
  tokens.seek(first);
  tokens.fail_here(1785);
}

void order_whole(Tokens& tokens, Query& whole) {
  tokens.expect_word("BY", 924);
  std::string separator = " ORDER BY ";
  do {
    const size_t column = ordered_column(tokens, whole);
    if (may_be_large(whole.types[column].code)) tokens.fail_here(932);
    whole.sql.add(separator + std::to_string(column + 1));
    whole.sql.add(direction(tokens, whole.columns[column].nullable));
    separator = ", ";
  } while (tokens.accept_symbol(","));
  whole.ordered = true;
}

}  // namespace

bool at_query(const Tokens& tokens) {
  size_t ahead = 0;
  while (tokens.is_symbol("(", ahead)) ++ahead;
  return tokens.is_word("SELECT", ahead);
}

// ORDER BY belongs to the last member's block only where there is a single one.
Query query(Context& context, Scope* outer, Naming naming) {
  const Nesting nesting(context);
  Tokens& tokens = context.tokens;
  const size_t drawn = context.sequences.size();
  const ub4 first = tokens.offset();
  Query whole = term(context, outer, naming, true);
  // Behind an ORDER BY nothing more can be combined.
  if (!at_set_operator(tokens) || whole.ordered) return whole;
  make_member(whole);
  while (at_set_operator(tokens)) {
    const std::string_view operation = set_operator(tokens);
    const ub4 offset = tokens.offset();
    Query member = term(context, outer, naming, false);
    make_member(member);
    combine_columns(whole, member, naming, operation == kUnionAll, offset);
    whole.sql.add(operation).add(member.sql);
    whole.one_row = whole.lockable = false;
  }
  if (context.sequences.size() > drawn) fail(2287, {}, static_cast<int>(first));
  if (tokens.accept_word("ORDER")) order_whole(tokens, whole);
  return whole;
}

Fragment scalar_subquery(Context& context, Scope& scope) {
  Query inner = query(context, &scope, Naming::Positions);
  context.tokens.expect_symbol(")", 907);
  if (inner.columns.size() != 1) fail(913, {}, static_cast<int>(inner.sql.offset));
  Fragment result = fragment("(", inner.sql.offset);
  if (inner.one_row) {
    result.add(inner.sql);
  } else {
    // The engine alone would take the first of several rows.
    const Fragment one = call("ora_single", {column_of(inner, 0)}, inner.sql.offset);
    result.add(select_from(inner, {one}));
  }
  result.add(")");
  deepen(result, 6);
  result.type = inner.types.front();
  result.type.bound = 0;
  result.sources = std::exchange(scope.correlated, std::uint64_t{0});
  return result;
}

// The way to convert or store what a query gives, with the query itself left as it is.
Fragment select_from(const Query& inner, const std::vector<Fragment>& values) {
  Fragment result = fragment("SELECT ", inner.sql.offset);
  for (size_t i = 0; i < values.size(); ++i) result.add(i > 0 ? "," : "").add(values[i]);
  result.add(" FROM (").add(inner.sql).add(") AS ").add(kInner);
  deepen(result, 6);
  return result;
}

Fragment column_of(const Query& inner, size_t index) {
  Fragment result = fragment(kInner, inner.sql.offset);
  result.add("." + quote_name(std::to_string(index + 1)));
  result.type = inner.types[index];
  return result;
}

Fragment fenced(const Fragment& limited) {
  constexpr std::string_view kName = "\"OCI8$L\"";
  Fragment result = fragment("WITH ", limited.offset);
  result.add(kName).add(" AS MATERIALIZED (").add(limited).add(") SELECT * FROM ").add(kName);
  deepen(result, 6);
  return result;
}

// Several bounds hold together, so the least counts.
std::string take_limit(std::vector<Fragment>& conditions) {
  std::string limit;
  bool several = false;
  for (const Fragment& part : conditions) {
    if (part.limit.empty()) continue;
    several = !limit.empty();
    limit += (several ? "," : "") + part.limit;
  }
  std::erase_if(conditions, [](const Fragment& part) { return !part.limit.empty(); });
  return several ? "min(" + limit + ")" : limit;
}

}  // namespace oci8
