package trevalon.db.oci;

import java.io.IOException;
import java.io.Writer;

/**
 * Writes a CLOB from a position on, a piece at a time. A failure ends the writer.
 *
 * <p>As {@link LobOutput}, in UTF-16 units: a pair that two pieces divide is whole again in the
 * value.
 */
final class LobWriter extends Writer {
    private final OciLob lob;
    private final char[] piece = new char[OciLob.PIECE_LENGTH];
    private long position;
    /**
     * Units of the piece that wait to be written; `position` is where the first of them belongs.
     */
    private int used;
    private boolean closed;

    LobWriter(OciLob lob, long position) {
        this.lob = lob;
        this.position = position;
    }

    @Override
    public void write(char[] buffer, int offset, int length) throws IOException {
        requireOpen();
        for (int done = 0; done < length; ) {
            int count = Math.min(length - done, piece.length - used);
            System.arraycopy(buffer, offset + done, piece, used, count);
            used += count;
            done += count;
            if (used == piece.length) {
                flush();
            }
        }
    }

    @Override
    public void flush() throws IOException {
        requireOpen();
        try {
            lob.write(position, piece, 0, used);
        } catch (OciException | RuntimeException e) {
            // What follows would stand at the wrong place.
            closed = true;
            throw new IOException(e.getMessage(), e);
        }
        position += used;
        used = 0;
    }

    private void requireOpen() throws IOException {
        if (closed) {
            throw new IOException("The writer of this CLOB is closed");
        }
    }

    @Override
    public void close() throws IOException {
        if (!closed) {
            flush();
            closed = true;
        }
    }
}
