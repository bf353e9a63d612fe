package trevalon.db.oci;

import java.io.IOException;
import java.io.InputStream;
import java.io.Reader;
import java.math.BigDecimal;
import java.sql.SQLException;
import java.time.LocalDate;
import java.time.LocalDateTime;
import java.util.List;
import java.util.function.Function;

/**
 * A statement of a session: takes the values of bind variables, executes SQL, and reads the rows of
 * a query in arrays.
 *
 * <p>Bind variables are set by their position, from 1, after {@link #prepare}: each placeholder of
 * an SQL statement is one, in a block of PL/SQL each distinct name. A value stays set from one
 * execution to the next, with two exceptions: what a block assigns to a variable that is no output
 * goes into its next execution, and a stream is read to its end by one execution. During that one
 * the statement and its cursor variables refuse whatever the stream asks of them (ORA-03127).
 *
 * <p>Values are read by the column's position, from 1, on the row that {@link #next} moved to.
 * LONG values arrive in pieces, and a stream reads them once per row.
 *
 * <p>One statement handle of the interface serves for one text: {@link #prepare} closes it and
 * opens another. The order of the native calls is fixed, and this class keeps it: open, parse,
 * describe each column, set the values, bind, define, execute, fetch. At the end the cursor is
 * closed before its columns, which it refers to.
 */
public final class OciStatement implements AutoCloseable {
    /**
     * Rows of one fetch where nobody asks for another number: enough to make the calls cheap, and
     * few enough that the first rows come soon.
     */
    public static final int DEFAULT_FETCH_SIZE = 100;

    /** Bytes of a LONG that cross in one call; as much as the large values' own pieces. */
    static final int DEFAULT_PIECE_LENGTH = 32 * 1024;

    private static final int INVALID_CURSOR = 1001;
    private final OciConnection connection;
    private final OciCursor cursor;
    // The record of the cursor belongs to its slot in the process's pool, and the slot to this
    // statement until it is closed.
    private final SlotPool slots;
    private final BindList variables;
    private final ResultRows rows;

    private int fetchSize = DEFAULT_FETCH_SIZE;
    private boolean closed;

    /** Whether a call runs for this statement, or for one that has it as cursor variable. */
    private boolean executing;

    /** Whether a statement handle is allocated: open and close must alternate strictly. */
    private boolean opened;

    OciStatement(OciConnection connection, int pieceLength) throws OciException {
        if (pieceLength < 1) {
            throw new IllegalArgumentException("Piece length " + pieceLength);
        }
        this.connection = connection;
        slots = NativeLibrary.get().cursors();
        // Taken before the cursor exists and given back by whoever ends it: a failed constructor
        // must not lose it.
        int slot = slots.take();
        try {
            cursor = new OciCursor(connection, slot, pieceLength, false, null);
        } catch (RuntimeException | Error e) {
            slots.give(slot);
            throw e;
        }
        variables = new BindList(cursor);
        rows = new ResultRows(connection, cursor);
    }

    /** Rows that one fetch asks for; takes effect at the next prepare. */
    public void setFetchSize(int size) {
        if (size < 1) {
            throw new IllegalArgumentException("Fetch size " + size);
        }
        fetchSize = size;
    }

    /**
     * Parses a statement and, for a query, describes its columns; nothing is executed. ORA-00911
     * for a zero character, where the text would end for the server.
     */
    public void prepare(String sql) throws OciException {
        connection.enter();
        try {
            requireOpen();
            int zero = sql.indexOf('\0');
            if (zero >= 0) {
                throw new OciException(
                        911,
                        "ORA-00911: invalid character: zero at index " + zero + " of the text");
            }
            parse(sql);
        } finally {
            connection.leave();
        }
    }

