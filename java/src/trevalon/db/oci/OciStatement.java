package trevalon.db.oci;

import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.InputStream;
import java.math.BigDecimal;
import java.sql.SQLException;
import java.sql.SQLFeatureNotSupportedException;
import java.time.LocalDateTime;
import java.time.format.DateTimeFormatter;
import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import java.util.Locale;

/**
 * A statement of a session: executes SQL, and reads the rows of a query in arrays.
 *
 * <p>Values are read by the column's position, from 1, on the row that {@link #next} moved to.
 * LONG values arrive in pieces, and can be read once per row.
 */
public final class OciStatement implements AutoCloseable {
    public static final int DEFAULT_FETCH_SIZE = 100;
    static final int DEFAULT_PIECE_LENGTH = 32 * 1024;

    /** Rows of wide columns are fetched in smaller arrays, so that a fetch stays below this. */
    private static final long FETCH_MEMORY = 32L * 1024 * 1024;

    private static final int NO_MORE_ROWS = 1403;
    private static final int NO_SUCH_POSITION = 24334;
    private static final int NULL_INDICATOR = -1;
    private static final DateTimeFormatter DATE_TEXT =
            DateTimeFormatter.ofPattern("uuuu-MM-dd HH:mm:ss");

    private final OciConnection connection;
    private final OciCursor cursor;
    private final SlotPool slots;
    private final List<Column> columns = new ArrayList<>();
    private int fetchSize = DEFAULT_FETCH_SIZE;
    private boolean closed;

    /** Whether a statement handle is allocated: open and close must alternate strictly. */
    private boolean opened;

    private boolean defined;
    private int arrayRows;
    private byte[] scratch = new byte[0];

    private int row;
    private int rowsInArray;
    private int rowsBefore;
    private boolean lastArray;

    /** A select-list column with what is looked up once a statement instead of once a value. */
    private static final class Column {
        final OciColumn peer;
        final int type;
        LongStream value;
        byte[] piece;

        Column(OciColumn peer) {
            this.peer = peer;
            type = peer.internalType();
        }
    }

    OciStatement(OciConnection connection, int pieceLength) throws OciException {
        if (pieceLength < 1) {
            throw new IllegalArgumentException("Piece length " + pieceLength);
        }
        this.connection = connection;
        slots = NativeLibrary.get().cursors();
        int slot = slots.take();
        try {
            cursor = new OciCursor(connection, slot, pieceLength, false, null);
        } catch (RuntimeException | Error e) {
            slots.give(slot);
            throw e;
        }
    }

    /** Rows that one fetch asks for; takes effect at the next prepare. */
    public void setFetchSize(int rows) {
        if (rows < 1) {
            throw new IllegalArgumentException("Fetch size " + rows);
        }
        fetchSize = rows;
    }

    /** Parses a statement and, for a query, describes its columns; nothing is executed. */
    public void prepare(String sql) throws OciException {
        requireOpen();
        // A cursor describes only the first query after its open, and its LONG chain only grows:
        // each statement starts on a handle of its own.
        reset();
        check(cursor.open(connection));
        opened = true;
        try {
            check(cursor.parse(OciText.encode(sql), false));
            describeAll();
        } catch (OciException e) {
            reset();
            throw e;
        }
    }

    private void describeAll() throws OciException {
        while (describe(columns.size() + 1)) {
            // The interface does not tell the number of columns: the list ends with an error.
        }
        cursor.setLongColumns((int) columns.stream().filter(c -> OciType.isLong(c.type)).count());
    }

    private boolean describe(int position) throws OciException {
        OciColumn column = new OciColumn(position, null);
        if (!cursor.describe(column)) {
            columns.add(new Column(column));
            return true;
        }
        int code = cursor.errorCode();
        column.close();
        // Position 1 of a statement that is no query fails in several ways, all of them expected.
        if (position == 1 || code == NO_SUCH_POSITION) {
            return false;
        }
        throw failure();
    }

    /**
     * Prepares and executes a statement.
     *
     * @return true for a query, whose rows {@link #next} brings
     */
    public boolean execute(String sql) throws SQLException {
        prepare(sql);
        return execute();
    }

    /** Executes the prepared statement; true for a query. */
    public boolean execute() throws SQLException {
        requireOpen();
        if (!opened) {
            throw new OciException(24337, "ORA-24337: statement handle not prepared");
        }
        if (columns.isEmpty()) {
            check(cursor.exec());
            return false;
        }
        define();
        row = -1;
        rowsBefore = 0;
        takeArray(cursor.execAndFetch(arrayRows));
        return true;
    }

    private void define() throws SQLException {
        // A second define of a LONG column would put it on the cursor's chain twice.
        if (defined) {
            return;
        }
        int widest = OciLimits.DATE;
        long rowBytes = 0;
        for (Column column : columns) {
            if (OciType.isLob(column.type)) {
                throw new SQLFeatureNotSupportedException(
                        "Column " + column.peer.name() + " is a LOB, which cannot be fetched yet");
            }
            int width = elementSize(column);
            widest = Math.max(widest, width);
            rowBytes += width;
        }
        scratch = new byte[widest];
        // LONG columns arrive one row a call; arrays for more rows would only cost memory.
        arrayRows =
                cursor.hasBlobColumn()
                        ? 1
                        : (int) Math.max(1, Math.min(fetchSize, FETCH_MEMORY / rowBytes));
        for (Column column : columns) {
            check(cursor.bindSelectItem(column.peer, arrayRows));
        }
        defined = true;
    }

