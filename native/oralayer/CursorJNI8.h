// What the modules of the cursor family share among themselves.
#ifndef ORALAYER_CURSORJNI8_H
#define ORALAYER_CURSORJNI8_H

#include <cstddef>
#include <cstdint>
#include <optional>

#include "oralayer8.h"

/// Bytes of user memory that a cursor asks for with its statement handle.
inline constexpr std::size_t kStatementMemorySize = 100;

/// The streaming context of a placeholder. OCI keeps its address until the statement is prepared
/// again or freed, also when the bind is not renewed for a further execution: so it lives as long
/// as the statement's text, and a placeholder bound again reuses it. Spent (cda null) between an
/// execution and the next bind.
struct stream_context : colctx {
  ub4 position;
  stream_context* next;
};

/// How OCI knows a record, or the cursor.
enum class LentAs : ub1 {
  Bind,  // at a position
  Define,  // at a position
  Chain  // a LONG column on the cursor's chain, wherever it is defined by now
};

/// What of a record OCI has the address of.
enum class LentPart : ub1 {
  Buffers,
  Locator,  // a column's LOB locator, in the place of its buffer
  Cursor  // the statement handle of another cursor
};

/// What a column says of its stream: what the callback asks Java for, and the indicator that OCI
/// reads after the last chunk.
struct stream_state {
  ub4 piecelen;
  sword colpos;
  sb2 indicator;

  bool operator==(const stream_state&) const = default;
};

/// A record that OCI reads and writes whenever the statement runs, or that the cursor's chain of
/// LONG columns names.
struct lent_record {
  void* record;
  std::uint32_t version;  // of the record when it was lent
  LentAs as;
  ub4 position;
  sb4 rows;  // that its arrays have room for
  LentPart part;
  lent_record* next;
  std::optional<stream_state> stream = {};  // of a streamed bind, for the execution
};

/// What belongs to an open statement and to no record, kept in the statement handle's user memory.
struct statement_memory {
  stream_context* contexts;
  lent_record* lent;
  lent_record* spare;  // for the next one, so that nothing can fail once OCI has a buffer
  bool running;  // inside OCIStmtExecute, where Java may be called
  ub2 type;  // OCI_STMT_, of the text that is parsed; 0 without one
  bool of_heap;  // of a client library that gave no user memory
};

static_assert(sizeof(statement_memory) <= kStatementMemorySize);

/// The open statement's memory; null where no statement is open.
inline statement_memory* memory_of(const cdadata& cda) {
  return static_cast<statement_memory*>(cda.tmp);
}

/// The context names its column no more. A column that streams at several placeholders points to
/// the context of one of them, and by this to another.
void unlink_column(colctx& ctx);

/// A column's first indicator; without rows that of a value.
inline sb2 first_indicator(const columndata& col) {
  return col.indpvect != nullptr ? col.indpvect[0] : sb2{0};
}

inline stream_state stream_of(const columndata& col) {
  return {col.piecelen, col.colpos, first_indicator(col)};
}

/// After the statement handle was made: nothing is defined or bound.
void start_statement_memory(cdadata& cda);
/// When the statement handle is about to be freed, or lost.
void end_statement_memory(cdadata& cda);
/// When defines and binds are gone: nothing is lent, the contexts are freed.
void clear_statement_memory(cdadata& cda);
/// After a prepare, which makes OCI drop them: both chains are empty, nothing is lent.
void drop_defines_and_binds(JNIEnv* env, cdadata& cda);
/// After an execution that gave the bound cursors new results, which makes OCI drop their defines.
void drop_defines_of_cursors(JNIEnv* env, const cdadata& cda);

/// The records of a call on a cursor with one of its columns.
struct cursor_column {
  cdadata* cda = nullptr;
  columndata* col = nullptr;
};

/// The checks that such calls share, in their order: "JNIEnv", "COL is null", "CDA is null",
/// "COLDATA is null". Without a column after raising.
cursor_column cursor_and_column(JNIEnv* env, jobject obj, jobject colobj);

/// True for an open cursor; otherwise raises NullPointerException.
bool is_open(JNIEnv* env, const cdadata& cda);
/// False after raising InternalError: the statement is executing, and Java, called for a stream's
/// next chunk, has come back to its cursor.
bool is_idle(JNIEnv* env, const cdadata& cda);

/// What a bind or define asks of its cursor: is_open, is_idle and may_lend.
bool may_bind(JNIEnv* env, cdadata& cda);

/// False after raising InternalError: a defined column has no room for so many rows.
bool rows_have_room(JNIEnv* env, const cdadata& cda, jint rows);

/// Sees to the memory that the next lend needs, before OCI is told of anything. The cursor must be
/// open. False after raising OutOfMemoryError.
bool may_lend(JNIEnv* env, cdadata& cda);
/// Keeps what OCI was told of, in the place of what was lent before at the position (Chain: of the
/// same record). After may_lend.
void lend(cdadata& cda, const lent_record& what);
/// True for a LONG column on the chain that has ended since, or lent its buffers anew elsewhere.
bool has_ended(const cdadata& cda, const void* record);

/// Whether OCI reads what is bound: an execution does. A fetch does not, and the columns are Java's
/// again.
enum class Binds { Read, Spent };

/// False after raising InternalError: a column that OCI would touch has ended, has changed its
/// buffers since it was bound or defined, or its stream since the execution began; or a cursor that
/// is bound has ended, is closed, or is executing itself.
bool lent_records_stand(JNIEnv* env, const cdadata& cda, Binds binds);
/// Before an execution that brings so many rows of a query, or of anything else repeats it so many
/// times: is_idle, room in all columns and binds, and lent_records_stand. A refusal empties the
/// insert chain, as an execution would.
bool may_execute(JNIEnv* env, cdadata& cda, jint rows);

/// Runs the statement on the calling thread, `iterations` times or for so many rows, with this
/// thread's environment in its streaming contexts.
sword execute_statement(JNIEnv* env, cdadata& cda, ub4 iterations, ub4 mode);

#endif
