// What belongs to an open statement: how far its columns reach, what it has lent to OCI, and the
// contexts of its streams.

#include <algorithm>
#include <limits>
#include <new>

#include "CursorJNI8.h"
#include "records.h"

void start_statement_memory(cdadata& cda) {
  const bool of_heap = cda.tmp == nullptr;
  if (of_heap) cda.tmp = new (std::nothrow) statement_memory;
  if (cda.tmp == nullptr) return;
  *memory_of(cda) = {std::numeric_limits<sb4>::max(), nullptr, nullptr, of_heap};
}

void end_statement_memory(cdadata& cda) {
  clear_statement_memory(cda);
  if (cda.tmp != nullptr && memory_of(cda)->of_heap) delete memory_of(cda);
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
  memory->defined_rows = std::numeric_limits<sb4>::max();
}

sb4 defined_rows(const cdadata& cda) {
  const statement_memory* memory = memory_of(cda);
  return memory != nullptr ? memory->defined_rows : std::numeric_limits<sb4>::max();
}

void column_defined(cdadata& cda, sb4 rows) {
  statement_memory* memory = memory_of(cda);
  if (memory != nullptr) memory->defined_rows = std::min(memory->defined_rows, rows);
}

bool lend(JNIEnv* env, cdadata& cda, Lend how, ub4 position, const void* record) {
  statement_memory* memory = memory_of(cda);
  if (memory == nullptr) return true;
  const bool is_define = how == Lend::Define;
  lent_record* lent = memory->lent;
  while (lent != nullptr && (lent->is_define != is_define || lent->position != position)) {
    lent = lent->next;
  }
  if (lent == nullptr) {
    lent = new (std::nothrow) lent_record{nullptr, 0, is_define, position, memory->lent};
    if (lent == nullptr) {
      TV_ThrowOutOfMemoryError(env, "Out of memory");
      return false;
    }
    memory->lent = lent;
  }
  lent->record = record;
  lent->version = record_version(record);
  return true;
}

bool has_ended(const cdadata& cda, const void* record) {
  const statement_memory* memory = memory_of(cda);
  if (memory == nullptr) return false;
  for (const lent_record* lent = memory->lent; lent != nullptr; lent = lent->next) {
    if (lent->record == record) return lent->version != record_version(record);
  }
  return false;
}

bool lent_records_stand(JNIEnv* env, const cdadata& cda) {
  const statement_memory* memory = memory_of(cda);
  if (memory == nullptr) return true;
  for (const lent_record* lent = memory->lent; lent != nullptr; lent = lent->next) {
    if (lent->version == record_version(lent->record)) continue;
    TV_ThrowInternalError(env, "a column of the statement has ended or changed since it was bound");
    return false;
  }
  return true;
}

void drop_defines_and_binds(JNIEnv* env, cdadata& cda) {
  if (cda.li_tail != nullptr) clean_longinsert_chain(env, &cda);
  if (cda.lc_tail != nullptr) {
    longcol_node::destroychain(&cda.lc_head, &cda.lc_tail);
    cda.long_count = 0;
  }
  clear_statement_memory(cda);
}
