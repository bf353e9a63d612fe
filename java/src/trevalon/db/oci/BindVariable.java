package trevalon.db.oci;

import java.math.BigDecimal;
import java.sql.SQLDataException;
import java.sql.SQLException;
import java.sql.SQLFeatureNotSupportedException;
import java.time.LocalDateTime;
import java.util.Arrays;

/**
 * One bind variable of a prepared statement: the value that goes in, the one that came out, and
 * whether the interface has to be told of it anew.
 *
 * <p>A bind stays in force from one execution to the next as long as the value has the same form
 * and size, since its buffer then stays where it is. Streams, cursors and the variables of a block
 * are bound for each execution.
 *
 * <p>The native record holds the value's bytes; what is bound is their address. Setting a value of
 * the same size writes into the same memory, so the next execution reads it without another bind; a
 * longer one moves the memory, and `changed` says so. A block that assigns to the variable writes
 * there, too, and changes what its next execution starts from.
 */
final class BindVariable implements AutoCloseable {
    /** Longest RAW; more bytes go in as a LONG RAW. */
    private static final int LONGEST_RAW = 2000;

    /** Texts up to this length share one buffer, so that most values of a column bind only once. */
    private static final int LONGEST_SHARED_TEXT = 4000;

    private static final int SHORTEST_TEXT_BUFFER = 32;

    /** A stream's length is not known before its end. */
    private static final int ANY_LENGTH = Integer.MAX_VALUE;

    /** The buffer of a NULL must not be empty: the native side would have nothing to bind. */
    private static final byte[] NO_BYTES = new byte[1];

    private static final int NO_FORM = 0;
    private static final int CURSOR = 116;

    private final OciCursor cursor;
    private final int position;
    private final OciColumn column;
    private byte[] text = new byte[SHORTEST_TEXT_BUFFER];

    /** The value's type code and size: what the interface's bind was made for. */
    private int form = NO_FORM;

    private int size;
    private boolean changed;

    /** A stream that no execution has read yet; null also for every other kind of value. */
    private PieceSource source;

    private boolean streamed;
    // At most one of source, cursorStatement and lob is set; the native record holds every other
    // value.
    private OciStatement cursorStatement;
    private OciLob lob;

    /** The registered type of an output, or NO_FORM. */
    private int outType = NO_FORM;

    /**
     * Whether a value was set since the last execution: an output that was not set goes in as NULL
     * and not as what came out before.
     */
    private boolean inputGiven;

    BindVariable(OciCursor cursor, int position) {
        this.cursor = cursor;
        this.position = position;
        column = new OciColumn(position, null);
    }

    void setInt(int value) throws SQLException {
        beginValue(OciType.INTEGER);
        column.setValueWithInt(value, false);
        formIs(OciType.INTEGER, Integer.BYTES);
    }

    void setDouble(double value) throws SQLException {
        if (Double.isNaN(value) || Double.isInfinite(value)) {
            throw new OciException(1426, "ORA-01426: numeric overflow");
        }
        beginValue(OciType.FLOAT);
        column.setValueWithDouble(value, false);
        formIs(OciType.FLOAT, Double.BYTES);
    }

    void setDecimal(BigDecimal value) throws SQLException {
        // Never written out in full: an exponent may stand for millions of digits.
        setText(value.toString());
    }

    void setText(String value) throws SQLException {
        // Before the type is taken: a text that is refused leaves the variable as it was.
        byte[] bytes = terminated(value);
        beginValue(OciType.STRING);
        column.setValueWithString(bytes, false);
        formIs(OciType.STRING, bytes.length);
    }

    /**
     * The text with a zero byte after it. The native side copies the whole array, and the server
     * reads up to the first zero byte, so what an earlier value left behind it does no harm.
     */
    private byte[] terminated(String value) throws SQLException {
        int zero = value.indexOf('\0');
        if (zero >= 0) {
            throw new SQLDataException(
                    "The text of variable " + position + " has a zero character at index " + zero
                            + ", where it would end for the server");
        }
        int length = value.length();
        if (outType != NO_FORM) {
            return copyToOutput(OciText.encode(value));
        }
        if (length >= LONGEST_SHARED_TEXT) {
            return withTerminator(OciText.encode(value));
        }
        if (length >= text.length) {
            // Growing by doubling keeps the number of binds small when texts get longer row by row.
            int doubled = Math.min(2 * text.length, LONGEST_SHARED_TEXT);
            text = new byte[Math.max(doubled, length + 1)];
        }
        for (int i = 0; i < length; i++) {
            char c = value.charAt(i);
            if (c >= 0x80) {
                return copyToShared(OciText.encode(value));
            }
            text[i] = (byte) c;
        }
        text[length] = 0;
        return text;
    }

