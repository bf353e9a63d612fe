// Expressions and conditions, read by precedence and written in engine SQL with their types.
// dialect_expression.cpp has the levels of precedence, dialect_arithmetic.cpp what their operators
// make of operands, dialect_comparison.cpp the comparisons, dialect_function.cpp functions and
// aggregates. They read from the context's current token, leave it behind what they have read, and
// raise ORA-00936 and its siblings, with the place, for what does not fit.
#ifndef OCI8_DIALECT_EXPRESSION_H
#define OCI8_DIALECT_EXPRESSION_H

#include <span>
#include <string>
#include <vector>

#include "dialect_scope.h"

namespace oci8 {

/// Reads a value.
Fragment expression(Context& context, Scope& scope);
/// Reads a condition.
Fragment condition(Context& context, Scope& scope);
/// Reads the condition of a WHERE clause as the members of its top-level AND list, which alone may
/// hold ROWNUM bounds and outer-join marks.
std::vector<Fragment> conjuncts(Context& context, Scope& scope);
/// (a AND b AND ...); "1" for none.
Fragment join_conditions(std::span<const Fragment> parts, std::string_view operation);

/// Reads `name(...)` from behind the opening parenthesis.
Fragment function_call(Context& context, Scope& scope, const std::string& name, ub4 offset);
/// NAME(arguments) for arguments that have been read: checks their number, converts them, types
/// the result. ORA-00904 for a function that there is not.
Fragment known_function(const std::string& name, std::vector<Fragment> arguments, ub4 offset);
/// left || right, operands in order.
Fragment concatenation(const std::vector<Fragment>& parts);
/// Converts values to one class, which the first decides, and returns their common type.
StaticType unify(const std::vector<Fragment*>& values);

/// Reads an operand of a comparison: a value, a row of values, or a condition in parentheses.
Fragment operand(Context& context, Scope& scope);
/// Reads a comparison, or a value where none follows.
Fragment comparison(Context& context, Scope& scope);

}  // namespace oci8

#endif
