// Chunks are found by their place alone, the table's own key: a read is one range scan, a write one
// replacement for each chunk that it touches. The row in OCI8$LARGE is what says whether a value
// exists and where it ends; chunks beyond that end would not be seen.
#include "sqlite_large.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "lob_text.h"
#include "sqlite_call.h"

namespace oci8 {
namespace {

using Unit = LargeName::Unit;

// IF NOT EXISTS, because files that were made before there were large values get the tables when
// they are opened.
constexpr std::string_view kTables =
    "CREATE TABLE IF NOT EXISTS OCI8$LARGE(id INTEGER PRIMARY KEY, stamp INTEGER NOT NULL,"
    " unit INTEGER NOT NULL, size INTEGER NOT NULL);"
    "CREATE TABLE IF NOT EXISTS OCI8$CHUNKS(place INTEGER PRIMARY KEY, data BLOB NOT NULL);"
    "CREATE TRIGGER IF NOT EXISTS OCI8$LARGE_GONE AFTER DELETE ON OCI8$LARGE BEGIN"
    " DELETE FROM OCI8$CHUNKS WHERE place >= OLD.id << 20 AND place < (OLD.id + 1) << 20; END";

// Values go by triggers, where no other function is called. This session's own trigger: one
// in the file would need the function in every program that opens it.
constexpr std::string_view kStopTrigger =
    "CREATE TEMP TRIGGER OCI8$STOP BEFORE DELETE ON main.OCI8$CHUNKS BEGIN SELECT go_on(); END";

constexpr std::string_view kFind = "SELECT stamp, size FROM OCI8$LARGE WHERE id = ?1 AND unit = ?2";
constexpr std::string_view kView = "SELECT id FROM OCI8$LARGE";
constexpr std::string_view kCreate = "INSERT INTO OCI8$LARGE(stamp, unit, size) VALUES (?1, ?2, 0)";
constexpr std::string_view kResize = "UPDATE OCI8$LARGE SET size = ?2 WHERE id = ?1";
constexpr std::string_view kRemove = "DELETE FROM OCI8$LARGE WHERE id = ?1";
constexpr std::string_view kChunks =
    "SELECT place, data FROM OCI8$CHUNKS WHERE place BETWEEN ?1 AND ?2 ORDER BY place";
constexpr std::string_view kPut = "INSERT OR REPLACE INTO OCI8$CHUNKS(place, data) VALUES (?1, ?2)";

// A value has at most 2^32 - 1 units of two bytes, which is below 2^18 chunks of 32 KB: two bits
// are to spare. What is left of a 64-bit key bounds the ids.
constexpr int kNumberBits = 20;
constexpr long long kLastId = std::numeric_limits<long long>::max() >> kNumberBits;
constexpr unsigned long long kMostUnits = std::numeric_limits<ub4>::max();
static_assert(kMostUnits * sizeof(utext) / kChunkSize < 1ULL << kNumberBits);

size_t width_of(Unit unit) {
  return unit == Unit::Character ? sizeof(utext) : 1;
}

// Ids are below kLastId where a value was found, so that no bit is lost.
long long place_of(long long id, unsigned long long number) {
  return id << kNumberBits | static_cast<long long>(number);
}

/// What a value holds where nothing was written. Begins at the begin of a unit.
void fill(char* target, size_t size, Unit unit) {
  std::memset(target, 0, size);
  if (unit == Unit::Byte) return;
  const utext blank = ' ';
  for (size_t i = 0; i + sizeof blank <= size; i += sizeof blank) {
    std::memcpy(target + i, &blank, sizeof blank);
  }
}

// Characters are narrowed and widened by blocks, each of which is a few instructions.
constexpr size_t kBlock = 16;
constexpr utext kLastNarrow = 0xFF;

template <size_t count>
bool narrow_block(const char* units, char* bytes) {
  utext block[count];
  std::memcpy(block, units, sizeof block);
  unsigned all = 0;
  for (size_t i = 0; i < count; ++i) all |= block[i];
  for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<char>(block[i]);
  return all <= kLastNarrow;
}

template <size_t count>
void widen_block(const char* bytes, char* units) {
  utext block[count];
  for (size_t i = 0; i < count; ++i) block[i] = static_cast<ub1>(bytes[i]);
  std::memcpy(units, block, sizeof block);
}

/// A byte for each unit; false where one does not fit.
bool narrow(const char* units, size_t count, char* bytes) {
  size_t i = 0;
  for (; i + kBlock <= count; i += kBlock) {
    if (!narrow_block<kBlock>(units + i * sizeof(utext), bytes + i)) return false;
  }
  for (; i < count; ++i) {
    if (!narrow_block<1>(units + i * sizeof(utext), bytes + i)) return false;
  }
  return true;
}

void widen(const char* bytes, size_t count, char* units) {
  size_t i = 0;
  for (; i + kBlock <= count; i += kBlock) {
    widen_block<kBlock>(bytes + i, units + i * sizeof(utext));
  }
  for (; i < count; ++i) widen_block<1>(bytes + i, units + i * sizeof(utext));
}

/// What a row of OCI8$CHUNKS holds of its value. The file is not trusted: no chunk is longer than
/// kChunkSize, nor ends within a unit.
class Chunk {
 public:
  Chunk(std::string_view data, Unit unit) : data_(data.substr(0, kChunkSize)) {
    if (unit == Unit::Byte || data_.size() % sizeof(utext) == 0) return;
    narrow_ = true;
    const size_t tail = static_cast<ub1>(data_.back());
    data_.remove_suffix(std::min(data_.size(), tail));
    data_ = data_.substr(0, kMostNarrow);
  }

