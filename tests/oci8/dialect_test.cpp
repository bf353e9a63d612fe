// The dialect, from statement text to what the engine makes of it.
#include <pthread.h>

#include <functional>

#include "date.h"
#include "declared_type.h"
#include "dialect_scope.h"
#include "engine_fixture.h"

namespace oci8 {
namespace {

// --- Tokens --------------------------------------------------------------------------------------

// The numbers of OCI_ATTR_STMT_TYPE and OCI_ATTR_SQLFNCODE.
TEST(SqlText, TellsKindsOfStatements) {
  for (const auto& [source, expected] : cases(R"(
    select 1 from dual -> 1 3 | WITH a AS (SELECT 1 FROM dual) SELECT * FROM a -> 1 3
    Insert into t values (1) -> 4 2 | update t set a = 1 -> 2 6 | delete t -> 3 7
    CREATE TABLE t (a NUMBER) -> 5 1 | create or replace view v as select 1 from dual -> 5 21
    CREATE UNIQUE INDEX i ON t (a) -> 5 9 | CREATE PACKAGE BODY p IS END; -> 5 97
    DROP TABLE t -> 6 12 | ALTER SESSION SET x = 1 -> 7 42 | TRUNCATE TABLE t -> 0 85
    COMMIT -> 0 44 | BEGIN NULL; END; -> 8 47 | <<l>> DECLARE a NUMBER; BEGIN NULL; END; -> 9 47
    set transaction read only -> 0 48 | 'SELECT' -> 0 0)")) {
    const SqlText sql = tokenize(source);
    EXPECT_EQ(std::to_string(sql.type) + " " + std::to_string(sql.function), expected) << source;
  }
  EXPECT_EQ(tokenize("/* DROP */ -- INSERT\n ((SELECT 1 FROM dual))").type, OCI_STMT_SELECT);
  EXPECT_EQ(tokenize("").type, 0);
}

TEST(SqlText, SplitsWhatLooksLikeSomethingElse) {
  const std::string source =
      "a--b\n-c/*'*/||'it''s -- '\"x\"\"y\" 1..3 1.5e-3 .5 1e 2.x <=>= :=:b :1";
  const SqlText sql = tokenize(source);
  std::string tokens;
  for (const Token& token : sql.tokens) tokens += "[" + std::string(sql.spelling(token)) + "]";
  EXPECT_EQ(tokens, R"([a][-][c][||]['it''s -- ']["x""y"][1][..][3][1.5e-3][.5][1][e][2.][x])"
                    "[<=][>=][:=][:b][:1]");
}

TEST(SqlText, CountsPlaceholdersByOccurrenceInSqlAndByNameInBlocks) {
  for (const auto& [source, expected] : cases(R"(
    SELECT ':x', ":y" /*:z*/ FROM t WHERE a = :a AND b = :A OR :2 = 1 -> A A 2
    BEGIN :a := :b; :A := ':c'; END; -> A B
    CREATE TRIGGER t BEFORE INSERT ON x BEGIN :new.a := 1; END; ->)")) {
    std::string names;
    for (const Placeholder& found : tokenize(source).placeholders) {
      names += (names.empty() ? "" : " ") + found.name;
    }
    EXPECT_EQ(names, expected) << source;
  }
}

// A select list as "NAME:type(size,precision,scale) ...", with "!" where it cannot be null.
std::string described(const std::vector<ColumnInfo>& columns) {
  std::string result;
  for (const ColumnInfo& column : columns) {
    result += (result.empty() ? "" : " ") + column.name + ":" + std::to_string(column.type) + "(" +
              std::to_string(column.size) + "," + std::to_string(column.precision) + "," +
              std::to_string(column.scale) + (column.nullable ? ")" : ")!");
  }
  return result;
}

TEST(DeclaredType, ReadsBackWhatItSpells) {
  const std::vector<ColumnInfo> all = {
      {"A", SQLT_CHR, 4000, 0, 0},    {"B", SQLT_AFC, 1, 0, 0},
      {"C", SQLT_NUM, 22, 0, -127},   {"D", SQLT_NUM, 22, 38, -84},
      {"E", SQLT_NUM, 22, 126, -127}, {"F", SQLT_DAT, 7, 0, 0},
      {"G", SQLT_BIN, 2000, 0, 0},    {"H", SQLT_LNG, 0, 0, 0},
      {"I", SQLT_LBI, 0, 0, 0},       {"J\"", SQLT_RID, 18, 0, 0, false},
      {"K", SQLT_CLOB, 86, 0, 0},     {"L", SQLT_BLOB, 86, 0, 0}};
  std::vector<ColumnInfo> read;
  ASSERT_TRUE(read_view(view_heading("V\"(", all) + "SELECT 1", read));
  EXPECT_EQ(described(read), described(all));
  for (const char* foreign :
       {"INTEGER", "VARCHAR2(0)", "VARCHAR2(9999999999)", "NUMBER(5", "TEXT"}) {
    EXPECT_FALSE(read_type(foreign, read.front())) << foreign;
  }
}

// --- Statements on an engine ---------------------------------------------------------------------

// Runs `body` on a thread with a stack of so many bytes.
void on_stack(size_t bytes, std::function<void()> body) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, bytes);
  const auto start = [](void* argument) -> void* {
    (*static_cast<std::function<void()>*>(argument))();
    return nullptr;
  };
  pthread_t thread;
  ASSERT_EQ(pthread_create(&thread, &attributes, start, &body), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

class DialectTest : public testing::Test {
 protected:
  DialectTest() {
    db_->log_in("scott", "");
    expect(R"(
      CREATE TABLE dept (deptno NUMBER(2) CONSTRAINT pk PRIMARY KEY, dname VARCHAR2(10),
        loc CHAR(8)) TABLESPACE users STORAGE (INITIAL 10K) ->
      CREATE TABLE emp (empno NUMBER(4), ename VARCHAR2(10), hired DATE, sal NUMBER(7,2),
        deptno NUMBER(2) REFERENCES dept ON DELETE CASCADE, photo RAW(4),
        CONSTRAINT pk_emp PRIMARY KEY (empno), CHECK (sal > 0)) ->
      INSERT INTO dept VALUES (10, 'SALES', 'DALLAS') ->
      INSERT INTO dept (dname, deptno) VALUES ('OPS', '20') ->
      INSERT INTO emp VALUES (1, 'SMITH', DATE '1999-12-17', 800, 10, 'FF00') ->
      INSERT INTO emp VALUES (2, 'ALLEN', DATE '2001-02-03', 1600.555, 10, NULL) ->
      INSERT INTO emp (empno, ename, sal) SELECT 3, 'FORD', '3000' FROM dual ->)");
  }

  // Rows as "a,b/c,d"; an error as its code and offset: "942@14". What is bound is a date where it
  // has the size of one, a number behind #, else text.
  std::string run(std::string_view source, std::string_view bound = "10") {
    std::string rows;
    const Failure raised = failure([&] {
      const Prepared prepared(*db_, source);
      const auto kind = bound.size() == kDateSize ? Value::Kind::Bytes : Value::Kind::Text;
      const bool integer = bound.starts_with('#');
      const Value value = integer ? number(bound[1] - '0') : words(bound, kind);
      std::ranges::fill(prepared->inputs(), value);
      while (prepared->step()) {
        rows += rows.empty() ? "" : "/";
        for (ub4 i = 0; i < prepared->columns().size(); ++i) {
          const std::string text = text_of(prepared->row()[i]);
          rows += (i > 0 ? "," : "") + (text == "NULL" ? "-" : text);
        }
      }
    });
    return raised.code == 0 ? rows
                            : std::to_string(raised.code) + "@" + std::to_string(raised.offset);
  }

  void expect(const char* table, std::string_view bound = "10") {
    for (const auto& [source, result] : cases(table)) {
      EXPECT_EQ(run(source, bound), result) << source;
    }
  }

  std::unique_ptr<Connection> db_ = open_database(":memory:");
};

TEST_F(DialectTest, OperatorsMeanWhatTheyMeanOnTheServer) {
  expect(R"(
    SELECT 7/2, 6/2, 2+3*4, (2+3)*4, 10-3-2, - -5, -(-3) FROM dual -> 3.5,3,14,20,5,5,3
    SELECT '1'+'2', 'a'||NULL||1||'' FROM dual -> 3,a1
    SELECT 1 FROM dual WHERE 0.1+0.2 = 0.3 AND '007' = 7 AND 'a' = 'a  ' -> 1
    SELECT 1 FROM dual WHERE '' = '' OR NULL = NULL OR 'a' LIKE 'A' ->
    SELECT empno FROM emp WHERE hired = '03-FEB-01' AND sal ^= '1' AND photo IS NULL -> 2
    SELECT empno FROM emp WHERE deptno = :d AND hired < '01-JAN-00' -> 1
    SELECT empno FROM emp WHERE photo = 'FF00' OR hired IN ('03-FEB-01') -> 1/2
    SELECT deptno FROM dept WHERE UPPER(loc) = 'DALLAS' AND LOWER(loc) IN ('x', 'dallas') AND
      INITCAP(loc) = CAST('Dallas' AS CHAR(6)) -> 10
    SELECT 1 FROM dual WHERE 'a_b' LIKE 'a/_%' ESCAPE '/' AND 'a/b' LIKE 'a//b' ESCAPE '/' -> 1
    SELECT 1 FROM dual WHERE 'ab' LIKE 'a/b' ESCAPE '/' -> 1424@-1
    SELECT 1 FROM dual WHERE 'a' LIKE 'a/' ESCAPE '/' -> 1424@-1
    SELECT CAST('abcdef' AS VARCHAR2(3)), CAST('a' AS CHAR(2)) || CAST('abc' AS
      CHAR(2)) FROM dual -> abc,a ab
    SELECT COALESCE(NULL, deptno, 1), NULLIF(ename, 'FORD') FROM emp -> 10,SMITH/10,ALLEN/1,-
    SELECT deptno FROM dept WHERE loc = 'DALLAS' AND loc IN ('x', 'DALLAS   ') -> 10
    SELECT empno FROM emp WHERE (deptno, ename) IN ((10, 'SMITH'), ('10', 'x')) -> 1
    SELECT empno FROM emp WHERE deptno IN (SELECT '10' FROM dual) AND empno <> ALL (1, 3) -> 2
    SELECT CASE deptno WHEN 10 THEN 'ten' ELSE 'none' END FROM emp -> ten/ten/none
    SELECT DECODE(deptno, NULL, 'none', 10, ename) FROM emp -> SMITH/ALLEN/none
    SELECT DECODE(empno, 1, 'one', 1/(empno-1)) FROM emp WHERE empno < 3 -> one/1
    SELECT DECODE(deptno, 9, 1/0, :1, 0, NULL, 1, 1/(deptno-10)) FROM emp -> 0/0/1
    SELECT DECODE(deptno+1, 9, 1/0, :1+1, 0, NULL, 1, 1/(deptno-10)) FROM emp -> 0/0/1
    SELECT deptno FROM dept WHERE loc NOT IN ('DALLAS', dname) ->
    SELECT deptno FROM dept WHERE (loc, deptno) IN (('DALLAS', 10), (dname, 7)) -> 10
    SELECT deptno FROM dept WHERE loc IN (dname, 'DALLAS') AND loc BETWEEN TRIM('D') AND
      'DALLAS' AND CASE loc WHEN dname THEN 1 WHEN 'DALLAS' THEN 2 END = 2 -> 10
    SELECT deptno FROM dept WHERE loc NOT BETWEEN TRIM('D') AND 'DALLAS' ->
    SELECT empno FROM emp WHERE (empno, ename) = (SELECT empno, ename FROM emp) -> 1427@-1
    SELECT empno FROM emp WHERE (empno, ename) <> (SELECT '1', ename FROM emp WHERE
      empno = 1) -> 2/3
    SELECT TRIM(LEADING '0' FROM '007'), TRIM('  x ') FROM dual -> 7,x
    SELECT hired - 1 - hired, NVL(deptno, '7') FROM emp WHERE empno = 2 -> -1,10
    SELECT user, USER FROM scott.dual -> SCOTT,SCOTT
    SELECT MOD(+7,3), TO_CHAR(+sal) FROM emp WHERE MOD(+empno, 2) = +0 -> 1,1600.56)");
}

// Only a run tells what is bound: 1 January 2000, 10 o'clock, or the text 10.
TEST_F(DialectTest, APlaceholderInASumIsADateOrANumber) {
  expect(R"(
    SELECT ename FROM (SELECT hired, :1 x, ename FROM emp) WHERE x = :2 AND x > hired -> SMITH
    SELECT empno FROM emp WHERE hired < :1 + 1 -> 1
    SELECT empno FROM emp WHERE TRUNC(hired) = TRUNC(:1) + 399 -> 2
    SELECT empno FROM emp WHERE hired BETWEEN TRUNC(:1) - 15 AND :2 + 0.99999 -> 1
    SELECT empno FROM emp WHERE hired BETWEEN TRUNC(:1) AND ROUND(:2 + 600, 'YYYY') + 1 -> 2
    SELECT empno FROM emp WHERE hired - :1 > 0 -> 2
    SELECT empno FROM emp WHERE hired - 1 >= :1 - 1 -> 2
    SELECT empno FROM emp WHERE hired IN (:1, TRUNC(:1 - 15)) -> 1
    SELECT empno FROM emp WHERE NVL(hired, :1 + 1) = :2 + 1 -> 3
    SELECT :1 - :2, ROUND((:1 - hired) * 24) FROM emp WHERE empno = 1 AND TRUNC(:3) < :4 -> 0,370
    INSERT INTO emp (empno, hired) VALUES (4, :1 + 1) ->
    INSERT INTO emp (empno, hired) VALUES (5, TRUNC(:1)) ->
    INSERT INTO emp (empno, hired) SELECT empno + 5, TRUNC(:1) FROM emp WHERE empno = 1
      UNION SELECT 7, hired FROM emp WHERE empno = 2 ->
    UPDATE emp SET hired = :1 + 1/24 WHERE empno = 1 ->
    SELECT empno, TO_CHAR(hired, 'YYMMDDHH24') FROM emp WHERE empno <> 3 ORDER BY
      1 -> 1,00010111/2,01020300/4,00010210/5,00010100/6,00010100/7,01020300
    INSERT INTO emp (empno, sal) VALUES (8, :1 + 1) -> 932@-1
    SELECT empno FROM emp WHERE sal < TRUNC(:1) -> 932@-1
    SELECT empno FROM emp WHERE photo = :1 + 1 -> 932@36
    SELECT TO_CHAR(TRUNC(x) + (y - x), 'HH24') FROM (SELECT :1 x, :2 + 1 y FROM dual) -> 00
    SELECT hired + (:1 - 1) FROM emp WHERE empno = 1 -> 975@-1)",
         std::string_view("\x78\x64\1\1\x0b\1\1", kDateSize));
  expect(R"(
    SELECT empno + :1, TRUNC(:2), :3 + 1 || 'x' FROM emp WHERE empno + :4 = '11' -> 11,10,11x
    SELECT empno FROM emp WHERE :1 - 1 < :2 AND :3 + 1 > '5' AND sal > :4 + 1000 -> 2/3
    SELECT empno FROM emp WHERE hired - :1 > '01-JAN-00' OR hired + :1 < hired - :2 -> 2/7
    SELECT TO_CHAR(hired - :1, 'DD'), NVL(:2 + 1, '7') FROM emp WHERE empno = 1 -> 22,11
    SELECT :1 + 1 FROM dual UNION SELECT sal FROM emp WHERE empno = 1 -> 11/800
    INSERT INTO emp (empno, hired) VALUES (9, :1 + 1) -> 932@-1
    INSERT INTO emp (empno, sal) VALUES (:1 - 1, :2 * 1e6) -> 1438@-1)");
  expect(R"(
    SELECT * FROM (SELECT :1 x, NULL n FROM dual) WHERE x = :2 AND x = '5' AND n IS NULL -> 5,-
    SELECT x FROM (SELECT x FROM (SELECT :1 x FROM dual)) WHERE x BETWEEN :2 AND :3 -> 5
    SELECT e.empno FROM (SELECT ev.*, :1 p FROM emp ev) e WHERE e.p = :2 AND e.empno < 3 -> 1/2
    SELECT x FROM (SELECT :1 x FROM dual) JOIN (SELECT :2 x FROM dual) USING (x) -> 5)",
         "#5");
}

