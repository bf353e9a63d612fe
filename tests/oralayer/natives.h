// All native methods in one table, with the kinds of their arguments and the order of their checks.
#ifndef ORALAYER_NATIVES_H
#define ORALAYER_NATIVES_H

#include <map>
#include <tuple>
#include <type_traits>
#include <vector>

#include "jvm_test.h"

/// The classes by the letter of their kind.
inline const std::map<char, std::string> kPeers = {{'C', "OciConnection"},
                                                   {'U', "OciCursor"},
                                                   {'O', "OciColumn"},
                                                   {'L', "OciLob"},
                                                   {'S', "OciSchema"}};

/// What a call is given, kind by kind.
struct Arguments {
  virtual ~Arguments() = default;
  virtual jobject object(char kind) = 0;
  virtual jlong number(char kind) = 0;
};

/// Objects by their places, where numbers have a null; the numbers are all the same.
struct Listed : Arguments {
  explicit Listed(std::vector<jobject> its_objects = {}, jlong its_number = 1)
      : objects(std::move(its_objects)), same(its_number) {}
  jobject object(char /*kind*/) override { return objects[at++]; }
  jlong number(char kind) override { return ++at, kind == 'z' ? 0 : same; }

  std::vector<jobject> objects;
  jlong same;
  std::size_t at = 0;
};

/// A NullPointerException for an argument, by its place from the object's 0, or for the missing
/// record behind it: kRecord more.
struct Check {
  int argument;
  const char* message;  // null: any text
};
constexpr int kRecord = 10;

struct Native {
  const char* name;
  double (*call)(JNIEnv* e, Arguments& arguments, const char* kinds);
  /// Objects: Connection, cUrsor, cOlumn, Lob, Schema, Bytes, cHars; in lower case without a
  /// record. Numbers: z boolean, i any, r rows, n length, p piece length, j 64 bits.
  const char* kinds;
  std::vector<Check> checks = {};  // in the order in which they are made
  double refused = 0;
};

template <typename Value>
Value choose(Arguments& arguments, const char*& kinds) {
  if constexpr (std::is_pointer_v<Value>) {
    return static_cast<Value>(arguments.object(*kinds++));
  } else {
    return static_cast<Value>(arguments.number(*kinds++));
  }
}

template <typename Result, typename Object, typename... Rest>
double call_with(Result (*native)(JNIEnv*, Object, Rest...), JNIEnv* e, Arguments& arguments,
                 const char* kinds) {
  // In braces, so that the order of the choices is fixed.
  const std::tuple<Object, Rest...> all{choose<Object>(arguments, kinds),
                                        choose<Rest>(arguments, kinds)...};
  const auto call = [&](auto... each) { return native(e, each...); };
  if constexpr (std::is_void_v<Result>) {
    std::apply(call, all);
    return 0;
  } else if constexpr (std::is_pointer_v<Result>) {
    return std::apply(call, all) == nullptr ? 0 : 1;
  } else {
    return static_cast<double>(std::apply(call, all));
  }
}

template <auto kNative>
double call_by_type(JNIEnv* e, Arguments& arguments, const char* kinds) {
  return call_with(kNative, e, arguments, kinds);
}

// clang-format off
#define ROW(function, ...) {#function, call_by_type<function>, __VA_ARGS__}
#define CON(method, ...) ROW(CONNECTION(native_1##method), __VA_ARGS__)
#define CUR(method, ...) ROW(CURSOR(method), __VA_ARGS__)
#define COL(method, ...) ROW(COLUMN(method), __VA_ARGS__)
#define LOC(method, ...) ROW(LOB(method), __VA_ARGS__)

