// A piece of engine SQL under construction, with what is known of its value: the static type
// decides how operators, comparisons and stores around it are written.
// Fragments are values: they are copied and put together, and nothing refers back to the tokens
// they came from but offsets. The functions at the end write the conversions.
#ifndef OCI8_DIALECT_FRAGMENT_H
#define OCI8_DIALECT_FRAGMENT_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dialect.h"

namespace oci8 {

/// What counts for conversions and comparisons; lengths and forms of a type make no difference.
/// Unknown is what only a run can tell; DateOrNumber what it can tell of a sum with a placeholder.
enum class ValueClass : ub1 { Unknown, Number, Text, Date, DateOrNumber, Raw, Long, Lob };

/// The type of an expression as far as it is known while the statement is translated. Sizes are
/// bytes.
struct StaticType {
  ub2 code = 0;  // SQLT_*; 0 where only the run decides (placeholders, NULL)
  ub2 size = 0;
  sb2 precision = 0;
  sb1 scale = 0;
  double bound = 0;  // greatest magnitude of a value known to be an integer, else 0
  // A literal with more digits than can be kept: computed with, but not stored.
  bool inexact = false;
  bool open = false;  // NUMBER or DATE: described as `code` says, but a run may give the other

  ValueClass value_class() const;
};

/// Types of results: a NUMBER without precision; the same with a known greatest magnitude; a
/// VARCHAR2 of at most `size` bytes (held to 1..4000); a DATE; a DATE or NUMBER that is described
/// as one of them; and the type of a column.
StaticType number_type();
StaticType integer_type(double bound);
StaticType text_type(size_t size);
StaticType date_type();
StaticType open_type(bool as_date);
StaticType type_of(const ColumnInfo& column);
/// The most bytes that the value has as character data.
size_t text_size(const StaticType& type);
/// A type for either of two values of one class (UNION, NVL, CASE).
StaticType common_type(const StaticType& left, const StaticType& right);
/// What a describe says of a select-list item.
ColumnInfo describe(const StaticType& type, std::string name, bool nullable);

struct Fragment {
  std::string sql;
  std::vector<SourceMark> marks;
  StaticType type;
  ub4 offset = 0;  // where it begins in the source
  bool condition = false;  // true or false, not a value
  bool nullable = true;
  bool not_null = false;  // a column that is declared so, which no join made nullable
  bool null = false;  // the literal NULL (or '')
  std::optional<std::string> text;  // a string literal's value
  std::optional<long long> integer;  // an integer literal's value
  std::string rowid;  // of a ROWID pseudo column: the engine's own row number
  std::vector<Fragment> row;  // the members of (a, b, ...)
  bool aggregate = false;  // holds a group function of this query
  int bare = -1;  // source offset of a column of this query outside group functions
  std::uint64_t sources = 0;  // tables of this query that it reads, as bits
  int weight = 1;  // how deep the engine's parser has to stack it
  int operands = 0;  // of the sum that this is, as add_or_subtract wrote it

  // Conditions that are part of a top-level AND list only:
  std::string limit;  // ROWNUM bound, as the engine's row limit
  std::string other_limit;  // of the bound's negation
  std::uint64_t outer = 0;  // tables that carry the outer-join mark, as bits

  bool plain() const { return limit.empty() && outer == 0; }

  Fragment& add(std::string_view part) {
    sql += part;
    return *this;
  }
  /// Appends, and takes over what holds for a whole when it holds for a part.
  Fragment& add(const Fragment& part);
};

/// Engine SQL that stands for the source text at `offset`. Unknown type, until the caller sets one.
Fragment fragment(std::string_view sql, ub4 offset);
/// name(arguments...), of unknown type.
Fragment call(std::string_view name, const std::vector<Fragment>& arguments, ub4 offset);
/// (left operation right), of unknown type.
Fragment infix(const Fragment& left, std::string_view operation, const Fragment& right);
/// Notes that `entries` more symbols wait on the engine's parser stack while it reads this;
/// ORA-03001 where the stack would not hold them.
void deepen(Fragment& part, int entries);
/// ORA-00932 for a LONG or LOB, which can be stored, fetched and tested for NULL, and no more.
void refuse_large(const Fragment& value);
/// 'text' for the engine.
std::string quote_text(std::string_view value);

/// The value in the run-time form of a class, converted as the server converts implicitly;
/// ORA-00932 where it does not.
Fragment coerce(const Fragment& value, ValueClass target);
/// Makes values comparable by one class; blank-pads where all are fixed-length character data.
void make_comparable(const std::vector<Fragment*>& values);
/// Whether `left` is blank-padded for some of the values and not for others: then each of them has
/// to be made comparable on its own.
bool pads_some(const Fragment& left, const std::vector<Fragment>& values);
/// Whether only a run tells if the value is a date or a number.
bool may_be_date_or_number(const Fragment& value);
/// Whether the fragment is a placeholder and nothing else.
bool is_placeholder(const Fragment& value);
/// The value as it is stored into the column: checked, padded or rounded by its declared type.
Fragment store(const Fragment& value, const ColumnInfo& column);

}  // namespace oci8

#endif