TEST_F(DialectTest, RowsAreNumberedBeforeTheyAreSortedOrGrouped) {
  expect(R"(
    SELECT empno FROM emp WHERE sal > 0 AND 3 > ROWNUM ORDER BY ename DESC -> 1/2
    SELECT empno FROM (SELECT * FROM emp WHERE ROWNUM < 3) ORDER BY ename DESC -> 1/2
    SELECT (SELECT MAX(ename) FROM emp WHERE deptno = d.deptno AND ROWNUM
      < 2) FROM dept d -> SMITH/-
    SELECT empno FROM emp WHERE ROWNUM < 2 UNION ALL SELECT 9 FROM dual ORDER BY 1 DESC -> 9/1
    SELECT COUNT(*), MAX(ename) FROM emp WHERE ROWNUM < 3 -> 2,SMITH
    SELECT deptno, COUNT(*) FROM emp WHERE ROWNUM < 3 GROUP BY deptno -> 10,2
    SELECT empno FROM emp WHERE ROWNUM = 1 OR empno = 3 -> 3001@37
    SELECT empno FROM emp WHERE ROWNUM > 1 -> | SELECT empno FROM emp WHERE ROWNUM < :1 -> 1/2/3
    SELECT empno FROM emp WHERE ROWNUM BETWEEN 1 AND 2 AND 4 > ROWNUM -> 1/2
    SELECT empno FROM emp WHERE ROWNUM BETWEEN 2 AND 3 ->
    SELECT empno FROM emp WHERE ROWNUM BETWEEN :1 - 9 AND sal -> 3001@54
    SELECT empno FROM emp WHERE ROWNUM BETWEEN NULL AND 3 ->
    SELECT empno FROM emp WHERE ROWNUM IN (2 / 2, '2', 7) -> 1/2
    SELECT empno FROM emp WHERE ROWNUM IN (2, 3) -> | SELECT empno FROM emp WHERE ROWNUM != 3 -> 1/2
    SELECT empno FROM emp WHERE ROWNUM <> 2.5 AND NOT ROWNUM > 2 -> 1/2
    SELECT MAX(empno) FROM emp WHERE ROWNUM IN (1, 2) AND NOT (3 = ROWNUM) -> 2
    SELECT empno FROM emp WHERE NOT ROWNUM <> 1 -> 1 | SELECT 1 FROM emp WHERE ROWNUM <> NULL ->
    SELECT empno FROM emp WHERE ROWNUM <> 1 -> | SELECT empno FROM emp WHERE ROWNUM IN (sal) -> 3001@39
    SELECT empno FROM emp WHERE MOD(ROWNUM, 2) = 0 -> 3001@32
    SELECT e, r FROM (SELECT a.*, ROWNUM r FROM (SELECT empno e FROM emp ORDER BY e DESC) a WHERE
      ROWNUM <= 2) WHERE r > 1 -> 2,2
    SELECT COUNT(ROWNUM), SUM(CASE WHEN ROWNUM < 3 THEN 1 END), MAX(ROWNUM + sal * 0) FROM
      emp -> 3,2,3
    SELECT e.deptno, MAX(ROWNUM), COUNT(e.ROWID) FROM emp e, dept d WHERE e.deptno = d.deptno(+) AND
      ROWNUM < 4 GROUP BY e.deptno ORDER BY MAX(ROWNUM) -> 10,2,2/-,3,1
    SELECT deptno, MAX(ROWNUM) m FROM emp WHERE ROWNUM < 4 GROUP BY deptno ORDER BY m -> 10,2/-,3
    SELECT empno FROM emp WHERE ROWID = (SELECT ROWID FROM emp WHERE ename = 'FORD') -> 3
    UPDATE emp e SET sal = 10 * ROWNUM, ename = (SELECT e.ename || COUNT(*) FROM emp WHERE sal < 99),
      deptno = CASE WHEN ROWNUM < 2 THEN 20 ELSE deptno END WHERE e.empno > 1 AND ROWNUM < 3 ->
    SELECT empno, sal, ename, deptno FROM emp -> 1,800,SMITH,10/2,10,ALLEN0,20/3,20,FORD0,-
    UPDATE emp SET sal = ROWNUM WHERE MOD(ROWNUM, 2) = 1 -> 3001@38 | UPDATE emp SET sal = ROWNUM ->
    SELECT sal FROM emp -> 1/2/3
    DELETE FROM emp e WHERE ROWNUM <= 1 AND e.empno > 1 -> | SELECT empno FROM emp -> 1/3)");
}

