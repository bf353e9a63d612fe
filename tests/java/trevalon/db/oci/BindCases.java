package trevalon.db.oci;

import static trevalon.db.oci.TestRun.*;

import java.io.ByteArrayInputStream;
import java.io.FilterInputStream;
import java.io.IOException;
import java.io.InputStream;
import java.io.StringReader;
import java.math.BigDecimal;
import java.nio.charset.StandardCharsets;
import java.sql.SQLDataException;
import java.sql.SQLException;
import java.time.LocalDate;
import java.time.LocalDateTime;
import java.util.Arrays;
import java.util.Collections;

/** Bind variables: values in, streams in, values and cursors out. */
public final class BindCases {
    /** Sets the variables of a statement. */
    private interface Setter {
        void set(OciStatement statement) throws Exception;
    }

    public static void addTo(TestRun tests) {
        tests.add("extreme values of every setter come back", BindCases::extremes);
        tests.add("no byte of an earlier value stays behind", BindCases::reuse);
        tests.add("values that cannot go in are refused", BindCases::refusals);
        tests.add("bytes and streams of each kind and length come back", BindCases::streams);
        tests.add("what a stream throws comes out, nothing goes in", BindCases::failingStream);
        tests.add("a stream cannot change the execution that reads it", BindCases::meddlingStream);
        tests.add("a block's outputs and inputs", BindCases::outputs);
        tests.add("queries run again with other values, as cursor variables too", BindCases::again);
    }

    private static void insert(OciConnection connection, String table, Setter... rows)
            throws Exception {
        try (OciStatement statement = connection.createStatement()) {
            statement.prepare("INSERT INTO " + table + " VALUES (:1)");
            for (Setter row : rows) {
                row.set(statement);
                statement.execute();
            }
        }
    }

    static String repeat(String text, int count) {
        return String.join("", Collections.nCopies(count, text));
    }

    /** Inserts one value into a table of one column, and gives what is read from there. */
    private static String stored(OciConnection c, String type, Setter setter) throws Exception {
        execute(c, "CREATE TABLE bound (v " + type + ")");
        insert(c, "bound", setter);
        String found = value(c, "SELECT v FROM bound");
        execute(c, "DROP TABLE bound");
        return found;
    }

    private static void extremes(OciConnection c, OciStatement unused) throws Exception {
        String wide = "京都" + repeat("ø", 120) + "😀";
        Object[][] values = {
            {"NUMBER", "-2147483648", (Setter) s -> s.setInt(1, Integer.MIN_VALUE)},
            {"NUMBER", "-9223372036854775808", (Setter) s -> s.setLong(1, Long.MIN_VALUE)},
            {"NUMBER", "2147483648", (Setter) s -> s.setLong(1, 1L << 31)},
            {"NUMBER", "-.000025", (Setter) s -> s.setBigDecimal(1, new BigDecimal("-2.5E-5"))},
            {"NUMBER", "-1.0E-130", (Setter) s -> s.setDouble(1, -1e-130)},
            {"VARCHAR2(255)", wide, (Setter) s -> s.setString(1, wide)},
            {"VARCHAR2(4000)", repeat("y", 4000), (Setter) s -> s.setString(1, repeat("y", 4000))},
            {"VARCHAR2(3)", null, (Setter) s -> s.setString(1, "")},
            {"RAW(256)", OciText.hexadecimal(pattern(256)),
                (Setter) s -> s.setBytes(1, pattern(256))},
            {"RAW(9)", null, (Setter) s -> s.setBytes(1, new byte[0])},
            {"CLOB", wide, (Setter) s -> s.setString(1, wide)},
            {"RAW(9)", null, (Setter) s -> s.setBinaryStream(1, null)},
            {"CLOB", null, (Setter) s -> s.setCharacterStream(1, null)},
            {"CLOB", null, (Setter) s -> s.setNull(1, OciType.CLOB)},
            {"BLOB", "00FF", (Setter) s -> s.setBytes(1, new byte[] {0, -1})},
            {"BLOB", null, (Setter) s -> s.setNull(1, OciType.BLOB)},
            {"LONG RAW", null, (Setter) s -> s.setNull(1, OciType.LONG_RAW)},
            {"DATE", null, (Setter) s -> s.setNull(1, OciType.DATE)},
        };
        for (Object[] value : values) {
            same(value[1], stored(c, (String) value[0], (Setter) value[2]), "value");
        }
        for (int type : new int[] {OciType.NUMBER, OciType.INTEGER, OciType.FLOAT,
            OciType.VARCHAR2, OciType.LONG}) {
            same(null, stored(c, "VARCHAR2(9)", s -> s.setNull(1, type)), "NULL of " + type);
        }
        for (String moment : new String[] {"1899-12-31 23:59:59", "9999-12-31 23:59:59",
            "0001-01-01 00:00:00", "2000-02-29 00:00:01", "-0043-03-15 12:30:00"}) {
            LocalDateTime time = LocalDateTime.parse(moment.replace(' ', 'T'));
            // The server has no year 0: 44 BC is -43 in java.time.
            same(moment.replace("-0043", "-0044"),
                    stored(c, "DATE", s -> s.setDateTime(1, time)), "DATE");
        }
    }