    private void parse(String sql) throws OciException {
        // A cursor describes only the first query after its open, and its LONG chain only grows:
        // each statement starts on a handle of its own.
        reset();
        connection.check(cursor, cursor.open(connection));
        opened = true;
        try {
            // For a query this also asks the server to describe it, so that errors of its names
            // come up here.
            connection.check(cursor, cursor.parse(OciText.encode(sql), false));
            rows.describe();
        } catch (OciException | RuntimeException | Error e) {
            reset();
            throw e;
        }
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
        connection.enter();
        try {
            requirePrepared();
            return run();
        } finally {
            connection.leave();
        }
    }

    private boolean run() throws SQLException {
        // First of all: where it fails, from here on there is no row to read, nor a stream of one.
        rows.forget();
        variables.requireValues(rows.isQuery());
        connection.check(cursor, variables.bind());
        if (rows.isQuery()) {
            define();
        }
        setExecuting(true);
        try {
            if (!rows.isQuery()) {
                connection.check(cursor, cursor.exec());
                // Cursor variables last: their queries exist from here on.
                variables.takeResults();
                return false;
            }
            rows.take(cursor.execAndFetch(rows.arrayRows()));
            return true;
        } catch (IOException e) {
            throw new SQLException("Reading the stream of a bind variable: " + e.getMessage(), e);
        } finally {
            setExecuting(false);
            variables.executed();
        }
    }

    /** Notes that a call begins or ends which the cursor variables take part in. */
    void setExecuting(boolean on) {
        executing = on;
        variables.setExecuting(on);
    }

    /**
     * Binds this statement's handle as the cursor variable of another one, whose execution may then
     * open a query on it. The handle is a fresh one: what it held before is gone.
     *
     * @return true when the call failed
     */
    boolean bindTo(OciCursor other, int position) throws OciException {
        requireOpen();
        reset();
        connection.check(cursor, cursor.open(connection));
        opened = true;
        return other.bindCursorByPosition(cursor, position);
    }

    /** Makes the query ready that an execution has opened; where it has not, there are no rows. */
    void takeResult() throws SQLException {
        rows.describe();
        if (rows.isQuery()) {
            define();
            rows.await();
        }
    }

    /** A failure ends the handle: a LONG that is defined by then would go on its chain again. */
    private void define() throws SQLException {
        try {
            rows.define(fetchSize);
        } catch (SQLException | RuntimeException | Error e) {
            reset();
            throw e;
        }
    }

    private void requirePrepared() throws OciException {
        requireOpen();
        if (!opened) {
            throw new OciException(24337, "ORA-24337: statement handle not prepared");
        }
    }

    private BindVariable variable(int position) throws OciException {
        requirePrepared();
        return variables.at(position);
    }

    /** Sets a variable to NULL; the type is one of {@link OciType}. */
    public void setNull(int position, int type) throws SQLException {
        variable(position).setNull(type);
    }

    public void setInt(int position, int value) throws SQLException {
        variable(position).setInt(value);
    }

    public void setLong(int position, long value) throws SQLException {
        // The interface's INTEGER has four bytes; longer numbers go as text, exactly.
        if (value == (int) value) {
            variable(position).setInt((int) value);
        } else {
            variable(position).setText(Long.toString(value));
        }
    }

    /** Sets a number; ORA-01426 for one that is not finite. */
    public void setDouble(int position, double value) throws SQLException {
        variable(position).setDouble(value);
    }

    /** Sets an exact number, which goes to the server as text; null is NULL. */
    public void setBigDecimal(int position, BigDecimal value) throws SQLException {
        if (value == null) {
            setNull(position, OciType.NUMBER);
        } else {
            variable(position).setDecimal(value);
        }
    }

    /** Sets a text; null and the empty text are NULL. It may hold no zero character. */
    public void setString(int position, String value) throws SQLException {
        if (value == null) {
            setNull(position, OciType.VARCHAR2);
        } else {
            variable(position).setText(value);
        }
    }

    /** Sets bytes as a RAW, or a LONG RAW where they are more; null and no bytes are NULL. */
    public void setBytes(int position, byte[] value) throws SQLException {
        if (value == null || value.length == 0) {
            setNull(position, OciType.RAW);
        } else {
            variable(position).setBytes(value);
        }
    }

