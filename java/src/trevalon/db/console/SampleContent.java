package trevalon.db.console;

import java.io.IOException;
import java.io.Reader;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.LocalDate;
import java.time.format.TextStyle;
import java.time.temporal.IsoFields;
import java.util.ArrayList;
import java.util.Collections;
import java.util.HashMap;
import java.util.Iterator;
import java.util.List;
import java.util.Locale;
import java.util.Map;
import java.util.function.Supplier;

/**
 * What the sample database holds and the program itself can work out: a calendar, and letters.
 *
 * <p>Everything here follows from the dates alone, so that the checks can work it out once more and
 * compare. The letters cover the cases of LONG values: short, missing, some pieces long, and one
 * that is long enough to be made part by part.
 */
final class SampleContent {
    static final LocalDate FIRST_DAY = LocalDate.of(1970, 1, 1);
    static final LocalDate LAST_DAY = LocalDate.of(2000, 12, 31);
    static final String CALENDAR_HEADING = "day,weekday,day_of_year,iso_week,remark";

    private static final Map<LocalDate, String> REMARKS = new HashMap<>();

    static {
        REMARKS.put(FIRST_DAY, "first day of the calendar");
        REMARKS.put(LocalDate.of(1971, 3, 15), "the kiln is lit");
        REMARKS.put(LocalDate.of(1984, 2, 29), "a leap day at the press");
        REMARKS.put(LocalDate.of(1999, 12, 31), "fireworks, a year too early");
        REMARKS.put(LocalDate.of(2000, 2, 29), "the leap day that comes in 400 years");
        REMARKS.put(LAST_DAY, "the century ends");
    }

    /** A letter; its body is some of the calendar in words, part by part, or missing. */
    static final class Letter {
        final int id;
        final String title;
        final List<Supplier<String>> parts;

        private Letter(int id, String title, List<Supplier<String>> parts) {
            this.id = id;
            this.title = title;
            this.parts = parts;
        }

        /** The body, of which no more than a part is in memory at a time. */
        Reader open() {
            return new PartsReader(parts.iterator());
        }
    }

    /** Makes the next part when the one before has been read. */
    private static final class PartsReader extends Reader {
        private final Iterator<Supplier<String>> parts;
        private String part = "";
        private int at;

        PartsReader(Iterator<Supplier<String>> parts) {
            this.parts = parts;
        }

        @Override
        public int read(char[] buffer, int offset, int length) {
            // Also passes over an empty part: 0 characters would not be a good answer of a Reader.
            while (at == part.length()) {
                if (!parts.hasNext()) {
                    return -1;
                }
                part = parts.next().get();
                at = 0;
            }
            int count = Math.min(length, part.length() - at);
            part.getChars(at, at + count, buffer, offset);
            at += count;
            return count;
        }

        @Override
        public void close() {}
    }

    private SampleContent() {}

    static List<LocalDate> days() {
        List<LocalDate> days = new ArrayList<>();
        for (LocalDate day = FIRST_DAY; !day.isAfter(LAST_DAY); day = day.plusDays(1)) {
            days.add(day);
        }
        return days;
    }

    static String weekday(LocalDate day) {
        return day.getDayOfWeek().getDisplayName(TextStyle.FULL, Locale.ENGLISH);
    }

    /** The day's row as it stands in the CSV file. */
    static String calendarLine(LocalDate day) {
        String remark = REMARKS.getOrDefault(day, "");
        return day + "," + weekday(day) + "," + day.getDayOfYear() + ","
                + day.get(IsoFields.WEEK_OF_WEEK_BASED_YEAR) + ","
                + (remark.contains(",") ? '"' + remark + '"' : remark);
    }

    static int remarks() {
        return REMARKS.size();
    }

    /** Writes the calendar as a CSV file. */
    static void writeCalendar(Path file) throws IOException {
        List<String> lines = new ArrayList<>();
        lines.add(CALENDAR_HEADING);
        days().forEach(day -> lines.add(calendarLine(day)));
        Files.write(file, lines, StandardCharsets.UTF_8);
    }

    static List<Letter> letters() {
        List<Letter> letters = new ArrayList<>();
        letters.add(
                new Letter(
                        1,
                        "A short note",
                        Collections.singletonList(() -> "Nothing new; the clay is good. — Adela")));
        letters.add(new Letter(2, "Never written", Collections.emptyList()));
        for (LocalDate start = LocalDate.of(1972, 1, 1);
                start.getYear() < 1974;
                start = start.plusMonths(3)) {
            // A copy for the lambda, which is asked for the text when it is needed.
            LocalDate quarter = start;
            letters.add(
                    new Letter(
                            letters.size() + 1,
                            "The quarter from " + quarter + ", day by day",
                            Collections.singletonList(() -> almanac(quarter, 3))));
        }
        letters.add(new Letter(letters.size() + 1, "The whole calendar, year by year", years()));
        return letters;
    }

    private static List<Supplier<String>> years() {
        List<Supplier<String>> years = new ArrayList<>();
        for (LocalDate start = FIRST_DAY; start.isBefore(LAST_DAY); start = start.plusYears(1)) {
            LocalDate year = start;
            years.add(() -> almanac(year, 12));
        }
        return years;
    }

    /** So many months in words, a line a day. */
    private static String almanac(LocalDate start, int months) {
        StringBuilder text = new StringBuilder();
        LocalDate end = start.plusMonths(months);
        for (LocalDate day = start; day.isBefore(end); day = day.plusDays(1)) {
            text.append(day).append(" is ").append(weekday(day)).append(", day ");
            text.append(day.getDayOfYear()).append(" of ").append(day.lengthOfYear()).append('\n');
        }
        return text.toString();
    }
}