    /** Bytes of one element of the column's fetch array, as the native side sizes it. */
    private int elementSize(Column column) {
        switch (column.type) {
            case OciType.VARCHAR2:
            case OciType.CHAR:
                return 3 * column.peer.length() + 1;
            case OciType.RAW:
                return column.peer.length();
            case OciType.NUMBER:
                return OciLimits.NUMBER_TEXT;
            case OciType.DATE:
                return OciLimits.DATE;
            case OciType.LONG:
            case OciType.LONG_RAW:
                return cursor.pieceLength();
            default:
                return OciLimits.ROWID_TEXT;
        }
    }

    /** Notes what the last fetch brought; "no more rows" comes with the last, partial array. */
    private void takeArray(boolean failed) throws OciException {
        if (failed && cursor.errorCode() != NO_MORE_ROWS) {
            rowsInArray = 0;
            lastArray = true;
            throw failure();
        }
        if (cursor.hasBlobColumn()) {
            // The row count is taken before the pieces are in, and may not count this row yet.
            rowsInArray = failed ? 0 : 1;
            lastArray = failed;
        } else {
            // The count is of all rows so far and may wrap; its difference does not.
            rowsInArray = cursor.rowsProcessed() - rowsBefore;
            rowsBefore = cursor.rowsProcessed();
            lastArray = failed || rowsInArray < arrayRows;
        }
    }

    /** Moves to the next row; false after the last. */
    public boolean next() throws OciException {
        requireOpen();
        for (Column column : columns) {
            column.value = null;
        }
        row++;
        if (row < rowsInArray) {
            return true;
        }
        if (lastArray) {
            rowsInArray = 0;
            return false;
        }
        row = 0;
        takeArray(cursor.arrayFetch(arrayRows));
        return rowsInArray > 0;
    }

    /** Rows changed by the last statement, or fetched so far by a query. */
    public long rowCount() {
        return Integer.toUnsignedLong(cursor.rowsProcessed());
    }

    /** The SQL function code of the last statement as the interface numbers them. */
    public int sqlFunctionCode() {
        return cursor.sqlFunctionCode();
    }

    /** The select list of the prepared query; empty for any other statement. */
    public List<OciColumn> columns() {
        List<OciColumn> peers = new ArrayList<>();
        for (Column column : columns) {
            peers.add(column.peer);
        }
        return Collections.unmodifiableList(peers);
    }

    /** Whether the value is NULL; an empty LONG is NULL, as everywhere on this server. */
    public boolean isNull(int position) {
        Column column = column(position);
        if (OciType.isLong(column.type)) {
            return cursor.getIndicator(column.peer, 0) == NULL_INDICATOR
                    || (column.value == null && cursor.getLongDataLength(column.peer) == 0);
        }
        return cursor.getIndicator(column.peer, row) == NULL_INDICATOR;
    }

    /**
     * The value as text: dates as year-month-day and time, raw bytes in hexadecimal. A LONG is read
     * whole; use {@link #longStream} for one that may be large.
     *
     * @return null for NULL
     */
    public String getString(int position) throws SQLException {
        if (isNull(position)) {
            return null;
        }
        switch (column(position).type) {
            case OciType.DATE:
                return DATE_TEXT.format(getDateTime(position));
            case OciType.RAW:
            case OciType.LONG_RAW:
                return hexadecimal(getBytes(position));
            case OciType.LONG:
                byte[] bytes = getBytes(position);
                return OciText.decode(bytes, bytes.length);
            default:
                return text(position);
        }
    }

    private String text(int position) {
        int length = cursor.getStringValue(column(position).peer, row, scratch);
        return OciText.decode(scratch, length);
    }

    private static String hexadecimal(byte[] bytes) {
        StringBuilder text = new StringBuilder(2 * bytes.length);
        for (byte value : bytes) {
            text.append(Character.forDigit(value >> 4 & 0xF, 16));
            text.append(Character.forDigit(value & 0xF, 16));
        }
        return text.toString().toUpperCase(Locale.ROOT);
    }

    /** The exact number; null for NULL. */
    public BigDecimal getBigDecimal(int position) throws SQLException {
        String text = getString(position);
        try {
            return text == null ? null : new BigDecimal(text.trim());
        } catch (NumberFormatException e) {
            throw new OciException(1722, "ORA-01722: invalid number");
        }
    }

    /** The number as a long, 0 for NULL; one that does not fit exactly is ORA-01455. */
    public long getLong(int position) throws SQLException {
        BigDecimal value = getBigDecimal(position);
        try {
            return value == null ? 0 : value.longValueExact();
        } catch (ArithmeticException e) {
            throw new OciException(
                    1455, "ORA-01455: converting column overflows integer datatype");
        }
    }

