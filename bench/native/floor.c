/* The floor: the same workloads in plain C on SQLite, with nothing in between. Takes the commands
   of java/bench/Worker.java, on the file that the peer has made; what it writes has the peer's
   types. */
#include <sqlite3.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

enum { kPiece = 32 * 1024, kCycle = 1000, kText = 20, kRaw = 16 };

static const char* const kSettings[] = {"journal_mode", "synchronous", "page_size",
                                        "cache_size",   "mmap_size",   "foreign_keys"};

static sqlite3* db;
static const char* file;
static const char* wanted;

static void die(const char* what) {
  printf("!%s: %s\n", what, db == NULL ? "" : sqlite3_errmsg(db));
  exit(1);
}

/* --- What is delivered, as java/bench/Sink.java sums it up --------------------------------------
 */

static int full;
static uint64_t sum;
static long long values;
static uint32_t hash;
static long long length;
static volatile int touched;

static void number(int64_t value) {
  sum = sum * 31 + (uint64_t)value;
  ++values;
}

static void real(double value) {
  int64_t bits;
  memcpy(&bits, &value, sizeof bits);
  number(bits);
}

static void piece(const unsigned char* data, int size) {
  length += size;
  touched += data[0];
  if (full) {
    for (int i = 0; i < size; ++i) hash = 31 * hash + data[i];
  }
}

static void end_of_pieces(void) {
  number(full ? (int32_t)hash : length);
  hash = 0;
  length = 0;
}

static void text(sqlite3_stmt* row, int column) {
  const unsigned char* data = sqlite3_column_text(row, column);
  if (data == NULL) {
    number(-1);
  } else if (full) {
    piece(data, sqlite3_column_bytes(row, column));
    end_of_pieces();
  } else {
    number(sqlite3_column_bytes(row, column) + data[0]);
  }
}

static void bytes(sqlite3_stmt* row, int column) {
  const unsigned char* data = sqlite3_column_blob(row, column);
  piece(data, sqlite3_column_bytes(row, column));
  end_of_pieces();
}

/* --- The content of inserted rows, as java/bench/Rows.java makes it ------------------------------
 */

static uint64_t mix(uint64_t n) {
  uint64_t z = n * 0x9E3779B97F4A7C15u + 0x9E3779B97F4A7C15u;
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
  return z ^ (z >> 31);
}

static int64_t modulo(uint64_t noise, int64_t by) {
  const int64_t rest = (int64_t)noise % by;
  return rest < 0 ? rest + by : rest;
}

static void make_text(char* out, uint64_t n) {
  static const char kLetters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789 .";
  for (int i = 0; i < kText; ++i) {
    out[i] = kLetters[mix(n * 1000 + (uint64_t)(i - i % 10)) >> (6 * (i % 10)) & 63];
  }
}

static void make_raw(unsigned char* out, uint64_t n, int size) {
  for (int i = 0; i < size; ++i) {
    out[i] = (unsigned char)(mix((n << 24) + (uint64_t)(i - i % 8)) >> (8 * (i % 8)));
  }
}

/* --- Statements ----------------------------------------------------------------------------------
 */

static sqlite3_stmt* prepare(const char* sql) {
  sqlite3_stmt* statement = NULL;
  if (sqlite3_prepare_v2(db, sql, -1, &statement, NULL) != SQLITE_OK) die(sql);
  return statement;
}

static int step(sqlite3_stmt* statement) {
  const int result = sqlite3_step(statement);
  if (result != SQLITE_ROW && result != SQLITE_DONE) die("step");
  return result == SQLITE_ROW;
}

static void run(const char* sql) {
  if (sqlite3_exec(db, sql, NULL, NULL, NULL) != SQLITE_OK) die(sql);
}

static void open_file(void) {
  /* One thread: without SQLite's mutex. */
  const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX;
  if (sqlite3_open_v2(file, &db, flags, NULL) != SQLITE_OK) die(file);
  run("pragma foreign_keys = on");
  const char* mapped = strstr(wanted, "mmap_size=");
  const char* cache = strstr(wanted, "cache_size=");
  const char* synchronous = strstr(wanted, "synchronous=");
  char sql[64];
  if (mapped != NULL && atoll(mapped + 10) != 0) {
    snprintf(sql, sizeof sql, "pragma mmap_size = %lld", atoll(mapped + 10));
    run(sql);
  }
  if (cache != NULL && atoi(cache + 11) != -2000) {
    snprintf(sql, sizeof sql, "pragma cache_size = %d", atoi(cache + 11));
    run(sql);
  }
  if (synchronous != NULL && atoi(synchronous + 12) != 2) {
    snprintf(sql, sizeof sql, "pragma synchronous = %d", atoi(synchronous + 12));
    run(sql);
  }
}