// Whatever the engine finds by them, and whenever: what a statement changes it does not see.
TEST_F(DialectTest, IndexesChangeNoResult) {
  expect(R"(
    CREATE TABLE o (id NUMBER(4), up NUMBER(4), code VARCHAR2(2)) ->
    INSERT INTO o SELECT 1, NULL, '7' FROM dual UNION ALL SELECT 2, 1, 'A' FROM dual UNION ALL
      SELECT 3, 2, 'A' FROM dual UNION ALL SELECT 4, 9, '8' FROM dual UNION ALL
      SELECT 5, 4, 'A' FROM dual -> | CREATE TABLE p AS SELECT * FROM o -> | COMMIT ->)");
  for (const char* index : {"COMMIT", "CREATE UNIQUE INDEX i1 ON o (id)",
                            "CREATE INDEX i2 ON o (up DESC)", "CREATE INDEX i3 ON o (code, id)"}) {
    EXPECT_EQ(run(index), "") << index;
    expect(R"(
      SELECT id FROM p WHERE id IN (SELECT up FROM o) -> 1/2/4
      SELECT id FROM p WHERE id NOT IN (SELECT up FROM o) ->
      SELECT id FROM p WHERE NOT (id IN (SELECT up FROM o)) OR id <> ALL (SELECT up FROM o) ->
      SELECT id FROM p WHERE (id, code) IN (SELECT id, code FROM o) -> 1/2/3/4/5
      SELECT id FROM p WHERE (up, code) NOT IN (SELECT id, code FROM o) -> 2/4/5
      DELETE FROM o WHERE up NOT IN (SELECT id FROM o) -> | SELECT id FROM o -> 1/2/3/5 | ROLLBACK ->
      DELETE o WHERE id = 1 OR up <> ALL (SELECT id FROM o) -> | SELECT id FROM o -> 2/3/5
      ROLLBACK -> | DELETE o WHERE id = 1 OR 4 = (SELECT COUNT(*) FROM o) ->
      DELETE o d WHERE (up, 'A') NOT IN (SELECT id, 'A' FROM o) -> | SELECT id FROM o -> 3/5
      ROLLBACK -> | UPDATE o SET id = id + 10 WHERE up IN (SELECT id FROM o) ->
      SELECT id, up FROM o ORDER BY up -> 12,1/13,2/15,4/4,9/1,- | ROLLBACK ->)");
  }
}

