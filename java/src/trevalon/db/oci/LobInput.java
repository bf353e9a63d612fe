package trevalon.db.oci;

import java.io.IOException;
import java.io.InputStream;

/**
 * The bytes of a BLOB from a position on, fetched a piece at a time.
 *
 * <p>Nothing is read before the first call. The position moves only after a piece has arrived, so a
 * failure can be followed by another attempt. Closing leaves the LOB open, which is its owner's.
 */
final class LobInput extends InputStream {
    private final OciLob lob;
    private final byte[] piece = new byte[OciLob.PIECE_LENGTH];
    private long position;
    /** The unread part of the piece: from `at` up to `end`. */
    private int at;
    private int end;
    private boolean closed;

    LobInput(OciLob lob, long position) {
        this.lob = lob;
        this.position = position;
    }

    @Override
    public int read() throws IOException {
        return fill() ? piece[at++] & 0xFF : -1;
    }

    @Override
    public int read(byte[] buffer, int offset, int length) throws IOException {
        if (length == 0) {
            return 0;
        }
        if (!fill()) {
            return -1;
        }
        int count = Math.min(length, end - at);
        System.arraycopy(piece, at, buffer, offset, count);
        at += count;
        return count;
    }

    private boolean fill() throws IOException {
        if (closed) {
            throw new IOException("The stream of this BLOB is closed");
        }
        if (at == end) {
            at = 0;
            // Empty until the read has succeeded: a failure must not show the old piece again.
            end = 0;
            try {
                end = Math.max(0, lob.read(position, piece, 0, piece.length));
            } catch (OciException e) {
                throw new IOException(e.getMessage(), e);
            }
            position += end;
        }
        return end > 0;
    }

    @Override
    public void close() {
        closed = true;
    }
}
