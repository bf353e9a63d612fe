package trevalon.db.console;

import java.io.IOException;
import java.io.InputStream;
import java.io.PrintStream;
import java.math.BigDecimal;
import java.nio.charset.StandardCharsets;
import java.sql.SQLException;
import java.time.DayOfWeek;
import java.time.LocalDate;
import java.util.List;
import java.util.zip.CRC32;

import trevalon.db.oci.OciConnection;
import trevalon.db.oci.OciStatement;

/** Compares what the database answers with what the program works out without it. */
final class SampleChecks {
    /** Short enough that the letters come in several pieces. */
    private static final int SMALL_PIECE = 1000;

    private final OciConnection connection;
    private final PrintStream out;
    private boolean good = true;

    SampleChecks(OciConnection connection, PrintStream out) {
        this.connection = connection;
        this.out = out;
    }

    /** Runs all checks and prints a line for each; true when all agree. */
    boolean run(CsvFile people) throws SQLException, IOException {
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
        checkNumber("pay", "SELECT SUM(pay) FROM person", sum(people, "pay"));
        checkNumber("bonuses", "SELECT SUM(bonus) FROM person", sum(people, "bonus"));
        checkNumber(
                "people without a studio",
                "SELECT COUNT(*) FROM person p LEFT JOIN studio s ON s.studio_id = p.studio_id"
                        + " WHERE s.name IS NULL",
                withoutValue(people, "studio_id"));
        checkCalendar(days);
        checkLetters();
        return good;
    }

    private static int column(CsvFile file, String name) {
        return file.names.indexOf(name);
    }

    private static BigDecimal sum(CsvFile file, String name) {
        BigDecimal sum = BigDecimal.ZERO;
        for (List<String> row : file.rows) {
            String value = row.get(column(file, name));
            sum = sum.add(value.isEmpty() ? BigDecimal.ZERO : new BigDecimal(value));
        }
        return sum;
    }

    private static long withoutValue(CsvFile file, String name) {
        return file.rows.stream().filter(row -> row.get(column(file, name)).isEmpty()).count();
    }

    private void checkNumber(String what, String sql, long expected) throws SQLException {
        checkNumber(what, sql, BigDecimal.valueOf(expected));
    }

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
                String found = query.next() ? describe(query) : "nothing";
                report("letter " + letter.id, describe(letter), found);
            }
        }
    }

    private static String describe(SampleContent.Letter letter) {
        if (letter.body == null) {
            return "NULL";
        }
        CRC32 sum = new CRC32();
        sum.update(utf8(letter.body));
        return utf8(letter.body).length + " bytes " + checksum(sum);
    }

    private static String describe(OciStatement query) throws SQLException, IOException {
        if (query.isNull(2)) {
            return "NULL";
        }
        CRC32 sum = new CRC32();
        int length = 0;
        InputStream body = query.longStream(2);
        byte[] buffer = new byte[4096];
        for (int count = body.read(buffer); count >= 0; count = body.read(buffer)) {
            sum.update(buffer, 0, count);
            length += count;
        }
        return length + " bytes " + checksum(sum);
    }

    private static byte[] utf8(String text) {
        return text.getBytes(StandardCharsets.UTF_8);
    }

    private static String checksum(CRC32 sum) {
        return String.format("%08x", sum.getValue());
    }

    private void report(String what, String expected, String found) {
        boolean same = expected.equals(found);
        good &= same;
        String verdict = same ? " ok" : " WRONG, expected " + expected;
        out.println("check: " + what + ": " + found + verdict);
    }
}