    /** Every byte value, zero included. */
    static byte[] pattern(int length) {
        byte[] bytes = new byte[length];
        for (int i = 0; i < length; i++) {
            bytes[i] = (byte) (i + i / 256);
        }
        return bytes;
    }

    /** One statement, whose buffers hold an earlier and longer value each time. */
    private static void reuse(OciConnection c, OciStatement query) throws Exception {
        String longest = repeat("longest ", 2000);
        execute(c, "CREATE TABLE reused (v LONG)");
        insert(c, "reused", s -> s.setString(1, longest), s -> s.setString(1, "c"),
                s -> s.setString(1, null), s -> s.setInt(1, -7),
                s -> s.setCharacterStream(1, new StringReader("streamed")),
                s -> s.setString(1, "after"), s -> { }, s -> s.setLong(1, 1L << 40));
        query.execute("SELECT v FROM reused ORDER BY ROWID");
        for (String expected : new String[] {longest, "c", null, "-7", "streamed", "after", "after",
            "1099511627776"}) {
            yes(query.next(), "a row for " + expected);
            same(expected, query.getString(1), "value");
        }
    }

    private static void refusals(OciConnection c, OciStatement s) throws Exception {
        oracleError(24337, () -> s.setInt(1, 1));
        oracleError(911, () -> s.execute("DELETE FROM DUAL \0 WHERE 1 = 0"));
        execute(c, "CREATE TABLE refused (n NUMBER(3), t VARCHAR2(3))");
        s.prepare("INSERT INTO refused VALUES (:n, :t)");
        s.setInt(1, 1);
        oracleError(1008, () -> s.execute());
        throwing(SQLDataException.class, () -> s.setString(2, "a\0b"));
        throwing(IndexOutOfBoundsException.class, () -> s.setInt(0, 1));
        oracleError(1426, () -> s.setDouble(1, Double.NaN));
        oracleError(1841, () -> s.setDate(2, LocalDate.of(10_000, 1, 1)));
        s.setString(2, "four");
        oracleError(1401, () -> s.execute());
        s.setInt(3, 1);
        oracleError(1036, () -> s.execute());
        same("0", value(c, "SELECT COUNT(*) FROM refused"), "rows");
    }

    /** Gives no more than seven bytes a call, as a slow network does, and may fail at the end. */
    private static InputStream slow(byte[] bytes, Throwable... end) {
        return new FilterInputStream(new ByteArrayInputStream(bytes)) {
            @Override
            public int read(byte[] buffer, int offset, int length) throws IOException {
                int count = super.read(buffer, offset, Math.min(length, 7));
                if (count < 0 && end.length > 0 && end[0] instanceof Error) {
                    throw (Error) end[0];
                } else if (count < 0 && end.length > 0) {
                    throw (IOException) end[0];
                }
                return count;
            }
        };
    }

    /** Does something before each read. */
    static InputStream during(String text, Runnable deed) {
        return new FilterInputStream(new ByteArrayInputStream(text.getBytes())) {
            @Override
            public int read(byte[] buffer, int offset, int length) throws IOException {
                deed.run();
                return super.read(buffer, offset, length);
            }
        };
    }

    private static void streams(OciConnection c, OciStatement used) throws Exception {
        int piece = OciStatement.DEFAULT_PIECE_LENGTH;
        execute(c, "CREATE TABLE st_long (v LONG)", "CREATE TABLE st_raw (v LONG RAW)",
                "CREATE TABLE st_clob (v CLOB)", "CREATE TABLE st_blob (v BLOB)");
        for (int length : new int[] {0, 1, piece - 1, piece, piece + 1, 65_535, 65_536, 999_999}) {
            byte[] bytes = pattern(length);
            stream(c, "st_raw", bytes, s -> s.setBytes(1, bytes));
            stream(c, "st_raw", bytes, s -> s.setBinaryStream(1, slow(bytes)));
            stream(c, "st_blob", bytes, s -> s.setBinaryStream(1, slow(bytes)));
            String text = repeat("é京😀abc ", length / 13) + repeat(".", length % 13);
            byte[] utf8 = text.getBytes(StandardCharsets.UTF_8);
            byte[] utf16 = text.getBytes(StandardCharsets.UTF_16BE);
            stream(c, "st_long", utf8, s -> s.setAsciiStream(1, slow(utf8)));
            stream(c, "st_long", utf8, s -> s.setCharacterStream(1, new StringReader(text)));
            stream(c, "st_long", utf8, s -> s.setUnicodeStream(1, slow(utf16)));
            stream(c, "st_clob", utf8, s -> s.setCharacterStream(1, new StringReader(text)));
        }
        used.prepare("INSERT INTO st_raw VALUES (:v)");
        for (int round = 0; round < 2; round++) {
            used.setBinaryStream(1, slow(new byte[] {1}));
            used.execute();
            throwing(SQLException.class, () -> used.execute());
        }
        same("3", value(c, "SELECT COUNT(*) FROM st_raw"), "a stream serves one execution");
    }

