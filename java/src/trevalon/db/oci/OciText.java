package trevalon.db.oci;

import java.nio.charset.Charset;
import java.nio.charset.StandardCharsets;

/**
 * The one place that decides how text becomes the bytes that cross to the native side.
 *
 * <p>UTF-8, which the session's NLS_LANG names to the client library. Characters that cannot be
 * encoded (halves of surrogate pairs) become question marks.
 */
final class OciText {
    static final Charset CHARSET = StandardCharsets.UTF_8;

    private static final String DIGITS = "0123456789ABCDEF";

    private OciText() {}

    /** The bytes without a terminator: array lengths cross the border, too. */
    static byte[] encode(String text) {
        return text.getBytes(CHARSET);
    }

    static String decode(byte[] bytes, int length) {
        return new String(bytes, 0, length, CHARSET);
    }

    /** Two capital digits for each byte, as the server prints RAW. */
    static String hexadecimal(byte[] bytes) {
        char[] digits = new char[2 * bytes.length];
        for (int i = 0; i < bytes.length; i++) {
            digits[2 * i] = DIGITS.charAt(bytes[i] >> 4 & 0xF);
            digits[2 * i + 1] = DIGITS.charAt(bytes[i] & 0xF);
        }
        return new String(digits);
    }
}
