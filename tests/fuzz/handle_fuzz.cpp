// Calls of the interface in any order, on handles that live, are freed, are null, of another kind,
// or never were handles. Buffers are on the heap, exactly as large as the call says.
#include <fuzzer/FuzzedDataProvider.h>

#include <string_view>
#include <tuple>

#include "oci_fixture.h"
#include "require.h"

namespace {

// As many rows as a fetch or an array of binds may have.
constexpr ub4 kRows = 3;

constexpr const char* kTexts[] = {"SELECT N, V, D, R, L, K, B, ROWID FROM T",
                                  "SELECT N, V FROM T WHERE N > :1 OR V = :2",
                                  "SELECT K, B FROM T WHERE N = 1 FOR UPDATE",
                                  "SELECT :1, :2 FROM DUAL",
                                  "INSERT INTO T VALUES (:1, :2, :3, :4, :5, :6, :7)",
                                  "INSERT INTO T (N, K, B) VALUES (:1, :2, :3)",
                                  "UPDATE T SET V = :1, D = :2 WHERE N = 1",
                                  "UPDATE T SET K = EMPTY_CLOB(), B = :1 WHERE N = :2",
                                  "CREATE TABLE U (A NUMBER)",
                                  "BEGIN :1 := :1 + 1; :2 := 'a longer text than some'; END;",
                                  "BEGIN SELECT N, V, D INTO :1, :2, :3 FROM T WHERE N = 1; END;",
                                  "BEGIN OPEN :1 FOR SELECT N, V FROM T WHERE V = :2; END;"};

constexpr ub2 kTypes[] = {SQLT_CHR, SQLT_INT, SQLT_FLT,  SQLT_STR,  SQLT_LNG,  SQLT_DAT, SQLT_BIN,
                          SQLT_LBI, SQLT_AFC, SQLT_RSET, SQLT_CLOB, SQLT_BLOB, 9999};
constexpr ub4 kKinds[] = {OCI_HTYPE_ENV,   OCI_HTYPE_ERROR,  OCI_HTYPE_SVCCTX, OCI_HTYPE_STMT,
                          OCI_HTYPE_BIND,  OCI_HTYPE_DEFINE, OCI_HTYPE_SERVER, OCI_DTYPE_LOB,
                          OCI_DTYPE_PARAM, OCI_HTYPE_SESSION};
constexpr ub4 kAttributes[] = {1, 2, 3, 4, 5, 6, 7, 9, 10, 11, 18, 22, 23, 24, 129, 12345};
constexpr ub1 kDate[] = {119, 199, 3, 15, 14, 6, 10};

/// One run: its handles, and memory that outlives every call.
class Caller {
 public:
  explicit Caller(FuzzedDataProvider& input) : in_(input) {
    require(c_.log_in(":memory:") == OCI_SUCCESS);
    handles_ = {{c_.env, OCI_HTYPE_ENV},
                {c_.err, OCI_HTYPE_ERROR},
                {c_.srv, OCI_HTYPE_SERVER},
                {c_.svc, OCI_HTYPE_SVCCTX},
                {c_.ses, OCI_HTYPE_SESSION},
                {c_.stmt, OCI_HTYPE_STMT},
                {c_.make<void>(OCI_HTYPE_STMT), OCI_HTYPE_STMT}};
    for (const char* sql :
         {"CREATE TABLE T (N NUMBER, V CHAR(9), D DATE, R RAW(10), L LONG, K CLOB, B BLOB)",
          "INSERT INTO T VALUES (1, 'one', SYSDATE, '00ff', 'a long text', 'characters', NULL)",
          "INSERT INTO T (N, B) VALUES (2.5, HEXTORAW('00ff'))"}) {
      require(c_.run(sql) == OCI_SUCCESS, sql);
    }
  }

  void run() {
    using Call = void (Caller::*)();
    static constexpr Call kCalls[] = {
        &Caller::allocate, &Caller::free,    &Caller::get,     &Caller::set,     &Caller::session,
        &Caller::session,  &Caller::text_in, &Caller::text_in, &Caller::execute, &Caller::execute,
        &Caller::bind,     &Caller::execute, &Caller::use,     &Caller::use,     &Caller::define,
        &Caller::fetch,    &Caller::fetch,   &Caller::piece,   &Caller::lob,     &Caller::lob};
    while (in_.remaining_bytes() > 0) (this->*in_.PickValueInArray(kCalls))();
  }