    /** Sets a date and time, without the fraction of its second; null is NULL. */
    public void setDateTime(int position, LocalDateTime value) throws SQLException {
        if (value == null) {
            setNull(position, OciType.DATE);
        } else {
            variable(position).setDateTime(value);
        }
    }

    /** Sets the midnight that a day begins with; null is NULL. */
    public void setDate(int position, LocalDate value) throws SQLException {
        setDateTime(position, value == null ? null : value.atStartOfDay());
    }

    /**
     * Sets a LONG from text in the database's character set; null and a stream without a byte are
     * NULL, as for the three setters below.
     */
    public void setAsciiStream(int position, InputStream value) throws SQLException {
        setStream(position, value, PieceSource::ofBytes, OciCursor.ASCII_STREAM, OciType.LONG);
    }

    /** Sets a LONG from UTF-16 text, the high byte of each character first. */
    public void setUnicodeStream(int position, InputStream value) throws SQLException {
        setStream(position, value, PieceSource::ofUtf16, OciCursor.UNICODE_STREAM, OciType.LONG);
    }

    /** Sets a LONG RAW; a stream without a byte is NULL. */
    public void setBinaryStream(int position, InputStream value) throws SQLException {
        setStream(
                position, value, PieceSource::ofBytes, OciCursor.BINARY_STREAM, OciType.LONG_RAW);
    }

    /** Sets a LONG from a Reader, which the next execution reads to its end, and does not close. */
    public void setCharacterStream(int position, Reader value) throws SQLException {
        setStream(
                position, value, PieceSource::ofCharacters, OciCursor.CHARACTER_STREAM,
                OciType.LONG);
    }

    private <T> void setStream(
            int position, T value, Function<T, PieceSource> source, int kind, int typeOfNull)
            throws SQLException {
        if (value == null) {
            setNull(position, typeOfNull);
        } else {
            variable(position).setStream(source.apply(value), kind);
        }
    }

    /**
     * Sets a CLOB or BLOB of this connection, which must be open at the execution; null is NULL. A
     * column gets a copy of the value.
     */
    public void setLob(int position, OciLob value) throws SQLException {
        if (value == null) {
            setNull(position, OciType.CLOB);
            return;
        }
        if (value.connection() != connection) {
            throw new IllegalArgumentException("The LOB belongs to another connection");
        }
        variable(position).setLob(value);
    }

    /**
     * Makes a variable of a block an output, before it is set for the first time. What is set goes
     * in as well, with the next execution; where nothing is set, NULL goes in.
     *
     * @param type VARCHAR2, CHAR, NUMBER (exact), INTEGER, FLOAT, DATE or RAW of {@link OciType}
     * @param bytes the most that a text or a RAW may have; other types do not need it
     */
    public void registerOut(int position, int type, int bytes) throws SQLException {
        variable(position).registerOut(type, bytes);
    }

    /** Makes another statement the cursor variable of a block, which opens a query on it. */
    public void setCursor(int position, OciStatement cursorStatement) throws SQLException {
        if (cursorStatement == this || cursorStatement.connection != connection) {
            throw new IllegalArgumentException("A cursor variable is another statement of mine");
        }
        variable(position).setCursor(cursorStatement);
    }

    public boolean isOutNull(int position) throws OciException {
        return variable(position).isNull();
    }

    /** What came out of a variable registered as INTEGER; 0 for NULL. */
    public int getOutInt(int position) throws OciException {
        return variable(position).intValue();
    }

    /** What came out of a variable registered as FLOAT; 0 for NULL. */
    public double getOutDouble(int position) throws OciException {
        return variable(position).doubleValue();
    }

    /** What came out of a variable registered as VARCHAR2, CHAR or NUMBER; null for NULL. */
    public String getOutString(int position) throws OciException {
        return variable(position).textValue();
    }