    private byte[] copyToShared(byte[] bytes) {
        if (bytes.length >= text.length) {
            return withTerminator(bytes);
        }
        System.arraycopy(bytes, 0, text, 0, bytes.length);
        text[bytes.length] = 0;
        return text;
    }

    /** The buffer's size is what may come out, so the value must not make it larger. */
    private byte[] copyToOutput(byte[] bytes) throws OciException {
        if (bytes.length > text.length) {
            throw new OciException(6502, "ORA-06502: PL/SQL: numeric or value error");
        }
        // What came out before may have been longer, and would otherwise stand behind this value.
        Arrays.fill(text, (byte) 0);
        System.arraycopy(bytes, 0, text, 0, bytes.length);
        return text;
    }

    private static byte[] withTerminator(byte[] bytes) {
        return Arrays.copyOf(bytes, bytes.length + 1);
    }

    void setBytes(byte[] value) throws SQLException {
        if (outType == OciType.RAW) {
            // The size of the value would become the most that can come out.
            throw new SQLFeatureNotSupportedException(
                    "Variable " + position + " is a RAW output, which takes no input");
        }
        boolean raw = value.length <= LONGEST_RAW;
        int type = raw ? OciType.RAW : OciType.LONG_RAW;
        beginValue(type);
        column.setValueWithBytes(value, false, raw);
        formIs(type, value.length);
    }

    void setDateTime(LocalDateTime value) throws SQLException {
        int year = OciDates.serverYear(value);
        beginValue(OciType.DATE);
        column.setValueWithDate(
                year / 100,
                year % 100,
                value.getMonthValue(),
                value.getDayOfMonth(),
                value.getHour() + 1,
                value.getMinute() + 1,
                value.getSecond() + 1,
                false);
        formIs(OciType.DATE, OciLimits.DATE);
    }

    /** NULL of a type; most go in as text, whose NULL serves them all. */
    void setNull(int type) throws SQLException {
        int newForm = formOf(type);
        beginValue(newForm);
        layNull(newForm);
    }

    private static int formOf(int type) throws SQLException {
        switch (type) {
            case OciType.VARCHAR2:
            case OciType.CHAR:
            case OciType.NUMBER:
            case OciType.LONG:
            case OciType.ROWID:
            case OciType.ROWID_DESCRIPTOR:
            case OciType.CLOB:
            case OciType.BLOB:
                return OciType.STRING;
            case OciType.INTEGER:
            case OciType.FLOAT:
            case OciType.STRING:
            case OciType.DATE:
            case OciType.RAW:
            case OciType.LONG_RAW:
                return type;
            default:
                throw new SQLFeatureNotSupportedException("A bind variable of type " + type);
        }
    }

    private void layNull(int newForm) {
        int bytes = 0;
        switch (newForm) {
            case OciType.INTEGER:
                column.setValueWithInt(0, true);
                bytes = Integer.BYTES;
                break;
            case OciType.FLOAT:
                column.setValueWithDouble(0, true);
                bytes = Double.BYTES;
                break;
            case OciType.DATE:
                column.setValueWithDate(0, 0, 1, 1, 1, 1, 1, true);
                bytes = OciLimits.DATE;
                break;
            case OciType.STRING:
                column.setValueWithString(text, true);
                bytes = text.length;
                break;
            default:
                byte[] raw = outType == OciType.RAW ? text : NO_BYTES;
                column.setValueWithBytes(raw, true, newForm == OciType.RAW);
                bytes = raw.length;
        }
        formIs(newForm, bytes);
    }

    /** A value whose pieces are read during the next execution, and only by that one. */
    void setStream(PieceSource pieces, int kind) throws SQLException {
        int type = kind == OciCursor.BINARY_STREAM ? OciType.LONG_RAW : OciType.LONG;
        beginValue(type);
        source = pieces;
        streamed = true;
        column.setInputStreamType(kind);
        column.setValueWithStream(ANY_LENGTH, OciStatement.DEFAULT_PIECE_LENGTH, kind, false);
        formIs(type, ANY_LENGTH);
    }

    /** A LOB, whose locator this variable borrows. */
    void setLob(OciLob value) throws SQLException {
        value.requireLocator();
        int type = value.isCharacter() ? OciType.CLOB : OciType.BLOB;
        beginValue(type);
        lob = value;
        if (value.isCharacter()) {
            column.setValueWithClob(value, false);
        } else {
            column.setValueWithBlob(value, false);
        }
        formIs(type, 0);
    }

