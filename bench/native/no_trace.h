// Included before every file of a build of the library that has no trace statements at all, to be
// measured beside the real one, whose trace is off.
#ifndef BENCH_NO_TRACE_H
#define BENCH_NO_TRACE_H

#include "trace.h"

#undef TRACE
#undef TRACE_BYTES
#define TRACE(...) \
  do {             \
  } while (0)
#define TRACE_BYTES(...) \
  do {                   \
  } while (0)
#define trace_on() false
#define trace_pointer(...) \
  do {                     \
  } while (0)

#endif