TEST_F(DialectTest, QueriesCombineTables) {
  expect(R"(
    SELECT d.dname, e.ename FROM emp e, dept d WHERE e.deptno(+) = d.deptno AND e.sal(+) > 1000
      ORDER BY 1 -> OPS,-/SALES,ALLEN
    SELECT e.empno FROM emp e WHERE e.deptno(+) = 10 AND e.empno(+) > 1 -> 2
    SELECT MAX(x) FROM (SELECT 10.5 x FROM dual UNION ALL SELECT :1 FROM dual) -> 10.5
    SELECT MAX(x) FROM (SELECT :1 x, 2 x FROM dual UNION ALL SELECT 10.5, 3 FROM dual) -> 918@11
    SELECT MAX("x") FROM (SELECT 1, :1 "x" FROM dual UNION ALL SELECT 2, 10.5 FROM dual) -> 10.5
    SELECT 10 FROM dual MINUS SELECT :1 FROM dual ->
    SELECT :1, 'a' FROM dual INTERSECT (SELECT 10, 'a' FROM dual) ORDER BY 1 -> 10,a
    SELECT RAWTOHEX(r) FROM (SELECT :1 r FROM dual UNION ALL SELECT photo FROM emp) -> 10/FF00/-/-
    SELECT DISTINCT deptno + 1, sal / 0 FROM emp WHERE empno > 9 ORDER BY sal / 0, deptno + 1 ->
    SELECT dname, COUNT(empno) FROM dept LEFT JOIN emp USING
      (deptno) GROUP BY dname -> OPS,0/SALES,2
    SELECT * FROM dept NATURAL JOIN (SELECT deptno, empno FROM
      emp) WHERE empno = 2 -> 10,SALES,DALLAS  ,2
    SELECT ename FROM emp ORDER BY deptno DESC, LOWER(ename) -> FORD/ALLEN/SMITH
    SELECT e.empno FROM dept d, emp e WHERE d.deptno = e.deptno(+) ORDER BY e.empno -> 1/2/-
    (SELECT deptno FROM dept) UNION ALL SELECT empno FROM emp WHERE ROWNUM <
      2 ORDER BY deptno -> 1/10/20
    SELECT (SELECT dname FROM dept d WHERE d.deptno = e.deptno) FROM emp e -> SALES/SALES/-
    SELECT (SELECT dname FROM dept) FROM dual -> 1427@-1
    SELECT deptno+1, SUM(sal) FROM emp GROUP BY deptno+1 HAVING COUNT(*) > 1 -> 11,2400.56
    SELECT -sal, COUNT(*) FROM emp GROUP BY -sal ORDER BY 1 -> -3000,1/-1600.56,1/-800,1
    SELECT - -empno, -(empno + 1), +dname FROM emp, (SELECT '7' dname FROM dual) GROUP BY
      - -empno, -(empno + 1), +dname HAVING - -empno < 2 -> 1,-2,7
    SELECT deptno, COUNT(*) FROM emp HAVING COUNT(*) > 1 GROUP BY deptno -> 10,2
    SELECT 9 FROM emp HAVING deptno > (SELECT MAX(1) FROM dept GROUP BY 1) GROUP BY deptno UNION
      SELECT deptno FROM dept HAVING deptno > 10 GROUP BY deptno ORDER BY 1 -> 9/20
    SELECT deptno FROM emp HAVING COUNT(*) > 0 x GROUP BY deptno -> 933@43
    SELECT empno FROM emp ORDER BY 0-empno, 1 -> 3/2/1
    SELECT empno FROM emp ORDER BY 2*(empno-2)*(empno-2) DESC, 1 -> 1/3/2
    SELECT (SELECT MAX(e.sal) FROM dual) FROM emp e -> 800/1600.56/3000
    SELECT d.deptno, (SELECT COUNT(d.deptno) FROM emp e WHERE e.deptno = d.deptno) FROM
      dept d -> 10,2/20,0
    SELECT dname FROM dept d WHERE EXISTS (SELECT 1 FROM emp e WHERE e.deptno = d.deptno HAVING
      SUM(DISTINCT d.deptno) = COUNT(d.deptno) * 5) -> SALES
    SELECT COUNT(*) FROM (SELECT d.*, e.* FROM dept d, emp e) -> 6
    SELECT 'x' FROM emp HAVING COUNT(*) > 1 -> x | SELECT 'x' FROM emp HAVING COUNT(*) > 3 ->
    SELECT 'x', 2 FROM emp WHERE empno > 9 HAVING COUNT(*) = 0 -> x,2
    SELECT (SELECT MAX(ename) FROM emp) FROM emp HAVING 1 = 1 ORDER BY 1 -> SMITH
    SELECT dname FROM dept d WHERE EXISTS (SELECT 1 FROM emp e WHERE e.deptno = d.deptno AND
      ROWNUM < 9 HAVING COUNT(*) > 1) -> SALES
    SELECT dummy FROM SYS.DUAL, sys.emp -> 942@28 | SELECT d.* FROM SYS.DUAL d -> X
    SELECT DECODE(SUM(x), .3, 'three'), AVG(DISTINCT x) FROM (SELECT 1000.1 x FROM dual UNION ALL
      SELECT -1000 FROM dual UNION ALL SELECT .2 FROM dual) -> three,.1
    SELECT empno FROM emp WHERE ROWID = CHARTOROWID(ROWIDTOCHAR(ROWID)) AND ROWIDTOCHAR(ROWID) LIKE
      '%B' -> 1
    CREATE TABLE r AS SELECT ROWNUM n FROM emp a, emp b, emp c, emp d ->
    SELECT ROWID FROM r WHERE n = 64 -> AAAAAAAAAAAAAAAABA
    SELECT n FROM r WHERE ROWID = 'AAAAAAAAAAAAAAAABA' -> 64
    SELECT n FROM r WHERE ROWID = 'x' -> 1410@-1
    SELECT n FROM r WHERE ROWID = 'AAAAAAAAAAAAAAAAA!' -> 1410@-1
    SELECT n FROM r WHERE ROWID = '//////////////////' -> 1410@-1
    SELECT 3.14159265358979323846, -.1234567890123456789 * 2 FROM
      dual -> 3.14159265358979,-.246913578024691
    SELECT empno FROM emp WHERE sal < 999999999999999.99 AND sal > 1600.5600000000000001 -> 3
    SELECT CAST(3.14159265358979323846 AS NUMBER(5,4)) FROM dual -> 3.1416
    SELECT dname FROM dept d WHERE EXISTS (SELECT 1 FROM emp WHERE deptno = d.deptno) FOR UPDATE
      OF dname NOWAIT -> SALES
    CREATE INDEX i ON emp (deptno, UPPER(ename)) ->
    SELECT d.deptno, e.empno FROM dept d RIGHT JOIN emp e ON d.deptno = e.deptno WHERE
      UPPER(e.ename) = 'FORD' -> -,3
    SELECT UPPER(e.ename), e.empno FROM dual u JOIN dept d ON d.loc > u.dummy FULL JOIN emp e ON
      d.deptno = e.deptno WHERE NVL(UPPER(e.ename), 'FORD') = 'FORD' -> FORD,3)");
  expect(R"(
    SELECT empno FROM emp WHERE sal > :1 AND :1 * 2 < 3201.13 -> 2/3 | CREATE TABLE n (a NUMBER) ->
    INSERT INTO n VALUES (:1) -> 1438@-1)",
         "1600.559999999999");
}

