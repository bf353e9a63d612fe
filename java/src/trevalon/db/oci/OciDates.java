package trevalon.db.oci;

import java.time.DateTimeException;
import java.time.LocalDateTime;
import java.time.format.DateTimeFormatter;
import java.time.format.DateTimeFormatterBuilder;
import java.time.temporal.ChronoField;
import java.util.HashMap;
import java.util.Locale;
import java.util.Map;

/**
 * Oracle's seven-byte DATE.
 *
 * <p>Dates are those of the proleptic ISO calendar in Java and of the Julian calendar before 15
 * October 1582 on the server: fields cross as they are, and no day is counted here.
 */
public final class OciDates {
    /** Century and year are kept with this added, so that years before our era stay positive. */
    private static final int EXCESS = 100;

    private static final int FIRST_YEAR = -4712;
    private static final int LAST_YEAR = 9999;

    private OciDates() {}

    /**
     * Writes a day as the server counts its years, where 1 BC is -0001, and then the time by this
     * pattern.
     */
    public static DateTimeFormatter formatter(String timePattern) {
        Map<Long, String> signs = new HashMap<>();
        signs.put(0L, "-");
        signs.put(1L, "");
        return new DateTimeFormatterBuilder()
                .appendText(ChronoField.ERA, signs)
                .appendPattern("yyyy-MM-dd" + timePattern)
                .toFormatter(Locale.ROOT);
    }

    /**
     * The date and time in the first seven bytes. ORA-01839 for a day that java.time does not know:
     * the server counts in the Julian calendar up to 1582, which has 29 February in 1500, too.
     */
    static LocalDateTime decode(byte[] bytes) throws OciException {
        int year = (unsigned(bytes[0]) - EXCESS) * 100 + unsigned(bytes[1]) - EXCESS;
        // There is no year 0 on the server: 1 BC is -1 there, and 0 in java.time.
        int isoYear = year < 0 ? year + 1 : year;
        try {
            return LocalDateTime.of(
                    isoYear, bytes[2], bytes[3], bytes[4] - 1, bytes[5] - 1, bytes[6] - 1);
        } catch (DateTimeException e) {
            throw new OciException(1839, "ORA-01839: date not valid for month specified");
        }
    }

    /**
     * The year as the server counts it; ORA-01841 outside the calendar that it keeps. A DATE has no
     * fraction of a second, so that part of a value is left behind.
     */
    static int serverYear(LocalDateTime value) throws OciException {
        int year = value.getYear() > 0 ? value.getYear() : value.getYear() - 1;
        if (year < FIRST_YEAR || year > LAST_YEAR) {
            throw new OciException(
                    1841,
                    "ORA-01841: (full) year must be between -4713 and +9999, and not be 0");
        }
        return year;
    }

    private static int unsigned(byte value) {
        return value & 0xFF;
    }
}
