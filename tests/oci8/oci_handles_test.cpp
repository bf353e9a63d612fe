#include <malloc.h>

#include "oci_fixture.h"

namespace {

struct Any {
  void* address;
  template <class T>
  operator T*() const {
    return static_cast<T*>(address);
  }
};

using Handles = OciTest;

// Every handle argument of every call, with whatever is no live handle of its kind.
TEST_F(Handles, WhatIsNoHandleIsRefusedByEveryCall) {
  const auto* name = bytes("x");
  void* out = nullptr;
  ub4 length = 0;
  OCIDefine* define = nullptr;
  const std::vector<std::function<sword(Any)>> calls = {
      [&](Any h) { return OCIHandleAlloc(h, &out, OCI_HTYPE_ERROR, 0, nullptr); },
      [&](Any h) { return OCIHandleFree(h, OCI_HTYPE_SERVER); },
      [&](Any h) { return OCIHandleFree(h, OCI_HTYPE_DEFINE); },
      [&](Any h) { return OCIAttrGet(h, OCI_HTYPE_STMT, &out, nullptr, 24, c.err); },
      [&](Any h) { return OCIAttrGet(h, OCI_DTYPE_PARAM, &out, nullptr, 2, c.err); },
      [&](Any h) { return OCIAttrGet(h, OCI_HTYPE_SESSION, &out, nullptr, 22, c.err); },
      [&](Any h) { return OCIAttrGet(c.srv, OCI_HTYPE_SERVER, &out, nullptr, 3, h); },
      [&](Any h) { return OCIAttrSet(h, OCI_HTYPE_SESSION, nullptr, 0, 22, c.err); },
      [&](Any h) { return OCIAttrSet(c.svc, OCI_HTYPE_SVCCTX, h, 0, OCI_ATTR_SERVER, c.err); },
      [&](Any h) { return OCIAttrSet(c.svc, OCI_HTYPE_SVCCTX, h, 0, OCI_ATTR_SESSION, c.err); },
      [&](Any h) { return OCIParamGet(h, OCI_HTYPE_STMT, c.err, &out, 1); },
      [&](Any h) { return OCIErrorGet(h, 1, nullptr, nullptr, nullptr, 0, OCI_HTYPE_ERROR); },
      [&](Any h) { return OCIErrorGet(h, 1, nullptr, nullptr, nullptr, 0, OCI_HTYPE_ENV); },
      [&](Any h) { return OCIServerAttach(h, c.err, name, 1, 0); },
      [&](Any h) { return OCIServerDetach(h, c.err, 0); },
      [&](Any h) { return OCISessionBegin(h, c.err, c.ses, OCI_CRED_RDBMS, 0); },
      [&](Any h) { return OCISessionBegin(c.svc, c.err, h, OCI_CRED_RDBMS, 0); },
      [&](Any h) { return OCISessionEnd(c.svc, c.err, h, 0); },
      [&](Any h) { return OCITransCommit(h, c.err, 0); },
      [&](Any h) { return OCITransRollback(h, c.err, 0); },
      [&](Any h) { return OCIBreak(h, c.err); },
      [&](Any h) { return OCIBreak(c.svc, h); },
      [&](Any h) { return OCIStmtPrepare(h, c.err, name, 1, OCI_NTV_SYNTAX, 0); },
      [&](Any h) { return OCIStmtExecute(h, c.stmt, c.err, 1, 0, nullptr, nullptr, 0); },
      [&](Any h) { return OCIStmtExecute(c.svc, h, c.err, 1, 0, nullptr, nullptr, 0); },
      [&](Any h) { return OCIDefineByPos(h, &define, c.err, 1, &out, 4, 3, 0, 0, 0, 0); },
      [&](Any h) { return OCIStmtFetch(h, c.err, 1, OCI_FETCH_NEXT, 0); },
      [&](Any h) { return OCIStmtGetPieceInfo(h, c.err, &out, &length, 0, 0, 0, 0); },
      [&](Any h) { return OCIStmtSetPieceInfo(h, 6, c.err, &out, &length, 0, nullptr, nullptr); },
  };
  char never[64] = {};
  void* freed = c.make<void>(OCI_HTYPE_STMT);
  ASSERT_EQ(OCIHandleFree(freed, OCI_HTYPE_STMT), OCI_SUCCESS);
  ASSERT_EQ(c.prepare("select 1 from dual"), OCI_SUCCESS);
  ASSERT_EQ(OCIDefineByPos(c.stmt, &define, c.err, 1, &out, 4, SQLT_INT, 0, 0, 0, 0), OCI_SUCCESS);
  const std::vector<void*> bad = {nullptr, freed, never, reinterpret_cast<void*>(8),
                                  reinterpret_cast<char*>(c.env) + 1};
  for (size_t call = 0; call < calls.size(); ++call) {
    for (size_t i = 0; i < bad.size(); ++i) {
      EXPECT_EQ(calls[call]({bad[i]}), OCI_INVALID_HANDLE) << "call " << call << " address " << i;
    }
    // Of another kind: only the last call takes a define.
    void* other = call + 1 < calls.size() ? static_cast<void*>(define) : c.err;
    EXPECT_EQ(calls[call]({other}), OCI_INVALID_HANDLE) << "call " << call;
  }
}

TEST_F(Handles, OfAThousandEnvironmentsAreCheapAndEndWithThem) {
  const auto allocated = [] {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
  };
  const size_t before = allocated();
  std::vector<OCIEnv*> all(1024);
  for (OCIEnv*& env : all) {
    ASSERT_EQ(OCIEnvInit(&env, OCI_DEFAULT, 0, nullptr), OCI_SUCCESS);
    for (const ub4 type : {OCI_HTYPE_ERROR, OCI_HTYPE_SERVER, OCI_HTYPE_SVCCTX}) {
      void* handle = nullptr;
      ASSERT_EQ(OCIHandleAlloc(env, &handle, type, 0, nullptr), OCI_SUCCESS);
    }
  }
  EXPECT_LT(allocated() - before, size_t{2} << 20);
  void *memory = nullptr, *stmt = nullptr;
  ASSERT_EQ(OCIHandleAlloc(all[0], &stmt, OCI_HTYPE_STMT, 100, &memory), OCI_SUCCESS);
  std::memset(memory, 7, 100);
  for (OCIEnv* env : all) EXPECT_EQ(OCIHandleFree(env, OCI_HTYPE_ENV), OCI_SUCCESS);
  EXPECT_EQ(OCIHandleFree(stmt, OCI_HTYPE_STMT), OCI_INVALID_HANDLE);
  EXPECT_EQ(OCIHandleFree(all[0], OCI_HTYPE_ENV), OCI_INVALID_HANDLE);
}

TEST_F(Handles, ADiagnosticLivesUntilTheNextCallThatCanReplaceIt) {
  const std::string whole = "ORA-24373: invalid length specified for statement\n";
  ASSERT_EQ(c.prepare(""), OCI_ERROR);
  text buffer[100];
  sb4 code = 0;
  // Asking twice, reading the statement's attributes and breaking in between changes nothing.
  EXPECT_EQ(OCIErrorGet(c.err, 1, nullptr, nullptr, nullptr, 0, OCI_HTYPE_ERROR), OCI_SUCCESS);
  EXPECT_EQ(c.row_count(), 0u);
  EXPECT_EQ(OCIErrorGet(c.err, 1, nullptr, &code, buffer, 100, OCI_HTYPE_ERROR), OCI_SUCCESS);
  EXPECT_EQ(code, 24373);
  EXPECT_STREQ(reinterpret_cast<char*>(buffer), whole.c_str());
  std::memset(buffer, '#', sizeof buffer);
  EXPECT_EQ(OCIErrorGet(c.err, 1, nullptr, &code, buffer, 10, OCI_HTYPE_ERROR), OCI_SUCCESS);
  EXPECT_STREQ(reinterpret_cast<char*>(buffer), "ORA-24373");
  EXPECT_EQ(buffer[10], '#');
  code = 77;
  EXPECT_EQ(OCIErrorGet(c.err, 2, nullptr, &code, buffer, 100, OCI_HTYPE_ERROR), OCI_NO_DATA);
  EXPECT_EQ(c.prepare("select 1 from dual"), OCI_SUCCESS);
  EXPECT_EQ(OCIErrorGet(c.err, 1, nullptr, &code, buffer, 100, OCI_HTYPE_ERROR), OCI_NO_DATA);
  EXPECT_EQ(code, 77);
  EXPECT_STREQ(reinterpret_cast<char*>(buffer), "ORA-24373");
}

}  // namespace
