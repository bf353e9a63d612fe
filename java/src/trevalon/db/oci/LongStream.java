package trevalon.db.oci;

import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.sql.SQLException;

/**
 * The bytes of one LONG or LONG RAW value: hands over the pieces that a fetch has queued.
 *
 * <p>All pieces of the row are in native memory by the time that the row stands; reading frees them
 * one by one. That is why a stream reads a value once, and why the length counts down.
 */
final class LongStream extends PieceInput {
    private final OciCursor cursor;
    private final OciColumn column;
    private final boolean text;
    private final int pieceLength;
    private boolean expired;

    /**
     * @param text whether the column is a LONG, and not a LONG RAW
     * @param piece the buffer for one piece, as long as the cursor's piece length
     */
    LongStream(OciCursor cursor, OciColumn column, boolean text, byte[] piece) {
        super(piece);
        this.cursor = cursor;
        this.column = column;
        this.text = text;
        this.pieceLength = piece.length;
    }

    /** The statement moves to another row, whose pieces take the place of this value's. */
    void expire() {
        expired = true;
    }

    /** A piece is handed over whole, so that the array must be as long as the longest one. */
    @Override
    int next(byte[] piece) {
        return text
                ? cursor.getLongStringValue(column, 0, piece)
                : cursor.getLongByteValue(column, 0, piece);
    }

    @Override
    void requireOpen() throws IOException {
        if (expired) {
            throw new IOException("The row of this LONG value has gone by");
        }
    }

    /** What is left of the value, which is kept, and stays to be read. */
    byte[] rest() throws SQLException {
        ByteArrayOutputStream out = new ByteArrayOutputStream();
        byte[] buffer = new byte[pieceLength];
        try {
            for (int count = read(buffer); count >= 0; count = read(buffer)) {
                out.write(buffer, 0, count);
            }
        } catch (IOException e) {
            throw new SQLException("Reading a LONG value", e);
        }
        byte[] rest = out.toByteArray();
        unread(rest);
        return rest;
    }
}
