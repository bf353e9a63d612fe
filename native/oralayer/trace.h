// The diagnostic trace: one process-wide switch, lines on standard output.
#ifndef ORALAYER_TRACE_H
#define ORALAYER_TRACE_H

#include <atomic>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <iostream>

#include "oci.h"

/// Non-zero while the trace is on. Set once, by the first native_initialize that asks for it, and
/// never cleared. Atomic because other threads may be reading it at that moment.
extern std::atomic<std::int32_t> oci_debug;

inline bool trace_on() {
  return oci_debug.load(std::memory_order_relaxed) != 0;
}

/// Writes one trace line: the values one after the other, nothing added, ended and flushed at once.
/// What other code has put into the stream goes out first, so that lines stay in order.
template <typename... Values>
void trace_line(const Values&... values) {
  std::cout << std::flush;
  (std::cout << ... << values) << std::endl;
}

/// A trace statement. A macro, so that its arguments are not evaluated while the trace is off.
#define TRACE(...)                           \
  do {                                       \
    if (trace_on()) trace_line(__VA_ARGS__); \
  } while (0)

/// Writes `len` bytes as hexadecimal, 24 to a line, and as text, 70 to a line, under a caption.
/// Writes whether or not the trace is on: callers ask first. `buf` may be null.
void dump_bytes(const char* msg, const text* buf, int len);
/// The same for `len` UCS-2 units.
void dump_utext(const char* msg, const utext* buf, int len);

/// The form that both dumps share; `heading` names the units of the hexadecimal section.
template <typename Unit>
void dump_units(const char* msg, const char* heading, const Unit* buf, int len) {
  constexpr int kHexPerLine = 24;
  constexpr int kTextPerLine = 70;
  char scratch[1024];
  std::cout << "    " << msg << " (" << len << " bytes)" << std::endl;
  if (buf == nullptr) {
    std::cout << "    NULL" << std::endl;
    return;
  }
  std::cout << heading;
  for (int i = 0; i < len; ++i) {
    if (i % kHexPerLine == 0) std::cout << "\n    ";
    std::snprintf(scratch, sizeof scratch, "%.2X ", static_cast<unsigned>(buf[i]));
    std::cout << scratch;
  }
  std::cout << std::endl << "    text:";
  for (int i = 0; i < len; ++i) {
    if (i % kTextPerLine == 0) std::cout << "\n    ";
    // The printable test is defined for bytes only; a wider unit is shown as not printable.
    const bool printable = buf[i] <= 0xFF && std::isprint(static_cast<int>(buf[i])) != 0;
    std::cout << (printable ? static_cast<char>(buf[i]) : '?');
  }
  std::cout << std::endl;
}

/// A value line for a pointer that may be null.
inline void trace_pointer(const char* label, const void* value) {
  if (!trace_on()) return;
  if (value != nullptr) {
    trace_line(label, "=", value);
  } else {
    trace_line(label, "=", "NULL");
  }
}

/// A dump as part of a statement that has already asked for the switch.
#define TRACE_BYTES(msg, buf, len)                   \
  do {                                               \
    if (trace_on()) dump_bytes((msg), (buf), (len)); \
  } while (0)

/// Names of OCI constants, for trace lines. Constant texts.
const char* pieceName(int type);
const char* bindTypeName(int type);
const char* paramTypeName(int type);

#endif
