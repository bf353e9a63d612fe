package trevalon.db.oci;

import java.io.IOException;
import java.io.OutputStream;

/**
 * Writes a BLOB from a position on, a piece at a time. A failure ends the stream.
 *
 * <p>Bytes are gathered to whole pieces, because each write is a call, and an update of the value,
 * of its own. What is under way is written by a flush or close; without either it is lost. Closing
 * leaves the LOB open.
 */
final class LobOutput extends OutputStream {
    private final OciLob lob;
    private final byte[] piece = new byte[OciLob.PIECE_LENGTH];
    private long position;
    /**
     * Bytes of the piece that wait to be written; `position` is where the first of them belongs.
     */
    private int used;
    private boolean closed;

    LobOutput(OciLob lob, long position) {
        this.lob = lob;
        this.position = position;
    }

    @Override
    public void write(int value) throws IOException {
        write(new byte[] {(byte) value}, 0, 1);
    }

    @Override
    public void write(byte[] buffer, int offset, int length) throws IOException {
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
            throw new IOException("The stream of this BLOB is closed");
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
