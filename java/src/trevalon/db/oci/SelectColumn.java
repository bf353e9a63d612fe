package trevalon.db.oci;

/**
 * A select-list column with what is looked up once a statement instead of once a value.
 *
 * <p>The type is kept here, because asking the column for it is a native call.
 */
final class SelectColumn {
    /** What a buffer begins with, where its column may have longer values. */
    private static final int SHORT_TEXT = 256;

    private static final int SHORT_NUMBER = 48;

    final OciColumn peer;
    final int type;

    /** Whether values arrive as text. */
    final boolean text;

    /** Bytes of one element of the column's fetch array, as the native side sizes it. */
    private int elementSize;

    /**
     * Takes one value at a time, or one piece of a LONG: no value costs a buffer of its own. Hardly
     * longer than the values are, since the native side copies the whole array to and fro, and not
     * what they take of it.
     */
    private byte[] buffer;

    /** The LONG value of the current row while it is being read. */
    LongStream value;
    private boolean ownsLocator;

    SelectColumn(OciColumn peer) {
        this.peer = peer;
        type = peer.internalType();
        text = type != OciType.DATE && type != OciType.RAW && !isLarge();
    }

    /** True for the types of which a fetch brings one row at a time. */
    boolean isLarge() {
        return OciType.isLong(type) || OciType.isLob(type);
    }

    /** Gives a LOB column the locator that each fetch fills; the define refers to it. */
    void allocateLocator(OciConnection connection) {
        if (OciType.isLob(type) && !ownsLocator) {
            peer.allocLobLocator(connection, type);
            ownsLocator = true;
        }
    }

    /**
     * Makes the buffer for the column's values.
     *
     * @param pieceLength the statement's piece length for LONG values
     * @return the bytes of one element of the fetch array
     */
    int sizeElements(int pieceLength) {
        elementSize = nativeElementSize(pieceLength);
        int enough = type == OciType.NUMBER ? SHORT_NUMBER : SHORT_TEXT;
        buffer = new byte[text ? Math.min(elementSize, enough) : elementSize];
        return elementSize;
    }

    private int nativeElementSize(int pieceLength) {
        switch (type) {
            case OciType.VARCHAR2:
            case OciType.CHAR:
                return 3 * peer.length() + 1;
            case OciType.RAW:
                return peer.length();
            case OciType.NUMBER:
                return OciLimits.NUMBER_TEXT;
            case OciType.DATE:
                return OciLimits.DATE;
            case OciType.LONG:
            case OciType.LONG_RAW:
                return pieceLength;
            default:
                return OciLimits.ROWID_TEXT;
        }
    }

    /** Where the column's last value is. */
    byte[] buffer() {
        return buffer;
    }

    /**
     * Takes a row's text into the buffer.
     *
     * @return its length, -1 for NULL
     */
    int readText(OciCursor cursor, int row) {
        while (true) {
            try {
                return cursor.getStringValue(peer, row, buffer);
            } catch (NullPointerException e) {
                // That is how the native side refuses an array that is too short.
                if (buffer.length == elementSize) {
                    throw e;
                }
                buffer = new byte[Math.min(4 * buffer.length, elementSize)];
            }
        }
    }

    void dropValue() {
        if (value != null) {
            value.expire();
            value = null;
        }
    }

    /**
     * Frees the column; the cursor that it was defined on must be closed by then.
     *
     * @param rows of the fetch arrays
     */
    void close(ColumnPool pool, int rows) {
        dropValue();
        if (ownsLocator) {
            peer.deallocLobLocator();
            ownsLocator = false;
        }
        if (isLarge()) {
            peer.close();
        } else {
            pool.give(peer, rows, elementSize);
        }
    }
}
