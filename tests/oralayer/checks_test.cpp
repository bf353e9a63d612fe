// Argument checks of all entry points: every exception, in the order of the checks; and sweeps of
// the same entry points with faults underneath.
#include <algorithm>
#include <functional>
#include <type_traits>

#include "jvm_test.h"

namespace {

// What a call is given. Everything but the environment can be taken away.
struct Arguments {
  JNIEnv* e;
  jobject obj;
  jobject other;  // a column, or for open a connection
  jbyteArray first, second, third;
  jcharArray chars;  // in the place of the first
  jobject column;
};

enum Missing { kObject, kFirst, kSecond, kThird, kOther, kRecord, kOtherRecord };

struct Check {
  Missing missing;
  const char* message;
};

const Check kEnv = {kObject, "JNIEnv"};
const Check kBuilt = {kFirst, "JNIEnv"};
const Check kLda = {kRecord, "LDA not set"};
const Check kUser = {kFirst, "Null username String"};
const Check kPass = {kSecond, "Null password String"};
const Check kServer = {kThird, "Null server String"};
const Check kCda = {kRecord, "CDA is null"};
const Check kConn = {kOther, "CONN is null"};
const Check kConnLda = {kOtherRecord, "LDA is null"};
const Check kCol = {kOther, "COL is null"};
const Check kColdata = {kOtherRecord, "COLDATA is null"};
const Check kAnyColdata = {kOtherRecord, nullptr};  // with any text
const Check kBuffer = {kFirst, "result buffer is null"};
const Check kColumn = {kRecord, "Column is null"};
const Check kName = {kFirst, "Column name is null"};
const Check kNewName = {kFirst, "Name is null"};
const Check kValue = {kFirst, "Value is null"};
const Check kStreamColumn = {kRecord, "COLUMNDATA is null"};
const Check kNoCursor = {kOther, "Null Cursor"};
const Check kNoCursorRecord = {kOtherRecord, "Null Cursor"};
const Check kNoCol = {kRecord, "COL is null"};
const Check kLob = {kOther, "Lob is null"};
const Check kLobRecord = {kOtherRecord, "Lob is null"};
const Check kLobdata = {kRecord, "LOBDATA is null"};
const Check kDestination = {kRecord, "DEST LOBDATA is null"};
const Check kLobConn = {kOther, "assignLobCodes: CONN is null"};
const Check kLobLda = {kOtherRecord, "assignLobCodes: LDA is null"};

template <typename Call>
double result_of(Call call) {
  if constexpr (std::is_void_v<decltype(call())>) {
    call();
    return 0;
  } else if constexpr (std::is_pointer_v<decltype(call())>) {
    return call() == nullptr ? 0 : 1;
  } else {
    return static_cast<double>(call());
  }
}

// The start of an entry: name, class, and the call with the arguments after the object.
#define ENTRY(owner, name, function, ...)                                               \
  name, owner, [](const Arguments& a) {                                                 \
    return result_of([&a] { return function(a.e, a.obj __VA_OPT__(, ) __VA_ARGS__); }); \
  }
#define CON(method, ...) \
  ENTRY("OciConnection", #method, CONNECTION(native_1##method) __VA_OPT__(, ) __VA_ARGS__)
#define CUR(method, ...) ENTRY("OciCursor", #method, CURSOR(method) __VA_OPT__(, ) __VA_ARGS__)
#define COL(method, ...) ENTRY("OciColumn", #method, COLUMN(method) __VA_OPT__(, ) __VA_ARGS__)
#define LOB_(method, ...) ENTRY("OciLob", #method, LOB(method) __VA_OPT__(, ) __VA_ARGS__)

struct Entry {
  const char* name;
  const char* owner;
  double (*call)(const Arguments&);
  std::vector<Check> checks;  // in the order in which they are made
  double refused = 0;
};

// clang-format off
const Entry kEntries[] = {
    {CON(initialize, 0, nullptr, 0), {kEnv}}, {CON(finalize), {kEnv}},
    {CON(loginwithblock, a.first, a.second, a.third, 0), {kEnv, kUser, kPass, kServer, kLda}},
    {CON(logout), {kEnv, kLda}}, {CON(getError, 0, 0, a.first), {kEnv, kBuilt, kLda}},
    {CON(builddate, a.first), {kBuilt}}, {CON(oci_1api_1version, a.first), {}},
    {CON(get_1nls_1lang, a.first), {}}, {CON(get_1nls_1nchar, a.first), {}},
    {CON(autoCommitOn), {kEnv, kLda}}, {CON(autoCommitOff), {kEnv, kLda}},
    {CON(commit), {kEnv, kLda}}, {CON(rollback), {kEnv, kLda}}, {CON(obreak), {kEnv, kLda}},
    {CON(setNonBlockingMode), {kEnv, kLda}}, {CON(setBlockingMode), {kEnv, kLda}},
    {CON(isNonBlockingMode), {kEnv, kLda}},
    {ENTRY("OciConnection", "assignLdaCodes", assignLdaCodes), {kEnv, kLda}},
    {ENTRY("OciCursor", "assignCdaCodes", assignCdaCodes), {kEnv, kCda}},
    {ENTRY("OciCursor", "clearCdaErrorCodes", clearCdaErrorCodes), {kEnv}},
    {ENTRY("OciCursor", "longBufferSize", longBufferSize), {kEnv}}, {CUR(initialize, 0), {kEnv}},
    {CUR(native_1finalize), {kEnv}}, {CUR(open, a.other), {kEnv, kCda, kConn, kConnLda}},
    {CUR(cancel), {kEnv, kCda}}, {CUR(close), {kEnv, kCda}}, {CUR(exec), {kEnv, kCda}},
    {CUR(fetch), {kEnv, kCda}}, {CUR(execAndFetch, 1), {kEnv, kCda}},
    {CUR(arrayFetch, 1), {kEnv, kCda}}, {CUR(oopt, 1), {kEnv}},
    {CUR(parse, a.first, 0), {kEnv, kBuffer, kCda}},
    {CUR(describe, a.other), {kEnv, kCol, kCda, kAnyColdata}},
    {CUR(isBlobColumn, a.other), {kEnv, kCol, kCda, kAnyColdata}},
    {CUR(isOCI8ILOBColumn, a.other), {kEnv, kCol, kCda, kAnyColdata}},
    {CUR(bindSelectItem, a.other, 1), {kEnv, kCol, kCda, kAnyColdata}},
    {CUR(bindVariableByPosition, a.other), {kEnv, kCol, kCda, kAnyColdata}},
    {CUR(bindCursorByPosition, a.other, 1), {kEnv, kNoCursor, kCda, kNoCursorRecord}},
    {CUR(getIndicator, a.other, 0), {kEnv, kCol, kColdata}},
    {CUR(getReturnCode, a.other, 0), {kEnv, kCol, kColdata}},
    {CUR(getIntegerValue, a.other, 0), {kEnv, kCol, kColdata}},
    {CUR(getDoubleValue, a.other, 0), {kEnv, kCol, kColdata}},
    {CUR(getByteValue, a.other, 0, a.first), {kBuffer, kEnv, kCol, kColdata}},
    {CUR(getStringValue, a.other, 0, a.first), {kBuffer, kEnv, kCol, kColdata}},
    {CUR(getDateValue, a.other, 0, a.first), {kBuffer, kEnv, kCol, kColdata}},
    {CUR(getLongByteValue, a.other, 0, a.first), {kBuffer, kEnv, kCol, kCda, kColdata}},
    {CUR(getLongStringValue, a.other, 0, a.first), {kBuffer, kEnv, kCol, kCda, kColdata}},
    {CUR(getLongDataLength, a.other), {kEnv, kCol, kCda, kAnyColdata}, -10},
    {COL(initialize, 1, 1), {kEnv}}, {COL(native_1finalize), {kEnv}},
    {COL(position), {kEnv, kColumn}}, {COL(precision), {kEnv, kColumn}},
    {COL(scale), {kEnv, kColumn}}, {COL(length), {kEnv, kColumn}},
    {COL(internalType), {kEnv, kColumn}}, {COL(externalType), {kEnv, kColumn}},
    {COL(actualExternalType), {kEnv, kColumn}}, {COL(nullAllowed), {kEnv, kColumn}},
    {COL(hasDefault), {kEnv, kColumn}}, {COL(level), {kEnv, kColumn}},
    {COL(overloading), {kEnv, kColumn}}, {COL(radix), {kEnv, kColumn}},
    {COL(iomode), {kEnv, kColumn}}, {COL(setPosition, 1), {kEnv, kColumn}},
    {COL(setDbType, 1), {kEnv, kColumn}}, {COL(setLength, 1), {kEnv, kColumn}},
    {COL(setNullOK, 1), {kEnv, kColumn}}, {COL(setPrecision, 1), {kEnv, kColumn}},
    {COL(setScale, 1), {kEnv, kColumn}}, {COL(setValueWithInt, 1, 0), {kEnv, kColumn}},
    {COL(setValueWithFloat, 1, 0), {kEnv, kColumn}},
    {COL(setValueWithDouble, 1, 0), {kEnv, kColumn}},
    {COL(setValueWithDate, 1, 1, 1, 1, 1, 1, 1, 0), {kEnv, kColumn}},
    {COL(name, a.first), {kName, kEnv, kColumn}},
    {COL(setName, a.first), {kNewName, kEnv, kColumn}},
    {COL(setValueWithString, a.first, 0), {kEnv, kValue, kColumn}},
    {COL(setValueWithBytes, a.first, 0, 0), {kEnv, kValue, kColumn}},
    {COL(setValueWithStream, 1, 1, 1, 0), {kEnv, kStreamColumn}},
    {COL(allocLobLocator, a.other, 112), {kEnv, kNoCol, kConn, kConnLda}},
    {COL(deallocLobLocator), {kEnv, kNoCol}},
    {COL(setValueWithLob, a.other, 112, 0), {kEnv, kColumn, kLob, kLobRecord}},
    {COL(setValueWithBlob, a.other, 0), {kEnv, kColumn, kLob, kLobRecord}},
    {COL(setValueWithClob, a.other, 1), {kEnv, kColumn, kLob, kLobRecord}},
    {LOB_(initialize), {kEnv}}, {LOB_(native_1finalize), {kEnv}},
    {LOB_(allocLob, a.other), {kEnv, kConn, kConnLda, kLobdata}},
    {LOB_(assignLobFromColumn, a.other, a.column), {kEnv, kConn, kConnLda, kDestination}},
    {LOB_(getLobLength, a.other), {kEnv, kConn, kConnLda, kLobdata}, -1},
    {LOB_(getLobCharSetId, a.other), {kEnv, kConn, kConnLda, kLobdata}, -1},
    {LOB_(getLobCharSetForm, a.other), {kEnv, kConn, kConnLda, kLobdata}, -1},
    {LOB_(getLobBuf, a.other, a.first, 1, 9, 9, 0, 1),
     {kEnv, kConn, kConnLda, kLobdata, kBuffer}, -1},
    {LOB_(writeLobBuf, a.other, a.first, 1, 9, 9, 0, 0, 1),
     {kEnv, kConn, kLobdata, kConnLda, kBuffer}, -1},
    {LOB_(getLobUCS2Buf, a.other, 1, 9, 0, 1), {kEnv, kConn, kConnLda, kLobdata}},
    {LOB_(getLobUCS2CharBuf, a.other, a.chars, 1, 9, 0, 1),
     {kEnv, kConn, kConnLda, kLobdata, kBuffer}, -1},
    {LOB_(writeLobUCS2CharBuf, a.other, a.chars, 1, 9, 0, 0, 1),
     {kEnv, kConn, kLobdata, kConnLda, kBuffer}, -1},
    {ENTRY("OciLob", "assignLobCodes", assignLobCodes, a.other), {kEnv, kLobConn, kLobLda}},
    {ENTRY("OciLob", "clearLobErrorCodes", clearLobErrorCodes), {kEnv}}};
// clang-format on

class Checks : public JvmTest {
 protected:
  static Arguments good_arguments(const Entry& entry) {
    const std::string owner = entry.owner;
    const jobject object = owner == "OciConnection" ? new_connection()
                           : owner == "OciCursor"   ? new_cursor()
                           : owner == "OciLob"      ? new_lob()
                                                    : new_column();
    const jobject column = new_column(4);
    column_of(column)->buflen = 8;
    column_of(column)->allocByteArray(32);
    oci_double::state().columns = {{}};
    const std::string name = entry.name;
    const bool with_connection = name == "open" || name == "allocLobLocator" || owner == "OciLob";
    const jobject other = with_connection                    ? new_connection()
                          : name == "bindCursorByPosition"   ? new_cursor()
                          : name.starts_with("setValueWith") ? new_lob()
                                                             : column;
    COLUMN(allocLobLocator)(env, column, new_connection(), -999);
    return {env,
            object,
            other,
            bytes(std::string(40, 'a')),
            bytes("b"),
            bytes("c"),
            env->NewCharArray(40),
            column};
  }

  static void take_away(Missing missing, const Entry& entry, Arguments& a) {
    if (missing == kObject) a.obj = nullptr;
    if (missing == kFirst) {
      a.first = nullptr;
      a.chars = nullptr;
    }
    if (missing == kSecond) a.second = nullptr;
    if (missing == kThird) a.third = nullptr;
    if (missing == kOther) a.other = nullptr;
    if (missing == kRecord && a.obj != nullptr) a.obj = allocate(entry.owner);
    if (missing == kOtherRecord && a.other != nullptr) {
      a.other = env->AllocObject(env->GetObjectClass(a.other));
    }
  }

  static void for_each_entry(const std::function<void(const Entry&, const Arguments&)>& test) {
    for (const Entry& entry : kEntries) {
      SCOPED_TRACE(entry.name);
      env->PushLocalFrame(64);
      const Arguments arguments = good_arguments(entry);
      calls();
      test(entry, arguments);
      raised();
      env->PopLocalFrame(nullptr);
    }
  }
};

TEST_F(Checks, TheFirstViolatedCheckOfSeveralDecides) {
  for_each_entry([](const Entry& entry, const Arguments& good) {
    for (std::size_t first = 0; first < entry.checks.size(); ++first) {
      Arguments all_from_here = good;
      Arguments only_this = good;
      take_away(entry.checks[first].missing, entry, only_this);
      for (std::size_t i = first; i < entry.checks.size(); ++i) {
        take_away(entry.checks[i].missing, entry, all_from_here);
      }
      for (const Arguments& arguments : {only_this, all_from_here}) {
        EXPECT_EQ(entry.call(arguments), entry.refused);
        const char* message = entry.checks[first].message;
        EXPECT_THAT(raised(),
                    testing::MatchesRegex(std::string("java.lang.NullPointerException: ") +
                                          (message == nullptr ? ".+" : message)));
        EXPECT_THAT(calls(), testing::IsEmpty());
      }
    }
  });
}

TEST_F(Checks, WithoutAnEnvironmentNothingHappens) {
  for_each_entry([](const Entry& entry, const Arguments& good) {
    const auto checks_environment = [](const Check& check) { return check.missing == kObject; };
    if (std::none_of(entry.checks.begin(), entry.checks.end(), checks_environment)) return;
    Arguments without = good;
    without.e = nullptr;
    EXPECT_EQ(entry.call(without), entry.refused);
    EXPECT_THAT(calls(), testing::IsEmpty());
  });
}

TEST_F(Checks, BeforeInitialisationCallsAreRefusedOrHarmless) {
  for_each_entry([](const Entry& entry, const Arguments& good) {
    // These helpers are only called once a record has been found.
    const std::string name = entry.name;
    if (name.starts_with("clear") || name == "longBufferSize") return;
    forget_initialisation();
    entry.call(good);
    env->ExceptionClear();
    calls();
    new_connection();
  });
}

TEST_F(Checks, CallsOnACursorThatIsNotOpenDoNotReachTheInterface) {
  for_each_entry([](const Entry& entry, const Arguments& good) {
    if (entry.owner != std::string("OciCursor") || entry.name == std::string("open")) return;
    for (const bool closed_before : {false, true}) {
      Arguments not_open = good;
      not_open.obj = new_cursor(closed_before);
      if (closed_before) CURSOR(close)(env, not_open.obj);
      calls();
      entry.call(not_open);
      raised();
      EXPECT_THAT(calls(), testing::Each(testing::Not(testing::HasSubstr("freed:"))));
    }
  });
}

int name_lookups;

TEST_F(Checks, PinsAreReleasedAndNothingIsLookedUpByName) {
  for_each_entry([](const Entry& entry, const Arguments& good) {
    name_lookups = 0;
    PinWatch table;
    table.copy.GetFieldID = [](JNIEnv* e, jclass c, const char* name, const char* sig) {
      ++name_lookups;
      return JniTable::real->GetFieldID(e, c, name, sig);
    };
    table.copy.FindClass = [](JNIEnv* e, const char* name) {
      ++name_lookups;
      return JniTable::real->FindClass(e, name);
    };
    entry.call(good);
    EXPECT_EQ(PinWatch::pins, static_cast<int>(PinWatch::releases.size()));
    EXPECT_TRUE(name_lookups == 0 || env->ExceptionCheck());
  });
}

TEST_F(Checks, OnlyArraysThatWereFilledAreCopiedBack) {
  const jobject connection = new_connection();
  const jobject column = new_column(1);
  column_of(column)->buflen = 8;
  column_of(column)->allocByteArray(8);
  column_of(column)->byte_arr[0] = 'x';
  const jobject cursor = new_cursor();
  const jbyteArray array = bytes("some bytes");
  const PinWatch watch;
  CONNECTION(native_1loginwithblock)(env, connection, array, array, array, 0);
  CURSOR(parse)(env, cursor, array, 0);
  COLUMN(setName)(env, column, array);
  COLUMN(setValueWithString)(env, new_column(), array, 0);
  COLUMN(setValueWithBytes)(env, new_column(), array, 0, 0);
  tv_init_nls(env, connection, array);
  CONNECTION(native_1oci_1api_1version)(env, connection, bytes("..."));
  raised();
  CURSOR(getStringValue)(env, cursor, column, 0, bytes(""));
  raised();
  EXPECT_EQ(PinWatch::releases, std::vector<jint>(10, JNI_ABORT));
  PinWatch::releases.clear();
  CONNECTION(native_1oci_1api_1version)(env, connection, array);
  CURSOR(getStringValue)(env, cursor, column, 0, array);
  COLUMN(name)(env, column, array);
  EXPECT_EQ(PinWatch::releases, std::vector<jint>(3, 0));
}

TEST_F(Checks, AnArrayThatCannotBePinnedEndsTheCall) {
  for_each_entry([](const Entry& entry, const Arguments& good) {
    JniTable table;
    table.copy.GetByteArrayElements = pin_nothing;
    table.copy.ReleaseByteArrayElements = [](JNIEnv*, jbyteArray, jbyte*, jint) {
      ADD_FAILURE() << "released without a pin";
    };
    entry.call(good);
  });
}

}  // namespace
