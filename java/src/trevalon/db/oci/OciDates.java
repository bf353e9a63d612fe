package trevalon.db.oci;

import java.time.LocalDateTime;

/** Oracle's seven-byte DATE. */
final class OciDates {
    /** Century and year are kept with this added, so that years before our era stay positive. */
    private static final int EXCESS = 100;

    private OciDates() {}

    /** The date and time in the first seven bytes. */
    static LocalDateTime decode(byte[] bytes) {
        int year = (unsigned(bytes[0]) - EXCESS) * 100 + unsigned(bytes[1]) - EXCESS;
        // There is no year 0 on the server: 1 BC is -1 there, and 0 in java.time.
        int isoYear = year < 0 ? year + 1 : year;
        return LocalDateTime.of(
                isoYear, bytes[2], bytes[3], bytes[4] - 1, bytes[5] - 1, bytes[6] - 1);
    }

    private static int unsigned(byte value) {
        return value & 0xFF;
    }
}