    /** A cursor variable: the execution opens a query on the other statement. */
    void setCursor(OciStatement statement) throws SQLException {
        beginValue(CURSOR);
        cursorStatement = statement;
        formIs(CURSOR, 0);
    }

    /**
     * Makes this an output; a value that is set as well goes in. Comes before the first value, so
     * that the buffer is made for what may come out.
     */
    void registerOut(int type, int bytes) throws SQLException {
        if (bytes < 1) {
            throw new IllegalArgumentException("Output of " + bytes + " bytes");
        }
        if (form != NO_FORM) {
            throw new IllegalStateException("Variable " + position + " has a value already");
        }
        int newForm = formOf(type);
        outType = type;
        text = new byte[type == OciType.NUMBER ? OciLimits.NUMBER_TEXT : bytes];
        layNull(newForm);
    }

    /** Forgets what was set before; a piece length would otherwise make a stream of any value. */
    private void beginValue(int newForm) throws OciException {
        // An output keeps the type and size that it was registered with: its buffer was made for
        // them.
        if (outType != NO_FORM && newForm != form) {
            throw OciException.inconsistentTypes();
        }
        if (streamed) {
            column.setValueWithStream(0, 0, OciCursor.BINARY_STREAM, false);
        }
        source = null;
        streamed = false;
        cursorStatement = null;
        lob = null;
        inputGiven = true;
    }

    private void formIs(int newForm, int newSize) {
        changed |= form != newForm || size != newSize;
        form = newForm;
        size = newSize;
    }

    /** True when the value comes in pieces. */
    boolean isStream() {
        return streamed;
    }

    /** Fails, before anything is bound, where an execution would have nothing to read. */
    void requireValue() throws SQLException {
        if (streamed && source == null) {
            throw new SQLException(
                    "The stream of variable " + position
                            + " was used up by an earlier execution: it must be set again");
        }
        if (lob != null) {
            // A locator that was freed meanwhile must not reach the interface.
            lob.requireLocator();
        }
    }

    /**
     * Hands the value to the interface where that is needed.
     *
     * @param always whether to bind even a value of the same form as before
     * @return true when the call failed
     */
    boolean bind(boolean always) throws SQLException {
        if (form == CURSOR) {
            return cursorStatement.bindTo(cursor, position);
        }
        if (outType != NO_FORM && !inputGiven) {
            layNull(form);
        }
        boolean needed = always || changed || streamed;
        if (form == NO_FORM || !needed) {
            return false;
        }
        if (streamed) {
            cursor.registerStream(position, source);
        }
        boolean failed = cursor.bindVariableByPosition(column);
        // A bind that failed is tried again by the next execution.
        changed = failed;
        return failed;
    }

    /** Notes that an execution has taken the value. */
    void executed() {
        source = null;
        inputGiven = false;
    }

    /** The statement behind a cursor variable, or null. */
    OciStatement cursorStatement() {
        return cursorStatement;
    }

    private void requireOut(int... types) throws OciException {
        if (outType == NO_FORM) {
            throw new IllegalStateException("Variable " + position + " is no output");
        }
        if (types.length > 0 && Arrays.stream(types).noneMatch(t -> t == outType)) {
            throw OciException.inconsistentTypes();
        }
    }

    boolean isNull() throws OciException {
        requireOut();
        return cursor.isNull(column, 0);
    }

    int intValue() throws OciException {
        requireOut(OciType.INTEGER);
        return cursor.getIntegerValue(column, 0);
    }

    double doubleValue() throws OciException {
        requireOut(OciType.FLOAT);
        return isNull() ? 0 : cursor.getDoubleValue(column, 0);
    }

    String textValue() throws OciException {
        requireOut(OciType.VARCHAR2, OciType.CHAR, OciType.NUMBER);
        if (isNull()) {
            return null;
        }
        return OciText.decode(text, cursor.getStringValue(column, 0, text));
    }

    LocalDateTime dateTimeValue() throws OciException {
        requireOut(OciType.DATE);
        if (isNull()) {
            return null;
        }
        byte[] bytes = new byte[OciLimits.DATE];
        cursor.getDateValue(column, 0, bytes);
        return OciDates.decode(bytes);
    }

    byte[] bytesValue() throws OciException {
        requireOut(OciType.RAW);
        if (isNull()) {
            return null;
        }
        return Arrays.copyOf(text, cursor.getByteValue(column, 0, text));
    }

    /** Frees the native record; the cursor that it was bound to must be closed by then. */
    @Override
    public void close() {
        column.close();
    }
}
