// The diagnostic trace: one process-wide switch, lines on standard output.
#ifndef ORALAYER_TRACE_H
#define ORALAYER_TRACE_H

#include <atomic>
#include <cctype>
#include <concepts>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "oci.h"

/// Non-zero while the trace is on. Set once, by the first native_initialize that asks for it, and
/// never cleared. Atomic because other threads may be reading it at that moment.
extern std::atomic<std::int32_t> oci_debug;

inline bool trace_on() {
  return oci_debug.load(std::memory_order_relaxed) != 0;
}

/// One value of a line on standard output: text as it is, a byte as a character, integers in
/// decimal, addresses in hexadecimal. Texts must not be null. The C library's stream: to make those
/// of C++ ready would take more time and memory than all the rest of loading the library.
void put_value(const char* characters);
void put_value(const text* characters);
void put_value(std::string_view characters);
void put_value(text character);
void put_value(char) = delete;  // not a number
void put_value(signed char) = delete;
void put_value(double number);
void put_value(const void* address);
void put_value(std::int64_t number);
void put_value(std::uint64_t number);

template <std::signed_integral Integer>
void put_value(Integer number) {
  put_value(static_cast<std::int64_t>(number));
}

template <std::unsigned_integral Integer>
void put_value(Integer number) {
  put_value(static_cast<std::uint64_t>(number));
}

/// Writes one line, whether or not the trace is on: the values one after the other, nothing added,
/// ended and flushed at once.
template <typename... Values>
void write_line(const Values&... values) {
  (put_value(values), ...);
  std::putchar('\n');
  std::fflush(stdout);
}

/// Writes one line of the trace. What other code has put into the stream goes out first, so that
/// nothing is lost where the step that the line tells of ends the process.
template <typename... Values>
void trace_line(const Values&... values) {
  std::fflush(stdout);
  write_line(values...);
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
  write_line("    ", msg, " (", len, " bytes)");
  if (buf == nullptr) return write_line("    NULL");
  put_value(heading);
  for (int i = 0; i < len; ++i) {
    if (i % kHexPerLine == 0) put_value("\n    ");
    std::printf("%.2X ", static_cast<unsigned>(buf[i]));
  }
  write_line();
  put_value("    text:");
  for (int i = 0; i < len; ++i) {
    if (i % kTextPerLine == 0) put_value("\n    ");
    // The printable test is defined for bytes only; a wider unit is shown as not printable.
    const bool printable = buf[i] <= 0xFF && std::isprint(static_cast<int>(buf[i])) != 0;
    std::putchar(printable ? static_cast<int>(buf[i]) : '?');
  }
  write_line();
}

/// A value line for a buffer that may be missing.
inline void trace_pointer(const char* label, const void* value) {
  if (!trace_on()) return;
  if (value != nullptr) {
    trace_line(label, "=", value);
  } else {
    trace_line(label, "=", "NULL");
  }
}

/// Dumps bytes if the trace is on; evaluates its arguments only then.
#define TRACE_BYTES(msg, buf, len)                   \
  do {                                               \
    if (trace_on()) dump_bytes((msg), (buf), (len)); \
  } while (0)

/// Names of OCI constants, for trace lines. Constant texts.
const char* pieceName(int type);
const char* bindTypeName(int type);
const char* paramTypeName(int type);

#endif
