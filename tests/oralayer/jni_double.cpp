#include "jni_double.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <shared_mutex>
#include <sstream>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "member_cache.h"

namespace jni_double {

std::function<jint(jbyteArray, jint, jint)> next_stream_buffer;

namespace {

// --- Objects and classes -------------------------------------------------------------------------

struct Class;

struct Object : std::enable_shared_from_this<Object> {
  explicit Object(Class* c);
  virtual ~Object() = default;

  Class* its_class;
  // Atomic without order: Java's fields are no synchronisation, and none must be made up here.
  std::vector<std::atomic<jint>> fields;
  std::string data;  // elements of an array, text of a string, message of an exception
};
using ObjectPtr = std::shared_ptr<Object>;

ObjectPtr shared(Object* object) {
  return object == nullptr ? nullptr : object->shared_from_this();
}

struct Member {
  Class* owner;
  std::string name;
  std::string signature;
  std::size_t index;  // of a field
  jint value;  // of a static one
};

struct Class : Object {
  Class(std::string its_name, Class* its_super)
      : Object(nullptr), name(std::move(its_name)), super(its_super) {}

  std::string name;
  Class* super;
  std::deque<Member> members;
};

Object::Object(Class* c) : its_class(c), fields(c == nullptr ? 0 : c->members.size()) {}

// Members are written name:type, name=value for a static int, name(arguments)result.
const char* const kClasses[] = {
    "java/lang/Object getClass()Ljava/lang/Class;",
    "java/lang/Class getClassLoader()Ljava/lang/ClassLoader; getName()Ljava/lang/String;",
    "java/lang/ClassLoader loadClass(Ljava/lang/String;)Ljava/lang/Class;",
    "java/lang/Throwable getMessage()Ljava/lang/String;",
    "java/lang/String",
    "java/util/ArrayList",
    "[B",
    "[C",
    "trevalon/db/oci/OciConnection logondata64:J logondata32:I ldaerrcode:I oserrcode:I isXA:Z",
    "trevalon/db/oci/OciColumn input_stream_type:I coldata32:I coldata64:J "
    "<init>(ILjava/lang/String;)V",
    "trevalon/db/oci/OciCursor <init>(Ltrevalon/db/oci/OciConnection;IIZLjava/lang/String;)V "
    "getNextStreamBuffer([BIII)I hasBlobColumn()Z "
    "ASCII_STREAM=1 UNICODE_STREAM=2 BINARY_STREAM=3 CHARACTER_STREAM=4 selPieceLength:I "
    "cursordata32:I cursordata64:J cdaerrorcode:I rowsprocessed:I parsererroffset:I sqlfunccode:I "
    "ocifunccode:I oserrcode:I warnflags:I",
    "trevalon/db/oci/OciSchema addColumn(Ltrevalon/db/oci/OciColumn;)Ltrevalon/db/oci/OciSchema;",
    "trevalon/db/oci/OciLob lobdata32:I lobdata64:J loberrcode:I"};
constexpr char kThrowables[] =
    "java/lang/NullPointerException java/lang/NoSuchFieldException java/lang/NoSuchFieldError "
    "java/lang/NoSuchMethodError java/lang/NoClassDefFoundError java/lang/ClassNotFoundException "
    "java/lang/InternalError java/lang/OutOfMemoryError "
    "java/lang/ArrayIndexOutOfBoundsException java/sql/SQLException java/io/IOException";

using Classes = std::map<std::string, std::shared_ptr<Class>>;

void add_class(Classes& all, const std::string& line, const char* super) {
  std::istringstream words(line);
  std::string word;
  words >> word;
  const auto made = all[word] = std::make_shared<Class>(word, all[super].get());
  while (words >> word) {
    const std::size_t split = word.find_first_of(":=(");
    const bool constant = word[split] == '=';
    const std::string type = constant ? "I" : word.substr(word[split] == ':' ? split + 1 : split);
    made->members.push_back({made.get(), word.substr(0, split), type, made->members.size(),
                             constant ? std::stoi(word.substr(split + 1)) : 0});
  }
}

Classes made_classes() {
  Classes all;
  for (const char* line : kClasses) add_class(all, line, "java/lang/Object");
  all.at("java/lang/Object")->super = nullptr;
  std::istringstream names(kThrowables);
  for (std::string name; names >> name;) add_class(all, name, "java/lang/Throwable");
  for (const auto& [name, made] : all) made->its_class = all.at("java/lang/Class").get();
  return all;
}

Class* class_named(const std::string& name) {
  static const Classes all = made_classes();
  const auto found = all.find(name);
  return found == all.end() ? nullptr : found->second.get();
}

bool is_a(const Class* c, const Class* wanted) {
  while (c != nullptr && c != wanted) c = c->super;
  return c != nullptr;
}

const std::string& name_of(const Object& object) {
  return object.its_class->name;
}

ObjectPtr made(const char* class_name, const std::string& data = "") {
  auto object = std::make_shared<Object>(class_named(class_name));
  object->data = data;
  return object;
}

// --- References ----------------------------------------------------------------------------------

// References are numbers that are not used twice, so that one that was deleted is always seen;
// those of global ones are odd. Readers share the lock: it must not put the threads in an order
// that the library does not give them.
std::shared_mutex globals_lock;
std::map<std::uintptr_t, ObjectPtr> globals;
std::atomic<std::uintptr_t> next_reference = 2;

std::uintptr_t number(jobject reference) {
  return reinterpret_cast<std::uintptr_t>(reference);
}

extern const JNINativeInterface_ table;

struct Environment : JNIEnv_ {
  Environment() : JNIEnv_{&table} {}

