package trevalon.db.oci;

import java.io.IOException;

/**
 * The bytes of a BLOB from a position on, fetched a piece at a time.
 *
 * <p>The position moves only after a piece has arrived, so a failure can be followed by another
 * attempt. Closing leaves the LOB open, which is its owner's.
 */
final class LobInput extends PieceInput {
    private final OciLob lob;
    private long position;
    private boolean closed;

    LobInput(OciLob lob, long position) {
        super(new byte[OciLob.PIECE_LENGTH]);
        this.lob = lob;
        this.position = position;
    }

    @Override
    int next(byte[] piece) throws IOException {
        try {
            int count = Math.max(0, lob.read(position, piece, 0, piece.length));
            position += count;
            return count;
        } catch (OciException e) {
            throw new IOException(e.getMessage(), e);
        }
    }

    @Override
    void requireOpen() throws IOException {
        if (closed) {
            throw new IOException("The stream of this BLOB is closed");
        }
    }

    @Override
    public void close() {
        closed = true;
    }
}
