package trevalon.db.oci;

import java.io.InputStream;
import java.math.BigDecimal;
import java.sql.SQLException;
import java.time.LocalDateTime;
import java.time.format.DateTimeFormatter;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Collections;
import java.util.List;

/**
 * The rows of a statement's query: its select list, the arrays that fetches fill, and the values of
 * the row that stands. {@link OciStatement} says what each getter gives.
 */
final class ResultRows {
    /** Most queries bring few rows, and arrays take time to make for each that they could hold. */
    private static final int FIRST_ROWS = 10;

    /** Rows of wide columns are fetched in smaller arrays, so that a fetch stays below this. */
    private static final long FETCH_MEMORY = 32L * 1024 * 1024;

    private static final int NO_MORE_ROWS = 1403;
    private static final int NO_SUCH_POSITION = 24334;
    private static final int NO_SUCH_VALUE = 22922;
    private static final DateTimeFormatter DATE_TEXT = OciDates.formatter(" HH:mm:ss");

    private final OciConnection connection;
    private final OciCursor cursor;
    private final List<SelectColumn> columns = new ArrayList<>();
    private final ShortDecimal number = new ShortDecimal();

    /** Whether the select list has its fetch arrays. */
    private boolean defined;
    private int arrayRows;

    /** What the arrays grow to once the first ones were full. */
    private int mostRows;

    /** Index into the current array; -1 before the first {@link #next}. */
    private int row = -1;
    private int rowsInArray;
    /** The native row count at the end of the array before: the count is of the whole execution. */
    private int rowsBefore;
    private boolean lastArray = true;

    ResultRows(OciConnection connection, OciCursor cursor) {
        this.connection = connection;
        this.cursor = cursor;
    }

    boolean isQuery() {
        return !columns.isEmpty();
    }

    /** Rows that the next fetch may bring. */
    int arrayRows() {
        return arrayRows;
    }

    /** Asks for the select list; there is none where the statement is no query. */
    void describe() throws OciException {
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
        throw connection.failure(cursor);
    }

    /** Before an execution: there is no row to read, nor a stream of one. */
    void forget() {
        columns.forEach(SelectColumn::dropValue);
        row = -1;
        rowsInArray = 0;
        rowsBefore = 0;
        lastArray = true;
    }

    /** For a query that another statement's execution has opened: its rows are still to come. */
    void await() {
        rowsBefore = 0;
        lastArray = false;
    }

    /**
     * Gives the columns their fetch arrays, for so many rows at the most: once for each prepared
     * query, not for each execution.
     */
    void define(int fetchSize) throws SQLException {
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
    }

    private void defineArrays(int rows) throws OciException {
        // Where one fails, the next execution has to define all of them anew.
        defined = false;
        for (SelectColumn column : columns) {
            connection.check(cursor, cursor.bindSelectItem(column.peer, rows));
        }
        arrayRows = rows;
        defined = true;
    }

    /**
     * Notes what the last fetch brought, before which there was no row; "no more rows" comes with
     * the last, partial array.
     */
    void take(boolean failed) throws OciException {
        if (failed && cursor.errorCode() != NO_MORE_ROWS) {
            throw connection.failure(cursor);
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

    boolean next() throws OciException {
        boolean fetches = row + 1 >= rowsInArray && !lastArray;
        if (fetches) {
            fetch();
        } else {
            leaveRow();
            row++;
        }
        if (row < rowsInArray) {
            return true;
        }
        rowsInArray = 0;
        return false;
    }

    /** The LONG values of the row are no longer read. */
    private void leaveRow() {
        if (cursor.hasBlobColumn()) {
            columns.forEach(SelectColumn::dropValue);
        }
    }

    private void fetch() throws OciException {
        // First of all: a refused call leaves the row as it is.
        connection.enter();
        try {
            leaveRow();
            // Whatever throws from here on leaves no row: the arrays do not hold the old ones.
            row = 0;
            rowsInArray = 0;
            lastArray = true;
            if (arrayRows < mostRows) {
                defineArrays(mostRows);
            }
            boolean failed = cursor.arrayFetch(arrayRows);
            // A LONG value that is gone costs its own row only: more may follow.
            lastArray = !failed || cursor.errorCode() != NO_SUCH_VALUE;
            take(failed);
        } finally {
            connection.leave();
        }
    }

    List<OciColumn> columns() {
        List<OciColumn> peers = new ArrayList<>();
        for (SelectColumn column : columns) {
            peers.add(column.peer);
        }
        return Collections.unmodifiableList(peers);
    }

    boolean isNull(int position) {
        SelectColumn column = column(position);
        if (OciType.isLong(column.type)) {
            return cursor.isNull(column.peer, 0)
                    || (column.value == null && cursor.getLongDataLength(column.peer) == 0);
        }
        return cursor.isNull(column.peer, row);
    }

    String getString(int position) throws SQLException {
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

    BigDecimal getBigDecimal(int position) throws SQLException {
        if (takeNumber(position)) {
            return number.decimalValue();
        }
        // Their text would often be digits only, and is no number of theirs.
        if (OciType.isBinary(column(position).type)) {
            throw OciException.inconsistentTypes();
        }
        String text = getString(position);
        try {
            return text == null ? null : new BigDecimal(text.trim());
        } catch (NumberFormatException e) {
            throw new OciException(1722, "ORA-01722: invalid number");
        }
    }

    long getLong(int position) throws SQLException {
        if (takeNumber(position) && number.isInteger()) {
            return number.longValue();
        }
        BigDecimal value = getBigDecimal(position);
        try {
            return value == null ? 0 : value.longValueExact();
        } catch (ArithmeticException e) {
            throw OciException.overflow();
        }
    }

    int getInt(int position) throws SQLException {
        long value = getLong(position);
        if (value != (int) value) {
            throw OciException.overflow();
        }
        return (int) value;
    }

    double getDouble(int position) throws SQLException {
        if (takeNumber(position) && number.hasExactParts()) {
            return number.doubleValue();
        }
        BigDecimal value = getBigDecimal(position);
        return value == null ? 0 : value.doubleValue();
    }

    LocalDateTime getDateTime(int position) throws OciException {
        SelectColumn column = column(position);
        if (column.type != OciType.DATE) {
            throw OciException.inconsistentTypes();
        }
        // Copies nothing of NULL, so that one call does what the indicator and getDateValue would.
        int length = cursor.getByteValue(column.peer, row, column.buffer());
        return length == 0 ? null : OciDates.decode(column.buffer());
    }

    byte[] getBytes(int position) throws SQLException {
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

    OciLob getLob(int position) throws OciException {
        SelectColumn column = column(position);
        if (!OciType.isLob(column.type)) {
            throw OciException.inconsistentTypes();
        }
        return isNull(position) ? null : OciLob.ofColumn(connection, column.peer, column.type);
    }

    int longLength(int position) {
        SelectColumn column = column(position);
        int here = column.value == null ? 0 : column.value.available();
        return cursor.getLongDataLength(column.peer) + here;
    }

    InputStream longStream(int position) throws OciException {
        return longValue(position);
    }

    private LongStream longValue(int position) throws OciException {
        SelectColumn column = column(position);
        if (!OciType.isLong(column.type)) {
            throw OciException.inconsistentTypes();
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

    /** Frees the columns; the cursor, which refers to them, must be closed by then. */
    void close() {
        for (SelectColumn column : columns) {
            column.close(connection.columns(), arrayRows);
        }
        columns.clear();
        cursor.setLongColumns(0);
        arrayRows = 0;
        defined = false;
        forget();
    }
}