inline const std::vector<Native>& natives() {
  static const Check env_given = {0, "JNIEnv"}, lda = {kRecord, "LDA not set"},
      cda = {kRecord, "CDA is null"}, conn = {1, "CONN is null"},
      conn_lda = {1 + kRecord, "LDA is null"}, col = {1, "COL is null"},
      coldata = {1 + kRecord, "COLDATA is null"}, any_coldata = {1 + kRecord, nullptr},
      column = {kRecord, "Column is null"}, value = {1, "Value is null"},
      own_col = {kRecord, "COL is null"}, lob = {1, "Lob is null"},
      lob_record = {1 + kRecord, "Lob is null"}, lobdata = {kRecord, "LOBDATA is null"},
      array_1 = {1, "result buffer is null"}, array_2 = {2, "result buffer is null"},
      array_3 = {3, "result buffer is null"};
  static const std::vector<Check> env_only = {env_given}, session = {env_given, lda},
      cursor = {env_given, cda}, cursor_col = {env_given, col, cda, any_coldata},
      row = {env_given, col, coldata}, row_array = {array_3, env_given, col, coldata},
      piece = {array_3, env_given, col, cda, coldata}, own = {env_given, column},
      set_lob = {env_given, column, lob, lob_record},
      of_lob = {env_given, conn, conn_lda, lobdata};
  static const std::vector<Native> all = {
    CON(initialize, "CiBz", env_only), CON(finalize, "C", env_only),
    CON(loginwithblock, "CBBBz", {env_given, {1, "Null username String"},
                                  {2, "Null password String"}, {3, "Null server String"}, lda}),
    CON(loginnoblock, "CBBB"), CON(logout, "C", session),
    ROW(CONNECTION(lda_1pool_1size), "S"), ROW(CONNECTION(cda_1pool_1size), "S"),
    ROW(CONNECTION(ociMajorVersion), "S"), CON(clibversion, "C"),
    CON(autoCommitOn, "C", session), CON(autoCommitOff, "C", session), CON(commit, "C", session),
    CON(rollback, "C", session), CON(obreak, "C", session), CON(setNonBlockingMode, "C", session),
    CON(setBlockingMode, "C", session), CON(isNonBlockingMode, "C", session),
    CON(getError, "CizB", {env_given, {3, "JNIEnv"}, lda}),
    CON(oci_1api_1version, "CB", {{1, "JNIEnv"}}), CON(get_1nls_1lang, "CB", {{1, "JNIEnv"}}),
    CON(get_1nls_1nchar, "CB", {{1, "JNIEnv"}}), CON(builddate, "CB", {{1, "JNIEnv"}}),
    // With a session record it ends the process.
    CON(describeParams, "cSB",
        {env_given, {1, "OciSchema not set"}, {2, "Parameter not set"}, lda}),
    ROW(assignLdaCodes, "C", session), CUR(initialize, "ui", env_only),
    CUR(native_1finalize, "U", env_only), CUR(open, "UC", {env_given, cda, conn, conn_lda}),
    CUR(cancel, "U", cursor), CUR(close, "U", cursor), CUR(exec, "U", cursor),
    CUR(fetch, "U", cursor), CUR(execAndFetch, "Ur", cursor), CUR(arrayFetch, "Ur", cursor),
    CUR(oopt, "Ui", env_only), CUR(parse, "UBz", {env_given, array_1, cda}),
    CUR(describe, "UO", cursor_col), CUR(isBlobColumn, "UO", cursor_col),
    CUR(isOCI8ILOBColumn, "UO", cursor_col), CUR(bindSelectItem, "UOr", cursor_col),
    CUR(bindVariableByPosition, "UO", cursor_col),
    CUR(bindCursorByPosition, "UUi",
        {env_given, {1, "Null Cursor"}, cda, {1 + kRecord, "Null Cursor"}}),
    CUR(getIndicator, "UOr", row), CUR(getReturnCode, "UOr", row),
    CUR(getIntegerValue, "UOr", row), CUR(getDoubleValue, "UOr", row),
    CUR(getDateValue, "UOrB", row_array), CUR(getByteValue, "UOrB", row_array),
    CUR(getStringValue, "UOrB", row_array), CUR(getLongByteValue, "UOiB", piece),
    CUR(getLongStringValue, "UOiB", piece), CUR(getLongDataLength, "UO", cursor_col, -10),
    ROW(assignCdaCodes, "U", cursor), ROW(clearCdaErrorCodes, "U", env_only),
    ROW(longBufferSize, "U", env_only), COL(initialize, "orn", env_only),
    COL(native_1finalize, "O", env_only), COL(position, "O", own), COL(precision, "O", own),
    COL(scale, "O", own), COL(length, "O", own), COL(internalType, "O", own),
    COL(externalType, "O", own), COL(actualExternalType, "O", own), COL(nullAllowed, "O", own),
    COL(hasDefault, "O", own), COL(level, "O", own), COL(overloading, "O", own),
    COL(radix, "O", own), COL(iomode, "O", own), COL(setPosition, "Oi", own),
    COL(setDbType, "Oi", own), COL(setLength, "On", own), COL(setNullOK, "Oi", own),
    COL(setPrecision, "Oi", own), COL(setScale, "Oi", own),
    COL(name, "OB", {{1, "Column name is null"}, env_given, column}),
    COL(setName, "OB", {{1, "Name is null"}, env_given, column}), COL(setValueWithInt, "Oiz", own),
    COL(setValueWithFloat, "Oiz", own), COL(setValueWithDouble, "Oiz", own),
    COL(setValueWithDate, "Oiiiiiiiz", own),
    COL(setValueWithString, "OBz", {env_given, value, column}),
    COL(setValueWithBytes, "OBzz", {env_given, value, column}),
    COL(setValueWithStream, "Onpiz", {env_given, {kRecord, "COLUMNDATA is null"}}),
    COL(allocLobLocator, "OCi", {env_given, own_col, conn, conn_lda}),
    COL(deallocLobLocator, "O", {env_given, own_col}), COL(setValueWithLob, "OLiz", set_lob),
    COL(setValueWithBlob, "OLz", set_lob), COL(setValueWithClob, "OLz", set_lob),
    LOC(initialize, "l", env_only), LOC(native_1finalize, "L", env_only),
    LOC(allocLob, "LC", of_lob),
    LOC(assignLobFromColumn, "LCO", {env_given, conn, conn_lda, {2, "COL is null"},
        {2 + kRecord, "COL is null"}, {kRecord, "DEST LOBDATA is null"}}),
    LOC(getLobLength, "LC", of_lob, -1), LOC(getLobCharSetId, "LC", of_lob, -1),
    LOC(getLobCharSetForm, "LC", of_lob, -1),
    LOC(getLobBuf, "LCBjjjii", {env_given, conn, conn_lda, lobdata, array_2}, -1),
    LOC(writeLobBuf, "LCBjjjiii", {env_given, conn, lobdata, conn_lda, array_2}, -1),
    LOC(getLobUCS2Buf, "LCjjii", of_lob),
    LOC(getLobUCS2CharBuf, "LCHjjii", {env_given, conn, conn_lda, lobdata, array_2}, -1),
    LOC(writeLobUCS2CharBuf, "LCHjjiii", {env_given, conn, lobdata, conn_lda, array_2}, -1),
    ROW(assignLobCodes, "LC", {env_given, {1, "assignLobCodes: CONN is null"},
                               {1 + kRecord, "assignLobCodes: LDA is null"}}),
    ROW(clearLobErrorCodes, "L", env_only)};
  return all;
}
// clang-format on

#undef ROW
#undef CON
#undef CUR
#undef COL
#undef LOC

#endif
