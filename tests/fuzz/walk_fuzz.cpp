// The native methods in any order, on the doubles of the JVM and of the client library.
#include "jni_double.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  jni_double::walk(data, size);
  return 0;
}
