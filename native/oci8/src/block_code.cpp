// Blocks have no branches here, so that nested ones need no steps of their own: all statements form
// one list, and the scopes of variables are gone once it is made.
#include "block_code.h"

#include <algorithm>
#include <map>
#include <utility>

#include "ascii.h"
#include "dialect_query.h"
#include "dialect_types.h"

namespace oci8 {
namespace {

// A client's block has a handful of each; these bound the stack, the search for names and the
// number of the engine's statements.
constexpr size_t kDeepest = 100;
constexpr size_t kMostSteps = 20000;
constexpr size_t kMostVariables = 1000;

// An expression is the select list of a query on one row without names that it could mean.
constexpr std::string_view kBefore = "SELECT (";
constexpr std::string_view kBehind = ") FROM (SELECT NULL \"oci8$none\" FROM DUAL)";

constexpr std::string_view kSqlVerbs[] = {"INSERT", "UPDATE",   "DELETE",    "LOCK",
                                          "COMMIT", "ROLLBACK", "SAVEPOINT", "SET"};

// What the server has in blocks and this library has not. Definitions are not among them: the
// server does not take them either.
constexpr std::string_view kUnsupported[] = {
    "IF",       "CASE",   "LOOP",  "WHILE",  "FOR",       "FORALL",  "EXIT",    "GOTO",
    "RETURN",   "RAISE",  "FETCH", "CLOSE",  "EXECUTE",   "MERGE",   "WITH",    "EXCEPTION",
    "CONSTANT", "CURSOR", "TYPE",  "PRAGMA", "PROCEDURE", "SUBTYPE", "FUNCTION"};

constexpr std::string_view kIntegerTypes[] = {"PLS_INTEGER", "BINARY_INTEGER"};

// The text of a step under construction, with where its parts come from.
struct StepText {
  std::string text;
  std::vector<Origin> origins;

  void copy(std::string_view part, ub4 source) {
    origins.push_back({text.size(), source, true});
    text += part;
  }
  void make_up(std::string_view part, ub4 source) {
    origins.push_back({text.size(), source, false});
    text += part;
  }
};

// Statements are told apart by their first token and end at a semicolon; what is between is copied.
// Nothing is looked up in the database, so that a block can be read without one.
// The reader trusts the tokens, not the text: a quoted semicolon or an END in a comment never was a
// token, so that no search in strings can go wrong here.
class Reader {
 public:
  explicit Reader(const SqlText& block) : block_(block), tokens_(block) {
    for (const Placeholder& placeholder : block.placeholders) {
      const size_t index = placeholders_.size();
      placeholders_.emplace(placeholder.name, index);
    }
  }

  // What the readers of names and types raise is an error of the block like all others.
  BlockCode read() {
    try {
      skip_labels();
      // Only in what the tokenizer takes for a block each name has one position.
      if (!block_.is_block()) unexpected();
      read_block();
      if (!tokens_.at_end()) unexpected();
    } catch (const Failure& failure) {
      if (failure.code == kCompileError) throw;
      const size_t offset = failure.offset < 0 ? 0 : static_cast<size_t>(failure.offset);
      refuse_at(offset, "PL/SQL: " + failure.text);
    }
    return std::move(code_);
  }

 private:
  // Every mistake in a block is ORA-06550 on the server, with the real cause as text behind line
  // and column.
  static constexpr int kCompileError = 6550;

  // --- Errors ------------------------------------------------------------------------------------

  // Columns count bytes, as the parse offset does.
  [[noreturn]] void refuse_at(size_t offset, const std::string& message) const {
    const std::string_view before = std::string_view(block_.text).substr(0, offset);
    const size_t line_start = before.rfind('\n') + 1;  // 0 in the first line
    fail(kCompileError,
         "line " + std::to_string(line_of(block_, offset)) + ", column " +
             std::to_string(offset - line_start + 1) + ":\n" + message,
         static_cast<int>(offset));
  }

  [[noreturn]] void refuse(const std::string& message) const {
    refuse_at(tokens_.offset(), message);
  }