TEST_F(DialectTest, ChangesStoreWhatTheColumnDeclares) {
  expect(R"(
    INSERT INTO dept VALUES (100, 'x', 'y') -> 1438@-1
    INSERT INTO dept VALUES (1, 'elevenchars', 'y') -> 1401@-1
    UPDATE emp e SET e.sal = sal * 1.1, (ename, deptno) = (SELECT dname, deptno FROM dept WHERE
      deptno = 20) WHERE e.empno = '1' ->
    SELECT ename, sal, deptno FROM emp WHERE empno = 1 -> OPS,880,20
    CREATE TABLE t (l LONG, i INT PRIMARY KEY, d DATE DEFAULT SYSDATE, f FLOAT) ->
    INSERT INTO t (l, i, f) VALUES ('007', 12.5, 9007199254740993) ->
    SELECT l, i, f FROM t WHERE d > '01-JAN-00' -> 007,13,9007199254740993
    CREATE TABLE b (f FLOAT(10), g FLOAT(50)) -> | INSERT INTO b VALUES (1024.5, 1024.5) ->
    UPDATE b SET f = -f - g / 9 -> | SELECT f, g FROM b -> -1139,1024.5
    ALTER TABLE b ADD h FLOAT(4) DEFAULT 1049 -> | SELECT h FROM b -> 1000
    ALTER TABLE b ADD j DATE DEFAULT CAST(NULL AS DATE) -> | SELECT j FROM b -> -
    ALTER TABLE t ADD (n NUMBER(5) DEFAULT 7 NOT NULL, c CHAR(2) DEFAULT 'x') ->
    SELECT n, c || '.' FROM t -> 7,x .
    CREATE OR REPLACE VIEW v (a, b) AS SELECT UPPER(l), i + 1 FROM t -> 932@48
    CREATE OR REPLACE VIEW v (a, b) AS SELECT ename || 'x', sal FROM emp ->
    SELECT b FROM v WHERE a = 'FORDx' AND b = '3000' -> 3000
    CREATE OR REPLACE VIEW v AS SELECT * FROM v -> 1731@42 | CREATE TABLE c AS SELECT * FROM emp ->
    CREATE TABLE n (a NUMBER NOT NULL, b NUMBER NOT NULL PRIMARY KEY, c NUMBER) ->
    CREATE TABLE n1 AS SELECT v.*, a + 0 d FROM (SELECT * FROM n) v ->
    CREATE TABLE n2 AS SELECT e.empno, n.a FROM emp e, n WHERE e.empno = n.a(+) ->
    SELECT table_name || column_name FROM user_tab_columns WHERE nullable = 'N' AND table_name LIKE
      'N_' -> N1A
    CREATE TABLE n4 AS SELECT 1 FROM dual -> 998@26 | CREATE VIEW n4 AS SELECT a, SUM(a) FROM n -> 937@25
    CREATE VIEW n4 AS SELECT a, a + 1 FROM n -> 998@28 | CREATE TABLE n4 AS SELECT '' f FROM n -> 1723@37
    CREATE TABLE n4 AS SELECT CAST('' AS RAW(2)) f FROM n -> | SELECT f FROM n4 ->
    RENAME c TO c2 -> | TRUNCATE TABLE c2 -> | SELECT COUNT(*) FROM c2 -> 0
    CREATE INDEX i ON emp (UPPER(ename) DESC, ename) -> | COMMENT ON COLUMN emp.sal IS 'a month' ->
    ALTER SESSION SET NLS_DATE_FORMAT = 'DD-MON-YY' ->
    CREATE TABLE p (id NUMBER PRIMARY KEY, up NUMBER REFERENCES p) ->
    CREATE TABLE k (id NUMBER REFERENCES p ON DELETE CASCADE) -> | INSERT INTO p VALUES (1, 1) ->
    INSERT INTO k VALUES (1) -> | TRUNCATE TABLE p -> 2266@-1 | DROP TABLE p -> 2449@-1
    DROP TABLE p CASCADE CONSTRAINTS -> 3001@-1 | SELECT id FROM k -> 1
    DROP TABLE k CASCADE CONSTRAINTS -> | TRUNCATE TABLE p -> | DROP TABLE p ->
    UPDATE emp e SET sal = (SELECT sal FROM emp WHERE empno = 4 - e.empno) ->
    SELECT sal FROM emp -> 3000/1600.56/880
    UPDATE emp SET sal = (SELECT MAX(sal) + 1 FROM dual) -> | SELECT sal FROM emp -> 3001/1601.56/881
    CREATE INDEX i2 ON emp (TO_DATE(TO_CHAR(hired, 'RRDDD'), 'RRDDD')) ->
    CREATE INDEX i3 ON emp (NVL(TO_DATE(ename, 'YYYY HH24:MI'), hired)) -> 1743@28
    CREATE OR REPLACE VIEW emp AS SELECT 1 x FROM dual -> 955@-1
    LOCK TABLE emp IN SHARE ROW EXCLUSIVE MODE -> | LOCK TABLE emp IN SHARED MODE -> 1737@18
    CREATE TABLE u (a NUMBER UNIQUE, b NUMBER, c NUMBER, UNIQUE (b, c)) ->
    CREATE TABLE w (x NUMBER PRIMARY KEY REFERENCES u (a), y NUMBER REFERENCES w (x), FOREIGN KEY
      (x, y) REFERENCES u (c, b)) ->
    CREATE TABLE w2 (x NUMBER REFERENCES u (b)) -> 2270@-1
    CREATE TABLE w2 (x NUMBER REFERENCES u) -> 2270@-1
    CREATE TABLE w2 (x NUMBER, y NUMBER, FOREIGN KEY (x, y) REFERENCES dept) -> 2270@-1
    CREATE TABLE w2 (x NUMBER, y NUMBER, FOREIGN KEY (y) REFERENCES dept) ->
    DROP TABLE w2 -> | CREATE TABLE w2 (x NUMBER REFERENCES u (b, c)) -> 2256@37
    CREATE TABLE w2 (x NUMBER, y NUMBER REFERENCES w2 (x)) -> 2270@-1
    CREATE UNIQUE INDEX ui ON u (c) -> | CREATE TABLE w2 (x NUMBER REFERENCES u (c)) ->
    CREATE SEQUENCE s MAXVALUE 9999999999999999999999999999 -> | CREATE SEQUENCE s -> 955@-1
    DROP SEQUENCE s -> | DROP SEQUENCE s -> 2289@-1)");
}

