// All native methods in one table, and walks over them that bytes decide.
#ifndef ORALAYER_WALK_H
#define ORALAYER_WALK_H

#include <cstddef>
#include <cstdint>
#include <vector>

class Walk;

struct Native {
  const char* name;
  /// Calls the method with arguments of the walk's choice; without one, with null and zero.
  void (*call)(Walk* walk, const char* kinds);
  const char* kinds;  // of the arguments, the object's first; null: not for walks
  const char* refusal;  // of null arguments: the text of a NullPointerException, or ""
};
const std::vector<Native>& natives();

/// Turns bytes into native calls on a few objects, with and without records, and into what the
/// client library answers. The same bytes make the same calls. Nothing is left behind.
void walk(const std::uint8_t* data, std::size_t size);

#endif
