package trevalon.db.oci;

import java.io.IOException;
import java.io.InputStream;
import java.io.Reader;
import java.math.BigDecimal;
import java.sql.SQLException;
import java.time.LocalDate;
import java.time.LocalDateTime;
import java.time.format.DateTimeFormatter;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Collections;
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

    /** Most queries bring few rows, and arrays take time to make for each that they could hold. */
    private static final int FIRST_ROWS = 10;

    /** Bytes of a LONG that cross in one call; as much as the large values' own pieces. */
    static final int DEFAULT_PIECE_LENGTH = 32 * 1024;

    /** Rows of wide columns are fetched in smaller arrays, so that a fetch stays below this. */
    private static final long FETCH_MEMORY = 32L * 1024 * 1024;

    private static final int NO_MORE_ROWS = 1403;
    private static final int NO_SUCH_POSITION = 24334;
    private static final int INVALID_CURSOR = 1001;
    private static final int NULL_INDICATOR = -1;
    private static final DateTimeFormatter DATE_TEXT = OciDates.formatter(" HH:mm:ss");

    private final OciConnection connection;
    private final OciCursor cursor;
    // The record of the cursor belongs to its slot in the process's pool, and the slot to this
    // statement until it is closed.
    private final SlotPool slots;
    private final BindList variables;
    private final List<SelectColumn> columns = new ArrayList<>();

    private int fetchSize = DEFAULT_FETCH_SIZE;
    private boolean closed;

    /** Whether a call runs for this statement, or for one that has it as cursor variable. */
    private boolean executing;

    /** Whether a statement handle is allocated: open and close must alternate strictly. */
    private boolean opened;

    /**
     * Whether the select list has its fetch arrays: once for each prepared query, not for each
     * execution.
     */
    private boolean defined;
    private int arrayRows;

    /** What the arrays grow to once the first ones were full. */
    private int mostRows;

    private final ShortDecimal number = new ShortDecimal();

    /** Index into the current array; -1 before the first {@link #next}. */
    private int row = -1;
    private int rowsInArray;
    /** The native row count at the end of the array before: the count is of the whole execution. */
    private int rowsBefore;
    private boolean lastArray = true;

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
    }

    /** Rows that one fetch asks for; takes effect at the next prepare. */
    public void setFetchSize(int rows) {
        if (rows < 1) {
            throw new IllegalArgumentException("Fetch size " + rows);
        }
        fetchSize = rows;
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
        check(cursor.open(connection));
        opened = true;
        try {
            // For a query this also asks the server to describe it, so that errors of its names
            // come up here.
            check(cursor.parse(OciText.encode(sql), false));
            describeAll();
        } catch (OciException | RuntimeException | Error e) {
            reset();
            throw e;
        }
    }

    private void describeAll() throws OciException {
        while (describe(columns.size() + 1)) {
            // The interface does not tell the number of columns: the list ends with an error.
        }
        int longColumns = 0;
        for (SelectColumn column : columns) {
            longColumns += OciType.isLong(column.type) ? 1 : 0;
        }
        cursor.setLongColumns(longColumns);
    }

    private boolean describe(int position) throws OciException {
        OciColumn column = connection.columns().take(position);
        if (!cursor.describe(column)) {
            columns.add(new SelectColumn(column));
            return true;
        }
        int code = cursor.errorCode();
        connection.columns().give(column, 0, 0);
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
        columns.forEach(SelectColumn::dropValue);
        row = -1;
        rowsInArray = 0;
        rowsBefore = 0;
        lastArray = true;
        variables.requireValues(!columns.isEmpty());
        check(variables.bind());
        setExecuting(true);
        try {
            if (columns.isEmpty()) {
                check(cursor.exec());
                // Cursor variables last: their queries exist from here on.
                variables.takeResults();
                return false;
            }
            define();
            takeArray(cursor.execAndFetch(arrayRows));
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
        check(cursor.open(connection));
        opened = true;
        return other.bindCursorByPosition(cursor, position);
    }

    /** Makes the query ready that an execution has opened; where it has not, there are no rows. */
    void takeResult() throws SQLException {
        describeAll();
        if (columns.isEmpty()) {
            return;
        }
        define();
        rowsBefore = 0;
        lastArray = false;
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
    public void setCursor(int position, OciStatement rows) throws SQLException {
        if (rows == this || rows.connection != connection) {
            throw new IllegalArgumentException("A cursor variable is another statement of mine");
        }
        variable(position).setCursor(rows);
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

    private void define() throws SQLException {
        // A second define of a LONG column would put it on the cursor's chain twice.
        if (defined) {
            return;
        }
        long rowBytes = 0;
        // LONG columns arrive one row a call, and a LOB column has only one locator.
        boolean oneByOne = false;
        for (SelectColumn column : columns) {
            column.allocateLocator(connection);
            rowBytes += column.sizeElements(cursor.pieceLength()) + ColumnPool.BESIDE_VALUE;
            oneByOne |= column.isLarge();
        }
        mostRows =
                oneByOne
                        ? 1
                        : (int) Math.max(1, Math.min(fetchSize, FETCH_MEMORY / rowBytes));
        defineArrays(Math.min(mostRows, FIRST_ROWS));
        defined = true;
    }

    private void defineArrays(int rows) throws OciException {
        for (SelectColumn column : columns) {
            check(cursor.bindSelectItem(column.peer, rows));
        }
        arrayRows = rows;
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
        if (cursor.hasBlobColumn()) {
            columns.forEach(SelectColumn::dropValue);
        }
        row++;
        if (row < rowsInArray) {
            return true;
        }
        if (lastArray) {
            rowsInArray = 0;
            return false;
        }
        fetch();
        return rowsInArray > 0;
    }

    private void fetch() throws OciException {
        connection.enter();
        try {
            row = 0;
            if (arrayRows < mostRows) {
                defineArrays(mostRows);
            }
            takeArray(cursor.arrayFetch(arrayRows));
        } finally {
            connection.leave();
        }
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
        for (SelectColumn column : columns) {
            peers.add(column.peer);
        }
        return Collections.unmodifiableList(peers);
    }

    /** Whether the value is NULL; an empty LONG is NULL, as everywhere on this server. */
    public boolean isNull(int position) {
        SelectColumn column = column(position);
        if (OciType.isLong(column.type)) {
            return cursor.getIndicator(column.peer, 0) == NULL_INDICATOR
                    || (column.value == null && cursor.getLongDataLength(column.peer) == 0);
        }
        return cursor.getIndicator(column.peer, row) == NULL_INDICATOR;
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
        SelectColumn column = column(position);
        if (column.text) {
            return text(column);
        }
        if (isNull(position)) {
            return null;
        }
        switch (column.type) {
            case OciType.DATE:
                return DATE_TEXT.format(getDateTime(position));
            case OciType.RAW:
            case OciType.LONG_RAW:
            case OciType.BLOB:
                return OciText.hexadecimal(getBytes(position));
            case OciType.CLOB:
                try (OciLob lob = getLob(position)) {
                    return lob.readText();
                }
            default:
                byte[] bytes = getBytes(position);
                return OciText.decode(bytes, bytes.length);
        }
    }

    /** The getter of texts tells NULL, too: the indicator needs no call of its own. */
    private String text(SelectColumn column) {
        int length = column.readText(cursor, row);
        return length < 0 ? null : OciText.decode(column.buffer(), length);
    }

    /** Takes a number that is written in few digits; false for every other value, and for NULL. */
    private boolean takeNumber(int position) {
        SelectColumn column = column(position);
        if (!column.text) {
            return false;
        }
        int length = column.readText(cursor, row);
        return number.parse(column.buffer(), length);
    }

    /** The exact number, null for NULL; ORA-00932 for bytes, as for the three getters below. */
    public BigDecimal getBigDecimal(int position) throws SQLException {
        if (takeNumber(position)) {
            return number.decimalValue();
        }
        // Their text would often be digits only, and is no number of theirs.
        if (OciType.isBinary(column(position).type)) {
            throw new OciException(932, "ORA-00932: inconsistent datatypes");
        }
        String text = getString(position);
        try {
            return text == null ? null : new BigDecimal(text.trim());
        } catch (NumberFormatException e) {
            throw new OciException(1722, "ORA-01722: invalid number");
        }
    }

    /** The number as a long, 0 for NULL; one that does not fit exactly is ORA-01455. */
    public long getLong(int position) throws SQLException {
        if (takeNumber(position) && number.isInteger()) {
            return number.longValue();
        }
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
        if (takeNumber(position) && number.hasExactParts()) {
            return number.doubleValue();
        }
        BigDecimal value = getBigDecimal(position);
        return value == null ? 0 : value.doubleValue();
    }

    /** A DATE with its time; null for NULL. */
    public LocalDateTime getDateTime(int position) throws OciException {
        SelectColumn column = column(position);
        if (column.type != OciType.DATE) {
            throw new OciException(932, "ORA-00932: inconsistent datatypes");
        }
        // Copies nothing of NULL, so that one call does what the indicator and getDateValue would.
        int length = cursor.getByteValue(column.peer, row, column.buffer());
        return length == 0 ? null : OciDates.decode(column.buffer());
    }

    /**
     * The value's bytes as the server sent them, null for NULL; a LONG is kept as by
     * {@link #getString}.
     */
    public byte[] getBytes(int position) throws SQLException {
        SelectColumn column = column(position);
        if (column.type == OciType.RAW) {
            int length = cursor.getByteValue(column.peer, row, column.buffer());
            return length == 0 && isNull(position)
                    ? null
                    : Arrays.copyOf(column.buffer(), length);
        }
        if (isNull(position)) {
            return null;
        }
        if (OciType.isLong(column.type)) {
            // A copy, as the caller may change it.
            return longValue(position).rest().clone();
        }
        if (OciType.isLob(column.type)) {
            try (OciLob lob = getLob(position)) {
                return lob.isCharacter() ? OciText.encode(lob.readText()) : lob.readBytes();
            }
        }
        return OciText.encode(text(column));
    }

    /**
     * The CLOB or BLOB of this row, which the caller closes: it outlives the row and the statement.
     *
     * @return null for NULL
     */
    public OciLob getLob(int position) throws OciException {
        SelectColumn column = column(position);
        if (!OciType.isLob(column.type)) {
            throw new OciException(932, "ORA-00932: inconsistent datatypes");
        }
        return isNull(position) ? null : OciLob.ofColumn(connection, column.peer, column.type);
    }

    /** Bytes of the LONG value of this row that have not been read yet. */
    public int longLength(int position) {
        SelectColumn column = column(position);
        int here = column.value == null ? 0 : column.value.available();
        return cursor.getLongDataLength(column.peer) + here;
    }

    /**
     * The bytes of a LONG or LONG RAW value of this row, read piece by piece; empty for NULL. A
     * second call gives the same stream, as far as it was read. It ends early, with an exception,
     * once the statement has moved to another row.
     */
    public InputStream longStream(int position) throws OciException {
        return longValue(position);
    }

    private LongStream longValue(int position) throws OciException {
        SelectColumn column = column(position);
        if (!OciType.isLong(column.type)) {
            throw new OciException(932, "ORA-00932: inconsistent datatypes");
        }
        if (column.value == null) {
            column.value =
                    new LongStream(
                            cursor, column.peer, column.type == OciType.LONG, column.buffer());
        }
        return column.value;
    }

    /**
     * The column at a position; the row index must be one that was fetched, because the native side
     * knows the size of its arrays only, and not how far the last fetch has filled them.
     */
    private SelectColumn column(int position) {
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

    private void check(boolean failed) throws OciException {
        if (failed) {
            throw failure();
        }
    }

    private OciException failure() {
        // 0 also stands for a place that is not known.
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
        for (SelectColumn column : columns) {
            column.close(connection.columns(), arrayRows);
        }
        columns.clear();
        arrayRows = 0;
        variables.clear();
        cursor.setLongColumns(0);
        cursor.forgetStreams();
        defined = false;
        row = -1;
        rowsInArray = 0;
        lastArray = true;
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