 private:
  ub4 up_to(ub4 most) { return in_.ConsumeIntegralInRange<ub4>(0, most); }
  bool one_in(ub4 n) { return up_to(n - 1) == 0; }

  /// Memory of the caller that ends with the run, its beginning from the input.
  template <class T = ub1>
  T* buffer(size_t count) {
    const size_t size = count * sizeof(T);
    memory_.emplace_back(new ub1[size]());
    const std::vector<ub1> bytes = in_.ConsumeBytes<ub1>(std::min<size_t>(size, 8));
    std::copy(bytes.begin(), bytes.end(), memory_.back().get());
    return reinterpret_cast<T*>(memory_.back().get());
  }
  template <class T>
  T* maybe(size_t count) {
    return in_.ConsumeBool() && (at_ == 0 || one_in(4)) ? buffer<T>(count) : nullptr;
  }

  /// Mostly a handle of the type, alive or not; else any other address.
  template <class T = void>
  T* handle(ub4 type) {
    const ub4 choice = up_to(31);
    const size_t start = up_to(static_cast<ub4>(handles_.size() - 1));
    void* found = nullptr;
    for (size_t i = 0; i < handles_.size() && found == nullptr && choice > 3; ++i) {
      const auto& [address, kind] = handles_[(start + i) % handles_.size()];
      if (kind == type) found = address;
    }
    if (choice == 1) found = buffer(16);
    if (choice == 2) found = handles_[start].first;
    if (choice == 3) found = static_cast<ub1*>(handles_[start].first) + 8;
    return static_cast<T*>(found);
  }
  OCIError* error() { return at_ > 0 ? c_.err : handle<OCIError>(OCI_HTYPE_ERROR); }
  OCIStmt* statement() { return at_ > 0 ? c_.stmt : handle<OCIStmt>(OCI_HTYPE_STMT); }
  OCISvcCtx* service() { return at_ > 0 ? c_.svc : handle<OCISvcCtx>(OCI_HTYPE_SVCCTX); }
  ub4 position() { return at_ > 0 ? at_ : up_to(9); }
  ub4 kind() { return in_.PickValueInArray(kKinds); }

  void allocate() {
    const ub4 type = kind(), size = up_to(3) * 8;
    void *handle_made = nullptr, *user = nullptr;
    const auto allocate = type == OCI_DTYPE_LOB ? OCIDescriptorAlloc : OCIHandleAlloc;
    if (allocate(handle(OCI_HTYPE_ENV), &handle_made, type, size, &user) != OCI_SUCCESS) return;
    handles_.push_back({handle_made, type});
    if (size > 0) std::memset(user, 7, size);
  }
  // Not the environment itself, or nothing would be left.
  void free() {
    const ub4 type = kind();
    void* address = handle(one_in(8) ? kind() : type);
    if (address != c_.env) (one_in(2) ? OCIHandleFree : OCIDescriptorFree)(address, type);
  }

