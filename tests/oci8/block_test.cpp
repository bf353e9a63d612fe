// Anonymous blocks, on a database in memory.
#include "block.h"

#include "engine_fixture.h"

namespace oci8 {
namespace {

/// A block beside its text, which has to outlive it.
struct TestBlock {
  TestBlock(Connection& connection, std::string_view sql)
      : source(tokenize(sql)), block(source, connection) {}
  Block* operator->() { return &block; }
  /// What a run has assigned to a placeholder, "-" where it has not.
  std::string assigned(ub4 position) {
    const Value* value = block.assigned(position);
    return value == nullptr ? "-" : text_of(*value);
  }

  SqlText source;
  Block block;
};

class BlockTest : public testing::Test {
 protected:
  BlockTest() {
    one_->log_in("scott", "");
    sql("CREATE TABLE T(A NUMBER UNIQUE, B VARCHAR2(20))");
    sql("INSERT INTO T SELECT 1, 'one' FROM DUAL UNION SELECT 2, 'two' FROM DUAL");
    one_->commit();
  }

  std::string sql(std::string_view statement) { return query(*one_, statement); }
  std::string numbers() { return sql("SELECT A FROM T ORDER BY A"); }

  Failure run(std::string_view text) {
    return failure([&] {
      if (tokenize(text).type < OCI_STMT_BEGIN) return void(sql(text));
      TestBlock(*one_, text)->run();
    });
  }