static void close_file(void) {
  if (db != NULL && sqlite3_close(db) != SQLITE_OK) die("close");
  db = NULL;
}

/* --- Workloads -----------------------------------------------------------------------------------
 */

static void scan_six(void) {
  sqlite3_stmt* row = prepare("select id, name, amount, made, code, note from t");
  while (step(row)) {
    number(sqlite3_column_int(row, 0));
    text(row, 1);
    real(sqlite3_column_double(row, 2));
    number(sqlite3_column_int64(row, 3) / 1000);
    bytes(row, 4);
    text(row, 5);
  }
  sqlite3_finalize(row);
}

static void scan_three(void) {
  sqlite3_stmt* row = prepare("select a, b, c from t");
  while (step(row)) {
    for (int i = 0; i < 3; ++i) text(row, i);
  }
  sqlite3_finalize(row);
}

/* As who reads in pieces: copied into a buffer of their own. */
static void read_pieces(void) {
  static unsigned char buffer[kPiece];
  sqlite3_stmt* row = prepare("select rowid from t");
  sqlite3_blob* blob = NULL;
  while (step(row)) {
    const sqlite3_int64 id = sqlite3_column_int64(row, 0);
    const int opened = blob == NULL ? sqlite3_blob_open(db, "main", "t", "v", id, 0, &blob)
                                    : sqlite3_blob_reopen(blob, id);
    if (opened != SQLITE_OK) die("blob");
    const int size = sqlite3_blob_bytes(blob);
    for (int at = 0; at < size; at += kPiece) {
      const int part = size - at < kPiece ? size - at : kPiece;
      if (sqlite3_blob_read(blob, buffer, part, at) != SQLITE_OK) die("read");
      piece(buffer, part);
    }
    end_of_pieces();
  }
  sqlite3_blob_close(blob);
  sqlite3_finalize(row);
}

static void insert_five(int count) {
  static char names[kCycle][kText];
  static double amounts[kCycle];
  static int64_t dates[kCycle];
  static unsigned char codes[kCycle][kRaw];
  for (int i = 0; i < kCycle; ++i) {
    make_text(names[i], (uint64_t)i);
    amounts[i] = (double)modulo(mix((uint64_t)i ^ 0x1111), 100000000) / 100.0;
    dates[i] = (315532800 + modulo(mix((uint64_t)i ^ 0x2222), 1262304000)) * 1000;
    make_raw(codes[i], (uint64_t)i, kRaw);
  }
  run("begin");
  sqlite3_stmt* insert = prepare("insert into t values (?, ?, ?, ?, ?)");
  for (int i = 0; i < count; ++i) {
    const int k = i % kCycle;
    sqlite3_bind_int(insert, 1, i);
    sqlite3_bind_text(insert, 2, names[k], kText, SQLITE_STATIC);
    sqlite3_bind_double(insert, 3, amounts[k]);
    sqlite3_bind_int64(insert, 4, dates[k]);
    sqlite3_bind_blob(insert, 5, codes[k], kRaw, SQLITE_STATIC);
    step(insert);
    sqlite3_reset(insert);
  }
  sqlite3_finalize(insert);
  run("commit");
}

static void insert_large(int count, int size) {
  unsigned char* value = malloc((size_t)size);
  if (value == NULL) die("malloc");
  make_raw(value, 1, size);
  run("begin");
  sqlite3_stmt* insert = prepare("insert into t values (?, ?)");
  for (int i = 0; i < count; ++i) {
    value[0] = (unsigned char)i;
    sqlite3_bind_int(insert, 1, i);
    sqlite3_bind_blob(insert, 2, value, size, SQLITE_STATIC);
    step(insert);
    sqlite3_reset(insert);
  }
  sqlite3_finalize(insert);
  run("commit");
  free(value);
}

static void by_key(int count, int each) {
  const int rows = count >= 100000 ? 100000 : 2000;
  sqlite3_stmt* row = NULL;
  for (int i = 0; i < count; ++i) {
    if (row == NULL) row = prepare("select name, amount, note from t where id = ?");
    sqlite3_bind_int(row, 1, 1 + (int)((int64_t)i * 7919 % rows));
    step(row);
    text(row, 0);
    real(sqlite3_column_double(row, 1));
    text(row, 2);
    sqlite3_reset(row);
    if (each) {
      sqlite3_finalize(row);
      row = NULL;
    }
  }
  sqlite3_finalize(row);
}

