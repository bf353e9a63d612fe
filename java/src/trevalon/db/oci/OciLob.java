package trevalon.db.oci;

import java.io.InputStream;
import java.io.OutputStream;
import java.io.Reader;
import java.io.Writer;
import java.sql.SQLException;

/**
 * A CLOB or BLOB value, of which only the parts that are asked for are read or written.
 *
 * <p>Positions count from 0: in bytes of a BLOB, in characters of a CLOB. A character is a UTF-16
 * unit as everywhere in Java, so one outside of the basic plane counts as two.
 *
 * <p>{@link OciStatement#getLob} gives these objects. They stay usable when their statement moves
 * on or is closed, and end with their connection at the latest; like it, they are for one thread at
 * a time. Who writes holds the row's lock: SELECT ... FOR UPDATE in the same transaction.
 *
 * <p>Each call moves one piece as a whole (the interface's transfers over several calls are not
 * used), so that no transfer is open between two calls and the session stays free for others.
 */
public final class OciLob implements AutoCloseable {
    /** Most bytes or characters of a value. */
    public static final long MAX_LENGTH = 0xFFFF_FFFFL;

    /** Bytes or characters of one call: the native side pins, and may copy, a whole array. */
    static final int PIECE_LENGTH = 32 * 1024;

    private static final int ONE_PIECE = 0;
    private static final int DATABASE_CHARSET = 0;
    private static final int DATABASE_FORM = 1;

    private final OciConnection connection;
    private final int type;
    /** Whether a value was assigned: a locator is there before it names anything. */
    private boolean filled;
    /** Kept from call to call for callers whose arrays cannot go across as they are. */
    private byte[] bytePiece = new byte[0];
    private char[] charPiece = new char[0];

    // By the names that the native side knows: the record's address, and the last failure's code.
    private int lobdata32;
    private long lobdata64;
    private int loberrcode;

    /**
     * Creates the native record; a locator comes later.
     *
     * @param type CLOB or BLOB of {@link OciType}
     */
    OciLob(OciConnection connection, int type) {
        this.connection = connection;
        this.type = type;
        initialize();
        connection.adopt(this);
    }

    /** The value that a fetch left in a column, independent of the column from then on. */
    static OciLob ofColumn(OciConnection connection, OciColumn column, int type)
            throws OciException {
        connection.enter();
        try {
            return new OciLob(connection, type).assigned(column);
        } finally {
            connection.leave();
        }
    }

    private OciLob assigned(OciColumn column) throws OciException {
        try {
            if (assignLobFromColumn(connection, column)) {
                throw failure();
            }
            filled = true;
            return this;
        } catch (OciException | RuntimeException | Error e) {
            close();
            throw e;
        }
    }

    /** True for a CLOB, which is read and written as characters, false for a BLOB. */
    public boolean isCharacter() {
        return type == OciType.CLOB;
    }

    /** True while this object holds a locator that names a value. */
    boolean hasLocator() {
        return filled && lobdata32 != 0;
    }

    /** The session that the locator belongs to. */
    OciConnection connection() {
        return connection;
    }

    /** The value's length in bytes or characters. */
    public long length() throws OciException {
        connection.enter();
        try {
            requireLocator();
            return checked(getLobLength(connection));
        } finally {
            connection.leave();
        }
    }

    /** The number of the character set that a CLOB is stored in; 0 for a BLOB. */
    public int charSetId() throws OciException {
        requireLocator();
        return (int) checked(getLobCharSetId(connection));
    }

    /** 1 for a CLOB of the database's character set, 2 for one of the national set; else 0. */
    public int charSetForm() throws OciException {
        requireLocator();
        return (int) checked(getLobCharSetForm(connection));
    }

    /**
     * Reads bytes of a BLOB.
     *
     * @return the bytes read, fewer than asked for only at the value's end; -1 where there are none
     */
    public int read(long position, byte[] buffer, int offset, int length) throws OciException {
        requireKind(false);
        requireRange(buffer.length, offset, length);
        // The native side fills an array from its start, which is why a range within a larger one
        // goes through a piece of our own.
        return move(position, readable(position, length), length, (at, done, count) -> {
            byte[] piece = bytePiece(buffer, offset, count);
            long read =
                    checked(
                            getLobBuf(
                                    connection, piece, at, count, count,
                                    DATABASE_CHARSET, DATABASE_FORM));
            if (piece != buffer) {
                System.arraycopy(piece, 0, buffer, offset + done, (int) read);
            }
            return (int) read;
        });
    }