TEST_F(DialectTest, DataDictionaryShowsTheUsersObjectsOnly) {
  expect(R"(
    SELECT TABLE_NAME FROM USER_TABLES -> DEPT/EMP | SELECT VIEW_NAME FROM USER_VIEWS ->
    SELECT OWNER FROM ALL_TABLES WHERE TABLE_NAME = 'EMP' -> SCOTT
    SELECT COLUMN_NAME, DATA_LENGTH FROM USER_TAB_COLUMNS WHERE TABLE_NAME = 'DEPT' ORDER BY
      COLUMN_ID -> DEPTNO,22/DNAME,10/LOC,8
    CREATE VIEW v (X, Y) AS SELECT sal + 1, 'ä' /*/ one */ FROM emp /*system*/ -- end ->
    SELECT TEXT FROM USER_VIEWS -> SELECT sal + 1, 'ä' /*/ one */ FROM emp /*system*/ -- end
    SELECT TEXT_LENGTH FROM USER_VIEWS -> 57 | SELECT X FROM v WHERE ROWNUM < 2 -> 801
    CREATE INDEX i ON emp (ename, sal) -> | ALTER INDEX i REBUILD ONLINE TABLESPACE x ->
    SELECT INDEX_NAME, COLUMN_NAME, COLUMN_POSITION FROM USER_IND_COLUMNS -> I,ENAME,1/I,SAL,2
    ALTER INDEX x REBUILD -> 1418@-1 | ANALYZE TABLE emp ESTIMATE STATISTICS SAMPLE 5 PERCENT ->
    ANALYZE TABLE x COMPUTE STATISTICS -> 942@14)");
}

