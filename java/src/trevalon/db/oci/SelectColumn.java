package trevalon.db.oci;

/**
 * A select-list column with what is looked up once a statement instead of once a value.
 *
 * <p>The type is kept here, because asking the column for it is a native call.
 */
final class SelectColumn {
    final OciColumn peer;
    final int type;

    /** The LONG value of the current row while it is being read. */
    LongStream value;

    /** The buffer of the column's LONG values, made for the first one and used for all. */
    byte[] piece;
    private boolean ownsLocator;

    SelectColumn(OciColumn peer) {
        this.peer = peer;
        type = peer.internalType();
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
     * Bytes of one element of the column's fetch array, as the native side sizes it.
     *
     * @param pieceLength the statement's piece length for LONG values
     */
    int elementSize(int pieceLength) {
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

    void dropValue() {
        if (value != null) {
            value.expire();
            value = null;
        }
    }

    /** Frees the column; the cursor that it was defined on must be closed by then. */
    void close() {
        dropValue();
        if (ownsLocator) {
            peer.deallocLobLocator();
            ownsLocator = false;
        }
        peer.close();
    }
}
