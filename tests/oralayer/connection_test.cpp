// Session records, pools, and the entry points of OciConnection.
#include <climits>
#include <cstdlib>
#include <future>

#include "jvm_test.h"

namespace {

class Connection : public JvmTest {
 protected:
  // The records' handles stay; what earlier cases left in them does not.
  Connection() {
    for (ldapool_holder* pool : {&ldapool, &xaldapool}) {
      for (int i = 0; i < pool->get_pool_size(); ++i) {
        ldadata& session = (*pool)[i];
        session.authp = session.usrhp = nullptr;
        session.status = session.autocommit = 0;
      }
    }
  }

  static jboolean login(jobject object, const std::string& user = "scott",
                        const std::string& password = "tiger", const std::string& server = "db") {
    return CONNECTION(native_1loginwithblock)(env, object, bytes(user), bytes(password),
                                              bytes(server), JNI_TRUE);
  }
};

TEST_F(Connection, LoadBuildsBothPoolsBeforeAnythingElse) {
  const int size = CONNECTION(lda_1pool_1size)(env, nullptr);
  EXPECT_EQ(size, ldapool_holder::pool_size_from_str("TV_ORA_CONN_HANDLES"));
  Lines expected;
  for (int i = 1; i <= 2 * size; ++i) {
    const std::string environment = "env" + std::to_string(i);
    expected.push_back("OCIEnvInit(" + environment + ",0,0,-)");
    for (const char* type : {"2", "8", "3"}) {
      expected.push_back("OCIHandleAlloc(" + environment + "," + type + ",0,-)");
    }
  }
  EXPECT_EQ(load_calls, expected);
  EXPECT_EQ(name(xaldapool[0].envhp), "env" + std::to_string(size + 1));
  EXPECT_EQ(CONNECTION(cda_1pool_1size)(env, nullptr), 4096);
}

TEST_F(Connection, PoolSizeRule) {
  const std::pair<const char*, int> cases[] = {
      {"", 512},    {"0", 512},
      {"-3", 512},  {"abc", 512},
      {"x16", 512}, {"1", 1},
      {"+7", 7},    {"16abc", 16},
      {"  16", 16}, {"4294967312", sizeof(long) == 8 ? 16 : INT_MAX},
      {"2", 2}};
  for (const auto& [value, size] : cases) {
    setenv("ORALAYER_TEST_SIZE", value, 1);
    EXPECT_EQ(ldapool_holder::pool_size_from_str("ORALAYER_TEST_SIZE"), size) << value;
  }
  EXPECT_EQ(traced([] {
              const ldapool_holder pool("ORALAYER_TEST_SIZE");
              EXPECT_EQ(calls().size(), 8u);
            }),
            "ldapool allocated - size=2\nldapool env var =ORALAYER_TEST_SIZE\n");
  EXPECT_THAT(calls(), IsEmpty()) << "a pool goes without a call";
  unsetenv("ORALAYER_TEST_SIZE");
  EXPECT_EQ(ldapool_holder::pool_size_from_str("ORALAYER_TEST_SIZE"), 512);
  EXPECT_EQ(ldapool_holder::pool_size_from_str(nullptr), 512);
}

TEST_F(Connection, InitializeOnceThenOnlyHandsOutRecords) {
  forget_initialisation();
  unsetenv("NLS_LANG");
  connection = allocate("OciConnection");
  const auto initialize = [this](jint elem, const char* nls, jboolean trace) {
    CONNECTION(native_1initialize)(env, connection, elem, bytes(nls), trace);
  };
  expect_trace({"*** tv_init_fid: initializing JNI IDs and Handles\n", "set NLS_LANG=A.B\n",
                "*** native_initialize - isXA:", ", elem:1, ldadata:PTR\n"},
               [&] { initialize(1, "A.B", JNI_FALSE); });
  EXPECT_THAT(calls(), ElementsAre("OCIInitialize(1,-)"));
  EXPECT_EQ(state().nls_lang, "A.B") << "the interface reads it";
  EXPECT_EQ(session_of(connection), &ldapool[1]);

  ldapool[2].status = ldapool[2].autocommit = 5;
  initialize(2, "C.D", JNI_TRUE);
  EXPECT_THAT(calls(), IsEmpty());
  EXPECT_STREQ(getenv("NLS_LANG"), "A.B");
  EXPECT_EQ(oci_debug, 0) << "the trace is switched on by the first call or never";
  EXPECT_EQ(session_of(connection), &ldapool[2]);
  EXPECT_EQ(ldapool[2].status + ldapool[2].autocommit, 10) << "the record is kept as it is";
  EXPECT_EQ(session_of(new_connection(2, true)), &xaldapool[2]);

  forget_initialisation();
  EXPECT_THAT(captured([&] {
                initialize(0, "E.F", JNI_TRUE);
                initialize(0, "E.F", JNI_FALSE);
              }),
              testing::StartsWith("*** tv_init_fid"));
  EXPECT_EQ(oci_debug.exchange(0), 1) << "nothing switches it off";
}

TEST_F(Connection, TwoFirstInitializeCallsInitializeOnce) {
  for (int round = 0; round < 10; ++round) {
    forget_initialisation();
    std::atomic<int> ready = 0;
    const auto first_call = [&ready](JNIEnv* own) {
      const jobject object = own->AllocObject(own->FindClass("trevalon/db/oci/OciConnection"));
      for (++ready; ready < 2;) std::this_thread::yield();
      CONNECTION(native_1initialize)(own, object, 0, nullptr, JNI_FALSE);
      EXPECT_FALSE(own->ExceptionCheck());
      EXPECT_NE(own->GetIntField(object, logondata32iD), 0);
    };
    std::thread one = on_a_thread(first_call), two = on_a_thread(first_call);
    one.join();
    two.join();
    ASSERT_THAT(calls(), ElementsAre("OCIInitialize(1,-)"));
  }
}

TEST_F(Connection, AClassMayInitialiseWhileItIsResolved) {
  static const auto initialise = [](JNIEnv* own) {
    const jobject object = own->AllocObject(own->FindClass("trevalon/db/oci/OciConnection"));
    CONNECTION(native_1initialize)(own, object, 2, nullptr, JNI_FALSE);
    EXPECT_NE(own->GetIntField(object, logondata32iD), 0);
  };
  static std::promise<void> done;
  static std::thread other;
  using Resolve = decltype(JNINativeInterface_::GetStaticFieldID);
  const Resolve initialisers[] = {
      [](JNIEnv* e, jclass c, const char* name, const char* sig) {
        static bool running = false;
        if (!std::exchange(running, true)) initialise(e);
        return JniTable::real->GetStaticFieldID(e, c, name, sig);
      },
      // Another thread is in the class's initialiser: this one waits for it.
      [](JNIEnv* e, jclass c, const char* name, const char* sig) {
        if (!other.joinable()) {
          other = on_a_thread([](JNIEnv* own) { initialise(own), done.set_value(); });
          const auto seen = done.get_future().wait_for(std::chrono::seconds(20));
          EXPECT_EQ(seen, std::future_status::ready) << "both wait";
        }
        return JniTable::real->GetStaticFieldID(e, c, name, sig);
      }};
  for (const Resolve resolve : initialisers) {
    forget_initialisation();
    connection = allocate("OciConnection");
    JniTable table;
    table.copy.GetStaticFieldID = resolve;
    table.copy.GetObjectRefType = nullptr;  // JVMs before 1.6 have none
    CONNECTION(native_1initialize)(env, connection, 1, nullptr, JNI_FALSE);
    EXPECT_THAT(calls(), ElementsAre("OCIInitialize(1,-)"));
    EXPECT_EQ(session_of(connection), &ldapool[1]);
    EXPECT_EQ(table.real->GetObjectRefType(env, OciLobClass), JNIGlobalRefType);
  }
  other.join();
}

TEST_F(Connection, AnElementOutsideThePoolIsRefused) {
  connection = new_connection(1);
  const int size = ldapool.get_pool_size();
  for (int elem : {-1, size, size + 1, INT_MAX, INT_MIN}) {
    CONNECTION(native_1initialize)(env, connection, elem, nullptr, JNI_FALSE);
    EXPECT_NE(raised(), "") << elem;
    EXPECT_EQ(session_of(connection), &ldapool[1]);
  }
}

TEST_F(Connection, NlsSettingOf71BytesIsTheLongest) {
  const std::pair<std::size_t, const char*> cases[] = {
      {71, ""}, {72, "java.lang.InternalError: NLS_LANG setting is too long"}};
  for (const auto& [length, exception] : cases) {
    forget_initialisation();
    setenv("NLS_LANG", "before", 1);
    const std::string setting(length, 'n');
    connection = allocate("OciConnection");
    CONNECTION(native_1initialize)(env, connection, 0, bytes(setting), JNI_FALSE);
    EXPECT_EQ(raised(), exception);
    EXPECT_EQ(getenv("NLS_LANG"), *exception ? "before" : setting);
    EXPECT_THAT(calls(), ElementsAre("OCIInitialize(1,-)")) << "goes on after raising";
    EXPECT_EQ(oci_debug, 0);
    EXPECT_EQ(session_of(connection), &ldapool[0]);
  }
  forget_initialisation();
  unsetenv("NLS_LANG");
  expect_trace({"+++ NLS_LANG=null\n"}, [] { new_connection(); });
  setenv("NLS_LANG", "X.Y", 1);
  expect_trace({"+++ NLS_LANG=X.Y\n"},
               [] { tv_init_nls(env, allocate("OciConnection"), nullptr); });
  tv_init_nls(env, allocate("OciConnection"), bytes(std::string("cut\0off", 7)));
  EXPECT_STREQ(getenv("NLS_LANG"), "cut");
}

TEST_F(Connection, ClientTexts) {
  connection = allocate("OciConnection");
  setenv("NLS_LANG", "LANG567890", 1);
  setenv("NLS_NCHAR", "CHAR567890", 1);
  // text: as the array holds it afterwards; setting: that is too long.
  const std::tuple<jint (*)(JNIEnv*, jobject, jbyteArray), int, std::string, const char*> cases[] =
      {{CONNECTION(native_1oci_1api_1version), 4, "OCI8", ""},
       {CONNECTION(native_1oci_1api_1version), 0, "...", "oci_api_version"},
       {CONNECTION(native_1get_1nls_1lang), 10, "LANG567890.", ""},
       {CONNECTION(native_1get_1nls_1lang), 0, ".........", "NLS_LANG"},
       {CONNECTION(native_1get_1nls_1nchar), 10, "CHAR567890", ""},
       {CONNECTION(native_1get_1nls_1nchar), 0, ".........", "NLS_NCHAR"}};
  static bool pending_at_release;
  JniTable table;
  table.copy.ReleaseByteArrayElements = [](JNIEnv* e, jbyteArray array, jbyte* pin, jint mode) {
    pending_at_release = e->ExceptionCheck();
    JniTable::real->ReleaseByteArrayElements(e, array, pin, mode);
  };
  for (const auto& [query, result, text, setting] : cases) {
    const jbyteArray array = bytes(std::string(text.size(), '.'));
    EXPECT_EQ(query(env, connection, array), result) << text;
    EXPECT_EQ(pending_at_release, *setting != '\0');
    const std::string error = std::string("java.lang.InternalError: ") + setting;
    EXPECT_EQ(raised(), *setting ? error + " setting is too long" : "");
    EXPECT_EQ(contents(array), text);
  }
  unsetenv("NLS_LANG");
  unsetenv("NLS_NCHAR");
  const jbyteArray untouched = bytes("..");
  EXPECT_EQ(CONNECTION(native_1get_1nls_1lang)(env, connection, untouched), 0);
  EXPECT_EQ(CONNECTION(native_1get_1nls_1nchar)(env, connection, untouched), 0);
  EXPECT_EQ(contents(untouched), "..");
  EXPECT_EQ(CONNECTION(native_1clibversion)(env, connection), 30);
  EXPECT_EQ(CONNECTION(ociMajorVersion)(env, nullptr), 8);
  const jbyteArray whole = bytes(std::string(25, '.')), part = bytes("........");
  for (const jbyteArray date : {whole, part}) {
    EXPECT_EQ(CONNECTION(native_1builddate)(env, connection, date), 20);
  }
  EXPECT_THAT(contents(whole).substr(0, 20),
              testing::MatchesRegex("[A-Z][a-z][a-z] [ 0-3][0-9] [0-9]{4} [0-9:]{8}"));
  EXPECT_EQ(contents(whole).substr(20), std::string("\0....", 5));
  EXPECT_EQ(contents(part), contents(whole).substr(0, 8));
}

TEST_F(Connection, CredentialsAsTheyReachTheInterface) {
  const std::string u255(255, 'u'), s255(255, 's');
  const std::tuple<std::string, std::string, std::string, Lines> cases[] = {
      {"/", "", "db", {"OCISessionBegin(svc1,err1,ses1,2,0)"}},
      {"", "", "db", {"OCISessionBegin(svc1,err1,ses2,1,0)"}},
      {"/x", "", "db", {"OCISessionBegin(svc1,err1,ses3,1,0)"}},
      {u255 + "cut",
       std::string("pw\0x", 4),
       s255 + "c",
       {"OCIServerAttach(srv1,err1," + s255 + ",255,0)",
        "OCIAttrSet(ses4,9," + u255 + ",255,22,err1)", "OCIAttrSet(ses4,9,pw,2,23,err1)"}}};
  for (const auto& [user, password, server, made] : cases) {
    login(new_connection(), user, password, server);
    EXPECT_THAT(calls(), testing::IsSupersetOf(made));
  }
}

TEST_F(Connection, FailedLoginIsReportedOnStandardOutputAndInTheObject) {
  for (const sword status : {OCI_ERROR, OCI_SUCCESS_WITH_INFO}) {
    set_int(connection, "oserrcode", 7);
    state().reply("OCISessionBegin", status, 1017);
    EXPECT_EQ(captured([&] { EXPECT_EQ(login(connection), JNI_TRUE); }),
              "\n\n----------  LOGIN ERROR CODE: 1017\n");
    EXPECT_EQ(ldapool[0].status, status);
    EXPECT_EQ(get_int(connection, "ldaerrcode"), 1017);
    EXPECT_EQ(get_int(connection, "oserrcode"), 0);
    EXPECT_THAT(calls(), Each(Not(HasSubstr(",7,err1"))));
    EXPECT_EQ(CONNECTION(native_1logout)(env, connection), JNI_FALSE);
    EXPECT_THAT(calls(), Contains("OCIServerDetach(srv1,err1,0)"));
  }
}

TEST_F(Connection, XaLoginAndLogoutMakeNoCallOfTheirOwn) {
  connection = new_connection(0, true);
  const std::string error_handle = name(xaldapool[0].errhp);
  calls();
  xaldapool[0].status = 55;
  for (auto action : {+[](jobject c) { return login(c); },
                      +[](jobject c) { return CONNECTION(native_1logout)(env, c); }}) {
    xaldapool[0].autocommit = 1;
    EXPECT_EQ(action(connection), JNI_FALSE);
    EXPECT_THAT(calls(), ElementsAre("OCIErrorGet(" + error_handle + ",1,-,-,0,2)"));
    EXPECT_EQ(xaldapool[0].autocommit, 0);
    EXPECT_EQ(xaldapool[0].authp, nullptr);
    EXPECT_EQ(xaldapool[0].status, 55);
  }
}

TEST_F(Connection, ASessionFromLoginToLogoutKeepsItsRecord) {
  const jobject fresh = new_connection(3);
  EXPECT_EQ(CONNECTION(native_1logout)(env, fresh), JNI_FALSE);
  EXPECT_THAT(calls(), ElementsAre("OCIServerDetach(srv4,err4,0)", "OCIErrorGet(err4,1,-,-,0,2)"));
  ldapool[3].autocommit = 1;
  EXPECT_EQ(login(fresh), JNI_FALSE);
  EXPECT_THAT(
      calls(),
      ElementsAre("OCIServerAttach(srv4,err4,db,2,0)", "OCIAttrSet(svc4,3,srv4,0,6,err4)",
                  "OCIHandleAlloc(env4,9,0,-)", "OCIAttrSet(ses1,9,scott,5,22,err4)",
                  "OCIAttrSet(ses1,9,tiger,5,23,err4)", "OCISessionBegin(svc4,err4,ses1,1,0)",
                  "OCIAttrSet(svc4,3,ses1,0,7,err4)", "OCIErrorGet(err4,1,-,-,0,2)"));
  EXPECT_EQ(ldapool[3].autocommit + ldapool[3].status, 0);
  ldapool[3].autocommit = 1;
  ldapool[3].status = 55;
  state().reply("OCISessionEnd", OCI_ERROR, 3113);
  EXPECT_EQ(CONNECTION(native_1logout)(env, fresh), JNI_FALSE);
  EXPECT_THAT(calls(), ElementsAre("OCISessionEnd(svc4,err4,ses1,0)",
                                   "OCIServerDetach(srv4,err4,0)", "OCIErrorGet(err4,1,-,-,0,2)"));
  EXPECT_EQ(ldapool[3].autocommit, 0);
  EXPECT_EQ(ldapool[3].status, 55);
  EXPECT_EQ(name(ldapool[3].authp), "ses1");
  login(fresh);
  EXPECT_THAT(calls(), Contains("OCIHandleFree(ses1,9)")) << "replaced";
  CONNECTION(native_1finalize)(env, fresh);
  EXPECT_EQ(session_of(fresh), &ldapool[3]);
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(Connection, GetErrorReturnsTheTextOfRecordOne) {
  state().message = "ORA-01017: invalid username/password; logon denied\n";
  state().error = 1017;
  const jbyteArray whole = bytes(std::string(100, '.'));
  EXPECT_EQ(CONNECTION(native_1getError)(env, connection, 5, JNI_TRUE, whole), 51);
  EXPECT_EQ(contents(whole).substr(0, 51), state().message);
  EXPECT_THAT(calls(), ElementsAre("OCIErrorGet(err1,1,-,+,100,2)"));
  const jbyteArray ten = bytes("..........");
  EXPECT_EQ(CONNECTION(native_1getError)(env, connection, 0, JNI_FALSE, ten), 9);
  EXPECT_EQ(contents(ten), std::string("ORA-01017\0", 10));
  state().error = 0;
  const jbyteArray kept = bytes("as it was");
  EXPECT_EQ(CONNECTION(native_1getError)(env, connection, 0, JNI_FALSE, kept), 9);
  EXPECT_EQ(CONNECTION(native_1getError)(env, connection, 0, JNI_FALSE, bytes("")), 0);
}

TEST_F(Connection, TransactionAndCallControl) {
  const std::tuple<jboolean (*)(JNIEnv*, jobject), const char*, const char*, bool> cases[] = {
      {CONNECTION(native_1commit), "OCITransCommit(svc1,err1,0)", "OCITransCommit", false},
      {CONNECTION(native_1rollback), "OCITransRollback(svc1,err1,0)", "OCITransRollback", true},
      {CONNECTION(native_1obreak), "OCIBreak(svc1,err1)", "OCIBreak", false},
      {CONNECTION(native_1setNonBlockingMode), "OCIAttrSet(srv1,8,1,0,3,err1)", "OCIAttrSet:3",
       true},
      {CONNECTION(native_1setBlockingMode), "OCIAttrSet(srv1,8,0,0,3,err1)", "OCIAttrSet:3", true}};
  for (const auto& [method, call, reply_key, assigns] : cases) {
    for (const sword status : {OCI_SUCCESS, OCI_ERROR, OCI_SUCCESS_WITH_INFO}) {
      SCOPED_TRACE(std::string(call) + " " + std::to_string(status));
      const int error = status == OCI_SUCCESS ? 0 : 3114;
      state().reply(reply_key, status, error);
      set_int(connection, "ldaerrcode", 7);
      EXPECT_EQ(method(env, connection), status != OCI_SUCCESS);
      EXPECT_EQ(get_int(connection, "ldaerrcode"), assigns ? error : 7);
      Lines expected = {call};
      if (assigns) expected.emplace_back(kCode);
      EXPECT_EQ(calls(), expected);
    }
  }
  set_int(connection, "ldaerrcode", 7);
  EXPECT_FALSE(CONNECTION(native_1autoCommitOn)(env, connection));
  EXPECT_EQ(ldapool[0].autocommit, 1);
  EXPECT_EQ(get_int(connection, "ldaerrcode"), 7);
  EXPECT_THAT(calls(), IsEmpty());
  EXPECT_FALSE(CONNECTION(native_1autoCommitOff)(env, connection));
  EXPECT_EQ(ldapool[0].autocommit, 0);
  EXPECT_THAT(calls(), ElementsAre(kCode));
}

TEST_F(Connection, BlockingModeIsNonBlockingOnlyForExactlyOne) {
  const std::tuple<ub1, sword, jboolean> cases[] = {
      {1, OCI_SUCCESS, 1}, {0, OCI_SUCCESS, 0}, {2, OCI_SUCCESS, 0}, {1, OCI_ERROR, 0}};
  for (const auto& [mode, status, result] : cases) {
    state().nonblocking = mode;
    state().reply("OCIAttrGet:3", status, status == OCI_SUCCESS ? 0 : 3114);
    EXPECT_EQ(CONNECTION(native_1isNonBlockingMode)(env, connection), result);
    EXPECT_THAT(calls(), ElementsAre("OCIAttrGet(srv1,8,-,3,err1)", kCode));
  }
  EXPECT_EQ(get_int(connection, "ldaerrcode"), 3114);
}

TEST_F(Connection, TraceOfASession) {
  expect_trace(
      // Five banners that come before any check.
      {"*** loginwithblock ***\n*** OciConnection getError ***\n",
       "*** setName ***\n*** OciColumn name ***\n",
       "*** setValueWithStream ***\n    len=10, piecelen=5, stream_type=3, setnull=1\n",
       "*** loginnoblock ***\n      uses old OCI7 call orlon.  No replacement for OCI8 \n"
       "        quitting \n",
       "returning poolsize of =" + std::to_string(ldapool.get_pool_size()),
       "\n*** loginwithblock ***\n    username=scott, password=tiger, server=db\n", "LOGIN",
       "---  in oralayer ldadata login: svchp is: ",
       "    back from login, retvali=0\nLD->STATUS=0\nERRCODE=0\n",
       "*** Setting autocommit flag to 1 ***\n*** OCITransCommit ***\n",
       "*** OCITransRollback ***\nrollback result=0\n",
       "*** Connection:  OCIBreak ***\n*** OciConnection getError ***\nERRCODE=942\n",
       "ERRMESG=ORA-00942: table or view does not exist\n", "*** OciConnection builddate ***\n",
       "LOGOFF", "DETACH FROM SERVER\n", "*** OCISessionBegin failed",
       "    back from login, retvali=-1\n"},
      [&] {
        CONNECTION(native_1loginwithblock)(env, nullptr, nullptr, nullptr, nullptr, 0);
        CONNECTION(native_1getError)(env, nullptr, 0, 0, nullptr);
        COLUMN(setName)(env, nullptr, nullptr);
        COLUMN(name)(env, nullptr, nullptr);
        COLUMN(setValueWithStream)(env, nullptr, 10, 5, 3, JNI_TRUE);
        EXPECT_NE(raised(), "");
        EXPECT_TRUE(CONNECTION(native_1loginnoblock)(env, connection, nullptr, nullptr, nullptr));
        EXPECT_THAT(calls(), IsEmpty());
        CONNECTION(lda_1pool_1size)(env, nullptr);
        login(connection);
        CONNECTION(native_1autoCommitOn)(env, connection);
        CONNECTION(native_1commit)(env, connection);
        CONNECTION(native_1rollback)(env, connection);
        CONNECTION(native_1obreak)(env, connection);
        state().error = 942;
        state().message = "ORA-00942: table or view does not exist\n";
        CONNECTION(native_1getError)(env, connection, 0, JNI_FALSE, bytes(std::string(60, '\0')));
        CONNECTION(native_1builddate)(env, connection, bytes(""));
        CONNECTION(native_1logout)(env, connection);
        state().reply("OCISessionBegin", OCI_ERROR, 1017);
        login(connection);
      });
}

}  // namespace
