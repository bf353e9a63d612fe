package trevalon.db.oci;

import java.io.IOException;
import java.io.InputStream;
import java.io.InputStreamReader;
import java.io.Reader;
import java.nio.ByteBuffer;
import java.nio.CharBuffer;
import java.nio.charset.CharsetEncoder;
import java.nio.charset.CoderResult;
import java.nio.charset.CodingErrorAction;
import java.nio.charset.StandardCharsets;

/**
 * Where the pieces of a streamed value come from.
 *
 * <p>Called from within a native call, on the thread that executes. An exception ends the
 * execution, undoes it, and comes out of it as it is.
 */
interface PieceSource {
    /**
     * Fills the buffer from its start as far as possible.
     *
     * @param length most bytes wanted
     * @return the bytes filled in, 0 at the end of the value
     */
    int fill(byte[] buffer, int length) throws IOException;

    /** Bytes passed on as they are. */
    static PieceSource ofBytes(InputStream in) {
        return (buffer, length) -> {
            int limit = Math.min(length, buffer.length);
            int filled = 0;
            // A stream may return less than asked for long before its end; only -1 is the end.
            while (filled < limit) {
                int count = in.read(buffer, filled, limit - filled);
                if (count < 0) {
                    break;
                }
                filled += count;
            }
            return filled;
        };
    }

    /** Bytes that hold UTF-16 characters, high byte first. */
    static PieceSource ofUtf16(InputStream in) {
        return ofCharacters(new InputStreamReader(in, StandardCharsets.UTF_16BE));
    }

    /** Characters, encoded as all text that crosses to the native side. */
    static PieceSource ofCharacters(Reader in) {
        return new CharacterSource(in);
    }

    /** Encodes a Reader piece by piece; no character is ever split between two pieces. */
    final class CharacterSource implements PieceSource {
        /** The longest encoded character; a smaller piece could never take it. */
        private static final int LONGEST_CHARACTER = 4;

        private final Reader in;
        private final CharBuffer pending = CharBuffer.allocate(4096);
        private final CharsetEncoder encoder =
                OciText.CHARSET
                        .newEncoder()
                        .onMalformedInput(CodingErrorAction.REPLACE)
                        .onUnmappableCharacter(CodingErrorAction.REPLACE);
        private boolean ended;

        private CharacterSource(Reader in) {
            this.in = in;
            pending.flip();
        }

        @Override
        public int fill(byte[] buffer, int length) throws IOException {
            // The array is a little longer than the piece (see {@code getNextStreamBuffer}), which
            // leaves room for a character that would not fit a very short one.
            int limit = Math.min(buffer.length, Math.max(length, LONGEST_CHARACTER));
            ByteBuffer out = ByteBuffer.wrap(buffer, 0, limit);
            // Goes on until the piece is full or the Reader has ended: a result of 0 bytes would
            // mean the end of the value.
            CoderResult result = encoder.encode(pending, out, ended);
            while (result.isUnderflow() && !ended) {
                refill();
                result = encoder.encode(pending, out, ended);
            }
            return out.position();
        }

        private void refill() throws IOException {
            // Half of a surrogate pair may be left over: it stays in front of what comes next.
            pending.compact();
            ended = in.read(pending) < 0;
            pending.flip();
        }
    }
}
