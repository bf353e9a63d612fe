package trevalon.db.console;

import java.io.BufferedReader;
import java.io.DataInputStream;
import java.io.EOFException;
import java.io.IOException;
import java.io.InputStream;
import java.io.PrintStream;
import java.math.BigDecimal;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;
import java.sql.SQLException;
import java.time.DayOfWeek;
import java.time.LocalDate;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.function.Supplier;
import java.util.zip.CRC32;

import trevalon.db.oci.OciConnection;
import trevalon.db.oci.OciLob;
import trevalon.db.oci.OciStatement;

/**
 * Compares what the database answers with what the program works out without it.
 *
 * <p>A check says what it found and, where that is wrong, what it should be; all of them run,
 * whatever the others say. Large values are compared piece by piece as they arrive and never as a
 * whole.
 */
final class SampleChecks {
    /** Short enough that the letters come in several pieces. */
    private static final int SMALL_PIECE = 1000;

    private final OciConnection connection;
    private final PrintStream out;
    /** The rows of the people's CSV file, read by this program's own reader. */
    private final List<List<String>> people = new ArrayList<>();
    private List<String> columns;
    private boolean good = true;

    SampleChecks(OciConnection connection, PrintStream out) {
        this.connection = connection;
        this.out = out;
    }

    /** Runs all checks and prints a line for each; true when all agree. */
    boolean run(Path peopleFile) throws SQLException, IOException {
        readPeople(peopleFile);
        List<LocalDate> days = SampleContent.days();
        checkNumber("days", "SELECT COUNT(*) FROM calendar", days.size());
        checkNumber(
                "sum of the days of the year",
                "SELECT SUM(day_of_year) FROM calendar",
                days.stream().mapToInt(LocalDate::getDayOfYear).sum());
        checkNumber(
                "Mondays",
                "SELECT COUNT(*) FROM calendar WHERE weekday = 'Monday'",
                days.stream().filter(d -> d.getDayOfWeek() == DayOfWeek.MONDAY).count());
        checkNumber(
                "days without a remark",
                "SELECT COUNT(*) FROM calendar WHERE remark IS NULL",
                days.size() - SampleContent.remarks());
        checkNumber("pay", "SELECT SUM(pay) FROM person", sum("pay"));
        checkNumber("bonuses", "SELECT SUM(bonus) FROM person", sum("bonus"));
        checkNumber(
                "people without a studio",
                "SELECT COUNT(*) FROM person p LEFT JOIN studio s ON s.studio_id = p.studio_id"
                        + " WHERE s.name IS NULL",
                withoutValue("studio_id"));
        checkCalendar(days);
        checkLetters();
        checkExhibits();
        return good;
    }

    private void readPeople(Path file) throws IOException {
        try (CsvFile csv = CsvFile.open(file)) {
            columns = csv.names();
            for (List<String> row = csv.next(); row != null; row = csv.next()) {
                people.add(new ArrayList<>(row));
            }
        }
    }

    /**
     * The sum over a column of the CSV file, where an empty field counts as the NULL that SUM
     * leaves out.
     */
    private BigDecimal sum(String name) {
        BigDecimal sum = BigDecimal.ZERO;
        for (List<String> row : people) {
            String value = row.get(columns.indexOf(name));
            sum = sum.add(value.isEmpty() ? BigDecimal.ZERO : new BigDecimal(value));
        }
        return sum;
    }

    /** Rows of the CSV file whose field is empty, which is NULL in the table. */
    private long withoutValue(String name) {
        int column = columns.indexOf(name);
        return people.stream().filter(row -> row.get(column).isEmpty()).count();
    }

    private void checkNumber(String what, String sql, long expected) throws SQLException {
        checkNumber(what, sql, BigDecimal.valueOf(expected));
    }

    /** Compares the single number of a query; trailing zeros make no difference. */
    private void checkNumber(String what, String sql, BigDecimal expected) throws SQLException {
        try (OciStatement query = connection.createStatement()) {
            query.execute(sql);
            BigDecimal found = query.next() ? query.getBigDecimal(1) : null;
            report(what, expected.stripTrailingZeros().toPlainString(),
                    found == null ? "nothing" : found.stripTrailingZeros().toPlainString());
        }
    }