    private static void stream(OciConnection c, String table, byte[] expected, Setter setter)
            throws Exception {
        execute(c, "DELETE FROM " + table);
        insert(c, table, setter);
        try (OciStatement query = c.createStatement(1000)) {
            query.execute("SELECT v FROM " + table);
            yes(query.next(), "a row of " + expected.length);
            yes(Arrays.equals(expected.length == 0 ? null : expected, query.getBytes(1)),
                    table + " differs at " + expected.length);
        }
    }

    private static void failingStream(OciConnection c, OciStatement unused) throws Exception {
        execute(c, "CREATE TABLE failing (v LONG)");
        Throwable[] failures = {new IOException("disk gone"), new AssertionError("mine")};
        for (Throwable failure : failures) {
            InputStream in = slow(pattern(70_000), failure);
            Throwable found = throwing(Throwable.class,
                    () -> insert(c, "failing", s -> s.setBinaryStream(1, in)));
            same(failure, found instanceof SQLException ? found.getCause() : found, "failure");
            same("0", value(c, "SELECT COUNT(*) FROM failing"), "rows");
        }
        insert(c, "failing", s -> s.setString(1, "good"));
        same("good", value(c, "SELECT v FROM failing"), "the session afterwards");
    }

    private static void meddlingStream(OciConnection c, OciStatement s) throws Exception {
        OciStatement rows = c.createStatement();
        Setter[] deeds = {
            x -> x.setString(2, "short"), x -> x.setNull(2, OciType.LONG), x -> x.setInt(1, 9),
            x -> x.setAsciiStream(2, null), x -> x.prepare("DELETE FROM meddled"),
            OciStatement::execute, OciStatement::close, x -> x.bindTo(null, 1),
            x -> c.close(), x -> rows.prepare("SELECT 9 FROM DUAL"), x -> rows.close(),
        };
        execute(c, "CREATE TABLE meddled (n NUMBER(3), v LONG)");
        String text = repeat("streamed ", 9000);
        s.prepare("BEGIN DELETE FROM meddled; INSERT INTO meddled VALUES (:n, :v);"
                + " OPEN :c FOR SELECT n, v FROM meddled; END;");
        s.setInt(1, 1);
        s.setCursor(3, rows);
        for (Setter deed : deeds) {
            s.setAsciiStream(2, during(text, () -> oracleError(3127, () -> deed.set(s))));
            s.execute();
            yes(rows.next() && rows.getInt(1) == 1 && text.equals(rows.getString(2)), "the row");
        }
        yes(c.isOpen(), "the session is open");
    }

    private static void outputs(OciConnection c, OciStatement s) throws Exception {
        s.prepare("BEGIN :i := 2147483647; :d := 2.5; :n := 1234567890.12345; :t := :t || '!';"
                + " SELECT TO_DATE('1999-12-31', 'YYYY-MM-DD') INTO :m FROM DUAL;"
                + " :nothing := NULL; END;");
        int[] types = {OciType.INTEGER, OciType.FLOAT, OciType.NUMBER, OciType.VARCHAR2,
            OciType.DATE, OciType.VARCHAR2};
        for (int i = 0; i < types.length; i++) {
            s.registerOut(i + 1, types[i], 10);
        }
        for (String in : new String[] {"a", "123456789", "", "z"}) {
            s.setString(4, in);
            s.execute();
            same(Integer.MAX_VALUE, s.getOutInt(1), "int");
            same(2.5, s.getOutDouble(2), "double");
            same("1234567890.12345", s.getOutString(3), "number");
            same(in + "!", s.getOutString(4), "text");
            same(LocalDateTime.of(1999, 12, 31, 0, 0), s.getOutDateTime(5), "date");
            same(true, s.isOutNull(6), "nothing");
        }
        oracleError(932, () -> s.getOutBytes(1));
        s.setString(4, "1234567890");
        throwing(SQLException.class, () -> s.execute());
    }

    private static void again(OciConnection c, OciStatement query) throws Exception {
        String text = "SELECT n, :tag || n tagged FROM big WHERE n BETWEEN :low AND :low + 149"
                + " ORDER BY n";
        OciStatement block = c.createStatement();
        OciStatement cursor = c.createStatement();
        query.prepare(text.replaceFirst(":low \\+ 149", ":high"));
        block.prepare("BEGIN OPEN :c FOR " + text + "; END;");
        block.setCursor(1, cursor);
        for (int low : new int[] {0, 500, 99_990, 100_000}) {
            query.setString(1, "tag ");
            query.setInt(2, low);
            query.setLong(3, low + 149);
            query.execute();
            block.setString(2, "tag ");
            block.setInt(3, low);
            block.execute();
            for (OciStatement rows : new OciStatement[] {query, cursor}) {
                same("TAGGED", rows.columns().get(1).name(), "name of the second column");
                for (int n = low; n <= Math.min(low + 149, 99_999); n++) {
                    yes(rows.next() && rows.getInt(1) == n, "row " + n);
                    same("tag " + n, rows.getString(2), "text");
                }
                yes(!rows.next(), "no row after the last");
            }
        }
    }
}
