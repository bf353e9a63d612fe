// What is true of every input.
#ifndef ORALAYER_TESTS_FUZZ_REQUIRE_H
#define ORALAYER_TESTS_FUZZ_REQUIRE_H

#include <cstdio>
#include <string_view>

#include "error.h"

/// Ends the run as a find, with what helps to understand it.
inline void require(bool condition, std::string_view shown = {}) {
  if (condition) return;
  std::fprintf(stderr, "REQUIRE FAILED: %.*s\n", static_cast<int>(shown.size()), shown.data());
  __builtin_trap();
}

/// An error that a client may be given: one of the catalogue, not the one for the impossible.
inline void require_proper(const oci8::Failure& failure) {
  require(failure.code > 0 && failure.code != 600 && failure.text.starts_with("ORA-"),
          failure.text);
}

#endif
