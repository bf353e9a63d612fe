#include "walk.h"

#include <climits>
#include <map>
#include <tuple>

#include "jni_double.h"
#include "jvm_test.h"

using oci_double::state;

namespace {

// Objects of each kind; the last one starts without a record.
constexpr std::size_t kEach = 4;

const std::map<char, const char*> kClasses = {{'C', "trevalon/db/oci/OciConnection"},
                                              {'U', "trevalon/db/oci/OciCursor"},
                                              {'O', "trevalon/db/oci/OciColumn"},
                                              {'L', "trevalon/db/oci/OciLob"},
                                              {'S', "trevalon/db/oci/OciSchema"}};

// Numbers by kind of argument. Sizes are such that the library finds the memory for them: it ends
// the process where there is none.
const std::map<char, std::vector<jlong>> kNumbers = {
    {'z', {0, 1}},
    {'i', {0, 1, 2, 3, 4, -1, 5, 8, 12, 23, 24, 96, 112, 113, -999, INT_MAX, INT_MIN}},
    {'r', {0, 1, 2, 40, -1}},
    {'n', {0, 1, 10, 100, 70000, -1}},
    {'p', {0, 1, 5, 4096, -1, INT_MAX}},
    {'j', {0, 1, 2, 5, 16, -1, 1LL << 32, 0xFFFFFFFF}}};

}  // namespace

class Walk {
 public:
  Walk(const std::uint8_t* data, std::size_t size);
  ~Walk();
  Walk(const Walk&) = delete;
  Walk& operator=(const Walk&) = delete;

  bool ended() const { return data_ == end_; }
  std::size_t next() { return ended() ? 0 : *data_++; }
  void step();

  /// The kinds of the arguments that choose() is asked for next.
  void choose_from(const char* kinds) { kinds_ = kinds; }
  template <typename Value>
  Value choose() {
    const char kind = *kinds_++;
    const std::size_t byte = next();
    if constexpr (std::is_pointer_v<Value>) {
      const std::size_t index = byte % (kEach + 1);
      if (index == kEach) return nullptr;
      const bool fresh = std::islower(kind) != 0;
      const auto object = objects_[static_cast<char>(std::toupper(kind))][index];
      return fresh && has_record(object, kind) ? nullptr : static_cast<Value>(object);
    } else {
      const std::vector<jlong>& numbers = kNumbers.at(kind);
      return static_cast<Value>(numbers[byte % numbers.size()]);
    }
  }

 private:
  void call(const Native& native);
  jint stream(jbyteArray buffer);
  // Java makes each record once.
  bool has_record(jobject object, char kind) {
    const jfieldID id = kind == 'u' ? cdadata32iD : kind == 'o' ? coldata32iD : lobdata32iD;
    return env_->GetIntField(object, id) != 0;
  }

  const std::uint8_t* data_;
  const std::uint8_t* end_;
  const char* kinds_ = nullptr;
  JNIEnv* env_ = jni_double::environment();
  std::map<char, std::vector<jobject>> objects_;
  bool streaming_ = false;
};

namespace {

template <typename Result, typename Object, typename... Rest>
void call_native(Result (*native)(JNIEnv*, Object, Rest...), Walk* walk, const char* kinds) {
  JNIEnv* env_of_all = jni_double::environment();
  if (walk == nullptr) {
    native(env_of_all, nullptr, Rest{}...);
    return;
  }
  // In braces, so that the order of the choices is fixed.
  walk->choose_from(kinds);
  const std::tuple<Object, Rest...> all{walk->choose<Object>(), walk->choose<Rest>()...};
  std::apply([&](auto... arguments) { native(env_of_all, arguments...); }, all);
}

template <auto kNative>
void call_by_type(Walk* walk, const char* kinds) {
  call_native(kNative, walk, kinds);
}

// clang-format off
#define REFUSES(method, kinds, text) {#method, call_by_type<method>, kinds, text}
#define CON(method, kinds) REFUSES(CONNECTION(native_1##method), kinds, "JNIEnv")
#define CUR(method, kinds) REFUSES(CURSOR(method), kinds, "JNIEnv")
#define COL(method, kinds) REFUSES(COLUMN(method), kinds, "JNIEnv")
#define LOC(method, kinds) REFUSES(LOB(method), kinds, "JNIEnv")
#define GET(method, kinds) REFUSES(CURSOR(method), kinds, "result buffer is null")
// clang-format on

}  // namespace

