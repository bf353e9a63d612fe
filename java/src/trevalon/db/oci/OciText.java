package trevalon.db.oci;

import java.nio.charset.Charset;
import java.nio.charset.StandardCharsets;

/** The one place that decides how text becomes the bytes that cross to the native side. */
final class OciText {
    static final Charset CHARSET = StandardCharsets.UTF_8;

    private OciText() {}

    static byte[] encode(String text) {
        return text.getBytes(CHARSET);
    }

    static String decode(byte[] bytes, int length) {
        return new String(bytes, 0, length, CHARSET);
    }
}
