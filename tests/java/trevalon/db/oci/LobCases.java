package trevalon.db.oci;

import static trevalon.db.oci.TestRun.*;

import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;

/** CLOB and BLOB values: whole ones, parts, copies, and what must be refused. */
public final class LobCases {
    private static final int PIECE = OciLob.PIECE_LENGTH;

    public static void addTo(TestRun tests) {
        tests.add("LOBs of each length are written and read at piece borders", LobCases::borders);
        tests.add("parts of a LOB are read and written over", LobCases::parts);
        tests.add("a bound LOB is copied, and fetched ones outlive their query", LobCases::copies);
        tests.add("LOB calls that cannot work are refused", LobCases::refusals);
    }

    private static OciLob only(OciConnection c, String sql) throws Exception {
        try (OciStatement query = c.createStatement()) {
            query.execute(sql);
            yes(query.next(), "a row of " + sql);
            return query.getLob(1);
        }
    }

    /** The empty LOB of a row that is the table's only one, to be written to. */
    private static OciLob fresh(OciConnection c, String column) throws Exception {
        execute(c, "DELETE FROM lobs", "INSERT INTO lobs VALUES (1, EMPTY_CLOB(), EMPTY_BLOB())");
        return only(c, "SELECT " + column + " FROM lobs FOR UPDATE");
    }

    /** Characters of one to four bytes in UTF-8; pairs lie across the borders of pieces. */
    private static String text(int length) {
        return BindCases.repeat("aé😀京", length / 5 + 1).substring(0, length);
    }

    private static void borders(OciConnection c, OciStatement unused) throws Exception {
        execute(c, "CREATE TABLE lobs (n NUMBER(5), t CLOB, b BLOB)");
        for (int length : new int[] {0, 1, PIECE - 1, PIECE, PIECE + 1, 2 * PIECE, 99_999}) {
            char[] chars = new char[length + 9];
            try (OciLob lob = fresh(c, "t")) {
                lob.write(0, text(length).toCharArray(), 0, length);
                same(length == 0 ? -1 : length, lob.read(0, chars, 3, length + 1), "read");
                same(text(length), new String(chars, 3, length), "text of " + length);
            }
            int half = length / 2;
            byte[] found = new byte[length];
            try (OciLob lob = fresh(c, "b")) {
                lob.write(half, BindCases.pattern(length), half, length - half);
                lob.write(0, BindCases.pattern(length), 0, half);
                same(length - half, lob.read(half, found, half, length - half), "second half");
                same(half, lob.read(0, found, 0, half), "first half");
            }
            yes(Arrays.equals(BindCases.pattern(length), found), "bytes of " + length);
        }
    }

    private static void parts(OciConnection c, OciStatement unused) throws Exception {
        try (OciLob lob = fresh(c, "t")) {
            lob.write(2, "xyz".toCharArray(), 0, 3);
            lob.write(3, "-😀-".toCharArray(), 1, 2);
            same("  x😀", lob.substring(0, 99), "gap of blanks, and what was written over");
            same("\uDE00", lob.substring(4, PIECE + 1), "half a pair");
            same("", lob.substring(5, 1) + lob.substring(0, 0), "nothing");
            yes(lob.charSetId() > 0 && lob.charSetForm() == 1, "character set");
        }
        fresh(c, "b").write(3, new byte[] {9, 8, 7}, 1, 2);
        same("0000000807", value(c, "SELECT b FROM lobs"), "gap of zeros");
    }

    private static void copies(OciConnection c, OciStatement s) throws Exception {
        OciLob source = fresh(c, "t");
        s.prepare("INSERT INTO lobs VALUES (2, :t, NULL)");
        for (char mark = 'a'; mark < 'c'; mark++) {
            source.write(0, new char[] {mark}, 0, 1);
            s.setLob(1, source);
            s.execute();
        }
        source.close();
        oracleError(22275, () -> s.execute());
        s.setLob(1, null);
        s.execute();
        List<OciLob> kept = new ArrayList<>();
        s.execute("SELECT t FROM lobs WHERE n = 2 ORDER BY ROWID");
        while (s.next()) {
            kept.add(s.getLob(1));
        }
        s.close();
        same("ab", kept.get(0).substring(0, 9) + kept.get(1).substring(0, 9), "copies");
        yes(kept.size() == 3 && kept.get(2) == null, "NULL");
    }

    private static void refusals(OciConnection c, OciStatement s) throws Exception {
        OciLob clob = fresh(c, "t");
        OciLob blob = only(c, "SELECT b FROM lobs");
        byte[] two = new byte[2];
        oracleError(932, () -> clob.write(0, two, 0, 2));
        oracleError(932, () -> blob.substring(0, 1));
        for (long position : new long[] {-1, OciLob.MAX_LENGTH - 1, 1L << 32, Long.MAX_VALUE}) {
            throwing(IndexOutOfBoundsException.class, () -> blob.write(position, two, 0, 2));
        }
        throwing(IndexOutOfBoundsException.class, () -> blob.read(0, two, 1, 2));
        // The console's cases need half a pair, which SQL cannot write.
        clob.write(0, new char[] {'\uD83D'}, 0, 1);
        c.commit();
        OciConnection other = connect();
        OciLob foreign = only(other, "SELECT b FROM lobs");
        oracleError(22920, () -> foreign.write(0, two, 0, 2));
        s.prepare("UPDATE lobs SET b = :b");
        throwing(IllegalArgumentException.class, () -> s.setLob(1, foreign));
        other.close();
        oracleError(3114, () -> foreign.length());
        clob.close();
        clob.close();
        oracleError(22275, () -> clob.length());
        oracleError(22275, () -> s.setLob(1, clob));
    }
}
