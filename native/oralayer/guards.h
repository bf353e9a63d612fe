// Scoped holders of what the JVM lends: pinned arrays and pending exceptions.
#ifndef ORALAYER_GUARDS_H
#define ORALAYER_GUARDS_H

#include <jni.h>

#include "oci.h"

/// What becomes of a pinned array's contents when it is released.
enum class Pin : jint {
  ReadOnly = JNI_ABORT,  // the native side only reads: nothing is copied back
  CopyBack = 0  // the native side fills the array
};

/// How elements of one type are pinned, and as what OCI knows them.
template <typename Element>
struct ArrayPinning;

template <>
struct ArrayPinning<jbyte> {
  using Array = jbyteArray;
  using Unit = text;
  static jbyte* get(JNIEnv* env, jbyteArray array) {
    return env->GetByteArrayElements(array, nullptr);
  }
  static void release(JNIEnv* env, jbyteArray array, jbyte* elements, Pin pin) {
    env->ReleaseByteArrayElements(array, elements, static_cast<jint>(pin));
  }
};

template <>
struct ArrayPinning<jchar> {
  using Array = jcharArray;
  using Unit = utext;
  static jchar* get(JNIEnv* env, jcharArray array) {
    return env->GetCharArrayElements(array, nullptr);
  }
  static void release(JNIEnv* env, jcharArray array, jchar* elements, Pin pin) {
    env->ReleaseCharArrayElements(array, elements, static_cast<jint>(pin));
  }
};

/// The pinned elements of a Java array, released exactly once: by release(), where the moment
/// matters, else by the destructor. The array must not be null. No exception is raised here; where
/// the JVM cannot pin, ok() is false and the JVM's own error may be pending.
template <typename Element>
class PinnedArray {
  using Pinning = ArrayPinning<Element>;

 public:
  using Array = typename Pinning::Array;
  using Unit = typename Pinning::Unit;

  PinnedArray(JNIEnv* env, Array array, Pin pin)
      : env_(env), array_(array), pin_(pin), elements_(Pinning::get(env, array)) {}
  ~PinnedArray() { release(); }
  PinnedArray(const PinnedArray&) = delete;
  PinnedArray& operator=(const PinnedArray&) = delete;

  bool ok() const { return elements_ != nullptr; }
  /// Elements of the array, never negative.
  jsize length() const { return env_->GetArrayLength(array_); }
  Unit* data() const { return reinterpret_cast<Unit*>(elements_); }

  /// From here on the contents are not copied back: a refused call leaves the array as it was.
  void discard() { pin_ = Pin::ReadOnly; }

  void release() {
    if (elements_ == nullptr) return;
    Pinning::release(env_, array_, elements_, pin_);
    elements_ = nullptr;
  }

 private:
  JNIEnv* env_;
  Array array_;
  Pin pin_;
  Element* elements_;
};

using PinnedBytes = PinnedArray<jbyte>;
using PinnedChars = PinnedArray<jchar>;

/// For functions that go on after raising: set_aside() takes the pending exception off the
/// environment, so that the remaining JNI calls are legal; the destructor raises it again. The
/// first exception set aside is the one that Java sees, whatever was raised after it.
class PendingException {
 public:
  explicit PendingException(JNIEnv* env) : env_(env) {}
  ~PendingException() {
    if (first_ == nullptr) return;
    if (env_->ExceptionCheck()) env_->ExceptionClear();
    env_->Throw(first_);
    env_->DeleteLocalRef(first_);
  }
  PendingException(const PendingException&) = delete;
  PendingException& operator=(const PendingException&) = delete;

  void set_aside() {
    jthrowable pending = env_->ExceptionOccurred();
    if (pending == nullptr) return;
    env_->ExceptionClear();
    if (first_ == nullptr) {
      first_ = pending;
    } else {
      env_->DeleteLocalRef(pending);
    }
  }

 private:
  JNIEnv* env_;
  jthrowable first_ = nullptr;
};

#endif