  void get() {
    const ub4 type = kind(), attribute = in_.PickValueInArray(kAttributes);
    OCIAttrGet(handle(type), type, buffer(sizeof(void*)), maybe<ub4>(1), attribute, error());
    void* found = nullptr;
    const ub4 parent = one_in(8) ? type : ub4{OCI_HTYPE_STMT}, size = up_to(40);
    OCIParamGet(handle(parent), parent, error(), &found, up_to(9));
    if (found != nullptr) handles_.push_back({found, OCI_DTYPE_PARAM});
    OCIErrorGet(handle(type), up_to(2), nullptr, maybe<sb4>(1), buffer(size), size, type);
  }
  void set() {
    const ub4 type = kind(), attribute = in_.PickValueInArray(kAttributes);
    const ub4 size = attribute == 22 || attribute == 23 ? up_to(3) : 0;
    void* value = attribute == OCI_ATTR_SERVER    ? handle(OCI_HTYPE_SERVER)
                  : attribute == OCI_ATTR_SESSION ? handle(OCI_HTYPE_SESSION)
                                                  : maybe<ub1>(size > 0 ? size : 4);
    OCIAttrSet(handle(type), type, value, size, attribute, error());
  }
  void session() {
    static constexpr std::string_view kNames[] = {":memory:", "", "nowhere", "/tmp", "./no.db"};
    const std::string_view name = in_.PickValueInArray(kNames);
    auto* server = handle<OCIServer>(OCI_HTYPE_SERVER);
    auto* session = handle<OCISession>(OCI_HTYPE_SESSION);
    if (one_in(3)) OCITransCommit(service(), error(), OCI_DEFAULT);
    if (one_in(3)) OCITransRollback(service(), error(), OCI_DEFAULT);
    if (one_in(3)) OCIBreak(one_in(2) ? server : handle(OCI_HTYPE_SVCCTX), error());
    if (one_in(4)) OCISessionEnd(service(), error(), session, OCI_DEFAULT);
    if (one_in(8)) OCIServerDetach(server, error(), OCI_DEFAULT);
    if (one_in(2)) return;
    OCIServerAttach(server, error(), reinterpret_cast<const text*>(name.data()),
                    static_cast<sb4>(name.size()) - static_cast<sb4>(up_to(1)), OCI_DEFAULT);
    OCISessionBegin(service(), error(), session, up_to(3), OCI_DEFAULT);
  }
  void text_in() {
    OCIStmt* stmt = statement();
    OCIError* record = error();
    const std::string_view sql = one_in(16) ? "" : in_.PickValueInArray(kTexts);
    OCIStmtPrepare(stmt, record, reinterpret_cast<const text*>(sql.data()),
                   static_cast<ub4>(sql.size()), OCI_NTV_SYNTAX, OCI_DEFAULT);
  }
  void execute() {
    const ub4 mode = one_in(8) ? OCI_DESCRIBE_ONLY : one_in(8) ? OCI_COMMIT_ON_SUCCESS : 0;
    OCIStmtExecute(service(), statement(), error(), up_to(kRows), 0, nullptr, nullptr, mode);
  }

  /// Room for the elements of a variable, filled where its type asks for more than bytes.
  std::tuple<ub1*, sb4, ub2> variable() {
    static constexpr sb4 kSizes[] = {0, 1, 2, 3, 4, 7, 8, 30, -1};
    const bool plain = at_ > 0 && !one_in(4), text = one_in(2);
    const ub2 type = !plain ? in_.PickValueInArray(kTypes) : text ? SQLT_STR : SQLT_INT;
    sb4 size = !plain ? in_.PickValueInArray(kSizes) : text ? 30 : 4;
    const bool lob = type == SQLT_CLOB || type == SQLT_BLOB;
    const ub4 kind = lob ? OCI_DTYPE_LOB : type == SQLT_RSET ? OCI_HTYPE_STMT : 0;
    if (kind != 0) size = sizeof(void*);
    const auto element = static_cast<size_t>(std::max(size, 0));
    ub1* data = buffer(element * kRows);
    for (ub4 row = 0; row < kRows; ++row) {
      void* address = kind == 0 ? nullptr : handle(kind);
      if (kind != 0) std::memcpy(data + row * element, &address, sizeof address);
      if (type == SQLT_DAT && size >= 7 && one_in(2)) std::memcpy(data + row * element, kDate, 7);
    }
    return {data, size, type};
  }
  void define() {
    const auto [data, size, type] = variable();
    OCIDefine* made_here = nullptr;
    OCIDefineByPos(statement(), &made_here, error(), position(), one_in(16) ? nullptr : data, size,
                   type, maybe<sb2>(kRows), maybe<ub2>(kRows), maybe<ub2>(kRows),
                   one_in(4) ? OCI_DYNAMIC_FETCH : OCI_DEFAULT);
    if (made_here != nullptr) handles_.push_back({made_here, OCI_HTYPE_DEFINE});
  }
  void bind() {
    const auto [data, size, type] = variable();
    OCIBind* made_here = nullptr;
    OCIBindByPos(statement(), &made_here, error(), position(), data, size, type, maybe<sb2>(kRows),
                 maybe<ub2>(kRows), maybe<ub2>(kRows), one_in(16) ? 1 : 0, nullptr,
                 one_in(4) ? OCI_DATA_AT_EXEC : OCI_DEFAULT);
    if (made_here != nullptr) handles_.push_back({made_here, OCI_HTYPE_BIND});
    if (made_here == nullptr) made_here = handle<OCIBind>(OCI_HTYPE_BIND);
    OCIBindDynamic(made_here, error(), this, one_in(8) ? nullptr : give_piece, nullptr, nullptr);
  }