static void log_in(int count) {
  for (int i = 0; i < count; ++i) {
    open_file();
    sqlite3_stmt* row = prepare("select name from t");
    step(row);
    text(row, 0);
    sqlite3_finalize(row);
    close_file();
  }
}

static void read_five(void) {
  sqlite3_stmt* row = prepare("select id, name, amount, made, code from t");
  while (step(row)) {
    number(sqlite3_column_int(row, 0));
    text(row, 1);
    real(sqlite3_column_double(row, 2));
    number(sqlite3_column_int64(row, 3) / 1000);
    bytes(row, 4);
  }
  sqlite3_finalize(row);
}

static void work(const char* name, int count, int size) {
  if (strcmp(name, "W1") == 0) scan_six();
  if (strcmp(name, "W2") == 0) scan_three();
  if (strncmp(name, "W3", 2) == 0) read_pieces();
  if (strcmp(name, "W4") == 0) insert_five(count);
  if (strcmp(name, "W5") == 0) insert_large(count, size);
  if (strcmp(name, "W6a") == 0) by_key(count, 1);
  if (strcmp(name, "W6b") == 0) by_key(count, 0);
  if (strcmp(name, "W7") == 0) log_in(count);
}

/* --- Commands ------------------------------------------------------------------------------------
 */

static int64_t nanos(clockid_t clock) {
  struct timespec now;
  clock_gettime(clock, &now);
  return (int64_t)now.tv_sec * 1000000000 + now.tv_nsec;
}

static void start_over(const char* name) {
  if (strcmp(name, "W4") == 0 || strcmp(name, "W5") == 0) run("delete from t");
  if (strcmp(name, "W7") == 0) close_file();
  printf("=\n");
}

/* Of any contender's file, which has it open and uses it no further for the moment. */
static void shrink(const char* name) {
  file = name;
  open_file();
  run("vacuum");
  run("pragma wal_checkpoint(truncate)");
  close_file();
}

static void measure(const char* name, int count, int size) {
  sum = 0;
  values = 0;
  const int64_t start_processor = nanos(CLOCK_THREAD_CPUTIME_ID);
  const int64_t start = nanos(CLOCK_MONOTONIC);
  work(name, count, size);
  const int64_t time = nanos(CLOCK_MONOTONIC) - start;
  const int64_t processor = nanos(CLOCK_THREAD_CPUTIME_ID) - start_processor;
  if (full && strcmp(name, "W4") == 0) read_five();
  if (full && strcmp(name, "W5") == 0) read_pieces();
  printf("=%lld %lld:%llx %lld %d\n", (long long)time, values, (unsigned long long)sum,
         (long long)processor, touched & 1);
}

static void print_settings(void) {
  if (db == NULL) open_file();
  printf("=");
  for (size_t i = 0; i < sizeof kSettings / sizeof *kSettings; ++i) {
    char sql[64];
    snprintf(sql, sizeof sql, "pragma %s", kSettings[i]);
    sqlite3_stmt* row = prepare(sql);
    printf("%s=%s ", kSettings[i], step(row) ? (const char*)sqlite3_column_text(row, 0) : "0");
    sqlite3_finalize(row);
  }
  printf("\n");
}

static void print_memory(void) {
  FILE* status = fopen("/proc/self/status", "r");
  char line[256];
  long peak = 0;
  while (status != NULL && fgets(line, sizeof line, status) != NULL) {
    if (sscanf(line, "VmHWM: %ld", &peak) == 1) break;
  }
  if (status != NULL) fclose(status);
  printf("=%ld\n", peak);
}

int main(int arguments, char** argument) {
  static char line[8192];
  static char name[4096];
  wanted = arguments > 1 ? argument[1] : "";
  setvbuf(stdout, NULL, _IOLBF, 0);
  if (arguments == 3 && strcmp(argument[1], "shrink") == 0) {
    shrink(argument[2]);
    return 0;
  }
  while (fgets(line, sizeof line, stdin) != NULL) {
    char verb[16];
    char workload[16];
    int count = 0, size = 0;
    if (sscanf(line, "open %4095s", name) == 1) {
      file = name;
      open_file();
      printf("=\n");
    } else if (sscanf(line, "prepare %15s", workload) == 1) {
      start_over(workload);
    } else if (strncmp(line, "settings", 8) == 0) {
      print_settings();
    } else if (strncmp(line, "memory", 6) == 0) {
      print_memory();
    } else if (sscanf(line, "%15s %15s %d %d", verb, workload, &count, &size) == 4) {
      full = strcmp(verb, "check") == 0;
      measure(workload, count, size);
    } else {
      break;
    }
  }
  close_file();
  return 0;
}