    /** What came out of a variable registered as DATE; null for NULL. */
    public LocalDateTime getOutDateTime(int position) throws OciException {
        return variable(position).dateTimeValue();
    }

    /** What came out of a variable registered as RAW; null for NULL. */
    public byte[] getOutBytes(int position) throws OciException {
        return variable(position).bytesValue();
    }

    /** Moves to the next row; false after the last. */
    public boolean next() throws OciException {
        requireOpen();
        return rows.next();
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
        return rows.columns();
    }

    /** Whether the value is NULL; an empty LONG is NULL, as everywhere on this server. */
    public boolean isNull(int position) {
        return rows.isNull(position);
    }

    /**
     * The value as text: dates as year-month-day and time, raw bytes in hexadecimal. A LONG or LOB
     * is read whole; use {@link #longStream} or {@link #getLob} for one that may be large. A LONG
     * is kept until the next row, so that it can be asked for again; what a stream has read of it
     * before is gone.
     *
     * @return null for NULL
     */
    public String getString(int position) throws SQLException {
        return rows.getString(position);
    }

    /** The exact number, null for NULL; ORA-00932 for bytes, as for the three getters below. */
    public BigDecimal getBigDecimal(int position) throws SQLException {
        return rows.getBigDecimal(position);
    }

    /** The number as a long, 0 for NULL; one that does not fit exactly is ORA-01455. */
    public long getLong(int position) throws SQLException {
        return rows.getLong(position);
    }

    /** The number as an int, 0 for NULL; one that does not fit exactly is ORA-01455. */
    public int getInt(int position) throws SQLException {
        return rows.getInt(position);
    }

    /** The number as the nearest double, 0 for NULL. */
    public double getDouble(int position) throws SQLException {
        return rows.getDouble(position);
    }

    /** A DATE with its time; null for NULL. */
    public LocalDateTime getDateTime(int position) throws OciException {
        return rows.getDateTime(position);
    }

    /**
     * The value's bytes as the server sent them, null for NULL; a LONG is kept as by
     * {@link #getString}.
     */
    public byte[] getBytes(int position) throws SQLException {
        return rows.getBytes(position);
    }

    /**
     * The CLOB or BLOB of this row, which the caller closes: it outlives the row and the statement.
     *
     * @return null for NULL
     */
    public OciLob getLob(int position) throws OciException {
        return rows.getLob(position);
    }

    /** Bytes of the LONG value of this row that have not been read yet. */
    public int longLength(int position) {
        return rows.longLength(position);
    }

    /**
     * The bytes of a LONG or LONG RAW value of this row, read piece by piece; empty for NULL. A
     * second call gives the same stream, as far as it was read. It ends early, with an exception,
     * once the statement has moved to another row.
     */
    public InputStream longStream(int position) throws OciException {
        return rows.longStream(position);
    }

    private void requireOpen() throws OciException {
        if (closed) {
            throw new OciException(INVALID_CURSOR, "ORA-01001: invalid cursor");
        }
        connection.requireOpen();
        requireIdle();
    }

    /**
     * Fails where a stream comes back to the execution that reads it: it would change what is being
     * read, or end what the call still needs.
     */
    void requireIdle() throws OciException {
        if (executing) {
            throw OciConnection.activeOperation();
        }
    }

    /** Back to a cursor without a statement. */
    private void reset() {
        if (opened) {
            // The cursor's LONG chain refers to the columns' records: it goes first.
            cursor.close();
            opened = false;
        }
        rows.close();
        variables.clear();
        cursor.forgetStreams();
    }

    /** Frees the statement and its cursor slot; a second call does nothing. */
    @Override
    public void close() throws OciException {
        connection.enter();
        try {
            if (!closed) {
                requireIdle();
                closed = true;
                end();
            }
        } finally {
            connection.leave();
        }
    }

    private void end() {
        try {
            reset();
        } finally {
            cursor.native_finalize();
            slots.give(cursor.slot());
            connection.forget(this);
        }
    }
}