  std::thread::id thread = std::this_thread::get_id();
  const char* function = "";  // the one in turn
  ObjectPtr pending;
  std::unordered_map<std::uintptr_t, ObjectPtr> locals;
  std::vector<std::vector<std::uintptr_t>> frames{1};
  std::map<const void*, ObjectPtr> pins;  // by the copy
  int native_calls = 0;
  int calls_to_fault = 0;
  Fault how = Fault::Bare;
  bool fired = false;
};

Environment& own() {
  thread_local Environment environment;
  return environment;
}

void report(const Environment& self, const std::string& what) {
  if (testing::UnitTest::GetInstance()->current_test_info() == nullptr) {
    std::fprintf(stderr, "JNI %s: %s\n", self.function, what.c_str());
    std::abort();
  }
  ADD_FAILURE() << "JNI " << self.function << ": " << what;
}

// Calls that are allowed with an exception pending; all others come by enter.
Environment& enter_pending(JNIEnv* e, const char* function) {
  auto& self = static_cast<Environment&>(*e);
  self.function = function;
  if (self.thread != std::this_thread::get_id()) report(self, "another thread's environment");
  return self;
}

Environment& enter(JNIEnv* e, const char* function) {
  Environment& self = enter_pending(e, function);
  if (self.pending != nullptr) report(self, "with a pending " + name_of(*self.pending));
  return self;
}

template <typename Reference = jobject>
Reference local(Environment& self, const ObjectPtr& object) {
  if (object == nullptr) return nullptr;
  const std::uintptr_t id = next_reference.fetch_add(2, std::memory_order_relaxed);
  self.locals[id] = object;
  self.frames.back().push_back(id);
  return reinterpret_cast<Reference>(id);
}

Object* find(Environment& self, jobject reference) {
  const std::uintptr_t id = number(reference);
  if (id % 2 == 0) {
    const auto found = self.locals.find(id);
    return found == self.locals.end() ? nullptr : found->second.get();
  }
  const std::shared_lock held(globals_lock);
  const auto found = globals.find(id);
  return found == globals.end() ? nullptr : found->second.get();
}

// The object of a reference that must be alive and of the class. After a report, one of no class.
Object& object(Environment& self, jobject reference, const char* of_class = "java/lang/Object") {
  Object* found = find(self, reference);
  if (found != nullptr && is_a(found->its_class, class_named(of_class))) return *found;
  report(self, reference == nullptr ? "null"
               : found == nullptr   ? "a reference that is deleted, or another thread's"
                                    : "a " + name_of(*found) + " in place of a " + of_class);
  static const auto nothing = std::make_shared<Class>("nothing", nullptr);
  nothing->its_class = nothing.get();
  return *nothing;
}

// The member behind an identifier, which must be one of the object's class, its signature of this
// beginning.
const Member& member_of(Environment& self, const Object& of, const void* id, char type) {
  const auto* m = static_cast<const Member*>(id);
  if (m != nullptr && is_a(of.its_class, m->owner) && m->signature.front() == type) return *m;
  if (name_of(of) != "nothing") {
    report(self, m == nullptr ? "null identifier" : m->name + " of a " + name_of(of));
  }
  static const Member nothing{};
  return nothing;
}

std::atomic<jint>& field(Environment& self, jobject reference, jfieldID id, char type) {
  Object& of = object(self, reference);
  const std::size_t index = member_of(self, of, id, type).index;
  static std::atomic<jint> nowhere;
  return index < of.fields.size() ? of.fields[index] : nowhere;
}

void raise(Environment& self, const char* class_name, const std::string& message) {
  self.pending = made(class_name, message);
}

// True where this call is the one to fail: what cannot fail by its result alone always raises.
bool fails(Environment& self, Fault least = Fault::Bare,
           const char* exception = "java/lang/OutOfMemoryError") {
  if (self.native_calls == 0 || self.calls_to_fault == 0 || --self.calls_to_fault > 0) return false;
  self.fired = true;
  if (std::max(least, self.how) == Fault::Raising) raise(self, exception, "by the double");
  return true;
}

std::string with(std::string text, char from, char to) {
  std::replace(text.begin(), text.end(), from, to);
  return text;
}

void* pin(Environment& self, Object& array, std::size_t room) {
  char* const copy = new char[room];
  std::memcpy(copy, array.data.c_str(), room);
  self.pins[copy] = array.shared_from_this();
  return copy;
}

void unpin(Environment& self, Object& array, const void* address, jint mode) {
  const auto found = self.pins.find(address);
  if (found == self.pins.end() || found->second.get() != &array) return report(self, "not pinned");
  const auto* copy = static_cast<const char*>(address);
  if (mode != JNI_ABORT) std::memcpy(array.data.data(), copy, array.data.size());
  if (mode == JNI_COMMIT) return;
  self.pins.erase(found);
  delete[] copy;
}

// --- The functions -------------------------------------------------------------------------------

constexpr char kCursor[] = "trevalon/db/oci/OciCursor";
constexpr char kString[] = "java/lang/String";

// Members of a class only for their form: each is one entry of the table, or more.
struct Jni {
  static jclass FindClass(Environment& self, const char* name) {
    constexpr char kMissing[] = "java/lang/NoClassDefFoundError";
    if (fails(self, Fault::Raising, kMissing)) return nullptr;
    if (class_named(name) == nullptr) raise(self, kMissing, name);
    return local<jclass>(self, shared(class_named(name)));
  }
  static jclass GetObjectClass(Environment& self, jobject reference) {
    return local<jclass>(self, shared(object(self, reference).its_class));
  }
  static jint Throw(Environment& self, jthrowable exception) {
    self.pending = shared(&object(self, exception, "java/lang/Throwable"));
    return 0;
  }
  static jint ThrowNew(Environment& self, jclass c, const char* message) {
    if (fails(self, Fault::Raising)) return -1;
    const auto& thrown = static_cast<Class&>(object(self, c, "java/lang/Class"));
    if (!is_a(&thrown, class_named("java/lang/Throwable"))) report(self, "a " + thrown.name);
    raise(self, thrown.name.c_str(), message);
    return 0;
  }
  static jthrowable ExceptionOccurred(Environment& self) {
    return local<jthrowable>(self, self.pending);
  }
  static void ExceptionClear(Environment& self) { self.pending = nullptr; }
  static jboolean ExceptionCheck(Environment& self) { return self.pending != nullptr; }