  // Cut, because a token may be a literal of any length, up to the end of the text.
  [[noreturn]] void unexpected() const {
    constexpr size_t kLongest = 30;
    std::string_view symbol = tokens_.spelling();
    const bool word = tokens_.kind() == TokenKind::Word;
    if (tokens_.at_end()) symbol = "end-of-file";
    if (symbol.size() > kLongest) symbol = symbol.substr(0, kLongest);
    refuse("PLS-00103: Encountered the symbol \"" + (word ? upper(symbol) : std::string(symbol)) +
           "\"");
  }

  // Also for calls: there are no procedures that could have been declared.
  [[noreturn]] void undeclared() const {
    refuse("PLS-00201: identifier '" + upper(tokens_.spelling()) + "' must be declared");
  }

  // --- Tokens ------------------------------------------------------------------------------------

  template <size_t count>
  bool at_any(const std::string_view (&words)[count]) const {
    return std::ranges::any_of(words, [&](std::string_view word) { return tokens_.is_word(word); });
  }

  void expect_word(std::string_view word) {
    if (!tokens_.accept_word(word)) unexpected();
  }

  void expect_symbol(std::string_view mark) {
    if (!tokens_.accept_symbol(mark)) unexpected();
  }

  std::string read_name() {
    if (!tokens_.at_name()) unexpected();
    return tokens_.name(kCompileError);
  }

  // Said in words: the server's own message for these would be about some later symbol.
  void refuse_unsupported() const {
    if (at_any(kUnsupported)) refuse(upper(tokens_.spelling()) + " is not supported in a block");
  }

  // Only names that a GOTO or EXIT would need.
  void skip_labels() {
    while (tokens_.accept_symbol("<<")) {
      read_name();
      expect_symbol(">>");
    }
  }

  // Goes to the semicolon that ends the statement, which no parenthesis can hold.
  size_t find_end() {
    size_t depth = 0;
    for (; !tokens_.is_symbol(";"); tokens_.skip()) {
      if (tokens_.at_end() || tokens_.kind() == TokenKind::Invalid) unexpected();
      if (tokens_.is_symbol("(")) ++depth;
      if (tokens_.is_symbol(")") && depth-- == 0) unexpected();
    }
    // A parenthesis that is open at the semicolon is a mistake of the block and not of the
    // statement that would be prepared from half of it.
    if (depth > 0) unexpected();
    return tokens_.position();
  }

  // --- Steps -------------------------------------------------------------------------------------

  // At the statement's first token, which stands for it in errors without a place.
  Step new_step(Step::Kind kind) const {
    if (code_.steps.size() == kMostSteps) refuse("PLS-00123: program too large");
    Step step;
    step.kind = kind;
    step.offset = tokens_.offset();
    return step;
  }

  // The tokens from `first` up to `last`, with what stands between them.
  void copy(StepText& text, size_t first, size_t last) const {
    if (first == last) return;
    const Token& begin = block_.tokens[first];
    const Token& end = block_.tokens[last - 1];
    // One stretch of the source, blanks and comments included: offsets inside it map back by plain
    // addition.
    const size_t size = end.offset - begin.offset + end.size;
    text.copy(std::string_view(block_.text).substr(begin.offset, size), begin.offset);
  }

  // Takes the semicolon, too. The step's text is read as a statement of its own, in which each
  // occurrence of a placeholder has a position.
  // Tokenized again although the block was tokenized before: positions of placeholders, and the
  // type of the statement, are those of the step alone.
  void add(Step step, StepText text) {
    expect_symbol(";");
    step.text = tokenize(text.text);
    step.origins = std::move(text.origins);
    for (const Placeholder& placeholder : step.text.placeholders) {
      step.inputs.push_back(placeholders_.at(placeholder.name));
    }
    for (const Token& token : step.text.tokens) add_variable(step, token);
    code_.steps.push_back(std::move(step));
  }

  // Every variable whose name occurs: whether it is meant there depends on the tables.
  void add_variable(Step& step, const Token& token) const {
    if (token.kind != TokenKind::Word && token.kind != TokenKind::QuotedName) return;
    std::string name = name_of(token.kind, step.text.spelling(token));
    const size_t* value = find_variable(name);
    if (value == nullptr || std::ranges::count(step.text.variables, name) > 0) return;
    step.text.variables.push_back(std::move(name));
    step.inputs.push_back(*value);
  }

