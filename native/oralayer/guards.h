// Scoped holders of what the JVM lends: pinned arrays and pending exceptions.
#ifndef ORALAYER_GUARDS_H
#define ORALAYER_GUARDS_H

#include <jni.h>

#include <cstddef>

#include "oci.h"

/// What becomes of a pinned array's contents when it is released.
enum class Pin : jint {
  ReadOnly = JNI_ABORT,  // the native side only reads: nothing is copied back
  CopyBack = 0  // the native side fills the array
};

/// The pinned elements of a Java byte array, released exactly once: by release(), where the moment
/// matters, else by the destructor. The array must not be null. No exception is raised here; where
/// the JVM cannot pin, ok() is false and the JVM's own error may be pending.
class PinnedBytes {
 public:
  PinnedBytes(JNIEnv* env, jbyteArray array, Pin pin)
      : env_(env),
        array_(array),
        pin_(pin),
        length_(env->GetArrayLength(array)),
        elements_(env->GetByteArrayElements(array, nullptr)) {}
  ~PinnedBytes() { release(); }
  PinnedBytes(const PinnedBytes&) = delete;
  PinnedBytes& operator=(const PinnedBytes&) = delete;

  bool ok() const { return elements_ != nullptr; }
  /// Length of the array in bytes, never negative.
  jsize length() const { return length_; }
  text* data() const { return reinterpret_cast<text*>(elements_); }

  /// From here on the contents are not copied back: a refused call leaves the array as it was.
  void discard() { pin_ = Pin::ReadOnly; }

  void release() {
    if (elements_ == nullptr) return;
    env_->ReleaseByteArrayElements(array_, elements_, static_cast<jint>(pin_));
    elements_ = nullptr;
  }

 private:
  JNIEnv* env_;
  jbyteArray array_;
  Pin pin_;
  jsize length_;
  jbyte* elements_;
};

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