  static jint PushLocalFrame(Environment& self, jint) {
    self.frames.emplace_back();
    return 0;
  }
  static jobject PopLocalFrame(Environment& self, jobject result) {
    const ObjectPtr kept = result == nullptr ? nullptr : shared(&object(self, result));
    for (const std::uintptr_t id : self.frames.back()) self.locals.erase(id);
    self.frames.pop_back();
    return local(self, kept);
  }
  static jobject NewGlobalRef(Environment& self, jobject reference) {
    if (fails(self)) return nullptr;
    const std::uintptr_t id = next_reference.fetch_add(2) + 1;
    const ObjectPtr target = shared(&object(self, reference));
    const std::unique_lock held(globals_lock);
    globals[id] = target;
    return reinterpret_cast<jobject>(id);
  }
  static void DeleteGlobalRef(Environment& self, jobject reference) {
    const std::unique_lock held(globals_lock);
    if (reference != nullptr && globals.erase(number(reference)) == 0) report(self, "none such");
  }
  static void DeleteLocalRef(Environment& self, jobject reference) {
    if (reference != nullptr && self.locals.erase(number(reference)) == 0) report(self, "no such");
  }
  static jboolean IsSameObject(Environment& self, jobject one, jobject other) {
    return find(self, one) == find(self, other);
  }
  static jobjectRefType GetObjectRefType(Environment& self, jobject reference) {
    if (find(self, reference) == nullptr) return JNIInvalidRefType;
    return number(reference) % 2 != 0 ? JNIGlobalRefType : JNILocalRefType;
  }