  // As the dialect compares names: quoted ones keep their case.
  static std::string name_of(TokenKind kind, std::string_view spelling) {
    return kind == TokenKind::Word ? upper(spelling) : unquote(spelling);
  }

  // The innermost declaration is the last one.
  const size_t* find_variable(std::string_view name) const {
    for (size_t i = scope_.size(); i > 0; --i) {
      if (scope_[i - 1].first == name) return &scope_[i - 1].second;
    }
    return nullptr;
  }

  // A placeholder or variable that is assigned to.
  size_t target() {
    if (tokens_.kind() == TokenKind::Placeholder) return placeholder();
    if (!tokens_.at_name()) unexpected();
    const size_t* value = find_variable(name_of(tokens_.kind(), tokens_.spelling()));
    if (value == nullptr) undeclared();
    tokens_.skip();
    return *value;
  }

  // Every name in the text is among those that the tokenizer has listed.
  size_t placeholder() {
    const size_t value = placeholders_.at(upper(tokens_.spelling().substr(1)));
    tokens_.skip();
    return value;
  }

  // --- The grammar -------------------------------------------------------------------------------

  // The name behind END is for the reader only, as labels are where nothing jumps.
  void read_block() {
    if (++depth_ > kDeepest) refuse("PLS-00123: program too large");
    // Variables of an inner block are forgotten at its END, while their values stay in the list: a
    // step that was read there refers to them by number.
    const size_t outer = scope_.size();
    if (tokens_.accept_word("DECLARE")) {
      while (!tokens_.is_word("BEGIN")) read_declaration();
    }
    expect_word("BEGIN");
    do {
      read_statement();
    } while (!tokens_.is_word("END"));
    tokens_.skip();
    if (tokens_.at_name()) tokens_.skip();
    expect_symbol(";");
    scope_.resize(outer);
    --depth_;
  }

  // The name means the variable from behind its own declaration on.
  void read_declaration() {
    refuse_unsupported();
    Step step = new_step(Step::Kind::Into);
    std::string name = read_name();
    refuse_unsupported();
    if (code_.variables.size() == kMostVariables) refuse("PLS-00123: program too large");
    const size_t value = placeholders_.size() + code_.variables.size();
    // The conversion is a CAST that the engine runs, so that a variable follows the same rules of
    // length and rounding as a column of its type.
    code_.variables.push_back({tokenize("SELECT CAST(:1 AS " + read_type() + ") FROM DUAL"), {}});
    if (tokens_.accept_symbol(":=") || tokens_.accept_word("DEFAULT")) {
      read_value(std::move(step), value);
    } else {
      expect_symbol(";");
    }
    scope_.emplace_back(std::move(name), value);
  }

  // As it is written: the SQL that converts to it reads it again.
  std::string read_type() {
    if (at_any(kIntegerTypes)) {
      tokens_.skip();
      return "INTEGER";
    }
    StepText type;
    const size_t first = tokens_.position();
    declared_type(tokens_);
    copy(type, first, tokens_.position());
    return std::move(type.text);
  }

  // A name before := is assigned to, whatever it means elsewhere.
  void read_statement() {
    skip_labels();
    if (tokens_.is_symbol(":=", 1)) return read_assignment();
    if (tokens_.is_word("BEGIN") || tokens_.is_word("DECLARE")) return read_block();
    if (tokens_.accept_word("NULL")) return expect_symbol(";");
    if (tokens_.is_word("OPEN")) return read_open();
    if (at_query(tokens_)) return read_select();
    if (at_any(kSqlVerbs)) return read_sql();
    refuse_unsupported();
    if (tokens_.at_name() && !tokens_.is_word("END")) undeclared();
    unexpected();
  }

  // The place of the step is that of the whole assignment, not of its expression.
  void read_assignment() {
    Step step = new_step(Step::Kind::Into);
    const size_t value = target();
    tokens_.skip();
    read_value(std::move(step), value);
  }

