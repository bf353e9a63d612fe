package trevalon.db.oci;

import java.io.IOException;
import java.io.InputStream;

/**
 * Bytes that arrive a piece at a time.
 *
 * <p>Nothing is fetched before the first call. A piece that could not be fetched leaves nothing
 * unread, so that a failure never shows the piece before it again.
 */
abstract class PieceInput extends InputStream {
    private byte[] piece;
    /** The unread part of the piece: from `at` up to `end`. */
    private int at;
    private int end;

    /** @param piece holds one piece, and belongs to the stream from now on */
    PieceInput(byte[] piece) {
        this.piece = piece;
    }

    /** Fetches the next piece to the array's beginning; its length, 0 at the end. */
    abstract int next(byte[] piece) throws IOException;

    /** Raises for a stream that must not be read any more, also where bytes are left. */
    abstract void requireOpen() throws IOException;

    @Override
    public final int read() throws IOException {
        return fill() ? piece[at++] & 0xFF : -1;
    }

    @Override
    public final int read(byte[] buffer, int offset, int length) throws IOException {
        if (length == 0) {
            return 0;
        }
        boolean whole = offset == 0 && length == piece.length && buffer.length == piece.length;
        if (at == end && whole) {
            // As good as our own, and without a copy.
            requireOpen();
            int count = next(buffer);
            return count > 0 ? count : -1;
        }
        if (!fill()) {
            return -1;
        }
        int count = Math.min(length, end - at);
        System.arraycopy(piece, at, buffer, offset, count);
        at += count;
        return count;
    }

    /** What is left of the piece that is here already. */
    @Override
    public final int available() {
        return end - at;
    }

    /** Gives back what was read to the stream's end: it comes again. */
    final void unread(byte[] bytes) {
        piece = bytes;
        at = 0;
        end = bytes.length;
    }

    private boolean fill() throws IOException {
        requireOpen();
        if (at == end) {
            at = 0;
            end = 0;
            end = next(piece);
        }
        return end > 0;
    }
}