  template <typename Id>
  static Id find_member(Environment& self, jclass c, const char* name, const char* signature) {
    constexpr bool kField = std::is_same_v<Id, jfieldID>;
    const char* missing = kField ? "java/lang/NoSuchFieldError" : "java/lang/NoSuchMethodError";
    if (fails(self, Fault::Raising, missing)) return nullptr;
    Class* owner = &static_cast<Class&>(object(self, c, "java/lang/Class"));
    for (; owner != nullptr; owner = owner->super) {
      for (Member& m : owner->members) {
        if (m.name == name && m.signature == signature) return reinterpret_cast<Id>(&m);
      }
    }
    raise(self, missing, name);
    return nullptr;
  }
  template <typename Value, char kType>
  static Value get_field(Environment& self, jobject o, jfieldID id) {
    return static_cast<Value>(field(self, o, id, kType).load(kRelaxed));
  }
  template <typename Value, char kType>
  static void set_field(Environment& self, jobject o, jfieldID id, Value value) {
    field(self, o, id, kType).store(value, kRelaxed);
  }
  static jint GetStaticIntField(Environment& self, jclass c, jfieldID id) {
    const auto* m = reinterpret_cast<const Member*>(id);
    if (m == nullptr || m->owner != &object(self, c)) report(self, "another class's field");
    return m == nullptr ? 0 : m->value;
  }