TEST_F(DialectTest, ErrorsNameTheirPlace) {
  expect(R"(
    FOO -> 900@0 | SELECT * FROM nope -> 942@14 | SELECT * FROM bob.emp -> 942@14
    SELECT * FROM "OCI8$SEQUENCES" -> 942@14 | SELECT * FROM sqlite_schema -> 942@14
    SELECT "ename" FROM emp -> 904@7 | SELECT e.nope FROM emp e -> 904@7
    SELECT random() FROM dual -> 904@7 | SELECT deptno FROM emp, dept -> 918@7 | SELECT 1 -> 923@8
    SELECT 1 x y FROM dual -> 923@11 | SELECT FROM dual -> 936@7
    SELECT 1 FROM dual WHERE 1 -> 920@26 | SELECT 1 FROM dual x y -> 933@21
    SELECT 1 FROM dual; -> 911@18 | SELECT 'a FROM dual -> 1756@7
    SELECT 1e126 FROM dual -> 1426@7 | SELECT (1 + 2 x) FROM dual -> 907@14
    INSERT INTO dept (deptno) VALUES (12345678901234567890) -> 1438@34
    UPDATE emp SET sal = -3.14159265358979323846 -> 1438@21
    INSERT INTO dept (deptno) SELECT 3.14159265358979323846 FROM dual -> 1438@65
    SET TRANSACTION READ ONLY -> 3001@16 | SET TRANSACTION READ WRITE ->
    ALTER SESSION SET NLS_DATE_FORMAT = 'YY' -> 3001@36 | COMMENT ON TABLE nope IS 'x' -> 942@17
    SELECT UPPER() FROM dual -> 909@7 | SELECT ename, COUNT(*) FROM emp -> 937@7
    SELECT COUNT(*), ROWNUM FROM emp -> 937@17 | SELECT ROWNUM FROM emp GROUP BY deptno -> 979@7
    SELECT DISTINCT deptno FROM emp ORDER BY sal -> 1791@41
    SELECT * FROM (SELECT d.*, e.* FROM dept d, emp e) -> 918@7
    INSERT INTO dept SELECT v.* FROM (SELECT 1 a, 2 a, 3 b FROM dual) v -> 918@24
    SELECT e.sal FROM emp e FOR UPDATE OF sal, e.nope -> 904@43
    SELECT sal FROM emp FOR UPDATE OF dept.deptno -> 904@34
    SELECT MAX(sal) FROM emp FOR UPDATE -> 1786@25 | SELECT DISTINCT sal FROM emp FOR UPDATE -> 1786@29
    SELECT 1 FROM dual UNION SELECT 2 FROM dual FOR UPDATE -> 1786@44
    SELECT sal FROM emp GROUP BY sal FOR UPDATE -> 1786@33
    UPDATE emp SET sal = 1, sal = 2 -> 957@24 | SELECT NVL(1) FROM dual -> 909@7
    UPDATE emp SET sal = 1, (ename, sal) = (SELECT 'a', 1 FROM dual) -> 957@32
    DELETE emp WHERE empno = s.NEXTVAL -> 2287@25
    UPDATE emp SET sal = 1 WHERE sal = s.CURRVAL -> 2287@35
    UPDATE emp SET sal = (SELECT s.NEXTVAL FROM dual) -> 2287@29
    INSERT INTO dept (deptno) VALUES ((SELECT s.NEXTVAL FROM dual)) -> 2287@42
    SELECT DISTINCT s.NEXTVAL FROM dual -> 2287@16 | SELECT s.NEXTVAL FROM dual ORDER BY 1 -> 2287@7
    SELECT s.NEXTVAL FROM emp GROUP BY sal -> 2287@7
    SELECT s.NEXTVAL FROM dual UNION SELECT 1 FROM dual -> 2287@0
    SELECT 1 FROM dual UNION SELECT s.NEXTVAL FROM dual -> 2287@0
    SELECT n FROM (SELECT s.NEXTVAL n FROM dual) -> 2287@14
    CREATE VIEW q AS SELECT s.NEXTVAL n FROM dual -> 2287@17
    SELECT ename FROM emp GROUP BY deptno -> 979@7 | SELECT 1 FROM emp WHERE SUM(sal) > 1 -> 934@24
    SELECT hired + hired FROM emp -> 975@7 | SELECT 1 FROM emp WHERE hired = 5 -> 932@32
    SELECT 1 FROM dual UNION SELECT 1, 2 FROM dual -> 1789@25 | WITH a AS (SELECT :b FROM c) -> 3001@0
    SELECT 1 FROM dual UNION SELECT 'a' FROM dual -> 1790@25
    CREATE VIEW q AS SELECT 1 n FROM emp ORDER BY 2 WITH READ ONLY -> 1785@46
    SELECT 1 FROM emp ORDER BY 2 -> 1785@27
    SELECT DECODE(1, 2, s.NEXTVAL, s.NEXTVAL) FROM dual -> 3001@33
    INSERT INTO dept (deptno, dname) VALUES (s.CURRVAL, s.NEXTVAL) -> 3001@54
    INSERT INTO dept VALUES (1) -> 947@24 | INSERT INTO dept (deptno) VALUES (1, 2) -> 913@33
    INSERT INTO dept VALUES (dname, 1, 2) -> 984@25 | UPDATE dept SET nope = 1 -> 904@16
    CREATE TABLE t (a NUMBER, A DATE) -> 957@26 | CREATE TABLE t (a VARCHAR2(4001)) -> 910@31
    CREATE TABLE t (a NUMBER) foo -> 922@26 | CREATE TABLE t AS SELECT :a x FROM dual -> 1027@25
    CREATE TABLE a123456789012345678901234567890 (a DATE) -> 972@13)");
  EXPECT_EQ(run(std::string_view("SELECT 'a\0b' FROM dual", 22)), "911@7");
  const std::string open(300, '('), closed(300, ')');
  EXPECT_EQ(run("SELECT " + std::string(5000, '(') + "1 FROM dual"), "923@5018");
  EXPECT_EQ(run("SELECT " + open + "1" + closed + " FROM dual"), "3001@47");
}