    /** Reads characters of a CLOB, as {@link #read(long, byte[], int, int)} does bytes. */
    public int read(long position, char[] buffer, int offset, int length) throws OciException {
        requireKind(true);
        requireRange(buffer.length, offset, length);
        return move(position, readable(position, length), length, (at, done, count) -> {
            char[] piece = charPiece(buffer, offset, count);
            long read =
                    checked(
                            getLobUCS2CharBuf(
                                    connection, piece, at, count,
                                    DATABASE_CHARSET, DATABASE_FORM));
            if (piece != buffer) {
                System.arraycopy(piece, 0, buffer, offset + done, (int) read);
            }
            return (int) read;
        });
    }

    /**
     * Writes bytes into a BLOB, over what stands there and beyond its end; a gap before the
     * position is filled with zeros. A long write that fails may have changed a part.
     */
    public void write(long position, byte[] buffer, int offset, int length) throws OciException {
        requireKind(false);
        requireRange(buffer.length, offset, length);
        move(position, writable(position, length), length, (at, done, count) -> {
            byte[] piece = bytePiece(buffer, offset, count);
            if (piece != buffer) {
                System.arraycopy(buffer, offset + done, piece, 0, count);
            }
            checked(
                    writeLobBuf(
                            connection, piece, at, count, count, ONE_PIECE,
                            DATABASE_CHARSET, DATABASE_FORM));
            return count;
        });
    }

    /** Writes characters into a CLOB; a gap before the position is filled with blanks. */
    public void write(long position, char[] buffer, int offset, int length) throws OciException {
        requireKind(true);
        requireRange(buffer.length, offset, length);
        move(position, writable(position, length), length, (at, done, count) -> {
            char[] piece = charPiece(buffer, offset, count);
            if (piece != buffer) {
                System.arraycopy(buffer, offset + done, piece, 0, count);
            }
            checked(
                    writeLobUCS2CharBuf(
                            connection, piece, at, count, ONE_PIECE,
                            DATABASE_CHARSET, DATABASE_FORM));
            return count;
        });
    }

    /** Characters of a CLOB from a position on, fewer than asked for where the value ends. */
    public String substring(long position, int length) throws OciException {
        requireKind(true);
        requireRange(Integer.MAX_VALUE, 0, length);
        int wanted = readable(position, length);
        if (wanted > PIECE_LENGTH) {
            // The native side takes memory for all that it is asked for.
            wanted = (int) Math.max(0, Math.min(wanted, length() - position));
        }
        if (wanted == 0) {
            return "";
        }
        connection.enter();
        try {
            requireLocator();
            return getLobUCS2Buf(
                    connection, position + 1, wanted, DATABASE_CHARSET, DATABASE_FORM);
        } catch (SQLException e) {
            throw e instanceof OciException ? (OciException) e : failure();
        } finally {
            connection.leave();
        }
    }

    /** The bytes of a BLOB from a position to its end. */
    public InputStream inputStream(long position) throws OciException {
        requireKind(false);
        readable(position, 0);
        return new LobInput(this, position);
    }

    /** The characters of a CLOB from a position to its end. */
    public Reader reader(long position) throws OciException {
        requireKind(true);
        readable(position, 0);
        return new LobReader(this, position);
    }

    /** Writes a BLOB from a position on; what is written stands there after a flush or close. */
    public OutputStream outputStream(long position) throws OciException {
        requireKind(false);
        writable(position, 0);
        return new LobOutput(this, position);
    }

    /** Writes a CLOB from a position on; what is written stands there after a flush or close. */
    public Writer writer(long position) throws OciException {
        requireKind(true);
        writable(position, 0);
        return new LobWriter(this, position);
    }

    /** The whole value of a BLOB. */
    byte[] readBytes() throws OciException {
        byte[] value = new byte[arrayLength()];
        read(0, value, 0, value.length);
        return value;
    }

    /** The whole value of a CLOB. */
    String readText() throws OciException {
        return substring(0, arrayLength());
    }

    private int arrayLength() throws OciException {
        long length = length();
        if (length > Integer.MAX_VALUE) {
            throw new OciException(
                    22835,
                    "ORA-22835: Buffer too small for CLOB to CHAR or BLOB to RAW conversion");
        }
        return (int) length;
    }

    /** Moves `count` units at `at` (from 1), the first of which is the transfer's unit `done`. */
    private interface Piece {
        int move(long at, int done, int count) throws OciException;
    }

