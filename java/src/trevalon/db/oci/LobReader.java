package trevalon.db.oci;

import java.io.IOException;
import java.io.Reader;

/**
 * The characters of a CLOB from a position on, fetched a piece at a time.
 *
 * <p>A piece may end in the middle of a surrogate pair: its halves are handed out one after the
 * other, as a Reader may. Otherwise as {@link LobInput}.
 */
final class LobReader extends Reader {
    private final OciLob lob;
    private final char[] piece = new char[OciLob.PIECE_LENGTH];
    private long position;
    private int at;
    private int end;
    private boolean closed;

    LobReader(OciLob lob, long position) {
        this.lob = lob;
        this.position = position;
    }

    @Override
    public int read(char[] buffer, int offset, int length) throws IOException {
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
            throw new IOException("The reader of this CLOB is closed");
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
