package trevalon.db.oci;

import static trevalon.db.oci.TestRun.*;

import java.io.IOException;
import java.io.InputStream;
import java.io.StringReader;
import java.math.BigDecimal;
import java.nio.charset.StandardCharsets;
import java.nio.file.Paths;
import java.time.LocalDateTime;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Random;
import java.util.Scanner;

/** Queries: describe, values, arrays, LONG columns, and errors of statements. */
public final class QueryCases {
    private static final int ROWS = 100_000;
    private static final int PIECE = 200;

    /** Lengths of LONG values around the piece length; 0 stands for NULL. */
    private static final int[] LENGTHS = {
        1, PIECE - 1, 0, PIECE, PIECE + 1, 2 * PIECE, 2 * PIECE + PIECE / 2, 0, 20 * PIECE
    };

    public static void addTo(TestRun tests) {
        tests.add("every declared type is described as declared", QueryCases::describe);
        tests.add("arrays of 1, 7 and 1000 rows hold the same rows", QueryCases::arrays);
        tests.add("arrays of narrow rows have their bounds, too", QueryCases::narrowRows);
        tests.add("numbers of every form are read alike", () -> numbers());
        tests.add("numbers that have no such value are refused", QueryCases::numbersOfTexts);
        tests.add("values of all lengths follow each other", QueryCases::lengths);
        tests.add("no value is outside the row, errors come with it", QueryCases::outsideTheRow);
        tests.add("LONG values of all lengths are read, or passed over", QueryCases::longValues);
    }

    private static void describe(OciConnection c, OciStatement statement) throws Exception {
        String[][] types = {
            {"VARCHAR2(30)", "VARCHAR2(30)"}, {"CHAR(5)", "CHAR(5)"}, {"CHAR", "CHAR(1)"},
            {"NUMBER", "NUMBER"}, {"NUMBER(7)", "NUMBER(7)"}, {"NUMBER(9,2)", "NUMBER(9,2)"},
            {"NUMBER(5,-2)", "NUMBER(5,-2)"}, {"FLOAT", "FLOAT(126)"}, {"INTEGER", "NUMBER(38)"},
            {"DATE", "DATE"}, {"RAW(16)", "RAW(16)"}, {"LONG", "LONG"}, {"LONG RAW", "LONG RAW"},
            {"CLOB", "CLOB"}, {"BLOB", "BLOB"}, {"ROWID", "ROWID"}, {"FLOAT(20)", "FLOAT(20)"},
            {"DOUBLE PRECISION", "FLOAT(126)"}, {"REAL", "FLOAT(63)"}, {"LONG VARCHAR", "LONG"},
        };
        OciColumn column = null;
        for (int i = 0; i < types.length; i++) {
            String table = "described_" + i;
            execute(c, "CREATE TABLE " + table + " (c_" + i + " " + types[i][0] + ")");
            statement.prepare("SELECT * FROM " + table);
            if (column != null) {
                // What was its record may be that of the next column.
                throwing(NullPointerException.class, column::position);
            }
            column = statement.columns().get(0);
            same("C_" + i, column.name(), "name");
            same(types[i][1], column.typeText(), "type of " + types[i][0]);
        }
    }

    /** 100,000 rows made by the database; what each must hold follows from its number. */
    private static void arrays(OciConnection c, OciStatement query) throws Exception {
        execute(c, "CREATE TABLE digit (d NUMBER(1))",
                "CREATE TABLE big (n NUMBER(6), label VARCHAR2(20), odd NUMBER(1))");
        for (int d = 0; d < 10; d++) {
            execute(c, "INSERT INTO digit VALUES (" + d + ")");
        }
        execute(c, "INSERT INTO big SELECT a.d * 10000 + b.d * 1000 + c.d * 100 + d.d * 10 + e.d,"
                + " 'label ' || a.d || b.d || c.d || d.d || e.d,"
                + " DECODE(e.d, 1, 1, 3, 3, 5, 5, 7, 7, 9, 9, NULL)"
                + " FROM digit a, digit b, digit c, digit d, digit e");
        c.commit();
        for (int fetchSize : new int[] {1, 7, 1000}) {
            query.setFetchSize(fetchSize);
            query.execute("SELECT n, label, odd FROM big ORDER BY n");
            for (int i = 0; i < ROWS; i++) {
                yes(query.next(), "row " + i + " of " + fetchSize);
                same(i, query.getInt(1), "n");
                same(String.format("label %05d", i), query.getString(2), "label");
                String odd = i % 2 == 0 ? null : Integer.toString(i % 10);
                same(odd, query.getString(3), "last odd digit of " + i);
            }
            yes(!query.next() && !query.next(), "the rows have an end");
            same((long) ROWS, query.rowCount(), "rows fetched");
        }
    }

    private static void narrowRows(OciConnection c, OciStatement query) throws Exception {
        execute(c, "CREATE TABLE narrow (r RAW(1))",
                "INSERT INTO narrow SELECT HEXTORAW('0A') FROM big WHERE n < 50");
        long before = peakMemory();
        query.setFetchSize(Integer.MAX_VALUE);
        query.execute("SELECT r FROM narrow");
        for (int i = 0; i < 50; i++) {
            yes(query.next() && query.getBytes(1)[0] == 10, "row " + i);
        }
        long taken = peakMemory() - before;
        yes(taken < 200_000, taken + " kB taken");
    }