    /** Moves up to `possible` of `asked` units piece by piece; -1 where none were left. */
    private int move(long position, int possible, int asked, Piece piece) throws OciException {
        int done = 0;
        connection.enter();
        try {
            // Another thread may have closed this object until now.
            requireLocator();
            boolean more = true;
            while (more && done < possible) {
                int count = Math.min(PIECE_LENGTH, possible - done);
                int moved = piece.move(position + done + 1, done, count);
                done += moved;
                // Fewer units than asked for are the end of the value: no further call is needed to
                // find that out.
                more = moved == count;
            }
        } finally {
            connection.leave();
        }
        return done == 0 && asked > 0 ? -1 : done;
    }

    /** The caller's own array where one call can take it as it is. */
    private byte[] bytePiece(byte[] buffer, int offset, int count) {
        if (offset == 0 && buffer.length <= PIECE_LENGTH) {
            return buffer;
        }
        if (bytePiece.length < count) {
            bytePiece = new byte[count];
        }
        return bytePiece;
    }

    private char[] charPiece(char[] buffer, int offset, int count) {
        if (offset == 0 && buffer.length <= PIECE_LENGTH) {
            return buffer;
        }
        if (charPiece.length < count) {
            charPiece = new char[count];
        }
        return charPiece;
    }

    private static void requireRange(int arrayLength, int offset, int length) {
        if (offset < 0 || length < 0 || length > arrayLength - offset) {
            throw new IndexOutOfBoundsException(
                    length + " units from index " + offset + " of " + arrayLength);
        }
    }

    /** How much of a length can exist from a position on. */
    private static int readable(long position, int length) {
        // The native side would take larger positions modulo 2 to the 32nd.
        if (position < 0 || position > MAX_LENGTH) {
            throw new IndexOutOfBoundsException("Position " + position + " of a LOB");
        }
        return (int) Math.min(length, MAX_LENGTH - position);
    }

    private static int writable(long position, int length) {
        if (readable(position, length) < length) {
            throw new IndexOutOfBoundsException(
                    length + " units from position " + position + " of a LOB");
        }
        return length;
    }

    /** Fails where there is no value behind this object. */
    void requireLocator() throws OciException {
        connection.requireOpen();
        if (!hasLocator()) {
            throw new OciException(22275, "ORA-22275: invalid LOB locator specified");
        }
    }

    private void requireKind(boolean character) throws OciException {
        requireLocator();
        if (character != isCharacter()) {
            throw new OciException(
                    932,
                    "ORA-00932: inconsistent datatypes: a "
                            + (character ? "BLOB has no characters" : "CLOB has no bytes"));
        }
    }

    private long checked(long result) throws OciException {
        if (result < 0) {
            throw failure();
        }
        return result;
    }

    /** A success leaves the last failure's code in place: this is for after a failure only. */
    private OciException failure() {
        return connection.failure(loberrcode);
    }

    /** Frees the locator, and leaves the value as it is; a second call does nothing. */
    @Override
    public void close() throws OciException {
        connection.enter();
        try {
            filled = false;
            native_finalize();
            connection.forget(this);
        } finally {
            connection.leave();
        }
    }

    native void initialize();

    /** Gives the record an empty locator of the session's environment. */
    native boolean allocLob(OciConnection connobj);

    native boolean assignLobFromColumn(OciConnection connobj, OciColumn colobj);

    native void native_finalize();

    native long getLobLength(OciConnection connobj);

    native int getLobCharSetId(OciConnection connobj);

    native int getLobCharSetForm(OciConnection connobj);

    /**
     * Reads into the array from its start: `loblen` units from `offset` (from 1); the result is
     * what was read, negative for a failure. The others likewise.
     */
    native long getLobBuf(OciConnection connobj, byte[] HByteBuf, long offset, long loblen,
            long bytelen, int charSetId, int charSetForm);

    native long writeLobBuf(OciConnection connobj, byte[] HByteBuf, long offset, long loblen,
            long bytelen, int piece, int charSetId, int charSetForm);

    /** The only one of these methods that throws where the call fails. */
    native String getLobUCS2Buf(OciConnection connobj, long offset, long loblen, int charSetId,
            int charSetForm) throws SQLException;

    native long getLobUCS2CharBuf(OciConnection connobj, char[] HCharBuf, long offset, long loblen,
            int charSetId, int charSetForm);

    native long writeLobUCS2CharBuf(OciConnection connobj, char[] HCharBuf, long offset,
            long buflen, int piece, int charSetId, int charSetForm);
}