  // Makes calls, too, that the interface does not allow here: refused or done, they harm nobody.
  static sb4 give_piece(void* context, OCIBind*, ub4, ub4, void** data, ub4* size, ub1* piece,
                        void**) {
    Caller& self = *static_cast<Caller*>(context);
    *size = self.up_to(3) * 10;
    *data = self.buffer(*size);
    const ub4 choice = self.up_to(15);
    if (choice == 15) OCIHandleFree(self.c_.svc, OCI_HTYPE_SVCCTX);
    if (choice == 14) OCITransRollback(self.c_.svc, self.c_.err, OCI_DEFAULT);
    if (choice < 8) *piece = OCI_LAST_PIECE;
    return choice == 13 ? OCI_ERROR : OCI_CONTINUE;
  }

  void fetch() { OCIStmtFetch(statement(), error(), up_to(kRows), OCI_FETCH_NEXT, OCI_DEFAULT); }
  void piece() {
    OCIStmt* stmt = statement();
    void* column = nullptr;
    ub4 type = 0, number = 0;
    ub1 direction = 0, which = 0;
    OCIStmtGetPieceInfo(stmt, error(), &column, &type, &direction, &number, &number, &which);
    if (one_in(8)) column = handle(type = OCI_HTYPE_DEFINE);
    ub4* size = buffer<ub4>(1);
    *size = up_to(12);
    OCIStmtSetPieceInfo(column, type, error(), buffer(*size), size, which, maybe<sb2>(1),
                        maybe<ub2>(1));
    if (one_in(2)) OCIStmtFetch(stmt, error(), 1, OCI_FETCH_NEXT, OCI_DEFAULT);
  }

  void use() {
    at_ = 1;
    text_in();
    for (; at_ < 8; ++at_) bind();
    execute();
    for (; at_ > 1; --at_) define();
    for (ub4 i = up_to(6); i > 0; --i) (this->*(one_in(2) ? &Caller::fetch : &Caller::piece))();
    lob();
    at_ = 0;
  }

  void lob() {
    static constexpr ub2 kSets[] = {0, OCI_UCS2ID, 1, 871, 999};
    const ub4 size = up_to(20), offset = up_to(12);
    const ub2 set = in_.PickValueInArray(kSets);
    ub4 amount = up_to(30);
    auto* target = handle<OCILobLocator>(OCI_DTYPE_LOB);
    auto* source = handle<OCILobLocator>(OCI_DTYPE_LOB);
    if (one_in(8)) OCILobAssign(handle<OCIEnv>(OCI_HTYPE_ENV), error(), source, &target);
    if (one_in(8)) OCILobGetLength(service(), error(), target, &amount);
    if (one_in(8)) OCILobCharSetForm(c_.env, error(), target, buffer(1));
    if (one_in(2)) {
      OCILobRead(service(), error(), target, &amount, offset, buffer(size), size, nullptr, nullptr,
                 set, SQLCS_IMPLICIT);
    } else {
      OCILobWrite(service(), error(), target, &amount, offset, buffer(size), size,
                  static_cast<ub1>(up_to(4)), nullptr, nullptr, set, SQLCS_IMPLICIT);
    }
  }

  FuzzedDataProvider& in_;
  std::vector<std::unique_ptr<ub1[]>> memory_;
  std::vector<std::pair<void*, ub4>> handles_;
  Client c_;  // ends before the memory does
  ub4 at_ = 0;  // the position that use() has come to
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  Caller(input).run();
  return 0;
}
