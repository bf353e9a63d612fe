// A Java virtual machine without Java: a JNI function table of our own on a few small objects,
// which JNI_CreateJavaVM hands out as libjvm's does. Leak and thread checks work on it, as they do
// not in a process with a real one.
//
// It knows the classes that the library and the fixtures use. It holds its callers to the rules of
// JNI and reports a breach as a failure of the test, or ends the process where no test runs: calls
// with an exception pending, null and deleted references, objects and members of another class,
// another thread's environment, what is released twice or never. A function that nobody here may
// call ends the process. Pins are copies, freed by their release.
#ifndef ORALAYER_JNI_DOUBLE_H
#define ORALAYER_JNI_DOUBLE_H

#include <jni.h>

#include <cstdint>
#include <functional>

namespace jni_double {

/// The calling thread's environment, made by the first call.
JNIEnv* environment();

/// Global references apart from the library's own to its classes. Compared around every test.
std::size_t globals_held();

enum class Fault {
  Bare,  // null, where that alone says it
  Raising  // an exception as well
};

/// Fails the n-th call, from 1, that a JVM may fail; 0: none. Only calls inside a NativeCall count.
void fail_call(int n, Fault how);
bool fault_fired();

/// What Java's getNextStreamBuffer does; without one, nothing.
extern std::function<jint(jbyteArray buffer, jint position, jint length)> next_stream_buffer;

/// The frame that a JVM makes for a native method: expects that it ends without pins.
class NativeCall {
 public:
  NativeCall();
  ~NativeCall();
  NativeCall(const NativeCall&) = delete;
  NativeCall& operator=(const NativeCall&) = delete;
};

/// Turns bytes into native calls on a few objects, with and without records, and into what the
/// client library answers. The same bytes make the same calls. Nothing is left behind.
void walk(const std::uint8_t* data, std::size_t size);

}  // namespace jni_double

#endif
