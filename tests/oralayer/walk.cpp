// Walks over all native methods that bytes decide.
#include <climits>
#include <map>

#include "jni_double.h"
#include "natives.h"

using oci_double::state;

namespace {

// Objects of each kind; the last one starts without a record.
constexpr std::size_t kEach = 4;

// Numbers by kind of argument. Sizes are such that the library finds the memory for them: it ends
// the process where there is none.
const std::map<char, std::vector<jlong>> kNumbers = {
    {'z', {0, 1}},
    {'i', {0, 1, 2, 3, 4, -1, 5, 8, 12, 23, 24, 96, 112, 113, -999, INT_MAX, INT_MIN}},
    {'r', {0, 1, 2, 40, -1}},
    {'n', {0, 1, 10, 100, 70000, -1}},
    {'p', {0, 1, 5, 4096, -1, INT_MAX}},
    {'j', {0, 1, 2, 5, 16, -1, 1LL << 32, 0xFFFFFFFF}}};

class Walk : public Arguments {
 public:
  Walk(const std::uint8_t* data, std::size_t size) : data_(data), end_(data + size) {
    env_->PushLocalFrame(0);
    for (const auto& [kind, name] : kPeers) {
      const jclass peer = env_->FindClass(("trevalon/db/oci/" + name).c_str());
      for (std::size_t i = 0; i < kEach; ++i) objects_[kind].push_back(env_->AllocObject(peer));
    }
    for (const jsize length : {0, 1, 20, 300}) {
      objects_['B'].push_back(env_->NewByteArray(length));
      objects_['H'].push_back(env_->NewCharArray(length));
    }
    for (std::size_t i = 0; i + 1 < kEach; ++i) {
      CONNECTION(native_1initialize)(env_, objects_['C'][i], static_cast<jint>(i), nullptr, 0);
      CURSOR(initialize)(env_, objects_['U'][i], 0);
      CURSOR(open)(env_, objects_['U'][i], objects_['C'][i]);
      env_->SetIntField(objects_['U'][i], selPieceLengthID, 5);
      COLUMN(initialize)(env_, objects_['O'][i], 1, 0);
      COLUMN(setPosition)(env_, objects_['O'][i], static_cast<jint>(i + 1));
      COLUMN(setDbType)(env_, objects_['O'][i], i == 2 ? SQLT_CLOB : i == 1 ? SQLT_LNG : SQLT_CHR);
      LOB(initialize)(env_, objects_['L'][i]);
    }
    state() = {};
    state().transfers = true;
    state().lob_data = "some LOB data";
    state().columns = {{SQLT_CHR}, {SQLT_LNG}, {SQLT_CLOB}, {SQLT_NUM}};
    jni_double::next_stream_buffer = [this](jbyteArray buffer, jint, jint) {
      return stream(buffer);
    };
  }
  // As careful Java code would end, whatever the walk has done.
  ~Walk() override {
    jni_double::next_stream_buffer = nullptr;
    state() = {};
    for (std::size_t i = 0; i < kEach; ++i) {
      CURSOR(close)(env_, objects_['U'][i]);
      env_->ExceptionClear();
      CURSOR(native_1finalize)(env_, objects_['U'][i]);
      COLUMN(deallocLobLocator)(env_, objects_['O'][i]);
      env_->ExceptionClear();
      COLUMN(native_1finalize)(env_, objects_['O'][i]);
      LOB(native_1finalize)(env_, objects_['L'][i]);
    }
    env_->PopLocalFrame(nullptr);
    state() = {};
    oci_double::forget_handles();
  }
  Walk(const Walk&) = delete;
  Walk& operator=(const Walk&) = delete;

  bool ended() const { return data_ == end_; }
  std::size_t next() { return ended() ? 0 : *data_++; }
  void step() {
    const std::size_t answer = next();
    if (answer % 8 == 0) {
      state().calls_to_fault = static_cast<int>(answer / 8 % 4 + 1);
    } else if (answer % 8 == 1 && !state().defines.empty()) {
      state().reply("OCIStmtFetch", OCI_NEED_DATA, 3130);
      const auto piece = static_cast<ub1>(answer / 8 % 4);
      state().pieces.push_back({next() % state().defines.size(), piece, "piece", {}});
    } else if (answer % 8 == 2) {
      state().stmt_type = static_cast<ub2>(answer / 8 % 4 + 1);
    }
    const jni_double::NativeCall frame;
    call();
    env_->ExceptionClear();
  }

  jobject object(char kind) override {
    const std::size_t index = next() % (kEach + 1);
    if (index == kEach) return nullptr;
    const bool fresh = std::islower(kind) != 0;
    const auto chosen = objects_[static_cast<char>(std::toupper(kind))][index];
    return fresh && has_record(chosen, kind) ? nullptr : chosen;
  }
  jlong number(char kind) override {
    const std::vector<jlong>& numbers = kNumbers.at(kind);
    return numbers[next() % numbers.size()];
  }

 private:
  void call() {
    const Native& native = natives()[next() % natives().size()];
    native.call(env_, *this, native.kinds);
  }
  // What Java does when it is asked for a chunk: also calls of its own, also wrong answers.
  jint stream(jbyteArray buffer) {
    const std::size_t byte = next();
    const jint length = env_->GetArrayLength(buffer);
    if (byte % 16 == 0) {
      env_->ThrowNew(env_->FindClass("java/io/IOException"), "broken stream");
    } else if (byte % 16 < 4 && !std::exchange(streaming_, true)) {
      call();
      env_->ExceptionClear();
      streaming_ = false;
    }
    return length - static_cast<jint>(byte / 16);
  }
  // Java makes each record once.
  bool has_record(jobject object, char kind) {
    const jfieldID id = kind == 'c'   ? logondata32iD
                        : kind == 'u' ? cdadata32iD
                        : kind == 'o' ? coldata32iD
                                      : lobdata32iD;
    return env_->GetIntField(object, id) != 0;
  }

  const std::uint8_t* data_;
  const std::uint8_t* end_;
  JNIEnv* env_ = jni_double::environment();
  std::map<char, std::vector<jobject>> objects_;
  bool streaming_ = false;
};

}  // namespace

void jni_double::walk(const std::uint8_t* data, std::size_t size) {
  for (Walk the_walk(data, size); !the_walk.ended();) the_walk.step();
}
