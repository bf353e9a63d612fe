// Walks over all native methods that bytes decide.
#ifndef ORALAYER_WALK_H
#define ORALAYER_WALK_H

#include <cstddef>
#include <cstdint>

/// Turns bytes into native calls on a few objects, with and without records, and into what the
/// client library answers. The same bytes make the same calls. Nothing is left behind.
void walk(const std::uint8_t* data, std::size_t size);

#endif