// Whatever thread calls: 3001 and not the end of the stack. The last number is the deepest nesting
// that is let through, whose statement the engine reads on the same stack.
TEST_F(DialectTest, NestsAsDeepAsASmallStackAllows) {
  struct Shape {
    std::string begin, open, middle, close;
    int deepest;
  };
  const Shape kShapes[] = {
      {"SELECT 1 FROM emp WHERE empno IN ", "(SELECT empno FROM emp WHERE empno IN ", "(0)", ")",
       9},
      {"UPDATE emp SET sal = ", "(SELECT MAX(sal) FROM emp WHERE sal = ", "1", ")", 8},
      {"SELECT empno FROM ", "(SELECT empno FROM ", "emp WHERE empno = 0", ")", 12},
      {"CREATE TABLE t (a DATE, n NUMBER, CHECK ((n = 1) OR ", "(", "n = 2", ")", 39},
      {"CREATE TABLE t (a DATE, n NUMBER DEFAULT (", "(", "1", ")", 38},
      {"UPDATE emp SET sal = ", "(", "1", ")", 39},
      {"SELECT 1 FROM emp WHERE 0 = ", "NVL(sal, ", "1", ")", 15},
      {"SELECT 1 FROM emp WHERE 0 = ", "CASE WHEN sal = 1 THEN ", "1", " END", 14},
  };
  for (const Shape& shape : kShapes) {
    const auto nested = [&](int depth) {
      std::string text = shape.begin, end = text.starts_with("CREATE") ? "))" : "";
      for (int i = 0; i < depth; ++i) {
        text += shape.open;
        end.insert(0, shape.close);
      }
      return run(text.append(shape.middle).append(end)).substr(0, 5);
    };
    std::vector<std::string> results;
    on_stack(2 * kStackToRead, [&] {
      for (const int more : {0, 1, 50, 1000}) results.push_back(nested(shape.deepest + more));
    });
    EXPECT_EQ(results, (std::vector<std::string>{"", "3001@", "3001@", "3001@"})) << shape.open;
    run("DROP TABLE t");
  }
}

// As programs make statements: nothing that is long only is refused.
TEST_F(DialectTest, ListsOfOperandsAndConditionsMayBeLong) {
  const auto chain = [](const std::string& begin, std::string_view part, int times) {
    std::string text = begin;
    while (times-- > 0) text += part;
    return text;
  };
  const std::string from = " FROM emp", dual = " FROM dual";
  EXPECT_EQ(run(chain("SELECT SUM(sal", " + .1 - .1 + 1", 300) + ")" + from), "6300.56");
  EXPECT_EQ(run(chain("SELECT 1", " + 1 - empno", 700) + from + " WHERE empno = 2"), "-699");
  EXPECT_EQ(run(chain("SELECT TO_CHAR(hired", " + 1 - :1 / 20", 200) + ", 'YYYY-MM-DD')" + from),
            "2000-03-26/2001-05-14/-");
  EXPECT_EQ(run(chain("SELECT hired", " + 1", 99) + " - hired + .5" + from), "99.5/99.5/-");
  const std::string key = chain("deptno + .5", " + deptno", 30);
  EXPECT_EQ(run("SELECT 1.5 + " + key + " + 1, COUNT(*)" + from + " GROUP BY 1.5 + " + key),
            "-,1/313,2");
  EXPECT_EQ(run(chain("SELECT 1", " + .5", 70) + " + 'x'" + dual), "1722@-1");
  EXPECT_EQ(run(chain("SELECT 1", " + 1", 50000) + dual).substr(0, 5), "3001@");
  EXPECT_EQ(run(chain("UPDATE emp SET sal = sal", " + .01", 500) + " WHERE empno = 1"), "");
  EXPECT_EQ(run("SELECT empno, sal FROM emp WHERE sal = 805" + chain("", " OR empno = 3", 3000)),
            "1,805/3,3000");
  EXPECT_EQ(run(chain("SELECT empno FROM emp WHERE sal > 0", " AND empno <> 2", 3000)), "1/3");
}

TEST_F(DialectTest, DescribesSelectLists) {
  for (const auto& [list, expected] : cases(R"(
    d.*, COUNT(*) N, ROWID FROM dept d GROUP BY deptno, dname, loc,
      ROWID -> DEPTNO:2(22,2,0)! DNAME:1(10,0,0) LOC:96(8,0,0) N:2(22,0,-127) ROWID:11(18,0,0)!
    sal, hired, photo, NULL "n" FROM emp -> SAL:2(22,7,2) HIRED:12(7,0,0) PHOTO:23(4,0,0) n:1(1,0,0)
    sal*2, 'abc', ename||'x' FROM emp -> SAL*2:2(22,0,-127) 'abc':96(3,0,0)! ENAME||'x':1(11,0,0)
    SUBSTR(ename, 1, 1), SYSDATE, hired-1 FROM
      emp -> SUBSTR(ENAME,1,1):1(4,0,0) SYSDATE:12(7,0,0) HIRED-1:12(7,0,0)
    'x' A, NULL B, HEXTORAW('414') C, UPPER('ab') D, :1 E FROM dual UNION ALL
      SELECT :2, :3, :4, 'c', NULL FROM dual UNION ALL SELECT NULL, NULL, NULL, 'd', 1 FROM
      dual -> A:1(4000,0,0) B:1(4000,0,0) C:23(2000,0,0) D:1(2,0,0) E:2(22,0,-127)
    HEXTORAW('414') A, UPPER('ab') B FROM dual -> A:23(2,0,0) B:96(2,0,0)
    CAST(NULL AS DATE) - 1 A, CAST('' AS NUMBER(3)) B, CAST(NULL AS CHAR(4)) C FROM
      dual -> A:12(7,0,0) B:2(22,3,0) C:96(4,0,0)
    TABLE_NAME, COLUMN_ID FROM USER_TAB_COLUMNS -> TABLE_NAME:1(30,0,0) COLUMN_ID:2(22,0,-127)
    SUBSTRB('abcd', 1, 2) A, ROWIDTOCHAR(ROWID) B, CHARTOROWID(ename) C FROM
      emp -> A:1(2,0,0) B:1(18,0,0) C:11(18,0,0)
    SOUNDEX(ename) A, NLS_UPPER('ab') B, BITAND(empno, 1) C, TO_CHAR(hired, 'JSP JSP') D FROM
      emp -> A:1(4,0,0) B:96(2,0,0) C:2(22,0,-127) D:1(190,0,0))")) {
    EXPECT_EQ(described(Prepared(*db_, "SELECT " + list)->columns()), expected) << list;
  }
}

}  // namespace
}  // namespace oci8
