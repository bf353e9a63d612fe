#include <regex>

#include "engine_fixture.h"
#include "sqlite_functions.h"

namespace oci8 {
namespace {

class Functions : public testing::Test {
 protected:
  Functions() { register_functions(db_.get(), &user_); }

  // The value of an SQL expression: text in quotes, bytes as x'..', or the error's number.
  std::string value(const std::string& expression) {
    const std::string shown =
        "SELECT CASE typeof(v) WHEN 'text' THEN '''' || v || '''' "
        "WHEN 'blob' THEN 'x' || quote(hex(v)) WHEN 'null' THEN 'NULL' "
        "ELSE ora_text(v) END FROM (SELECT " +
        expression + " v)";
    const auto statement = prepare_sql(db_.get(), shown);
    const bool row = sqlite3_step(statement.get()) == SQLITE_ROW;
    const std::string found(row ? column_text(statement.get(), 0) : sqlite3_errmsg(db_.get()));
    return row ? found : found.substr(0, 9);
  }

  // D[...] stands for a date, and "@" before an expression shows one in that form.
  void expect(const char* table) {
    static const std::regex kDate(R"(D\[([^\]]*)\])");
    for (const auto& [written, expected] : cases(table)) {
      std::string sql = std::regex_replace(written, kDate, "to_date('$1','YYYY-MM-DD HH24:MI')");
      if (sql[0] == '@') sql = "to_char(" + sql.substr(1) + ",'YYYY-MM-DD HH24:MI')";
      EXPECT_EQ(value(sql), expected) << sql;
    }
  }