    /** Every row and value of the calendar, in order. */
    private void checkCalendar(List<LocalDate> days) throws SQLException {
        CRC32 expected = new CRC32();
        for (LocalDate day : days) {
            // A checksum over the lines shows a missing, doubled or changed row as well as their
            // order.
            expected.update(utf8(SampleContent.calendarLine(day)));
        }
        CRC32 found = new CRC32();
        try (OciStatement query = connection.createStatement()) {
            query.execute(
                    "SELECT day, weekday, day_of_year, iso_week, remark"
                            + " FROM calendar ORDER BY day");
            while (query.next()) {
                String remark = query.isNull(5) ? "" : query.getString(5);
                found.update(utf8(
                        query.getDateTime(1).toLocalDate() + "," + query.getString(2) + ","
                                + query.getInt(3) + "," + query.getInt(4) + ","
                                + (remark.contains(",") ? '"' + remark + '"' : remark)));
            }
        }
        report("checksum of the calendar", checksum(expected), checksum(found));
    }

    private void checkLetters() throws SQLException, IOException {
        try (OciStatement query = connection.createStatement(SMALL_PIECE)) {
            query.execute("SELECT letter_id, body FROM letter ORDER BY letter_id");
            for (SampleContent.Letter letter : SampleContent.letters()) {
                long bytes = letter.parts.stream().mapToLong(p -> utf8(p.get()).length).sum();
                String expected = bytes == 0 ? "NULL" : asWritten(bytes);
                report("letter " + letter.id, expected, compareBody(query, letter));
            }
        }
    }

    private static String asWritten(long bytes) {
        return bytes + " bytes as written";
    }

    /** Reads the letter of the next row in pieces, and compares each byte. */
    private static String compareBody(OciStatement query, SampleContent.Letter letter)
            throws SQLException, IOException {
        if (!query.next()) {
            return "nothing";
        }
        if (query.isNull(2)) {
            return "NULL";
        }
        DataInputStream body = new DataInputStream(query.longStream(2));
        long length = 0;
        for (Supplier<String> part : letter.parts) {
            byte[] expected = utf8(part.get());
            byte[] found = new byte[expected.length];
            try {
                // A stream may give less than asked for at any time, without being at its end.
                body.readFully(found);
            } catch (EOFException e) {
                return "ends too early after byte " + length;
            }
            if (!Arrays.equals(expected, found)) {
                return "other bytes after byte " + length;
            }
            length += found.length;
        }
        return body.read() < 0 ? asWritten(length) : "goes on after byte " + length;
    }

    private void checkExhibits() throws SQLException, IOException {
        try (OciStatement query = connection.createStatement()) {
            query.execute("SELECT description, picture FROM exhibit ORDER BY exhibit_id");
            for (SampleExhibit exhibit : SampleExhibit.all()) {
                // Reported as "nothing" rather than left to fail: the checks behind it still run.
                boolean there = query.next();
                byte[] text = utf8(exhibit.description);
                report("text of exhibit " + exhibit.id, asWritten(text.length),
                        there ? compareText(query, exhibit.description, text.length) : "nothing");
                report("picture of exhibit " + exhibit.id, asWritten(exhibit.picture.length),
                        there ? comparePicture(query, exhibit.picture) : "nothing");
            }
        }
    }

    private static String compareText(OciStatement query, String expected, int bytes)
            throws SQLException, IOException {
        if (query.isNull(1)) {
            return "NULL";
        }
        try (OciLob lob = query.getLob(1);
                BufferedReader text = new BufferedReader(lob.reader(0))) {
            for (int i = 0; i < expected.length(); i++) {
                if (text.read() != expected.charAt(i)) {
                    return "another character at " + i;
                }
            }
            return text.read() < 0 ? asWritten(bytes) : "goes on after its end";
        }
    }

    private static String comparePicture(OciStatement query, byte[] expected)
            throws SQLException, IOException {
        if (query.isNull(2)) {
            return "NULL";
        }
        try (OciLob lob = query.getLob(2);
                InputStream bytes = lob.inputStream(0)) {
            for (int i = 0; i < expected.length; i++) {
                if ((byte) bytes.read() != expected[i]) {
                    return "another byte at " + i;
                }
            }
            return bytes.read() < 0 ? asWritten(expected.length) : "goes on after its end";
        }
    }

    private static byte[] utf8(String text) {
        return text.getBytes(StandardCharsets.UTF_8);
    }

    private static String checksum(CRC32 sum) {
        return String.format("%08x", sum.getValue());
    }

    /** One line for each check; one that fails makes the whole fail. */
    private void report(String what, String expected, String found) {
        boolean same = expected.equals(found);
        good &= same;
        String verdict = same ? " ok" : " WRONG, expected " + expected;
        out.println("check: " + what + ": " + found + verdict);
    }
}