const std::vector<Native>& natives() {
  // clang-format off
  // The one that may not be walked ends the process.
  static const std::vector<Native> all = {
    CON(initialize, "CiBz"), CON(loginwithblock, "CBBBz"),
    REFUSES(CONNECTION(native_1loginnoblock), "CBBB", ""), CON(logout, "C"), CON(finalize, "C"),
    REFUSES(CONNECTION(lda_1pool_1size), "S", ""), REFUSES(CONNECTION(cda_1pool_1size), "S", ""),
    CON(autoCommitOn, "C"), CON(autoCommitOff, "C"), CON(commit, "C"), CON(rollback, "C"),
    CON(obreak, "C"), CON(setNonBlockingMode, "C"), CON(setBlockingMode, "C"),
    CON(isNonBlockingMode, "C"), CON(getError, "CizB"), CON(oci_1api_1version, "CB"),
    CON(get_1nls_1lang, "CB"), CON(get_1nls_1nchar, "CB"), CON(builddate, "CB"),
    REFUSES(CONNECTION(native_1clibversion), "C", ""),
    REFUSES(CONNECTION(ociMajorVersion), "S", ""), CON(describeParams, nullptr),
    CUR(initialize, "ui"), CUR(open, "UC"), CUR(cancel, "U"), CUR(close, "U"),
    CUR(native_1finalize, "U"), CUR(parse, "UBz"), CUR(describe, "UO"), CUR(isBlobColumn, "UO"),
    CUR(isOCI8ILOBColumn, "UO"), CUR(oopt, "Ui"), CUR(bindVariableByPosition, "UO"),
    CUR(bindCursorByPosition, "UUi"), CUR(exec, "U"), CUR(bindSelectItem, "UOr"), CUR(fetch, "U"),
    CUR(execAndFetch, "Ur"), CUR(arrayFetch, "Ur"), GET(getDateValue, "UOrB"),
    GET(getByteValue, "UOrB"), GET(getStringValue, "UOrB"), GET(getLongByteValue, "UOiB"),
    GET(getLongStringValue, "UOiB"), CUR(getReturnCode, "UOr"), CUR(getLongDataLength, "UO"),
    CUR(getIndicator, "UOr"), CUR(getIntegerValue, "UOr"), CUR(getDoubleValue, "UOr"),
    COL(initialize, "orn"), COL(native_1finalize, "O"), COL(position, "O"), COL(precision, "O"),
    COL(scale, "O"), COL(length, "O"), COL(internalType, "O"), COL(externalType, "O"),
    COL(actualExternalType, "O"), COL(nullAllowed, "O"), COL(hasDefault, "O"), COL(level, "O"),
    COL(overloading, "O"), COL(radix, "O"), COL(iomode, "O"), COL(setPosition, "Oi"),
    COL(setDbType, "Oi"), COL(setLength, "On"), COL(setNullOK, "Oi"), COL(setPrecision, "Oi"),
    COL(setScale, "Oi"), REFUSES(COLUMN(name), "OB", "Column name is null"),
    REFUSES(COLUMN(setName), "OB", "Name is null"), COL(setValueWithInt, "Oiz"),
    COL(setValueWithFloat, "Oiz"), COL(setValueWithDouble, "Oiz"), COL(setValueWithString, "OBz"),
    COL(setValueWithBytes, "OBzz"), COL(setValueWithStream, "Onpiz"),
    COL(setValueWithDate, "Oiiiiiiiz"), COL(allocLobLocator, "OCi"), COL(deallocLobLocator, "O"),
    COL(setValueWithLob, "OLiz"), COL(setValueWithBlob, "OLz"), COL(setValueWithClob, "OLz"),
    LOC(initialize, "l"), LOC(native_1finalize, "L"), LOC(allocLob, "LC"),
    LOC(assignLobFromColumn, "LCO"), LOC(getLobLength, "LC"), LOC(getLobCharSetId, "LC"),
    LOC(getLobCharSetForm, "LC"), LOC(getLobBuf, "LCBjjjii"), LOC(writeLobBuf, "LCBjjjiii"),
    LOC(getLobUCS2Buf, "LCjjii"), LOC(getLobUCS2CharBuf, "LCHjjii"),
    LOC(writeLobUCS2CharBuf, "LCHjjiii")};
  // clang-format on
  return all;
}

Walk::Walk(const std::uint8_t* data, std::size_t size) : data_(data), end_(data + size) {
  env_->PushLocalFrame(0);
  for (const auto& [kind, name] : kClasses) {
    for (std::size_t i = 0; i < kEach; ++i) {
      objects_[kind].push_back(env_->AllocObject(env_->FindClass(name)));
    }
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
  jni_double::next_stream_buffer = [this](jbyteArray buffer, jint, jint) { return stream(buffer); };
}

// As careful Java code would end, whatever the walk has done.
Walk::~Walk() {
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

void Walk::call(const Native& native) {
  if (native.kinds == nullptr) return;
  native.call(this, native.kinds);
}

// What Java does when it is asked for a chunk: also calls of its own, also wrong answers.
jint Walk::stream(jbyteArray buffer) {
  const std::size_t byte = next();
  if (byte % 16 == 0) {
    env_->ThrowNew(env_->FindClass("java/io/IOException"), "broken stream");
  } else if (byte % 16 < 4 && !std::exchange(streaming_, true)) {
    call(natives()[next() % natives().size()]);
    env_->ExceptionClear();
    streaming_ = false;
  }
  return env_->GetArrayLength(buffer) - static_cast<jint>(byte / 16);
}

void Walk::step() {
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
  const Native& native = natives()[next() % natives().size()];
  {
    const jni_double::NativeCall frame;
    call(native);
    env_->ExceptionClear();
  }
}

void walk(const std::uint8_t* data, std::size_t size) {
  for (Walk the_walk(data, size); !the_walk.ended();) the_walk.step();
}