    /** The most that the process ever had in memory, in kB. */
    private static long peakMemory() throws IOException {
        try (Scanner status = new Scanner(Paths.get("/proc/self/status"))) {
            status.findWithinHorizon("VmHWM:", 0);
            return status.nextLong();
        }
    }

    /** What is read quickly has the value that it has when it is read thoroughly. */
    private static void numbers() {
        String[] fixed = {
            "", "-", ".", "-.", "1.2.3", "12a", " 1", "1 ", "+1", "--1", "1-", "1E2", "0", "-0", "-0.0",
            "5.", ".5", "-.50", "007", "9007199254740992", "9007199254740993", "-9007199254740993",
            "999999999999999999", "-999999999999999.999", "1000000000000000000",
            "9223372036854775807", "-9223372036854775808", ".000000000000000001",
            ".0000000000000000001", "123456789012345678.9", "99999999999999999999",
        };
        List<String> texts = new ArrayList<>(Arrays.asList(fixed));
        Random random = new Random(1);
        for (int i = 0; i < 20_000; i++) {
            texts.add(BigDecimal.valueOf(random.nextLong() >> random.nextInt(64), random.nextInt(21))
                    .toPlainString());
        }
        ShortDecimal number = new ShortDecimal();
        for (String text : texts) {
            byte[] bytes = (text + "9").getBytes(StandardCharsets.US_ASCII);
            if (!number.parse(bytes, text.length())) {
                continue;
            }
            BigDecimal exact = new BigDecimal(text);
            same(exact, number.decimalValue(), "number");
            same(exact.scale() == 0, number.isInteger(), text + " is an integer");
            if (number.isInteger()) {
                same(exact.longValueExact(), number.longValue(), text);
            }
            if (number.hasExactParts()) {
                // As objects: 0 and -0 differ.
                same(Double.valueOf(exact.doubleValue()), number.doubleValue(), text);
            }
        }
    }

    private static void numbersOfTexts(OciConnection c, OciStatement query) throws Exception {
        Object[][] values = {
            {" 12.0 ", 12L}, {"9223372036854775807", Long.MAX_VALUE}, {null, 0L},
            {"-9223372036854775808", Long.MIN_VALUE}, {"9223372036854775808", 1455},
            {"12.5", 1455}, {"-2147483648", (long) Integer.MIN_VALUE}, {"twelve", 1722}, {"-", 1722},
        };
        query.prepare("SELECT :1 FROM DUAL");
        for (Object[] value : values) {
            query.setString(1, (String) value[0]);
            query.execute();
            query.next();
            if (value[1] instanceof Long) {
                same(value[1], query.getLong(1), "long of " + value[0]);
            } else {
                oracleError((Integer) value[1], () -> query.getLong(1));
            }
            if (Long.valueOf(Long.MAX_VALUE).equals(value[1])) {
                oracleError(1455, () -> query.getInt(1));
            }
        }
        execute(c, "CREATE TABLE bytes (r RAW(2), l LONG RAW, b BLOB)",
                "INSERT INTO bytes VALUES (HEXTORAW('41'), HEXTORAW('42'), HEXTORAW('43'))");
        query.execute("SELECT * FROM bytes");
        query.next();
        for (int column = 1; column <= 3; column++) {
            int bytes = column;
            oracleError(932, () -> query.getLong(bytes));
        }
    }

    /** Lengths around those of the buffers, longer and shorter by turns; 0 stands for NULL. */
    private static void lengths(OciConnection c, OciStatement query) throws Exception {
        int[] lengths = {1, 255, 0, 256, 257, 2, 1024, 1025, 0, 4000, 3};
        execute(c, "CREATE TABLE lengths (v VARCHAR2(4000), r RAW(2000), d DATE)");
        query.prepare("INSERT INTO lengths VALUES (:1, :2, :3)");
        for (int length : lengths) {
            query.setString(1, longText(length, length));
            query.setBytes(2, new byte[length / 2]);
            query.setDateTime(3, length == 0 ? null : LocalDateTime.of(2000, 1, 1, 0, 0, 0));
            query.execute();
        }
        query.execute("SELECT v, r, d FROM lengths ORDER BY ROWID");
        for (int length : lengths) {
            query.next();
            same(length == 0 ? null : longText(length, length), query.getString(1), "text");
            same(length < 2 ? null : new byte[length / 2], query.getBytes(2), "RAW");
            same(length == 0, query.getDateTime(3) == null, "DATE is NULL");
        }
    }

