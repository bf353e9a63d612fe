// What belongs to an open statement: how far its columns reach, what it has lent to OCI, and the
// contexts of its streams; and the checks of the calls that change it.

#include <algorithm>
#include <limits>
#include <new>

#include "CursorJNI8.h"
#include "records.h"

void start_statement_memory(cdadata& cda) {
  const bool of_heap = cda.tmp == nullptr;
  if (of_heap) cda.tmp = new (std::nothrow) statement_memory;
  if (cda.tmp == nullptr) return;
  *memory_of(cda) = {nullptr, nullptr, nullptr, false, 0, of_heap};
}

void end_statement_memory(cdadata& cda) {
  clear_statement_memory(cda);
  statement_memory* memory = memory_of(cda);
  if (memory == nullptr) return;
  delete memory->spare;
  if (memory->of_heap) delete memory;
  cda.tmp = nullptr;
}

void clear_statement_memory(cdadata& cda) {
  statement_memory* memory = memory_of(cda);
  if (memory == nullptr) return;
  while (memory->contexts != nullptr) {
    stream_context* ctx = memory->contexts;
    memory->contexts = ctx->next;
    unlink_column(*ctx);
    delete ctx;
  }
  while (memory->lent != nullptr) {
    lent_record* lent = memory->lent;
    memory->lent = lent->next;
    delete lent;
  }
}

cursor_column cursor_and_column(JNIEnv* env, jobject obj, jobject colobj) {
  if (!env_and_object(env, obj)) return {};
  if (!argument_given(env, colobj, "COL is null")) return {};
  cdadata* cda = cursor_record(env, obj);
  if (cda == nullptr) return {};
  return {cda, column_record(env, colobj, "COLDATA is null")};
}

bool is_open(JNIEnv* env, const cdadata& cda) {
  if (memory_of(cda) != nullptr) return true;
  TV_ThrowNullPointerException(env, "the cursor is not open");
  return false;
}

bool is_idle(JNIEnv* env, const cdadata& cda) {
  const statement_memory* memory = memory_of(cda);
  if (memory == nullptr || !memory->running) return true;
  TV_ThrowInternalError(env, "the cursor is executing");
  return false;
}

bool may_bind(JNIEnv* env, cdadata& cda) {
  return is_open(env, cda) && is_idle(env, cda) && may_lend(env, cda);
}

namespace {

// The rows that every column defined on the statement has room for.
sb4 defined_rows(const cdadata& cda) {
  sb4 rows = std::numeric_limits<sb4>::max();
  const statement_memory* memory = memory_of(cda);
  if (memory == nullptr) return rows;
  for (const lent_record* lent = memory->lent; lent != nullptr; lent = lent->next) {
    if (lent->as == LentAs::Define) rows = std::min(rows, lent->rows);
  }
  return rows;
}

bool replaces(const lent_record& what, const lent_record& former) {
  if (what.as != former.as) return false;
  return what.as == LentAs::Chain ? what.record == former.record : what.position == former.position;
}

// A query that OCI runs repeats nothing: its rows go to the defines.
bool binds_have_room(JNIEnv* env, const cdadata& cda, jint iterations) {
  const statement_memory* memory = memory_of(cda);
  if (memory == nullptr || memory->type == OCI_STMT_SELECT || iterations <= 1) return true;
  for (const lent_record* lent = memory->lent; lent != nullptr; lent = lent->next) {
    if (lent->as == LentAs::Bind && lent->rows < iterations) {
      TV_ThrowInternalError(env, "a bind variable has one value, not one for each execution");
      return false;
    }
  }
  return true;
}

// A NULL needs no LOB object. The locator of one that has ended is forgotten, because OCI would
// write to it where the statement assigns a value.
bool bound_locator_stands(JNIEnv* env, columndata& col) {
  if (first_indicator(col) != -1) return borrowed_locator_stands(env, col);
  if (!lender_stands(&col)) {
    col.lobloc = nullptr;
    note_lender(&col, nullptr);
  }
  return true;
}

// OCI writes to the locator of a select-list column, whatever its indicator.
bool defined_locator_stands(JNIEnv* env, const columndata& col) {
  if (!has_lender(&col)) return true;
  TV_ThrowInternalError(env, "a column of the select list has the locator of a LOB object");
  return false;
}

bool locator_stands(JNIEnv* env, const lent_record& lent) {
  auto& col = *static_cast<columndata*>(lent.record);
  return lent.as == LentAs::Define ? defined_locator_stands(env, col)
                                   : bound_locator_stands(env, col);
}

// The record stays, also where it is closed and opened again: OCI finds the handle through it.
bool cursor_stands(JNIEnv* env, const lent_record& lent) {
  const auto& cursor = *static_cast<const cdadata*>(lent.record);
  if (lent.version == record_version(&cursor) && cursor.stmthp != nullptr) {
    return is_idle(env, cursor);
  }
  TV_ThrowInternalError(env, "a cursor that is bound to the statement has ended or is closed");
  return false;
}

bool same_record(const lent_record& lent) {
  return lent.version == record_version(lent.record);
}

// What a value that is set while the statement runs would change: the stream would end early, or
// NULL be made of it.
bool stream_stands(const lent_record& lent) {
  return !lent.stream || *lent.stream == stream_of(*static_cast<const columndata*>(lent.record));
}

bool record_stands(JNIEnv* env, const lent_record& lent) {
  if (lent.part == LentPart::Cursor) return cursor_stands(env, lent);
  if (same_record(lent) && stream_stands(lent)) {
    return lent.part == LentPart::Buffers || locator_stands(env, lent);
  }
  TV_ThrowInternalError(env, "a column of the statement has ended or changed since it was bound");
  return false;
}

// An execution pulls each stream as its column describes it by then, not as at the bind.
void renew_streams(const cdadata& cda) {
  const statement_memory* memory = memory_of(cda);
  if (memory == nullptr) return;
  for (lent_record* lent = memory->lent; lent != nullptr; lent = lent->next) {
    if (!lent->stream || !same_record(*lent)) continue;
    lent->stream = stream_of(*static_cast<const columndata*>(lent->record));
  }
}

}  // namespace