  /// Bytes of the value.
  size_t size() const { return narrow_ ? data_.size() * sizeof(utext) : data_.size(); }

  /// From and size are multiples of the unit's width, within size().
  void copy(size_t from, char* target, size_t size) const {
    if (narrow_) return widen(data_.data() + from / sizeof(utext), size / sizeof(utext), target);
    if (size > 0) std::memcpy(target, data_.data() + from, size);
  }

  static constexpr size_t kMostNarrow = kChunkSize / sizeof(utext);
  static constexpr size_t kMostTail = 2;

 private:
  std::string_view data_;
  bool narrow_ = false;
};

void bind_integer(sqlite3_stmt* statement, int position, long long value) {
  check(sqlite3_db_handle(statement), sqlite3_bind_int64(statement, position, value));
}

std::string_view column_bytes(sqlite3_stmt* row, int column) {
  const auto* data = static_cast<const char*>(sqlite3_column_blob(row, column));
  const auto size = static_cast<size_t>(sqlite3_column_bytes(row, column));
  if (data == nullptr && size > 0) throw std::bad_alloc();
  return {data, size};
}

/// The size in a value's row. The file is not trusted: a size beyond what can be written would lead
/// into the chunks of other values.
unsigned long long units_of(sqlite3_stmt* row) {
  return std::min(static_cast<unsigned long long>(sqlite3_column_int64(row, 1)), kMostUnits);
}

// The number of a chunk within its value: the low bits of its place.
unsigned long long number_of(sqlite3_stmt* chunk) {
  return static_cast<unsigned long long>(sqlite3_column_int64(chunk, 0)) &
         ((1ULL << kNumberBits) - 1);
}

}  // namespace

void LargeStore::create_tables(sqlite3* db) {
  execute_sql(db, kTables);
}

/// The value's row, for the caller to reset: until then chunks are read as of the same moment.
sqlite3_stmt* LargeStore::find(const LargeName& name) {
  if (name.id == 0) fail(22275);
  if (name.id < 0 || name.id >= kLastId) fail(22922);
  sqlite3_stmt* row = prepared(db_, find_, kFind);
  // Also behind a failed step: a statement that was not reset takes no binds any more.
  ResetOnExit reset(row);
  bind_integer(row, 1, name.id);
  bind_integer(row, 2, static_cast<long long>(name.unit));
  if (!step_sql(row) || sqlite3_column_int64(row, 0) != name.stamp) fail(22922);
  return reset.release();
}

// Both ends are included. The rows are for the caller to reset, like find()'s.
sqlite3_stmt* LargeStore::chunks(long long id, unsigned long long first, unsigned long long last) {
  sqlite3_stmt* rows = prepared(db_, chunks_, kChunks);
  bind_integer(rows, 1, place_of(id, first));
  bind_integer(rows, 2, place_of(id, last));
  return rows;
}

LargeName LargeStore::create(Unit unit) {
  LargeName made;
  made.unit = unit;
  sqlite3_randomness(sizeof made.stamp, &made.stamp);
  sqlite3_stmt* row = prepared(db_, create_, kCreate);
  const ResetOnExit reset(row);
  bind_integer(row, 1, made.stamp);
  bind_integer(row, 2, static_cast<long long>(unit));
  step_sql(row);
  made.id = sqlite3_last_insert_rowid(db_);
  return made;
}

LargeName LargeStore::name_of(long long id, Unit unit) {
  sqlite3_stmt* row = prepared(db_, find_, kFind);
  const ResetOnExit reset(row);
  bind_integer(row, 1, id);
  bind_integer(row, 2, static_cast<long long>(unit));
  const long long stamp = step_sql(row) ? sqlite3_column_int64(row, 0) : 0;
  return {id, stamp, unit};
}

unsigned long long LargeStore::size(const LargeName& name) {
  sqlite3_stmt* row = find(name);
  const ResetOnExit reset(row);
  return units_of(row);
}

size_t LargeStore::read(const LargeName& name, unsigned long long place, void* target, size_t units,
                        bool viewed) {
  sqlite3_stmt* row = find(name);
  const ResetOnExit reset(row);
  // The row stands until the read is done, so that size and chunks are of one moment, also outside
  // of a transaction.
  const unsigned long long size = units_of(row);
  if (place >= size || units == 0) return 0;
  units = static_cast<size_t>(std::min<unsigned long long>(units, size - place));
  const size_t width = width_of(name.unit);
  const unsigned long long begin = place * width;
  const unsigned long long end = begin + units * width;
  auto* out = static_cast<char*>(target);
  if (viewed && name.unit == Unit::Byte && read_in_place(name.id, begin, end, out)) return units;
  unsigned long long at = begin;  // up to where the target is filled
  sqlite3_stmt* chunk = chunks(name.id, begin / kChunkSize, (end - 1) / kChunkSize);
  const ResetOnExit reset_chunk(chunk);
  while (step_sql(chunk)) {
    const Chunk held(column_bytes(chunk, 1), name.unit);
    const unsigned long long start = number_of(chunk) * kChunkSize;
    const unsigned long long from = std::max(start, at);
    const unsigned long long to = std::min(start + held.size(), end);
    if (from >= to) continue;
    // A gap between chunks, or within a short one: never written, so it reads as zeros or blanks.
    fill(out + (at - begin), static_cast<size_t>(from - at), name.unit);
    held.copy(static_cast<size_t>(from - start), out + (from - begin),
              static_cast<size_t>(to - from));
    at = to;
  }
  fill(out + (at - begin), static_cast<size_t>(end - at), name.unit);
  return units;
}

/// Moves on to another chunk, which costs less than a SELECT. False where there is none, or it
/// cannot be read.
bool LargeStore::show(long long place) noexcept {
  if (shown_ != nullptr) return sqlite3_blob_reopen(shown_.get(), place) == SQLITE_OK;
  sqlite3_blob* opened = nullptr;
  const int result = sqlite3_blob_open(db_, "main", "OCI8$CHUNKS", "data", place, 0, &opened);
  shown_.reset(opened);
  return result == SQLITE_OK;
}

// From the file's pages into the target, where a SELECT would first put the chunk together. False,
// with nothing worth keeping in the target, unless all chunks are there as far as they are read.
// Only while a query is open: an open chunk holds a view of the database, as that does.
bool LargeStore::read_in_place(long long id, unsigned long long begin, unsigned long long end,
                               char* target) {
  for (unsigned long long at = begin; at < end;) {
    if (stop_asked()) fail(1013);
    const auto from = static_cast<int>(at % kChunkSize);
    const auto size = static_cast<int>(std::min(kChunkSize - at % kChunkSize, end - at));
    if (!show(place_of(id, at / kChunkSize)) ||
        sqlite3_blob_read(shown_.get(), target, size, from) != SQLITE_OK) {
      // One that has failed shows no other chunk either.
      let_go();
      return false;
    }
    at += static_cast<unsigned>(size);
    target += size;
  }
  return true;
}

// Without a row there is no value to read either.
sqlite3_stmt* LargeStore::view() {
  ResetOnExit row(prepared(db_, view_, kView));
  step_sql(view_.get());
  return row.release();
}

void LargeStore::put(long long id, unsigned long long number, const void* data, size_t size) {
  sqlite3_stmt* row = prepared(db_, put_, kPut);
  const ResetOnExit reset(row);
  bind_integer(row, 1, place_of(id, number));
  check(db_, sqlite3_bind_blob64(row, 2, data, size, SQLITE_STATIC));
  step_sql(row);
}

void LargeStore::put_units(long long id, Unit unit, unsigned long long number, const char* data,
                           size_t size) {
  if (unit == Unit::Byte) return put(id, number, data, size);
  if (narrow_ == nullptr) narrow_ = std::make_unique<char[]>(Chunk::kMostNarrow + Chunk::kMostTail);
  const size_t count = size / sizeof(utext);
  if (!narrow(data, count, narrow_.get())) return put(id, number, data, size);
  const size_t tail = count % 2 == 0 ? 1 : 2;
  std::memset(narrow_.get() + count, static_cast<int>(tail), tail);
  put(id, number, narrow_.get(), count + tail);
}

// A part of one chunk, at byte `at` of the value. A chunk that the part covers as far as the value
// went is not read before.
void LargeStore::put_part(long long id, Unit unit, unsigned long long at, const char* data,
                          size_t size, unsigned long long old_end) {
  const unsigned long long number = at / kChunkSize;
  const auto from = static_cast<size_t>(at % kChunkSize);
  if (from == 0 && (size == kChunkSize || at + size >= old_end)) {
    return put_units(id, unit, number, data, size);
  }
  if (scratch_ == nullptr) scratch_ = std::make_unique<char[]>(kChunkSize);
  size_t length = 0;
  {
    sqlite3_stmt* chunk = chunks(id, number, number);
    const ResetOnExit reset(chunk);
    if (step_sql(chunk)) {
      const Chunk held(column_bytes(chunk, 1), unit);
      length = held.size();
      held.copy(0, scratch_.get(), length);
    }
  }
  // The chunk ended before the part begins; what lies between is made explicit, because the chunk
  // will be longer now.
  if (length < from) fill(scratch_.get() + length, from - length, unit);
  std::memcpy(scratch_.get() + from, data, size);
  put_units(id, unit, number, scratch_.get(), std::max(length, from + size));
}

void LargeStore::resize(long long id, unsigned long long units) {
  sqlite3_stmt* row = prepared(db_, resize_, kResize);
  const ResetOnExit reset(row);
  bind_integer(row, 1, id);
  bind_integer(row, 2, static_cast<long long>(units));
  step_sql(row);
}

void LargeStore::write(const LargeName& name, unsigned long long place, const void* source,
                       size_t units) {
  const unsigned long long old_size = size(name);
  if (units == 0) return;
  // In this order, so that no sum can overflow.
  if (place > kMostUnits || units > kMostUnits - place) fail(22925);
  const size_t width = width_of(name.unit);
  const auto* data = static_cast<const char*>(source);
  unsigned long long at = place * width;
  for (size_t left = units * width; left > 0;) {
    // Many megabytes may be on their way in one call: a break is looked for with each chunk.
    if (stop_asked()) fail(1013);
    const size_t part = std::min(left, kChunkSize - static_cast<size_t>(at % kChunkSize));
    put_part(name.id, name.unit, at, data, part, old_size * width);
    at += part;
    data += part;
    left -= part;
  }
  // Last: up to here a reader of the row sees the old value's end.
  if (place + units > old_size) resize(name.id, place + units);
}

// The chunks are written to the table that they are read from: the new ones are behind the old.
LargeName LargeStore::copy(const LargeName& name) {
  const unsigned long long units = size(name);
  const LargeName made = create(name.unit);
  {
    sqlite3_stmt* chunk = chunks(name.id, 0, (1ULL << kNumberBits) - 1);
    const ResetOnExit reset(chunk);
    while (step_sql(chunk)) {
      if (stop_asked()) fail(1013);
      const std::string_view data = column_bytes(chunk, 1);
      put(made.id, number_of(chunk), data.data(), data.size());
    }
  }
  resize(made.id, units);
  return made;
}

void LargeStore::remove(const LargeName& name) {
  {
    sqlite3_stmt* found = find(name);
    sqlite3_reset(found);
  }
  sqlite3_stmt* row = prepared(db_, remove_, kRemove);
  const ResetOnExit reset(row);
  bind_integer(row, 1, name.id);
  step_sql(row);
}

// --- SQL functions -------------------------------------------------------------------------------

namespace {

LargeStore& store_of(const Call& call) {
  return *static_cast<LargeStore*>(sqlite3_user_data(call.context()));
}

Unit unit_of(int type) {
  return type == SQLT_CLOB ? Unit::Character : Unit::Byte;
}

// LONG columns take what is made for them only: the name of a BLOB would look the same.
void take_large(Call& call) {
  auto* input = static_cast<LargeInput*>(call.pointer(0, kLargeInput));
  if (input == nullptr) return;
  const int type = call.integer(1);
  const bool lob = type == SQLT_CLOB || type == SQLT_BLOB;
  if (input->name.unit != unit_of(type) || (!lob && !input->given)) fail(932);
  // The second row of an UPDATE, for example, must get a value of its own.
  const bool take = input->given && !input->taken;
  input->taken = true;
  LargeStore& store = store_of(call);
  if (take) {
    // Where it was undone since it was made, its id is free for another value.
    store.size(input->name);
  } else {
    // What is copied next is this copy: the value itself may end with a later row of the statement.
    input->name = store.copy(input->name);
  }
  call.give_integer(input->name.id);
}

// The dialect writes an empty LOB as number 0.
void copy_large(Call& call) {
  if (call.type(0) != SQLITE_INTEGER) return call.give_argument(0);
  LargeStore& store = store_of(call);
  const Unit unit = unit_of(call.integer(1));
  const long long id = call.integer64(0);
  const LargeName made = id == 0 ? store.create(unit) : store.copy(store.name_of(id, unit));
  call.give_integer(made.id);
}

void store_clob(Call& call) {
  if (call.is_null(0)) return;
  if (call.type(0) == SQLITE_BLOB) fail(932);
  // Numbers and text alike: what a VARCHAR2 would get is what the CLOB gets.
  const TextArgument text(call, 0);
  LargeStore& store = store_of(call);
  const LargeName made = store.create(Unit::Character);
  const auto units = std::make_unique<utext[]>(kChunkSize);
  const auto* data = reinterpret_cast<const ub1*>(text.view().data());
  TextDecoder decoder;
  unsigned long long size = 0;
  for (size_t left = text.view().size();;) {
    const Converted done = decoder.decode(LobForm::Utf8, data, left, true, units.get(), kChunkSize);
    store.write(made, size, units.get(), done.written);
    size += done.written;
    data += done.read;
    left -= done.read;
    // Written in chunks, so that no second copy of a long text is made.
    if (!done.full) break;
  }
  call.give_integer(made.id);
}

void store_blob(Call& call) {
  if (call.is_null(0)) return;
  if (call.is_number(0)) fail(932);
  std::string from_text;
  if (call.type(0) == SQLITE_TEXT) from_text = hex_to_bytes(call.bytes(0));
  const std::string_view bytes = call.type(0) == SQLITE_TEXT ? from_text : call.bytes(0);
  LargeStore& store = store_of(call);
  const LargeName made = store.create(Unit::Byte);
  store.write(made, 0, bytes.data(), bytes.size());
  call.give_integer(made.id);
}

constexpr SqlFunction kFunctions[] = {{"take_large", 2, run_call<take_large>},
                                      {"copy_large", 2, run_call<copy_large>},
                                      {"store_clob", 1, run_call<store_clob>},
                                      {"store_blob", 1, run_call<store_blob>}};

}  // namespace

// Never deterministic: SQLite would make one value for all rows of a statement. Innocuous as the
// others, for a DEFAULT.
void LargeStore::register_functions() {
  for (const SqlFunction& function : kFunctions) {
    add_function(db_, function.name, function.arguments, function.run, this, SQLITE_INNOCUOUS);
  }
  execute_sql(db_, kStopTrigger);
}

}  // namespace oci8