    private static void outsideTheRow(OciConnection c, OciStatement query) throws Exception {
        oracleError(942, () -> c.createStatement().prepare("SELECT 1 FROM nowhere"));
        yes(!query.next(), "a row of no query");
        query.execute("SELECT 1 / (150 - n) FROM big");
        throwing(IllegalStateException.class, () -> query.getString(1));
        query.next();
        throwing(IndexOutOfBoundsException.class, () -> query.getString(2));
        query.setInt(1, 1);
        oracleError(1036, () -> query.execute());
        throwing(IllegalStateException.class, () -> query.getString(1));
        query.execute("SELECT 1 / (150 - n) FROM big");
        query.next();
        oracleError(1476, () -> {
            for (int n = 1; n <= 150; n++) {
                yes(query.next(), "row " + n);
            }
        });
        failedGrowth(query);
    }

    /** The arrays grow after ten rows; a position that is none of the query's prevents it. */
    private static void failedGrowth(OciStatement query) throws Exception {
        // The define takes the one and leaves it to the fetch, and refuses the other.
        for (int position : new int[] {2, 0}) {
            query.prepare("SELECT n FROM big WHERE n < 50 ORDER BY n");
            OciColumn column = query.columns().get(0);
            query.execute();
            readRows(query, 10);
            column.setPosition(position);
            Class<?> error = throwing(Throwable.class, query::next).getClass();
            same(position > 0 ? InternalError.class : OciException.class, error, "failure");
            yes(!query.next(), "a row after the failure");
            throwing(IllegalStateException.class, () -> query.getInt(1));
            column.setPosition(1);
        }
        query.execute();
        readRows(query, 50);
    }

    private static void readRows(OciStatement query, int rows) throws Exception {
        for (int n = 0; n < rows; n++) {
            yes(query.next(), "row " + n);
            same(n, query.getInt(1), "n");
        }
    }

    private static String longText(int id, int length) {
        char[] text = new char[length];
        for (int i = 0; i < length; i++) {
            text[i] = (char) ('a' + (i * 7 + id + i / 26) % 26);
        }
        return new String(text);
    }

    private static void longValues(OciConnection c, OciStatement unused) throws Exception {
        execute(c, "CREATE TABLE longs (id NUMBER(3), body LONG)");
        for (int id = 0; id < LENGTHS.length; id++) {
            String text = longText(id, LENGTHS[id]);
            execute(c, "INSERT INTO longs VALUES (" + id + ", '" + text + "')");
        }
        OciStatement query = c.createStatement(PIECE);
        // With itself in the other order, so that each length meets each kind of length.
        query.execute("SELECT a.id, a.body, b.body, 'end ' || a.id FROM longs a, longs b"
                + " WHERE a.id + b.id = " + (LENGTHS.length - 1) + " ORDER BY a.id");
        for (int id = 0; id < LENGTHS.length; id++) {
            yes(query.next(), "row " + id);
            same(id, query.getInt(1), "id");
            compareLong(query, 2, id);
            compareLong(query, 3, LENGTHS.length - 1 - id);
            same("end " + id, query.getString(4), "column after the LONGs");
        }
        yes(!query.next(), "no row after the last");
        query.execute();
        int last = LENGTHS.length - 1;
        for (int id = 0; id < last; id++) {
            query.next();
            if (LENGTHS[id] > PIECE) {
                InputStream stream = query.longStream(2);
                same((int) longText(id, 1).charAt(0), stream.read(), "first byte");
                same(LENGTHS[id] - 1, query.longLength(2), "bytes left");
                same(PIECE - 1, stream.available(), "bytes that are here");
            }
        }
        InputStream old = query.longStream(2);
        query.next();
        throwing(IOException.class, () -> old.read());
        compareLong(query, 2, last);
        goneValues(c, query);
        // The second column cannot be defined: the first one would be so twice.
        query.prepare("SELECT body, HEXTORAW('00') FROM longs");
        query.columns().get(1).setLength(0);
        oracleError(24328, query::execute);
        oracleError(24337, query::execute);
    }

    /** Streamed values that the session takes away below its query. */
    private static void goneValues(OciConnection c, OciStatement query) throws Exception {
        execute(c, "CREATE TABLE gone (id NUMBER(3), body LONG)");
        OciStatement insert = c.createStatement();
        insert.prepare("INSERT INTO gone VALUES (:1, :2)");
        for (int id = 0; id < 5; id++) {
            insert.setInt(1, id);
            insert.setCharacterStream(2, new StringReader(longText(id, 40_000)));
            insert.execute();
        }
        query.execute("SELECT id, body FROM gone ORDER BY id");
        readRows(query, 2);
        execute(c, "DELETE FROM gone WHERE id = 2",
                "UPDATE gone SET body = 'x' WHERE id = 3");
        oracleError(22922, query::next);
        oracleError(22922, query::next);
        yes(query.next(), "the row behind");
        same(longText(4, 40_000), query.getString(2), "its value");
        yes(!query.next(), "no row after the last");
    }

    private static void compareLong(OciStatement query, int column, int id) throws Exception {
        int length = LENGTHS[id];
        String what = "LONG " + column + " of id " + id;
        same(length == 0, query.isNull(column), what + " is NULL");
        if (length > 0) {
            same(length, query.longLength(column), "length of " + what);
            same(longText(id, length), query.getString(column), what);
            query.getBytes(column)[0] = 0;
            same(longText(id, length), query.getString(column), what + " once more");
        }
    }
}
