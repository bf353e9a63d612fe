// Queries: select lists, joins, grouping, set operations.
// A query inside of another one is always a complete piece of engine SQL: what is around it selects
// from it (select_from, column_of) instead of changing it. Subqueries see the scope they are given
// as `outer`, and report what they read of it there (Scope::correlated).
#ifndef OCI8_DIALECT_QUERY_H
#define OCI8_DIALECT_QUERY_H

#include <string>
#include <vector>

#include "dialect_expression.h"

namespace oci8 {

/// How the columns of a translated query are named in engine SQL: by their names, for a query
/// whose columns others refer to; "1", "2", ... for one that only this translation goes on with.
enum class Naming : ub1 { Names, Positions };

/// A translated query. `columns` are what a describe reports, `types` what the dialect knows of
/// them: a column without a type is described as character data.
struct Query {
  Fragment sql;
  std::vector<ColumnInfo> columns;
  std::vector<StaticType> types;
  int unnamed = -1;  // source offset of an expression among them that was given no name
  bool lockable = false;  // its rows are those of its tables: no groups, no DISTINCT, no UNION
  bool one_row = false;  // never more than one row: groups without GROUP BY
  bool ordered = false;  // ends in ORDER BY
  bool limited = false;  // ends in a row limit
  std::vector<Source> sources;  // of its first block, for a FOR UPDATE behind it
};

/// Reads a query, with its set operations and ORDER BY, up to what cannot belong to it.
Query query(Context& context, Scope* outer, Naming naming);

/// Reads a query in parentheses as a single value, from behind the opening parenthesis.
Fragment scalar_subquery(Context& context, Scope& scope);

/// SELECT <value of each column> FROM (query): `values` are made of column_of.
Fragment select_from(const Query& inner, const std::vector<Fragment>& values);
/// Column `index` of the query that select_from selects from.
Fragment column_of(const Query& inner, size_t index);

/// The row limit of the ROWNUM bounds among conditions, which are taken out; empty without any.
std::string take_limit(std::vector<Fragment>& conditions);

/// Reads the FROM clause behind its keyword, and puts its tables into the scope.
struct FromClause {
  std::vector<Fragment> items;  // what stands between its commas
  bool joins = false;  // has JOIN syntax: then no outer-join marks
};
FromClause from_clause(Context& context, Scope& scope);
/// Makes columns nullable whose tables carry outer-join marks in the conditions.
void note_outer_joins(Scope& scope, const std::vector<Fragment>& conditions);
/// The clause in engine SQL: with the marked conditions, which are taken out, as outer joins.
Fragment join_sources(const FromClause& clause, std::vector<Fragment>& conditions);

/// A row-limited query as one that the engine does not merge with the query around it: it would
/// sort first and limit then.
Fragment fenced(const Fragment& limited);

/// Whether a query begins at the current token.
bool at_query(const Tokens& tokens);

}  // namespace oci8

#endif