  static jobject CallObjectMethodV(Environment& self, jobject reference, jmethodID id,
                                   va_list arguments) {
    Object& of = object(self, reference);
    const std::string& name = member_of(self, of, id, '(').name;
    if (fails(self, Fault::Raising)) return nullptr;
    if (name == "getClass") return local(self, shared(of.its_class));
    if (name == "getMessage") return local(self, made(kString, of.data));
    if (name == "loadClass") return load(self, va_arg(arguments, jobject));
    const auto& c = static_cast<Class&>(of);
    if (name == "getName") return local(self, made(kString, with(c.name, '/', '.')));
    // Only the package's own classes have a loader.
    return c.name.starts_with("trevalon/") ? local(self, made("java/lang/ClassLoader")) : nullptr;
  }
  static jobject load(Environment& self, jobject name) {
    const std::string& text = object(self, name, kString).data;
    const bool slashes = text.find('/') != std::string::npos;
    Class* found = slashes ? nullptr : class_named(with(text, '.', '/'));
    if (found == nullptr) raise(self, "java/lang/ClassNotFoundException", text);
    return local(self, shared(found));
  }
  // getNextStreamBuffer
  static jint CallIntMethodV(Environment& self, jobject reference, jmethodID id,
                             va_list arguments) {
    member_of(self, object(self, reference, kCursor), id, '(');
    const auto buffer = va_arg(arguments, jbyteArray);
    const jint position = va_arg(arguments, jint);
    if (fails(self, Fault::Raising, "java/io/IOException") || next_stream_buffer == nullptr)
      return 0;
    return next_stream_buffer(buffer, position, va_arg(arguments, jint));
  }
  static jobject AllocObject(Environment& self, jclass c) {
    if (fails(self)) return nullptr;
    const auto& its_class = static_cast<Class&>(object(self, c, "java/lang/Class"));
    return local(self, made(its_class.name.c_str()));
  }
  static jstring NewStringUTF(Environment& self, const char* text) {
    return fails(self) ? nullptr : local<jstring>(self, made(kString, text));
  }
  // ASCII is all that tests look at.
  static jstring NewString(Environment& self, const jchar* units, jsize length) {
    if (fails(self, Fault::Raising)) return nullptr;
    return local<jstring>(self, made(kString, std::string(units, units + length)));
  }
  static const char* GetStringUTFChars(Environment& self, jstring reference, jboolean*) {
    Object& text = object(self, reference, kString);
    return static_cast<const char*>(pin(self, text, text.data.size() + 1));
  }
  static void ReleaseStringUTFChars(Environment& self, jstring text, const char* chars) {
    unpin(self, object(self, text, kString), chars, JNI_ABORT);
  }
  static jsize GetArrayLength(Environment& self, jarray reference) {
    const Object* found = find(self, reference);
    const bool of_chars = found != nullptr && name_of(*found) == "[C";
    const std::size_t size = object(self, reference, of_chars ? "[C" : "[B").data.size();
    return static_cast<jsize>(of_chars ? size / sizeof(jchar) : size);
  }

 private:
  static constexpr auto kRelaxed = std::memory_order_relaxed;
};

template <typename Array, typename Element>
struct ArrayFunctions {
  static constexpr const char* kClass = sizeof(Element) == 1 ? "[B" : "[C";

