package trevalon.db.oci;

import java.io.IOException;
import java.util.HashMap;
import java.util.Map;

/**
 * One statement handle of a session: the thin peer of the native cursor record.
 *
 * <p>The native methods keep the library's convention: a boolean result is true when the call
 * failed, and the error state is then in the fields below. {@link OciStatement} is the class that
 * programs use; it orders the calls, and turns failures into exceptions. Calls on one cursor must
 * not overlap, except {@link #cancel}.
 */
public final class OciCursor {
    /** Bytes in the database's character set. */
    public static final int ASCII_STREAM = 1;

    /** Bytes that hold UTF-16 characters, high byte first. */
    public static final int UNICODE_STREAM = 2;

    /** Bytes that are stored as they are. */
    public static final int BINARY_STREAM = 3;

    /** Characters of a Reader. */
    public static final int CHARACTER_STREAM = 4;

    private final int elem;
    private final Map<Integer, PieceSource> streams = new HashMap<>();
    private int longColumns;

    // From here on by the names that the native side knows: the record's address, and what the last
    // call left. The native side writes them after each call, also after a good one.
    private int selPieceLength;
    private int cursordata32;
    private long cursordata64;
    private int cdaerrorcode;
    private int rowsprocessed;
    private int parsererroffset;
    private int sqlfunccode;
    private int ocifunccode;
    private int oserrcode;
    private int warnflags;

    /**
     * Creates the cursor and its native record; no statement handle is allocated yet.
     *
     * @param connection the session that the cursor will be opened on
     * @param elem the cursor slot that the caller took for this cursor and gives back after it
     * @param selPieceLength bytes of one piece of a LONG value that is being fetched
     * @param openNow whether to allocate the statement handle at once
     * @param sql a statement to parse at once (this needs an open cursor), or null
     */
    OciCursor(
            OciConnection connection, int elem, int selPieceLength, boolean openNow, String sql) {
        this.elem = elem;
        this.selPieceLength = selPieceLength;
        initialize(elem);
        if (openNow && !open(connection) && sql != null) {
            parse(OciText.encode(sql), false);
        }
    }

    /** The slot of the cursor pool that this cursor occupies. */
    int slot() {
        return elem;
    }

    int pieceLength() {
        return selPieceLength;
    }

    /** Oracle's error number after the last call, 0 for none. */
    int errorCode() {
        return cdaerrorcode;
    }

    /** Rows fetched so far by a query, or changed by another statement (unsigned 32 bits). */
    int rowsProcessed() {
        return rowsprocessed;
    }

    /** Offset of a parse error in the statement in bytes; 0 also where it is not known. */
    int parseErrorOffset() {
        return parsererroffset;
    }

    /** The statement's SQL function code as the interface numbers them. */
    int sqlFunctionCode() {
        return sqlfunccode;
    }

    /** Notes how many LONG and LONG RAW columns the select list has. */
    void setLongColumns(int count) {
        longColumns = count;
    }

    /** True when the select list has LONG or LONG RAW columns, which arrive one row a call. */
    public boolean hasBlobColumn() {
        return longColumns > 0;
    }

    /** Whether the value is NULL that a column or variable has in this element of its arrays. */
    boolean isNull(OciColumn column, int element) {
        return getIndicator(column, element) == OciLimits.NULL_INDICATOR;
    }

    /** Names the source of a streamed bind variable; it is read during the next execution. */
    void registerStream(int position, PieceSource source) {
        streams.put(position, source);
    }

    void forgetStreams() {
        streams.clear();
    }

    /**
     * Supplies the next piece of a streamed bind variable; the native side calls this while a
     * statement executes.
     *
     * @param buffer receives the piece from its start
     * @param position the bind variable's position
     * @param pieceLength most bytes wanted; the buffer is a little longer
     * @param streamType one of the stream constants of this class
     * @return the bytes placed in the buffer, 0 at the end of the value
     */
    public int getNextStreamBuffer(byte[] buffer, int position, int pieceLength, int streamType)
            throws IOException {
        PieceSource source = streams.get(position);
        if (source == null) {
            throw new IllegalStateException("No stream is registered for variable " + position);
        }
        return source.fill(buffer, pieceLength);
    }

    native void initialize(int elem);

    /** Allocates the statement handle; must alternate with {@link #close}. */
    native boolean open(OciConnection connobj);

    /** Breaks the call that runs on the session, from any thread. */
    native boolean cancel();

    /**
     * Frees the statement handle and the pieces of LONG values that nobody has read. Goes before
     * the columns' own close.
     */
    native boolean close();

    native void native_finalize();

    /** Prepares the text; a query is described, too. */
    native boolean parse(byte[] HSqlBuf, boolean defflg);

    /**
     * Reads the attributes of the select-list column at the column's position; fails behind the
     * last one.
     */
    native boolean describe(OciColumn colobj);

    /** True for LONG and LONG RAW, whatever the name says; BLOB and CLOB are the next method's. */
    native boolean isBlobColumn(OciColumn colobj);

    native boolean isOCI8ILOBColumn(OciColumn colobj);

    /** Throws always: release 8 has no such option. */
    native boolean oopt(int waitopt);

    native boolean bindVariableByPosition(OciColumn colobj);

    native boolean bindCursorByPosition(OciCursor curobj, int colpos);

    /** Besides a failure, whatever a stream throws that is read meanwhile comes out of it. */
    native boolean exec() throws IOException;

    /**
     * Defines the column with arrays of so many rows. A LONG column goes on the cursor's chain and
     * is fetched in pieces, one row a call.
     */
    native boolean bindSelectItem(OciColumn colobj, int fetchsize);

    /** Fetches one row into the defined columns; a LONG column gets no pieces. */
    native boolean fetch();

    /**
     * Executes a query and fetches the first array. Fewer rows than it takes are no failure, except
     * no row at all of a query with LONG columns (ORA-01403).
     */
    native boolean execAndFetch(int fetchsize);

    native boolean arrayFetch(int fetchsize);

    /** Copies seven bytes, of NULL as well: the indicator has to be asked first. */
    native int getDateValue(OciColumn colobj, int recnum, byte[] HDateBuf);

    native int getReturnCode(OciColumn colobj, int recnum);

    /**
     * Copies the element's bytes, as many as were fetched and the array takes; returns their
     * number.
     */
    native int getByteValue(OciColumn colobj, int recnum, byte[] HByteBuf);

    /** Bytes in the pieces that are still queued for the column; negative for another type. */
    native int getLongDataLength(OciColumn colobj);

    /**
     * Takes the oldest piece, which the array must have room for; 0 when none is left. The offset
     * has no effect.
     */
    native int getLongByteValue(OciColumn colobj, int offset, byte[] HByteBuf);

    native int getLongStringValue(OciColumn colobj, int offset, byte[] HStrBuf);

    native int getIndicator(OciColumn colobj, int recnum);

    /** Copies the text up to its zero byte and returns its length; -1 for NULL. */
    native int getStringValue(OciColumn colobj, int recnum, byte[] HStrBuf);

    native int getIntegerValue(OciColumn colobj, int recnum);

    /** -1 for NULL: the indicator has to be asked first. */
    native double getDoubleValue(OciColumn colobj, int recnum);
}