  std::unique_ptr<Connection> one_ = open_database(":memory:");
};

// :1 starts as 5 and :2 as "five"; what they end with, in order of appearance.
TEST_F(BlockTest, ValuesGoInAndOut) {
  for (const auto& [text, wanted] : cases(R"(
    BEGIN :1 := :1 + 1; :1 := :1 * 2; :2 := :2 || ';END'; END; -> 12 five;END
    begin :1 := (:1 - 10) / 2; :2 := TO_CHAR(:1); end; -> -2.5 -2.5
    BEGIN SELECT :1, :2 INTO :2, :1 FROM DUAL; END; -> five 5
    BEGIN SELECT B /* INTO :1; */ INTO :2 FROM T WHERE A = :1 - 4; END; -> one -
    BEGIN SELECT MAX(A), '' INTO :1, :2 FROM T UNION SELECT 2, NULL FROM T; END; -> 2 NULL
    BEGIN :1 := CASE WHEN :1 = 5 THEN 1 ELSE 0 END; END; -> 1
    BEGIN INSERT INTO T VALUES (:1, :2); SELECT B||A INTO :2 FROM T WHERE A = :1; END; -> - five5
    <<o>> BEGIN NULL; BEGIN :1 := 7; END; <<i>> BEGIN :2 := 'x'; END i; END o; -> 7 x
    DECLARE a NUMBER(3) := 41; s VARCHAR2(9); BEGIN s := 'A'; a := a + '1'; :1 := a;
      SELECT s || MAX(A) INTO s FROM T; :2 := s; END; -> 42 A2
    DECLARE "a""b" NUMBER(4); BEGIN "a""b" := 1; :1 := "a""b" + 1; END; -> 2
    DECLARE dummy PLS_INTEGER DEFAULT :1; BEGIN DECLARE dummy DATE; BEGIN
      dummy := DATE '1999-12-31'; :2 := TO_CHAR(dummy + 1, 'DD.MM.YYYY'); END;
      :1 := dummy + 1; END; -> 6 01.01.2000)")) {
    TestBlock block(*one_, text);
    const std::vector<Placeholder>& placeholders = block.source.placeholders;
    std::string results;
    for (ub4 i = 1; i <= placeholders.size(); ++i) {
      block->inputs()[i - 1] = placeholders[i - 1].name == "1" ? number(5) : words("five");
    }
    EXPECT_EQ(failure([&] { block->run(); }).text, "") << text;
    for (ub4 i = 1; i <= placeholders.size(); ++i) {
      results += (i > 1 ? " " : "") + block.assigned(i);
    }
    EXPECT_EQ(results, wanted) << text;
    one_->rollback();
  }
}

TEST_F(BlockTest, EachRunTakesItsOwnBinds) {
  TestBlock block(*one_, "BEGIN INSERT INTO T(A, B) VALUES (:a, :b); :n := :a; :b := :b; END;");
  for (long long a = 3; a < 6; ++a) {
    const std::string long_text = "text " + std::to_string(a) + " beyond";
    block->inputs()[0] = number(a);
    block->inputs()[1] = words(long_text);
    block->run();
    EXPECT_EQ(block.assigned(2), long_text);
    EXPECT_EQ(block.assigned(3), std::to_string(a));
  }
  EXPECT_EQ(numbers(), "1 2 3 4 5");
  block->run();
  EXPECT_EQ(block.assigned(3), "NULL");
  block->inputs()[0] = number(3);
  EXPECT_EQ(failure([&] { block->run(); }).code, 1);
  EXPECT_EQ(block->assigned(3), nullptr) << "a failed run assigns nothing";
}

// Each step with its error, then what is in the table.
TEST_F(BlockTest, FailedBlockIsUndoneAsAWholeBackToItsLastCommit) {
  for (const auto& [text, expected] : cases(R"(
    BEGIN INSERT INTO T(A) VALUES (3); UPDATE T SET A = 9 - A; INSERT INTO T(A) VALUES (1 / 0);
      END; -> 1476: 1 2
    INSERT INTO T(A) VALUES (4) -> 0: 1 2 4
    BEGIN DELETE FROM T WHERE A = 1; SELECT A INTO :x FROM T WHERE A = 99; END; -> 1403: 1 2 4
    BEGIN DELETE FROM T WHERE A = 1; SELECT A INTO :x FROM T; END; -> 1422: 1 2 4
    SAVEPOINT S -> 0: 1 2 4
    BEGIN DELETE FROM T; ROLLBACK TO S; DELETE FROM T WHERE A = 1; :x := 1 / 0; END; -> 1476: 1 2 4
    BEGIN DELETE FROM T WHERE A = 1; SAVEPOINT P; DELETE FROM T; END; -> 0
    ROLLBACK TO P -> 0: 2 4
    BEGIN DELETE FROM T; ROLLBACK TO SAVEPOINT P; :x := 1 / 0; END; -> 1476: 2 4
    ROLLBACK -> 0: 1 2 | INSERT INTO T(A) VALUES (3) -> 0: 1 2 3
    BEGIN INSERT INTO T(A) VALUES (4); COMMIT; DELETE FROM T; :x := 1 / 0; END; -> 1476: 1 2 3 4
    COMMIT -> 0: 1 2 3 4
    BEGIN DELETE FROM T; ROLLBACK; INSERT INTO T(A) VALUES (5); END; -> 0: 1 2 3 4 5
    BEGIN INSERT INTO T(A) VALUES (6); SAVEPOINT Q; END; -> 0: 1 2 3 4 5 6
    SAVEPOINT S -> 0: 1 2 3 4 5 6
    BEGIN SAVEPOINT A; SAVEPOINT S; ROLLBACK TO A; ROLLBACK TO S; DELETE FROM T; :x := 1 / 0;
      END; -> 1476: 1 2 3 4 5 6
    BEGIN SAVEPOINT Z; :x := 1 / 0; END; -> 1476: 1 2 3 4 5 6
    SAVEPOINT Z -> 0: 1 2 3 4 5 6 | COMMIT -> 0: 1 2 3 4 5 6
    BEGIN SAVEPOINT E; DELETE FROM T; ROLLBACK TO E; DELETE FROM T; :x := 1 / 0;
      END; -> 1476: 1 2 3 4 5 6
    ROLLBACK TO E -> 1086: 1 2 3 4 5 6 | SAVEPOINT E -> 0: 1 2 3 4 5 6
    DELETE FROM T WHERE A < 5 -> 0: 5 6
    BEGIN DELETE FROM T; ROLLBACK TO E; SAVEPOINT F; DELETE FROM T; :x := 1 / 0;
      END; -> 1476: 1 2 3 4 5 6
    ROLLBACK TO F -> 1086: 1 2 3 4 5 6 | ROLLBACK TO E -> 0: 1 2 3 4 5 6)")) {
    const int code = run(text).code;
    const std::string left = numbers();
    EXPECT_EQ(std::to_string(code) + (left.empty() ? "" : ": ") + left, expected) << text;
  }
}

TEST_F(BlockTest, CursorsLiveOnTheirOwn) {
  std::vector<OpenedCursor> cursors;
  {
    std::string start = "a value that is longer than any short string";
    TestBlock block(*one_,
                    "BEGIN OPEN :c FOR SELECT :s FROM DUAL; :s := 'o'; OPEN :c FOR SELECT A FROM T "
                    "WHERE B LIKE :s || '%' OR A = :n; OPEN :d FOR SELECT :s || :t FROM DUAL; "
                    "INSERT INTO T VALUES (3, 'other'); :s := 'changed'; END;");
    block->inputs()[2] = number(2);
    block->inputs()[4] = words(start);
    block->run();
    start.assign(start.size(), 'X');
    cursors = block->take_cursors();
    EXPECT_TRUE(block->take_cursors().empty());
  }
  ASSERT_EQ(cursors.size(), 2u);
  EXPECT_EQ(cursors[0].position, 1u);
  EXPECT_EQ(cursors[0].run->columns().at(0).name, "A");
  ASSERT_TRUE(cursors[0].run->step());
  one_->rollback();
  EXPECT_EQ(rows_of(*cursors[0].run), "2 3") << "as it was when it began";
  EXPECT_EQ(cursors[1].position, 4u);
  EXPECT_EQ(rows_of(*cursors[1].run), "oa value that is longer than any short string");
  cursors[1].run->reset();
  EXPECT_EQ(rows_of(*cursors[1].run).size(), 45u);
  TestBlock failing(*one_, "BEGIN OPEN :c FOR SELECT A FROM T; :x := 1 / 0; END;");
  EXPECT_EQ(failure([&] { failing->run(); }).code, 1476);
  EXPECT_TRUE(failing->take_cursors().empty());
}

// "^" stands before the place of the error, and is no part of the text.
TEST_F(BlockTest, ErrorsHaveCodeAndPlace) {
  std::string deep;
  for (int i = 0; i < 5000; ++i) deep += "BEGIN ";
  const std::tuple<std::string, int, const char*> kCases[] = {
      {"BEGIN\n NULL;\n INSERT INTO ^NOWHERE VALUES (:1); END;", 942, "ORA-06512: at line 3\n"},
      {"BEGIN SELECT A /* ; */ INTO :x FROM T WHERE ^NONE = 1; END;", 904, "NONE"},
      {"BEGIN :x := 'END;' || ^NONE; END;", 904, "NONE"},
      {"BEGIN NULL; ^UPDATE T SET A = 1; END;", 1, "T.A"},
      {"BEGIN COMMIT; DELETE FROM T WHERE A = 1 ^2; END;", 933, "ended"},
      {"BEGIN ^SELECT A, B INTO :x FROM T; END;", 913, "many"},
      {"BEGIN ^SELECT A INTO :x, :y FROM T; END;", 947, "enough"},
      {"BEGIN OPEN :c FOR SELECT A FROM ^NOWHERE; END;", 942, "exist"},
      {"DECLARE v VARCHAR2(3); BEGIN\n^v := 'four'; END;", 6502, "ORA-01401"},
      {"BEGIN :x := 1 ^x; END;", 907, "parenthesis"},
      {"BEGIN\n  NULL;\n  ^IF 1 = 1 THEN NULL; END IF; END;", 6550,
       "ORA-06550: line 3, column 3:\nIF is not supported in a block\n"},
      {"BEGIN NULL; ^EXCEPTION WHEN OTHERS THEN NULL; END;", 6550, "not supported"},
      {"DECLARE ^PROCEDURE p IS BEGIN NULL; END; BEGIN NULL; END;", 6550, "not supported"},
      {"DECLARE c ^CONSTANT NUMBER := 1; BEGIN NULL; END;", 6550, "not supported"},
      {"DECLARE c ^T.A%TYPE; BEGIN NULL; END;", 6550, "ORA-00902"},
      {"BEGIN ^CREATE TABLE U(A NUMBER); END;", 6550, "column 7:\n"},
      {"BEGIN ^dbms_output.put_line('x'); END;", 6550, "'DBMS_OUTPUT' must be declared"},
      {"BEGIN BEGIN DECLARE v DATE; BEGIN NULL; END; END; ^v := 1; END;", 6550, "'V'"},
      {"BEGIN ^SELECT A FROM T; END;", 6550, "INTO"},
      {"BEGIN OPEN :c FOR ^'SELECT 1 FROM DUAL'; END;", 6550, "Encountered"},
      {"BEGIN :x := (1^; END;", 6550, "\";\""},
      {"BEGIN :x := 1^), (2; END;", 6550, "\")\""},
      {"BEGIN :x := ^'abc; END;", 6550, "Encountered"},
      {"BEGIN ROLLBACK TO ^; END;", 6550, "\";\""},
      {"BEGIN ^END;", 6550, "\"END\""},
      {"BEGIN NULL; END^", 6550, "end-of-file"},
      {"BEGIN NULL; END; ^SELECT 1 FROM DUAL", 6550, "\"SELECT\""},
      {"BEGIN INSERT INTO T VALUES (1, 2) END;^", 6550, "end-of-file"},
      {deep, 6550, "too large"},
  };
  for (const auto& [marked, code, words] : kCases) {
    std::string text = marked;
    const size_t place = text.find('^');
    if (place != std::string::npos) text.erase(place, 1);
    const Failure raised = run(text);
    EXPECT_EQ(raised.code, code) << text << ": " << raised.text;
    EXPECT_NE(raised.text.find(words), std::string::npos) << text << ": " << raised.text;
    if (place == std::string::npos) continue;
    EXPECT_EQ(raised.offset, static_cast<int>(place)) << text;
  }
  EXPECT_EQ(numbers(), "1 2");
  EXPECT_NE(failure([&] { sql("SELECT A INTO :x FROM T"); }).code, 0) << "no block";
}

}  // namespace
}  // namespace oci8
