// Argument checks of all native methods: every exception, in the order of the checks; and sweeps of
// the same methods with faults underneath.
#include <algorithm>
#include <functional>

#include "natives.h"

namespace {

// Arguments that a call accepts, unless some of them are taken away.
struct Given : Listed {
  explicit Given(const Native& native) {
    for (const char* kind = native.kinds; *kind != '\0'; ++kind) objects.push_back(made(*kind));
  }

  static jobject made(char kind) {
    if (kind == 'C') return new_connection();
    if (kind == 'U') return new_cursor();
    if (kind == 'O') return rich_column();
    if (kind == 'L') return new_lob();
    if (kind == 'B') return bytes(std::string(40, 'a'));
    if (kind == 'H') return env->NewCharArray(40);
    const auto peer = kPeers.find(static_cast<char>(std::toupper(kind)));
    return peer == kPeers.end() ? nullptr : allocate(peer->second);
  }
  static jobject rich_column() {
    const jobject column = fetched_column(Lines(4), 8);
    COLUMN(allocLobLocator)(env, column, new_connection(), -999);
    return column;
  }
  void take_away(int argument) {
    jobject& given = objects[static_cast<std::size_t>(argument % kRecord)];
    if (given != nullptr) {
      given = argument < kRecord ? nullptr : env->AllocObject(env->GetObjectClass(given));
    }
  }
};

class Checks : public JvmTest {
 protected:
  static double call(const Native& native, Given arguments, JNIEnv* e = env) {
    return native.call(e, arguments, native.kinds);
  }
  static void for_each_native(const std::function<void(const Native&, const Given&)>& test) {
    for (const Native& native : natives()) {
      SCOPED_TRACE(native.name);
      env->PushLocalFrame(200);
      oci_double::state().columns = {{}};
      const Given arguments(native);
      calls();
      test(native, arguments);
      raised();
      env->PopLocalFrame(nullptr);
    }
  }
};

TEST_F(Checks, TheFirstViolatedCheckOfSeveralDecides) {
  setenv("NLS_LANG", "A.B", 1);
  setenv("NLS_NCHAR", "C", 1);
  EXPECT_EQ(natives().size(), 103u);
  for_each_native([](const Native& native, const Given& good) {
    for (std::size_t first = 0; first < native.checks.size(); ++first) {
      Given all_from_here = good, only_this = good;
      only_this.take_away(native.checks[first].argument);
      for (std::size_t i = first; i < native.checks.size(); ++i) {
        all_from_here.take_away(native.checks[i].argument);
      }
      for (const Given& arguments : {only_this, all_from_here}) {
        EXPECT_EQ(call(native, arguments), native.refused);
        const char* message = native.checks[first].message;
        EXPECT_THAT(raised(),
                    testing::MatchesRegex(std::string("java.lang.NullPointerException: ") +
                                          (message == nullptr ? ".+" : message)));
        EXPECT_THAT(calls(), IsEmpty());
      }
    }
    // Without an environment nothing happens.
    const auto of_object = [](const Check& check) { return check.argument == 0; };
    if (std::any_of(native.checks.begin(), native.checks.end(), of_object)) {
      EXPECT_EQ(call(native, good, nullptr), native.refused);
      EXPECT_THAT(calls(), IsEmpty());
    }
  });
}

TEST_F(Checks, BeforeInitialisationCallsAreRefusedOrHarmless) {
  for_each_native([](const Native& native, const Given& good) {
    // These helpers are only called once a record has been found.
    const std::string name = native.name;
    if (name.starts_with("clear") || name == "longBufferSize") return;
    forget_initialisation();
    call(native, good);
    env->ExceptionClear();
    calls();
    new_connection();
  });
}

int name_lookups;

TEST_F(Checks, NothingIsLookedUpByName) {
  for_each_native([](const Native& native, const Given& good) {
    name_lookups = 0;
    JniTable table;
    table.copy.GetFieldID = [](JNIEnv* e, jclass c, const char* name, const char* sig) {
      return ++name_lookups, JniTable::real->GetFieldID(e, c, name, sig);
    };
    table.copy.FindClass = [](JNIEnv* e, const char* name) {
      return ++name_lookups, JniTable::real->FindClass(e, name);
    };
    call(native, good);
    EXPECT_TRUE(name_lookups == 0 || env->ExceptionCheck());
  });
}

TEST_F(Checks, OnlyArraysThatWereFilledAreCopiedBack) {
  const jobject column = fetched_column({"x"}, 8);
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
  LOB(getLobBuf)(env, new_lob(), connection, array, 1, 1, 99, 0, 1);
  raised();
  EXPECT_EQ(PinWatch::releases, std::vector<jint>(11, JNI_ABORT));
  PinWatch::releases.clear();
  CONNECTION(native_1oci_1api_1version)(env, connection, array);
  CURSOR(getStringValue)(env, cursor, column, 0, array);
  COLUMN(name)(env, column, array);
  LOB(writeLobBuf)(env, new_lob(), connection, array, 1, 4, 4, 0, 0, 1);
  EXPECT_EQ(PinWatch::releases, std::vector<jint>(4, 0));
}

TEST_F(Checks, AnArrayThatCannotBePinnedEndsTheCall) {
  for_each_native([](const Native& native, const Given& good) {
    JniTable table;
    table.copy.GetByteArrayElements = pin_nothing;
    table.copy.ReleaseByteArrayElements = [](JNIEnv*, jbyteArray, jbyte*, jint) {
      ADD_FAILURE() << "released without a pin";
    };
    call(native, good);
  });
}

}  // namespace