  // An expression, up to the semicolon. Its own parentheses keep it from being a list or an alias.
  void read_value(Step step, size_t value) {
    StepText text;
    const size_t first = tokens_.position();
    text.make_up(kBefore, tokens_.offset());
    const size_t last = find_end();
    if (first == last) unexpected();
    copy(text, first, last);
    text.make_up(kBehind, tokens_.offset());
    step.targets.push_back(value);
    add(std::move(step), std::move(text));
  }

  // The query is what is left without its INTO list.
  void read_select() {
    Step step = new_step(Step::Kind::Into);
    StepText text;
    const size_t first = tokens_.position();
    const size_t last = find_end();
    const size_t into = find_into(first, last);
    copy(text, first, into);
    tokens_.seek(into + 1);
    do {
      step.targets.push_back(target());
    } while (tokens_.accept_symbol(","));
    text.make_up(" ", tokens_.offset());
    copy(text, tokens_.position(), last);
    tokens_.seek(last);
    add(std::move(step), std::move(text));
  }

  // Outside of parentheses, where a subquery could have words of its own.
  size_t find_into(size_t first, size_t last) {
    size_t depth = 0;
    for (tokens_.seek(first); tokens_.position() < last; tokens_.skip()) {
      if (depth == 0 && tokens_.is_word("INTO")) return tokens_.position();
      if (tokens_.is_symbol("(")) ++depth;
      if (tokens_.is_symbol(")")) --depth;
    }
    tokens_.seek(first);
    refuse("PLS-00428: an INTO clause is expected in this SELECT statement");
  }

  // Cursor variables are the client's: inside of a block nothing could fetch from them.
  void read_open() {
    Step step = new_step(Step::Kind::Open);
    tokens_.skip();
    if (tokens_.kind() != TokenKind::Placeholder) undeclared();
    step.targets.push_back(placeholder());
    expect_word("FOR");
    if (!at_query(tokens_)) unexpected();
    StepText text;
    const size_t first = tokens_.position();
    copy(text, first, find_end());
    add(std::move(step), std::move(text));
  }

  // Everything else is the dialect's to understand; what concerns the transaction has to be known
  // when the block fails.
  void read_sql() {
    Step step = new_step(Step::Kind::Run);
    StepText text;
    const size_t first = tokens_.position();
    read_transaction_end(step);
    read_savepoint(step);
    tokens_.seek(first);
    copy(text, first, find_end());
    add(std::move(step), std::move(text));
  }

  // A rollback to a savepoint ends no transaction.
  void read_transaction_end(Step& step) {
    if (!tokens_.is_word("COMMIT") && !tokens_.is_word("ROLLBACK")) return;
    step.kind = Step::Kind::EndTransaction;
    tokens_.skip();
    tokens_.accept_word("WORK");
    if (!tokens_.accept_word("TO")) return;
    step.kind = Step::Kind::ReturnTo;
    if (tokens_.is_word("SAVEPOINT")) return;
    step.savepoint = read_name();
  }

  // SAVEPOINT name, also as the end of ROLLBACK TO SAVEPOINT name.
  void read_savepoint(Step& step) {
    if (!tokens_.accept_word("SAVEPOINT")) return;
    if (step.kind == Step::Kind::Run) step.kind = Step::Kind::Savepoint;
    step.savepoint = read_name();
  }

  const SqlText& block_;
  Tokens tokens_;
  BlockCode code_;
  std::map<std::string, size_t> placeholders_;
  std::vector<std::pair<std::string, size_t>> scope_;  // variables in sight, and their values
  size_t depth_ = 0;
};

}  // namespace

ub4 Step::source_offset(ub4 offset_in_text) const {
  const auto behind = std::ranges::upper_bound(origins, size_t{offset_in_text}, {}, &Origin::from);
  if (behind == origins.begin()) return offset;
  const Origin& origin = *(behind - 1);
  if (!origin.copied) return origin.source;
  return origin.source + offset_in_text - static_cast<ub4>(origin.from);
}

size_t line_of(const SqlText& block, size_t offset) {
  const std::string_view before = std::string_view(block.text).substr(0, offset);
  return static_cast<size_t>(std::ranges::count(before, '\n')) + 1;
}

BlockCode read_block(const SqlText& block) {
  return Reader(block).read();
}

}  // namespace oci8
