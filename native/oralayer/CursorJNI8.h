// What the modules of the cursor family share among themselves.
#ifndef ORALAYER_CURSORJNI8_H
#define ORALAYER_CURSORJNI8_H

#include <cstddef>
#include <cstdint>

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

/// A record whose buffers a define or a bind has lent to OCI, which reads and writes them whenever
/// the statement runs.
struct lent_record {
  const void* record;
  std::uint32_t version;  // of the record when it was lent
  bool is_define;
  ub4 position;
  lent_record* next;
};

/// What belongs to an open statement and to no record, kept in the statement handle's user memory.
struct statement_memory {
  // A fetch writes as many rows into the columns' arrays as it asks for: at most this many, the
  // rows of the smallest array.
  sb4 defined_rows;
  stream_context* contexts;
  lent_record* lent;
  bool of_heap;  // of a client library that gave no user memory
};

static_assert(sizeof(statement_memory) <= kStatementMemorySize);

/// The open statement's memory; null where no statement is open.
inline statement_memory* memory_of(const cdadata& cda) {
  return static_cast<statement_memory*>(cda.tmp);
}

/// A column and its context point to each other, or neither points anywhere.
void unlink_column(colctx& ctx);

/// After the statement handle was made: nothing is defined or bound.
void start_statement_memory(cdadata& cda);
/// When the statement handle is about to be freed, or lost.
void end_statement_memory(cdadata& cda);
/// When defines and binds are gone: nothing is lent, the contexts are freed.
void clear_statement_memory(cdadata& cda);
/// After a prepare, which makes OCI drop them: both chains are empty, nothing is lent.
void drop_defines_and_binds(JNIEnv* env, cdadata& cda);

/// The rows that every column defined on the statement has room for.
sb4 defined_rows(const cdadata& cda);
void column_defined(cdadata& cda, sb4 rows);

enum class Lend : bool { Bind, Define };

/// After a define or bind at `position`, in the place of a former one. Raises OutOfMemoryError and
/// yields false where this cannot be kept.
bool lend(JNIEnv* env, cdadata& cda, Lend how, ub4 position, const void* record);
/// True for a column that was lent and has ended since, or serves another statement by now.
bool has_ended(const cdadata& cda, const void* record);
/// Before the statement runs: raises InternalError where a column or cursor that OCI would touch
/// has ended or changed its buffers since.
bool lent_records_stand(JNIEnv* env, const cdadata& cda);

/// Runs the statement on the calling thread, `iterations` times or for so many rows, with this
/// thread's environment in its streaming contexts.
sword execute_statement(JNIEnv* env, cdadata& cda, ub4 iterations, ub4 mode);

#endif