  static Array make(Environment& self, jsize length) {
    if (length < 0) report(self, "negative length");
    if (length < 0 || fails(self)) return nullptr;
    return local<Array>(self, made(kClass, std::string(std::size_t(length) * sizeof(Element), 0)));
  }
  static Element* get(Environment& self, Array reference, jboolean*) {
    Object& array = object(self, reference, kClass);
    return static_cast<Element*>(fails(self) ? nullptr : pin(self, array, array.data.size()));
  }
  static void release(Environment& self, Array reference, Element* elements, jint mode) {
    unpin(self, object(self, reference, kClass), elements, mode);
  }
  // Copies between a region and a buffer, whichever way.
  template <typename Buffer>
  static void region(Environment& self, Array reference, jsize start, jsize length,
                     Buffer* buffer) {
    std::string& data = object(self, reference, kClass).data;
    const auto from = std::size_t(start) * sizeof(Element);
    const auto size = std::size_t(length) * sizeof(Element);
    if (start < 0 || length < 0 || from + size > data.size()) {
      return raise(self, "java/lang/ArrayIndexOutOfBoundsException", "region");
    }
    if constexpr (std::is_const_v<Buffer>) {
      data.replace(from, size, reinterpret_cast<const char*>(buffer), size);
    } else {
      data.copy(reinterpret_cast<char*>(buffer), size, from);
    }
  }
};
using Bytes = ArrayFunctions<jbyteArray, jbyte>;
using Chars = ArrayFunctions<jcharArray, jchar>;

// --- The table -----------------------------------------------------------------------------------

// All other functions are null: a call of one ends the process.
JNINativeInterface_ made_table() {
  JNINativeInterface_ t{};
#define ENTRY(enters, entry, ...) \
  t.entry = [](JNIEnv* e, auto... given) { return __VA_ARGS__(enters(e, #entry), given...); }
#define OWN(entry) ENTRY(enter, entry, Jni::entry)
#define PENDING(entry) ENTRY(enter_pending, entry, Jni::entry)
  // These may be called with an exception pending.
  PENDING(ExceptionOccurred), PENDING(ExceptionClear), PENDING(ExceptionCheck);
  PENDING(PushLocalFrame), PENDING(PopLocalFrame), PENDING(DeleteGlobalRef);
  PENDING(DeleteLocalRef), PENDING(ReleaseStringUTFChars);
  ENTRY(enter_pending, ReleaseByteArrayElements, Bytes::release);
  ENTRY(enter_pending, ReleaseCharArrayElements, Chars::release);
  OWN(FindClass), OWN(GetObjectClass), OWN(Throw), OWN(ThrowNew), OWN(NewGlobalRef);
  OWN(IsSameObject), OWN(GetObjectRefType), OWN(GetStaticIntField), OWN(CallObjectMethodV);
  OWN(CallIntMethodV), OWN(AllocObject), OWN(NewStringUTF), OWN(NewString);
  OWN(GetStringUTFChars), OWN(GetArrayLength);
  ENTRY(enter, GetFieldID, Jni::find_member<jfieldID>);
  ENTRY(enter, GetMethodID, Jni::find_member<jmethodID>);
  t.GetStaticFieldID = t.GetFieldID, t.GetStaticMethodID = t.GetMethodID;
  ENTRY(enter, GetIntField, Jni::get_field<jint, 'I'>);
  ENTRY(enter, SetIntField, Jni::set_field<jint, 'I'>);
  ENTRY(enter, GetBooleanField, Jni::get_field<jboolean, 'Z'>);
  ENTRY(enter, SetBooleanField, Jni::set_field<jboolean, 'Z'>);
  ENTRY(enter, NewByteArray, Bytes::make), ENTRY(enter, NewCharArray, Chars::make);
  ENTRY(enter, GetByteArrayElements, Bytes::get), ENTRY(enter, GetCharArrayElements, Chars::get);
  ENTRY(enter, GetByteArrayRegion, Bytes::region<jbyte>);
  ENTRY(enter, GetCharArrayRegion, Chars::region<jchar>);
  ENTRY(enter, SetByteArrayRegion, Bytes::region<const jbyte>);
  return t;
}

const JNINativeInterface_ table = made_table();

jint attach(JavaVM*, void** environment_at, void*) {
  *environment_at = environment();
  return JNI_OK;
}

jint detach(JavaVM*) {
  if (!own().pins.empty()) report(own(), "a thread ends with pins");
  return JNI_OK;
}

// What a test leaves behind fails it.
class Watch : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo&) override {
    Jni::PushLocalFrame(own(), 0);
    before_ = globals_held();
  }
  void OnTestEnd(const testing::TestInfo&) override {
    EXPECT_EQ(own().pins.size(), 0u) << "left pinned";
    EXPECT_EQ(globals_held(), before_) << "global references";
    Jni::PopLocalFrame(own(), nullptr);
  }
  std::size_t before_ = 0;
};

}  // namespace

JNIEnv* environment() {
  return &own();
}

std::size_t globals_held() {
  const std::shared_lock lock(globals_lock);
  std::size_t all = globals.size();
  for (const jclass cached :
       {OciConnectionClass, OciColumnClass, OciCursorClass, OciSchemaClass, OciLobClass}) {
    all -= globals.count(number(cached));
  }
  return all;
}

void fail_call(int n, Fault how) {
  own().calls_to_fault = n;
  own().how = how;
  own().fired = false;
}

bool fault_fired() {
  return own().fired;
}

NativeCall::NativeCall() {
  Jni::PushLocalFrame(own(), 0);
  ++own().native_calls;
}

NativeCall::~NativeCall() {
  Environment& self = own();
  --self.native_calls;
  self.function = "native method";
  if (!self.pins.empty()) report(self, "returns with pins");
  Jni::PopLocalFrame(self, nullptr);
}

}  // namespace jni_double

extern "C" JNIEXPORT jint JNICALL JNI_CreateJavaVM(JavaVM** vm, void** environment_at, void*) {
  static JNIInvokeInterface_ functions{};
  static JavaVM machine{&functions};
  functions.AttachCurrentThread = jni_double::attach;
  functions.DetachCurrentThread = jni_double::detach;
  *vm = &machine;
  testing::UnitTest::GetInstance()->listeners().Append(new jni_double::Watch);
  return jni_double::attach(*vm, environment_at, nullptr);
}
