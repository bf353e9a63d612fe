// The native methods in any order, on the doubles of the JVM and of the client library.
#include "walk.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  walk(data, size);
  return 0;
}