    /** The number as an int, 0 for NULL; one that does not fit exactly is ORA-01455. */
    public int getInt(int position) throws SQLException {
        long value = getLong(position);
        if (value != (int) value) {
            throw new OciException(
                    1455, "ORA-01455: converting column overflows integer datatype");
        }
        return (int) value;
    }

    /** The number as the nearest double, 0 for NULL. */
    public double getDouble(int position) throws SQLException {
        BigDecimal value = getBigDecimal(position);
        return value == null ? 0 : value.doubleValue();
    }

    /** A DATE with its time; null for NULL. */
    public LocalDateTime getDateTime(int position) throws OciException {
        Column column = column(position);
        if (column.type != OciType.DATE) {
            throw new OciException(932, "ORA-00932: inconsistent datatypes");
        }
        if (isNull(position)) {
            return null;
        }
        cursor.getDateValue(column.peer, row, scratch);
        return OciDates.decode(scratch);
    }

    /** The value's bytes as the server sent them; null for NULL. */
    public byte[] getBytes(int position) throws SQLException {
        if (isNull(position)) {
            return null;
        }
        Column column = column(position);
        if (OciType.isLong(column.type)) {
            return readFully(longStream(position));
        }
        if (column.type != OciType.RAW) {
            return OciText.encode(text(position));
        }
        int length = cursor.getByteValue(column.peer, row, scratch);
        byte[] value = new byte[length];
        System.arraycopy(scratch, 0, value, 0, length);
        return value;
    }

    private static byte[] readFully(InputStream in) throws SQLException {
        ByteArrayOutputStream out = new ByteArrayOutputStream();
        byte[] buffer = new byte[DEFAULT_PIECE_LENGTH];
        try {
            for (int count = in.read(buffer); count >= 0; count = in.read(buffer)) {
                out.write(buffer, 0, count);
            }
        } catch (IOException e) {
            throw new SQLException("Reading a LONG value", e);
        }
        return out.toByteArray();
    }

    /** Bytes of the LONG value of this row that have not been read yet. */
    public int longLength(int position) {
        return cursor.getLongDataLength(column(position).peer);
    }

    /**
     * The bytes of a LONG or LONG RAW value of this row, read piece by piece; empty for NULL. A
     * second call gives the same stream. It ends early, with an exception, once the statement has
     * moved to another row.
     */
    public InputStream longStream(int position) throws OciException {
        Column column = column(position);
        if (!OciType.isLong(column.type)) {
            throw new OciException(932, "ORA-00932: inconsistent datatypes");
        }
        if (column.value == null) {
            column.value = new LongStream(column);
        }
        return column.value;
    }

    /** Hands over the pieces that the fetch has queued on the column. */
    private final class LongStream extends InputStream {
        private final Column column;
        private int at;
        private int end;

        LongStream(Column column) {
            this.column = column;
            if (column.piece == null) {
                column.piece = new byte[cursor.pieceLength()];
            }
        }

        @Override
        public int read() throws IOException {
            return fill() ? column.piece[at++] & 0xFF : -1;
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
            System.arraycopy(column.piece, at, buffer, offset, count);
            at += count;
            return count;
        }

        private boolean fill() throws IOException {
            if (closed || column.value != this) {
                throw new IOException("The row of this LONG value has gone by");
            }
            if (at == end) {
                at = 0;
                end =
                        column.type == OciType.LONG
                                ? cursor.getLongStringValue(column.peer, 0, column.piece)
                                : cursor.getLongByteValue(column.peer, 0, column.piece);
            }
            return end > 0;
        }
    }

    /**
     * The column at a position; the row index must be one that was fetched, because the native side
     * does not check it.
     */
    private Column column(int position) {
        if (position < 1 || position > columns.size()) {
            throw new IndexOutOfBoundsException("No column " + position);
        }
        if (row < 0 || row >= rowsInArray) {
            throw new IllegalStateException("There is no current row");
        }
        return columns.get(position - 1);
    }

    private void requireOpen() throws OciException {
        if (closed) {
            throw new OciException(1001, "ORA-01001: invalid cursor");
        }
        connection.requireOpen();
    }

    private void check(boolean failed) throws OciException {
        if (failed) {
            throw failure();
        }
    }

    private OciException failure() {
        int offset = cursor.parseErrorOffset();
        return connection.failure(cursor.errorCode(), offset > 0 ? offset : -1);
    }

    /** Back to a cursor without a statement. */
    private void reset() {
        if (opened) {
            // The cursor's LONG chain refers to the columns' records: it goes first.
            cursor.close();
            opened = false;
        }
        for (Column column : columns) {
            column.value = null;
            column.peer.close();
        }
        columns.clear();
        cursor.setLongColumns(0);
        cursor.forgetStreams();
        defined = false;
        row = -1;
        rowsInArray = 0;
        lastArray = true;
    }

    /** Frees the statement and its cursor slot; a second call does nothing. */
    @Override
    public void close() {
        if (closed) {
            return;
        }
        reset();
        closed = true;
        cursor.native_finalize();
        slots.give(cursor.slot());
        connection.forget(this);
    }
}
