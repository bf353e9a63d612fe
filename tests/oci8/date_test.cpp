#include "date.h"

#include "engine_fixture.h"

namespace oci8 {
namespace {

// The text of the date that an action gives, or the error number.
template <typename Action>
std::string outcome(Action action, std::string_view format = "FMSYYYY-MM-DD HH24:MI:SS") {
  std::string shown;
  const Failure raised = failure([&] { shown = format_date(action(), format); });
  return raised.code == 0 ? shown : raised.text.substr(0, 9);
}

TEST(Date, BytesAreTheServersForm) {
  const std::tuple<DateFields, DateBytes> kRows[] = {
      {{1999, 3, 15, 13, 5, 9}, {119, 199, 3, 15, 14, 6, 10}},
      {{2040, 4, 1, 0, 0, 0}, {120, 140, 4, 1, 1, 1, 1}},
      {{-4712, 1, 1, 0, 0, 0}, {53, 88, 1, 1, 1, 1, 1}},
      {{-44, 3, 15, 12, 0, 0}, {100, 56, 3, 15, 13, 1, 1}},
      {{9999, 12, 31, 23, 59, 59}, {199, 199, 12, 31, 24, 60, 60}}};
  for (const auto& [fields, bytes] : kRows) {
    EXPECT_EQ(pack_date(fields), bytes);
    EXPECT_EQ(unpack_date(bytes.data()).year, fields.year);
    EXPECT_TRUE(valid_date(bytes.data()));
  }
  const DateBytes kNoDates[] = {
      {100, 100, 1, 1, 1, 1, 1}, {120, 100, 13, 1, 1, 1, 1},  {120, 100, 2, 30, 1, 1, 1},
      {120, 100, 1, 1, 0, 1, 1}, {120, 100, 1, 1, 25, 61, 1}, {52, 50, 1, 1, 1, 1, 1},
      {101, 90, 1, 1, 1, 1, 1},  {0, 0, 0, 0, 0, 0, 0},       {255, 255, 255, 255, 255, 255, 255}};
  for (const auto& row : kNoDates) EXPECT_FALSE(valid_date(row.data())) << int(row[0]);
}

TEST(Date, DaysCountOnWithoutGapsFromEndToEnd) {
  EXPECT_EQ(date_to_days({2000, 1, 1, 12, 0, 0}), 2451545.5);
  EXPECT_EQ(date_to_days({1582, 10, 15, 0, 0, 0}) - date_to_days({1582, 10, 4, 0, 0, 0}), 1);
  const double first = date_to_days({-4712, 1, 1, 0, 0, 0});
  const double last = date_to_days({9999, 12, 31, 0, 0, 0});
  EXPECT_EQ(first, 1);
  EXPECT_EQ(last, 5373484);
  const double gap = date_to_days({-1, 12, 31, 0, 0, 0}), end = date_to_days({1, 1, 1, 0, 0, 0});
  EXPECT_EQ(end - gap, 367) << "a year 0 is counted";
  for (double day = first; day <= last; day += day < 100 ? 1 : 13) {
    ASSERT_EQ(date_to_days(days_to_date(day)), day);
    const int code = failure([&] { pack_date(days_to_date(day)); }).code;
    ASSERT_EQ(code, day > gap && day < end ? 1841 : 0) << day;
  }
  for (const double beyond : {first - 1, last + 1, 1e300}) {
    EXPECT_EQ(outcome([&] { return days_to_date(beyond); }), "ORA-01841");
  }
}

TEST(Date, IsWrittenByModel) {
  const DateFields kDay{1999, 3, 5, 15, 4, 9};
  for (const auto& [format, expected] : cases(R"(
    DD-MON-YY -> 05-MAR-99 | YYYY-MM-DD HH24:MI:SS -> 1999-03-05 15:04:09 | Month DD -> March     05
    FMMonth DD, YYYY -> March 5, 1999 | fmDay, DD fmMM -> Friday, 5 03
    dy Dy DY|day| -> fri Fri FRI|friday   |
    HH:MI AM|hh12 p.m. -> 03:04 PM|03 p.m.
    "Year: "YYYY "Q"Q -> Year: 1999 Q1 | DDD D WW W IW CC J SSSSS -> 064 6 10 1 09 20 2451243 54249
    SCC,FMSCC ->  20,20
    Y,YYY fmy,yyy, DD -> 1,999 1,999, 5
    DDth fmDDTH|ddth|Dth|DDDth -> 05TH 5TH|5th|6th|64TH | Y,YYYTH -> 1,999TH | MISSth -> 0409TH
    JSP -> TWO MILLION FOUR HUNDRED FIFTY-ONE THOUSAND TWO HUNDRED FORTY-THREE
    Ddspth|ddTHsp|YYYYsp|HH24SP -> Fifth|fifth|ONE THOUSAND NINE HUNDRED NINETY-NINE|FIFTEEN
    Qsp|Qspth|SSSSSspth|MIsp -> One|First|FIFTY-FOUR THOUSAND TWO HUNDRED FORTY-NINTH|FOUR
    SYYYY YYY Y RR RRRR BC ->  1999 999 9 99 1999 AD | XYZ -> ORA-01821 | FMTH -> ORA-01821 | YYYY "open -> ORA-01821)")) {
    EXPECT_EQ(outcome([&] { return kDay; }, format), expected) << format;
  }
  EXPECT_EQ(outcome([&] { return DateFields{2021, 1, 3, 0, 0, 0}; }, "IYYY IYY IY I IW ddTH DDDth"),
            "2020 020 20 0 53 03rd 003RD");
  EXPECT_EQ(outcome([&] { return DateFields{2021, 1, 12, 0, 0, 0}; }, "IYYYTH DDTH"),
            "2021ST 12TH");
  EXPECT_EQ(outcome([&] { return DateFields{-144, 1, 1, 0, 0, 0}; }, "SYYYY SCC"), "-0144 -02");
}

TEST(Date, IsReadByModel) {
  for (const auto& [both, expected] : cases(R"(
    '15-MAR-1999 13:05:09' as DD-MON-YYYY HH24:MI:SS -> 1999-3-15 13:5:9
    '15/mar.99' as DD-MON-RR -> 1999-3-15 0:0:0 | '15-MAR-1999' as DD-MON-YY -> 1999-3-15 0:0:0
    '15-march-49' as DD-MON-RR -> 2049-3-15 0:0:0 | '20240229' as YYYYMMDD -> 2024-2-29 0:0:0
    '20240229' as YYYY-MM-DD -> 2024-2-29 0:0:0 | '2024-2-9' as YYYY-MM-DD -> 2024-2-9 0:0:0
    '  2024-02-09' as YYYY-MM-DD HH24:MI -> 2024-2-9 0:0:0
    '12:30 am 2024-01-01' as HH:MI AM YYYY-MM-DD -> 2024-1-1 0:30:0
    '12:30 P.M. 2024-01-01' as HH12:MI P.M. YYYY-MM-DD -> 2024-1-1 12:30:0
    '2,007-02' as Y,YYY-MM -> 2007-2-1 0:0:0
    '1' as J -> -4712-1-1 0:0:0 | '60' as J -> -4712-3-1 0:0:0 | '1721423' as J -> ORA-01841
    '-4712-02-29' as SYYYY-MM-DD -> ORA-01839 | '-4708-02-29' as SYYYY-MM-DD -> -4708-2-29 0:0:0
    '2024 060' as YYYY DDD -> 2024-2-29 0:0:0 | '2451545' as J -> 2000-1-1 0:0:0
    '2024-01-01 86399' as YYYY-MM-DD SSSSS -> 2024-1-1 23:59:59
    '44-03-15 BC' as YYYY-MM-DD BC -> -44-3-15 0:0:0
    'Fri 05-MAR-1999' as DY DD-MON-YYYY -> 1999-3-5 0:0:0 | '2024T01' as YYYY"T"MM -> 2024-1-1 0:0:0
    '2024-02-30' as YYYY-MM-DD -> ORA-01839 | '2023-02-29' as YYYY-MM-DD -> ORA-01839
    '2024-13-01' as YYYY-MM-DD -> ORA-01843 | '01-QQQ-99' as DD-MON-YY -> ORA-01843
    '2024-01-32' as YYYY-MM-DD -> ORA-01847 | '2024-01-00' as YYYY-MM-DD -> ORA-01847
    '0000-01-01' as YYYY-MM-DD -> ORA-01841 | '-4713-01-01' as SYYYY-MM-DD -> ORA-01841
    '24' as HH24 -> ORA-01850 | '13' as HH -> ORA-01849 | '10:60' as HH24:MI -> ORA-01851
    '10:00:60' as HH24:MI:SS -> ORA-01852 | '86400' as SSSSS -> ORA-01853 | '0' as J -> ORA-01854
    '10 XM' as HH AM -> ORA-01855 | '2024-01' as YYYY-MM-DD -> ORA-01840
    '2024-01-01 x' as YYYY-MM-DD -> ORA-01830 | 'abcd' as YYYY -> ORA-01858
    '2009-05-01' as DD-MON-RR -> ORA-01861 | '2024x01' as YYYY"T"MM -> ORA-01861
    '2023 366' as YYYY DDD -> ORA-01848 | 'Mon 05-MAR-1999' as DY DD-MON-YYYY -> ORA-01835
    '2024 2024' as YYYY YYYY -> ORA-01810 | '13 PM' as HH24 PM -> ORA-01818 | '1' as Q -> ORA-01820
    '1' as ?9 -> ORA-01821
    '2001-2-3' as FXYYYY-MM-DD -> ORA-01862 | '2001/02/03' as FXYYYY-MM-DD -> ORA-01861
    '2001-02-03' as FXRRRR-MM-DD -> 2001-2-3 0:0:0 | '2001-2-3' as FXFMYYYY-MM-DD -> 2001-2-3 0:0:0
    '2001-02' as FXYYYY-MM-DD -> ORA-01840 | '01-02-2003' as FXDD-MM-YY -> ORA-01830
    '01JAN2001' as DD-MON-YYYY -> 2001-1-1 0:0:0 | '01JAN01' as DD/MM/YY -> 2001-1-1 0:0:0
    '03FEB2001 1205PM' as DD-FMMON-YYYY HHMI PM -> 2001-2-3 12:5:0
    '2024a01' as YYYY-DDD -> ORA-01861 | '2024' as IYYY -> ORA-01820 | '1st' as DDth -> ORA-01820
    'one' as DDSP -> ORA-01820)")) {
    const size_t as = both.find("' as ");
    const std::string text = both.substr(1, as - 1), format = both.substr(as + 5);
    EXPECT_EQ(outcome([&] { return parse_date(text, format); }), expected) << both;
  }
  const DateFields time = parse_date("10:15", "HH24:MI");
  EXPECT_EQ(time.day, 1) << "an open date is the first of this month";
  EXPECT_EQ(time.month, current_date().month);
}

}  // namespace
}  // namespace oci8