  std::string user_ = "SCOTT";
  const SqliteOwner db_ = open_file(":memory:", SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
};

TEST_F(Functions, OperatorsCalculateAsTheServerDoes) {
  expect(R"(
    typeof(ora_add(.5, .5)) -> 'integer' | ora_add('1.5', ' 2 ') -> 3.5
    ora_add('x', 1) -> ORA-01722 | ora_add(x'41', 1) -> ORA-00932 | ora_add(1, NULL) -> NULL
    ora_add(1, '') -> NULL | ora_mul(1.1, 1.1) -> 1.21
    ora_mul(4000000000, 4000000000) -> 16000000000000000000 | ora_mul(1e120, 1e120) -> ORA-01426
    ora_sub(9007199254740993, 1) -> 9007199254740992 | ora_div(1, 3) -> .333333333333333
    ora_sub(1000.1, 1000) = .1 -> 1 | ora_sub(123456.78, 123456) -> .78
    ora_add(-.123456789012345, .12345) -> -.000006789012345 | ora_sub(.00012, 1e-30) -> .00012
    ora_sub(1.6021e-30, 1.6e-30) = 2.1e-33 -> 1 | ora_sub(1.00001e25, 1e25) -> 100000000000000000000
    ora_add(9007199254740993, .5) -> 9007199254740990 | ora_add(ora_div(2, 3), ora_div(1, 3)) -> 1
    ora_mul(ora_div(1, 3), 3) -> 1 | ora_div(1.21, 1.1) = 1.1 -> 1
    ora_div(9007199254740993, 1) -> 9007199254740993
    ora_div(-9223372036854775807 - 1, -1) -> 9223372036854780000 | ora_div(1, 0) -> ORA-01476
    ora_div(1.5, 0.0) -> ORA-01476 | ora_concat('a', NULL, 1.5, '') -> 'a1.5'
    ora_concat(NULL, '') -> NULL | ora_concat(printf('%4000s', ''), 'x') -> ORA-01489
    ora_text(-0.5) -> '-.5' | ora_text(D[1999-03-05]) -> '05-MAR-99' | ora_text(x'00ff') -> '00FF'
    ora_add('3.14159265358979323846', 0) -> 3.14159265358979 | ora_number('1e126') -> ORA-01426
    @ora_add(D[2024-02-28 10:00], 1.5) -> '2024-02-29 22:00'
    @ora_add(1, D[2024-02-29 10:00]) -> '2024-03-01 10:00'
    @ora_sub(D[2024-03-01], ora_div(1, 1440)) -> '2024-02-29 23:59'
    ora_sub(D[2024-03-01 06:00], D[2024-02-28]) -> 2.25
    ora_sub(D[2024-03-01 16:00], D[2024-03-01 08:00]) = ora_div(8, 24) -> 1
    ora_mul(419390.71, 3188.131) = 1337072523.66301 -> 1
    ora_mul(12345678.9, 12345.67) = 152415677625.363 -> 1
    ora_mul(1e-120, 1e-20) -> 0 | ora_div(1e-100, 3e60) -> 0
    ora_mul(sqrt(2), sqrt(2)) = 2 -> 1 | ora_mul(1.5e100, 1.23456789012345e100) -> ORA-01426
    ora_add(D[2024-03-01 06:00], D[2024-02-28]) -> ORA-00975
    ora_mul(D[2024-03-01 06:00], 2) -> ORA-00932 | ora_add(D[9999-12-31], 1) -> ORA-01841
    ora_add(D[9999-12-31], 1e100) -> ORA-01841 | @ora_date('01-JAN-99') -> '2099-01-01 00:00'
    ora_date(5) -> ORA-00932)");
}

// Whole minutes and seconds, by every chain of factors that programs write.
TEST_F(Functions, DifferencesOfDatesMakeWholeUnits) {
  for (const auto& [expression, unit] : {std::pair("ora_mul(d, 86400)", 1),
                                         {"ora_mul(ora_mul(ora_mul(d, 24), 60), 60)", 1},
                                         {"ora_mul(ora_mul(d, 1440), 60)", 1},
                                         {"ora_mul(d, 1440)", 60},
                                         {"ora_mul(ora_mul(d, 24), 60)", 60},
                                         {"ora_mul(ora_mul(d, 60), 24)", 60}}) {
    const std::string step = std::to_string(unit), steps = std::to_string(86400 / unit);
    const std::string days =
        "(WITH t(n) AS (VALUES(0) UNION ALL SELECT n + 1 FROM t WHERE n < " + steps + "), u AS (" +
        "SELECT n, ora_sub(ora_add(b, ora_div(n * " + step + ", 86400)), b) d FROM t, " +
        "(SELECT to_date('1999-12-31 08:00', 'YYYY-MM-DD HH24:MI') b)) SELECT ";
    EXPECT_EQ(value(days + "sum(" + expression + " IS NOT n) FROM u)"), "0") << expression;
    EXPECT_EQ(value(days + "ora_mul(sum(d), " + steps + ") = sum(n) FROM u)"), "1");
  }
}

TEST_F(Functions, StoringChecksTheDeclaredType) {
  expect(R"(
    store_number('1.123456789012345678', 5, 2) -> 1.12
    store_number('123456789012345678901', 38, 0) -> ORA-01438
    store_number('3.14159265358979323846', 0, 0) -> ORA-01438
    store_number('abc', 5, 2) -> ORA-01722 | store_number('', 5, 2) -> NULL
    store_number(1.0 / 3, 0, -127) = .333333333333333 -> 1 | store_char('abc', 3) -> 'abc'
    store_char('äb', 2) -> ORA-01401 | store_char(007, 3) -> '7' | store_char('', 3) -> NULL
    store_fixed_char('ab', 4) -> 'ab  ' | store_fixed_char('abcd', 4) -> 'abcd'
    store_fixed_char('abcde', 4) -> ORA-01401 | store_fixed_char(7, 2) -> '7 '
    ora_cut('äbc', 2) -> 'ä' | ora_cut('aäb', 2) -> 'a' | ora_cut('ä', 1) -> NULL
    ora_cut(123, 2) -> 123 | store_fixed_char('', 2) -> NULL | store_date('15-MAR-1999') -> x'77C7030F010101'
    store_date(x'77C7030F0E060A') -> x'77C7030F0E060A' | store_date('15-QQQ-1999') -> ORA-01843
    store_date(x'00') -> ORA-00932 | store_raw('0aFF', 2) -> x'0AFF'
    store_raw('aFF', 2) -> x'0AFF' | store_raw('0aFF00', 2) -> ORA-01401
    store_raw(x'0aFF00', 2) -> ORA-01401 | store_raw('xy', 2) -> ORA-01465
    store_raw(5, 2) -> ORA-00932 | store_long('007') -> '007' | store_long('') -> NULL
    store_long_raw('0001') -> x'0001' | length(store_long_raw(zeroblob(100000))) IS NOT NULL -> 1)");
}

TEST_F(Functions, TextFunctionsCountCharacters) {
  expect(R"(
    substr('abcdef', 0, 2) -> 'ab' | substr('abcdef', -2) -> 'ef' | substr('abc', -4) -> NULL
    substr('abc', 4) -> NULL | substr('abc', 1, 0) -> NULL | substr('äöü', 2, 1) -> 'ö'
    substr('äöü', -2, 9) -> 'öü' | substr(12345, 2.9, '2') -> '23' | substr('abc', 2, 1e30) -> 'bc'
    instr('corporate floor', 'or') -> 2 | instr('corporate floor', 'or', 3, 2) -> 14
    instr('corporate floor', 'or', -3, 2) -> 2 | instr('aaa', 'a', -1, 4) -> 0
    instr('äöü', 'ü') -> 3 | instr('abc', 'a', 0) -> 0 | instr('abc', 'a', 1, 0) -> ORA-01428
    length('äöü') -> 3 | length('') -> NULL | length(-1.5) -> 4 | lpad('7', 3, '0') -> '007'
    lpad('ab', 7, 'äx') -> 'äxäxäab' | rpad('abc', 2) -> 'ab' | rpad('ä', 3, '.') -> 'ä..'
    lpad('a', 0) -> NULL | length(rpad('a', 2000000000, 'ä')) -> 2000 | trim('  a b ') -> 'a b'
    ltrim('xyxab', 'yx') -> 'ab' | rtrim('abüä', 'äü') -> 'ab' | rtrim('   ') -> NULL
    replace('banana', 'an', 'x') -> 'bxxa' | replace('banana', 'a') -> 'bnn'
    replace('a', '', 'x') -> 'a' | replace(printf('%400s', ''), ' ', '12345678901') -> ORA-01489
    translate('2KRW229', '0123456789KRW', '9999999999') -> '9999'
    translate('aäb', 'äb', 'xü') -> 'axü' | upper('straße éñ ωά жё') -> 'STRAßE ÉÑ ΩΆ ЖЁ'
    lower('ÉÑ ŽŸ ΩΆ ЖЁ') -> 'éñ žŸ ωά жё' | initcap('the SOAP o''neil éa') -> 'The Soap O'Neil Éa'
    ascii('A') -> 65 | chr(ascii('ä')) -> 'ä' | chr(-1) -> ORA-01428 | hextoraw('7f') -> x'7F'
    lengthb('äöü') -> 6 | lengthb(-1.5) -> 4 | instrb('äöü', 'ü') -> 5 | instrb('aäa', 'a', -1, 2) -> 1
    substrb('äöü', 3, 2) -> 'ö' | substrb('äöü', 2, 3) -> ' ö' | substrb('äöü', -4, 3) -> 'ö '
    substrb('ä', 2) -> ' ' | substrb('ä', 3) -> NULL | substrb('ab€', 3, 2) -> '  '
    soundex('Robert') -> 'R163' | soundex('Ashcraft') -> 'A261' | soundex('Tymczak') -> 'T522'
    soundex('  o''Hara') -> 'O600' | soundex('Pfister') -> 'P236' | soundex('12') -> NULL
    nls_upper('é') -> 'É' | nls_lower('É') -> 'é' | nls_initcap('ab') -> 'Ab'
    rowidtochar('AAAAAAAAAAAAAAAAAB') -> 'AAAAAAAAAAAAAAAAAB'
    rawtohex(x'00ff') -> '00FF' | rawtohex('A') -> '41' | vsize(100) -> 2 | vsize(-123.45) -> 5)");
}

TEST_F(Functions, NumberAndChoiceFunctions) {
  expect(R"(
    round(2.5) -> 3 | round(1250, -2) -> 1300 | round(5, 1e9) -> 5 | trunc(-2.79, 1) -> -2.7
    trunc(1299, -2) -> 1200 | abs(-1.5) -> 1.5
    abs(-9223372036854775807 - 1) -> 9223372036854780000 | ceil(1.1) -> 2 | floor(-1.1) -> -2
    mod(-11, 4) -> -3 | mod(1.1, .1) -> 0 | mod(5.3, 2.1) -> 1.1 | mod(11, 0) -> 11
    mod(5.1, 1) -> .1 | mod(-.3, .1) -> 0 | mod(10.7, -.1) -> 0 | mod(-10.75, .1) -> -.05
    mod(6.99999999999999, .0007) -> .00069999999999 | mod(1234567890.1, .9999999999) -> .223456789
    mod(1.5, 1e100) -> 1.5 | mod(1e20, 9223372036854775807) -> 7766279631452240000
    mod(-9223372036854775807 - 1, -1) -> 0 | sign(-.5) -> -1 | power(-2, .5) -> ORA-01428
    power(10, 400) -> ORA-01426 | sqrt(2) -> 1.4142135623731 | sqrt(-1) -> ORA-01428
    asin(1) -> 1.5707963267949 | acos(-1) = ora_mul(atan2(1, 0), 2) -> 1 | acos(1.1) -> ORA-01428
    atan(1) -> .785398163397448 | atan2(0, -1) -> 3.14159265358979 | atan2(0, 0) -> ORA-01428
    sinh(1) -> 1.1752011936438 | cosh(0) -> 1 | tanh(.5) -> .46211715726001
    bitand(12, '10.9') -> 8 | bitand(-1, 255) -> 255 | bitand(1e19, 1) -> ORA-01426
    bitand(9.2233720368547757e18, 1) -> ORA-01426 | log(10, 1000) -> 3 | ln(0) -> ORA-01428 | nvl(NULL, 5) -> 5 | nvl('', 'x') -> 'x'
    nvl('a', 5) -> 'a' | nvl2('', 1, 2) -> 2
    decode(NULL, 1, 'one', NULL, 'null', 'else') -> 'null'
    decode('2', 1, 'one', 2, 'two') -> 'two' | decode(3, 1, 'one', 2, 'two') -> NULL
    decode(3, 1, 'one', 5) -> '5' | decode(1, 2) -> ORA-00938 | greatest('b', 'a', 'c') -> 'c'
    greatest(2, '10') -> 10 | least('10', 2) -> '10' | least(1, NULL) -> NULL)");
}

// The call stands before "of", the values of v in the rows behind it. Each row is there once for
// each sign in w.
TEST_F(Functions, GroupFunctionsAddDecimals) {
  const char* const table = R"(
    sum(v) of 1000.1; -1000; .2 -> .3 | typeof(sum(v)) of .5; .5 -> 'integer'
    sum(v) of NULL; '' -> NULL | sum(v) of NULL; '2.5'; 1 -> 3.5 | sum(v) of 1; 'x' -> ORA-01722
    sum(v) of x'41' -> ORA-00932 | sum(DISTINCT v) of .1; .1; .2 -> .3 | sum(v) of -.75; .5 -> -.25
    ora_sub(sum(v), 1) of .1; .1; .1; .1; .1; .1; .1; .1; .1; .1 -> 0
    sum(ora_mul(v, w)) of .07; 100000.13; 19.99; .01; 12345678.9 -> 0
    sum(v) of 9223372036854775807; 1 -> 9223372036854780000
    sum(v) of 9223372036854775807; 1; -9223372036854775807 -> 1
    sum(v) of -1000000000000000000; .5; .5 -> -999999999999999999
    sum(v) of 9007199254740993; .5 -> 9007199254740990 | ora_mul(sum(v), 3) of ora_div(1, 3) -> 1
    sum(v) of 1e20; 1e-20 -> 100000000000000000000 | sum(v) of 1e308; 1e308 -> ORA-01426
    ora_mul(sum(v), 24) = 8 of ora_div(1, 9); ora_div(1, 9); ora_div(1, 9) -> 1
    avg(v) of 1; 2; NULL -> 1.5 | avg(v) of .1; .1; .1 -> .1 | avg(v) of NULL -> NULL
    avg(v) of 9007199254740993 -> 9007199254740993 | avg(v) of 1; 1; 2 -> 1.33333333333333)";
  for (const auto& [written, expected] : cases(table)) {
    const size_t of = written.find(" of ");
    const std::string call = written.substr(0, of);
    const std::string rows = std::regex_replace(written.substr(of + 4), std::regex("; "), "),(");
    const std::string signs = call.find('w') == call.npos ? "(1)" : "(1),(-1)";
    EXPECT_EQ(value("(WITH t(v) AS (VALUES(" + rows + ")), u(w) AS (VALUES" + signs + ") SELECT " +
                    call + " FROM u, t)"),
              expected)
        << written;
  }
}

TEST_F(Functions, DateFunctions) {
  expect(R"(
    @add_months(D[2024-01-31 08:00], 1) -> '2024-02-29 08:00'
    @add_months(D[2024-02-29], 1) -> '2024-03-31 00:00'
    @add_months(D[2024-01-15], -13) -> '2022-12-15 00:00'
    add_months(D[2024-01-15], 1e12) -> ORA-01841
    to_char(add_months(D[0001-01-15], -1), 'SYYYY-MM') -> '-0001-12'
    months_between(D[2024-03-31], D[2024-02-29]) -> 1
    months_between(D[1995-02-02], D[1995-01-01]) -> 1.03225806451613
    @last_day(D[2023-02-03 04:05]) -> '2023-02-28 04:05'
    @next_day(D[2024-01-01 10:00], 'monday') -> '2024-01-08 10:00'
    next_day(D[2024-01-01 10:00], 'xyz') -> ORA-01846 | next_day(D[2024-01-01], 8) -> ORA-01846
    @next_day(D[2024-01-01], 7) -> '2024-01-06 00:00' | @next_day(D[2024-01-01], 1) -> '2024-01-07 00:00'
    @trunc(D[2021-01-03 17:45], 'IYYY') -> '2019-12-30 00:00'
    @round(D[2020-07-01], 'I') -> '2021-01-04 00:00' | @round(D[2024-06-30], 'IY') -> '2024-01-01 00:00'
    @trunc(D[2024-08-15 17:45]) -> '2024-08-15 00:00'
    @trunc(D[2024-08-15 17:45], 'Q') -> '2024-07-01 00:00'
    @trunc(D[2024-08-15 17:45], 'iw') -> '2024-08-12 00:00'
    @trunc(D[2024-08-15 17:45], 'DAY') -> '2024-08-11 00:00'
    @trunc(D[2000-08-15 17:45], 'CC') -> '1901-01-01 00:00'
    @trunc(D[2024-08-15 17:45], 'HH') -> '2024-08-15 17:00'
    @round(D[2024-12-31 12:00]) -> '2025-01-01 00:00'
    @round(D[2024-08-15 17:45], 'MM') -> '2024-08-01 00:00'
    @round(D[2024-08-16], 'MONTH') -> '2024-09-01 00:00'
    @round(D[2024-08-16], 'Q') -> '2024-10-01 00:00'
    @round(D[2024-07-01], 'YYYY') -> '2025-01-01 00:00'
    @round(D[2024-08-15 17:30], 'HH24') -> '2024-08-15 18:00'
    trunc(D[2024-08-15 17:45], 'XX') -> ORA-01898
    length(to_char(sysdate(), 'YYYYMMDDHH24MISS')) -> 14
    to_char(sysdate(), rpad('JSP', 300, 'JSP')) -> ORA-01801)");
}

TEST_F(Functions, NumberModels) {
  expect(R"(
    to_char(1234.5, '9,999.99') -> ' 1,234.50' | to_char(-1234.5, '9G999D99') -> '-1,234.50'
    to_char(234.5, '9,999.99') -> '   234.50' | to_char(.5, '99.99') -> '   .50'
    to_char(.5, '90.99') -> '  0.50' | to_char(0, '999') -> '   0' | to_char(7, '0009') -> ' 0007'
    to_char(7, 'FM0009') -> '0007' | to_char(1, 'FM990.099') -> '1.0'
    to_char(5, 'FM90.99') -> '5.' | to_char(1000, '999') -> '####'
    to_char(1.005, '9.99') -> ' 1.01' | to_char(-.001, '9.99') -> '  .00'
    to_char(5, 'S99') -> ' +5' | to_char(-5, '99S') -> ' 5-' | to_char(5, '99MI') -> ' 5 '
    to_char(-5, '99PR') -> ' <5>' | to_char(1234, '$9,999') -> ' $1,234'
    to_char(0, 'B99') -> '   ' | to_char(1234, '9.99EEEE') -> ' 1.23E+03'
    to_char('12', '999') -> '  12' | to_char(5, '9X') -> ORA-01481
    to_char(255, 'XXXX') -> '   FF' | to_char(254.6, 'FM0xxx') -> '00ff' | to_char(256, 'XX') -> '###'
    to_char(-1, 'FMXX') -> '###' | to_char(1e30, 'X') -> '##' | to_char(1, 'X0') -> ORA-01481
    to_char(1999, 'RN') -> '        MCMXCIX' | to_char(3888, 'rn') -> 'mmmdccclxxxviii'
    to_char(4, 'FMRN') -> 'IV' | to_char(4000, 'FMRN') -> '###############'
    to_number('-1,234.50', '9,999.99') -> -1234.5 | to_number('$12-', '$99MI') -> -12
    to_number('<12>', '99PR') -> -12 | to_number('123', '99') -> ORA-01722
    to_number('1x', '99') -> ORA-01722 | to_number('1e2') -> 100)");
}

// Every function takes every kind and number of arguments without harm: a value or an ORA error.
TEST_F(Functions, AnyArgumentsGiveAValueOrAnOracleError) {
  // clang-format off
  const char* const kValues[] = {"NULL", "''", "0", "-9223372036854775808", "9e307", "-1.5e-300",
                                 "'abc'", "'1999'", "x''", "x'00'", "x'77C7030F0E060A'",
                                 "CAST(x'FFC3' AS TEXT)", "'9'"};
  // clang-format on
  std::istringstream list(
      value("(SELECT group_concat(name || ' ' || narg, ' ') FROM (SELECT DISTINCT name, narg FROM "
            "pragma_function_list WHERE builtin = 0 AND flags & 0x200000 AND name <> 'uid'))")
          .substr(1));
  int functions = 0;
  std::string name;
  for (int count = 0; list >> name >> count; ++functions) {
    if (count < 0) count = 4;
    for (size_t mix = 0; mix < (count == 0 ? 1u : 13u * 13u); ++mix) {
      std::string call = name + "(";
      for (int i = 0; i < count; ++i) {
        call += (i == 0 ? "" : ",") + std::string(kValues[(i % 2 == 0 ? mix : mix / 13) % 13]);
      }
      const std::string shown = value(call + ")");
      EXPECT_TRUE(shown.find_first_of("'") == 0 || shown.find("x'") == 0 || shown == "NULL" ||
                  shown.find_first_not_of("-.E+0123456789") == std::string::npos ||
                  (shown.starts_with("ORA-") && shown != "ORA-00600"))
          << call << ") gives " << shown;
    }
  }
  EXPECT_GT(functions, 70);
}

TEST_F(Functions, AccountsLetInWithTheirPasswordOnly) {
  create_accounts_table(db_.get());
  add_account(db_.get(), "scott", "Tiger");
  add_account(db_.get(), "Ops$Locked", "");
  EXPECT_EQ(check_password(db_.get(), "ScOtT", "Tiger"), "SCOTT");
  EXPECT_EQ(value("uid() > 0"), "1");
  const auto login = [this](const std::string& user, std::string_view password) {
    return failure([&] { check_password(db_.get(), user, password); }).code;
  };
  const char* const kRefused[][2] = {{"scott", "tiger"}, {"scott", ""},      {"nobody", "Tiger"},
                                     {"", ""},           {"ops$locked", ""}, {"scott", "Tiger "}};
  for (const auto& [user, password] : kRefused) EXPECT_EQ(login(user, password), 1017);
  EXPECT_NE(login("scott", {"Tiger\0x", 7}), 0);
  set_password(db_.get(), "SCOTT", "other");
  EXPECT_EQ(login("scott", "Tiger"), 1017);
  EXPECT_EQ(check_password(db_.get(), "scott", "other"), "SCOTT");
  const auto added = [this](const std::string& user, const std::string& password) {
    return failure([&] { add_account(db_.get(), user, password); }).code;
  };
  EXPECT_EQ(added("SCOTT", "x"), 1920);
  EXPECT_EQ(added(std::string(31, 'a'), "x"), 972);
  EXPECT_EQ(added("a;b", "x"), 911);
  EXPECT_EQ(added("ab", std::string(31, 'x')), 988);
  EXPECT_EQ(list_accounts(db_.get()), (std::vector<std::string>{"OPS$LOCKED", "SCOTT"}));
  drop_account(db_.get(), "scott");
  EXPECT_EQ(failure([&] { drop_account(db_.get(), "scott"); }).text,
            "ORA-01918: user 'SCOTT' does not exist\n");
  EXPECT_EQ(failure([&] { check_external(db_.get()); }).code, 1017);
}

}  // namespace
}  // namespace oci8