bool may_lend(JNIEnv* env, cdadata& cda) {
  statement_memory* memory = memory_of(cda);
  if (memory->spare == nullptr) memory->spare = new (std::nothrow) lent_record{};
  if (memory->spare != nullptr) return true;
  TV_ThrowOutOfMemoryError(env, "Out of memory");
  return false;
}

void lend(cdadata& cda, const lent_record& what) {
  statement_memory* memory = memory_of(cda);
  lent_record* lent = memory->lent;
  while (lent != nullptr && !replaces(what, *lent)) lent = lent->next;
  if (lent == nullptr) {
    lent = memory->spare;
    memory->spare = nullptr;
    lent->next = memory->lent;
    memory->lent = lent;
  }
  lent_record* next = lent->next;
  *lent = what;
  lent->version = record_version(what.record);
  lent->next = next;
}

bool has_ended(const cdadata& cda, const void* record) {
  const statement_memory* memory = memory_of(cda);
  if (memory == nullptr) return false;
  for (const lent_record* lent = memory->lent; lent != nullptr; lent = lent->next) {
    if (lent->as == LentAs::Chain && lent->record == record) {
      return lent->version != record_version(record);
    }
  }
  return false;
}

bool lent_records_stand(JNIEnv* env, const cdadata& cda, Binds binds) {
  const statement_memory* memory = memory_of(cda);
  if (memory == nullptr) return true;
  for (const lent_record* lent = memory->lent; lent != nullptr; lent = lent->next) {
    if (lent->as == LentAs::Chain || (lent->as == LentAs::Bind && binds == Binds::Spent)) continue;
    if (!record_stands(env, *lent)) return false;
  }
  return true;
}

bool rows_have_room(JNIEnv* env, const cdadata& cda, jint rows) {
  if (rows >= 0 && rows <= defined_rows(cda)) return true;
  TV_ThrowInternalError(env, "fetch size is larger than the columns' arrays");
  return false;
}

bool may_execute(JNIEnv* env, cdadata& cda, jint rows) {
  if (!is_idle(env, cda)) return false;
  PendingException pending(env);
  const bool room = rows_have_room(env, cda, rows) && binds_have_room(env, cda, rows);
  renew_streams(cda);
  if (room && lent_records_stand(env, cda, Binds::Read)) return true;
  pending.set_aside();
  clean_longinsert_chain(env, &cda);
  return false;
}

// The columns on the chain may have ended, and a fetch of the next select list would walk them
// first. The count goes with them: a fetch asks the chain for as many columns.
void drop_defines_and_binds(JNIEnv* env, cdadata& cda) {
  if (cda.li_tail != nullptr) clean_longinsert_chain(env, &cda);
  if (cda.lc_tail != nullptr) {
    longcol_node::destroychain(&cda.lc_head, &cda.lc_tail);
    cda.long_count = 0;
  }
  clear_statement_memory(cda);
}

// Only blocks open cursors.
void drop_defines_of_cursors(JNIEnv* env, const cdadata& cda) {
  const statement_memory* memory = memory_of(cda);
  if (memory == nullptr) return;
  if (memory->type != OCI_STMT_BEGIN && memory->type != OCI_STMT_DECLARE) return;
  for (const lent_record* lent = memory->lent; lent != nullptr; lent = lent->next) {
    if (lent->part != LentPart::Cursor || lent->version != record_version(lent->record)) continue;
    drop_defines_and_binds(env, *static_cast<cdadata*>(lent->record));
  }
}
