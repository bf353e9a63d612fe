package trevalon.db.oci;

import java.math.BigDecimal;

/**
 * Reads numbers from the text that they arrive as, without an object for each: those that a long
 * holds as a sign and digits, with or without a point. That is how the server writes nearly all.
 */
final class ShortDecimal {
    /** So many digits always fit a long. */
    private static final int MOST_DIGITS = 18;

    /** Up to here every integer is a double. */
    private static final long MOST_EXACT = 1L << 53;

    /** Powers of ten that a double holds exactly. */
    private static final double[] POWERS = {
        1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15, 1e16,
        1e17, 1e18
    };

    private long digits;
    private int scale;

    /** Takes a number; false for any other text, after which there is no value to ask for. */
    boolean parse(byte[] text, int length) {
        // Longer than digits, a sign and a point: their sum below could not be trusted.
        if (length <= 0 || length > MOST_DIGITS + 2) {
            return false;
        }
        boolean negative = text[0] == '-';
        int start = negative ? 1 : 0;
        int point = -1;
        long value = 0;
        for (int at = start; at < length; at++) {
            int digit = text[at] - '0';
            if (digit >= 0 && digit <= 9) {
                value = 10 * value + digit;
            } else if (text[at] == '.' && point < 0) {
                point = at;
            } else {
                return false;
            }
        }
        int count = length - start - (point < 0 ? 0 : 1);
        if (count == 0 || count > MOST_DIGITS) {
            return false;
        }
        digits = negative ? -value : value;
        scale = point < 0 ? 0 : length - 1 - point;
        return true;
    }

    /** Whether the number was written without a fraction. */
    boolean isInteger() {
        return scale == 0;
    }

    long longValue() {
        return digits;
    }

    /** Whether digits and power of ten are exact, so that their quotient is rounded only once. */
    boolean hasExactParts() {
        return -MOST_EXACT <= digits && digits <= MOST_EXACT;
    }

    double doubleValue() {
        return digits / POWERS[scale];
    }

    BigDecimal decimalValue() {
        return BigDecimal.valueOf(digits, scale);
    }
}
