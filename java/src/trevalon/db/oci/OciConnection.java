package trevalon.db.oci;

import java.util.ArrayList;
import java.util.Iterator;
import java.util.LinkedHashSet;
import java.util.List;
import java.util.Set;
import java.util.concurrent.atomic.AtomicReference;

/**
 * A session with a database.
 *
 * <p>A connection and its statements are used by one thread at a time; {@link #breakCall} may come
 * from any thread. A call that meets one of another thread is refused with ORA-03127: preparing,
 * executing, fetching, transactions, LOBs and the ends of things are. The getters of a row are too
 * many to ask each time. Different connections are independent of each other.
 *
 * <p>The session's native record is one slot of a pool with a fixed size; without a free one a
 * login is ORA-00018. Everything that was made from a connection ends with it, in the order that
 * the interface needs: statements, then LOBs, then the session.
 */
public final class OciConnection implements AutoCloseable {
    /** Everything that crosses the border as text is UTF-8; the client library must know that. */
    private static final String NLS_LANG = "AMERICAN_AMERICA.UTF8";

    /** Set to true, it has the native library write a trace of its calls. */
    private static final String DEBUG_PROPERTY = "oralayer.debug";

    private final Set<OciStatement> statements = new LinkedHashSet<>();
    private final Set<OciLob> lobs = new LinkedHashSet<>();
    private final ColumnPool columns = new ColumnPool();
    private final SlotPool slots;
    private final int slot;

    /** Guards the end of the session against a break that comes from another thread. */
    private final Object lifeLock = new Object();

    /** The thread whose call is under way, and how many calls of streams are within that call. */
    private final AtomicReference<Thread> user = new AtomicReference<>();
    private int nested;

    private boolean open;
    private boolean autoCommit;

    // Read and written by the native side, by these names: which session record this is, and the
    // codes that the last call left.
    private long logondata64;
    private int logondata32;
    private int ldaerrcode;
    private int oserrcode;
    private boolean isXA;

    private OciConnection(boolean xa) throws OciException {
        NativeLibrary library = NativeLibrary.get();
        isXA = xa;
        slots = library.sessions(xa);
        slot = slots.take();
        try {
            // The first call of the process initialises the library, and it must be alone then.
            synchronized (library) {
                boolean debug = Boolean.getBoolean(DEBUG_PROPERTY);
                native_initialize(slot, OciText.encode(NLS_LANG), debug);
            }
        } catch (RuntimeException | Error e) {
            slots.give(slot);
            throw e;
        }
    }

    /**
     * Opens a session.
     *
     * @param user the account, or "/" for the one that the operating system vouches for
     * @param server the connect string: a net service name, a path or ":memory:"
     */
    public static OciConnection open(String user, String password, String server)
            throws OciException {
        return open(user, password, server, false);
    }

    /** Opens a session on a record of the XA pool or of the ordinary one. */
    static OciConnection open(String user, String password, String server, boolean xa)
            throws OciException {
        OciConnection connection = new OciConnection(xa);
        try {
            connection.logIn(user, password, server);
            return connection;
        } catch (OciException | RuntimeException e) {
            connection.release();
            throw e;
        }
    }

    private void logIn(String user, String password, String server) throws OciException {
        if (!goesInWhole(user) || !goesInWhole(password)) {
            throw new OciException(1017, "ORA-01017: invalid username/password; logon denied");
        }
        if (!goesInWhole(server)) {
            throw new OciException(12154, "ORA-12154: TNS:could not resolve service name");
        }
        boolean failed =
                native_loginwithblock(
                        OciText.encode(user),
                        OciText.encode(password),
                        OciText.encode(server),
                        true);
        if (failed) {
            throw failure(ldaerrcode);
        }
        open = true;
    }

    /** The interface takes texts that end at a zero, and the native side so many bytes of them. */
    private static boolean goesInWhole(String text) {
        return text.indexOf('\0') < 0 && OciText.encode(text).length <= OciLimits.LOGIN_TEXT;
    }

    /** A new statement on this session; the session closes it if its owner does not. */
    public OciStatement createStatement() throws OciException {
        return createStatement(OciStatement.DEFAULT_PIECE_LENGTH);
    }

    /** A new statement that fetches LONG values in pieces of so many bytes. */
    public OciStatement createStatement(int pieceLength) throws OciException {
        enter();
        try {
            requireOpen();
            OciStatement statement = new OciStatement(this, pieceLength);
            statements.add(statement);
            return statement;
        } finally {
            leave();
        }
    }

    /**
     * Begins a call of this thread, which ends with {@link #leave}. Calls nest, because a stream may
     * use the connection whose execution reads it. ORA-03127 while another thread's call runs.
     */
    void enter() throws OciException {
        Thread thread = Thread.currentThread();
        if (user.get() == thread) {
            nested++;
        } else if (!user.compareAndSet(null, thread)) {
            throw activeOperation();
        }
    }

    void leave() {
        if (nested > 0) {
            nested--;
        } else {
            user.lazySet(null);
        }
    }

    /** What a call is refused with that would change or end what a running one needs. */
    static OciException activeOperation() {
        return new OciException(
                3127, "ORA-03127: no new operations allowed until the active operation ends");
    }

    void forget(OciStatement statement) {
        statements.remove(statement);
    }

    /** Where statements get the columns of their select lists from. */
    ColumnPool columns() {
        return columns;
    }

    void adopt(OciLob lob) {
        lobs.add(lob);
    }

    void forget(OciLob lob) {
        lobs.remove(lob);
    }

    /**
     * Makes the changes of the transaction permanent; ORA-02091 where that fails, which rolls back.
     */
    public void commit() throws OciException {
        enter();
        try {
            requireOpen();
            check(native_commit());
        } finally {
            leave();
        }
    }

    /** Takes back the changes since the last commit. */
    public void rollback() throws OciException {
        enter();
        try {
            requireOpen();
            check(native_rollback());
        } finally {
            leave();
        }
    }

    /** Lets each successful statement commit by itself, or not. Off in a new session. */
    public void setAutoCommit(boolean on) throws OciException {
        enter();
        try {
            requireOpen();
            check(on ? native_autoCommitOn() : native_autoCommitOff());
            autoCommit = on;
        } finally {
            leave();
        }
    }

    /** Whether each successful statement commits by itself. */
    public boolean isAutoCommit() {
        return autoCommit;
    }

    /**
     * Stops the call that runs on this session, which then fails with ORA-01013. Any thread; does
     * nothing on a closed connection.
     */
    public void breakCall() {
        synchronized (lifeLock) {
            if (open) {
                native_obreak();
            }
        }
    }

    /** The client interface and the library behind this connection, for people. */
    public String clientVersion() {
        byte[] api = new byte[OciLimits.COLUMN_NAME];
        byte[] built = new byte[OciLimits.COLUMN_NAME];
        return OciText.decode(api, native_oci_api_version(api))
                + ", library "
                + native_clibversion()
                + " built "
                + OciText.decode(built, native_builddate(built));
    }

    public boolean isOpen() {
        return open;
    }

    /** One of the steps that end a session. */
    private interface Step {
        void take() throws OciException;
    }

    /**
     * Ends the session with all its statements and LOBs, and then throws the first failure of any,
     * which may be that of its last commit; a second call does nothing. ORA-03127, and nothing has
     * ended, where a stream calls this in the middle of an execution, or another thread beside one.
     */
    @Override
    public void close() throws OciException {
        enter();
        try {
            if (open) {
                closeAll();
            }
        } finally {
            leave();
        }
    }

    private void closeAll() throws OciException {
        for (OciStatement statement : statements) {
            statement.requireIdle();
        }
        // A list of its own, because each statement and LOB takes itself off the connection's.
        List<Step> steps = new ArrayList<>();
        statements.forEach(statement -> steps.add(statement::close));
        lobs.forEach(lob -> steps.add(lob::close));
        steps.add(columns::clear);
        // The logout commits as well, but tells nothing. That of a distributed transaction's session
        // does neither.
        if (!isXA) {
            steps.add(() -> check(native_commit()));
        }
        steps.add(this::release);
        takeAll(steps.iterator());
    }

    /** Takes the steps that are left, whatever one of them throws, and throws the first of it. */
    private static void takeAll(Iterator<Step> steps) throws OciException {
        try {
            while (steps.hasNext()) {
                steps.next().take();
            }
        } catch (OciException | RuntimeException | Error first) {
            try {
                takeAll(steps);
            } catch (OciException | RuntimeException | Error later) {
                first.addSuppressed(later);
            }
            throw first;
        }
    }

    private void release() {
        synchronized (lifeLock) {
            open = false;
            // A break must find either a live session or none: hence under the lock.
            native_logout();
            native_finalize();
            // The record lives on in its pool; this object must not reach its next holder.
            logondata32 = 0;
        }
        // Only now: whoever takes the slot next logs in on the same record.
        slots.give(slot);
    }

    void requireOpen() throws OciException {
        if (!open) {
            throw new OciException(3114, "ORA-03114: not connected to ORACLE");
        }
    }

    private void check(boolean failed) throws OciException {
        if (failed) {
            throw failure(ldaerrcode);
        }
    }

    /** Throws the exception for a call on a cursor, where it failed. */
    void check(OciCursor cursor, boolean failed) throws OciException {
        if (failed) {
            throw failure(cursor);
        }
    }

    /** The exception for a cursor's last call, with its place in the statement where one is told. */
    OciException failure(OciCursor cursor) {
        // 0 also stands for a place that is not known.
        int offset = cursor.parseErrorOffset();
        return failure(cursor.errorCode(), offset > 0 ? offset : -1);
    }

    OciException failure(int code) {
        return failure(code, -1);
    }

    /**
     * The exception for the session's current error. The text is asked for at once, since the next
     * call on the session replaces it; where it carries a number, that number counts, because some
     * calls leave the code fields alone.
     */
    OciException failure(int code, int offset) {
        byte[] buffer = new byte[OciLimits.ERROR_TEXT];
        String text = OciText.decode(buffer, native_getError(code, false, buffer)).trim();
        if (text.isEmpty()) {
            text = String.format("ORA-%05d: the call failed without an error text", code);
        }
        return new OciException(codeOf(text, code), text, offset);
    }

    private static int codeOf(String text, int fallback) {
        if (!text.matches("(?s)ORA-\\d{5}\\b.*")) {
            return fallback;
        }
        return Integer.parseInt(text.substring(4, 9));
    }

    /** Slots of this connection's pool that are in use. */
    int slotsInUse() {
        return slots.inUse();
    }

    /** Slots of a session pool; the next method tells those of the cursor pool. */
    static native int lda_pool_size();

    static native int cda_pool_size();

    static native int ociMajorVersion();

    native void native_initialize(int elem, byte[] HNlsLangBuf, boolean debug);

    native boolean native_loginwithblock(
            byte[] username, byte[] password, byte[] server, boolean blocking);

    /** Fails always: the interface of release 8 has no login that does not block. */
    native boolean native_loginnoblock(byte[] username, byte[] password, byte[] server);

    native boolean native_logout();

    native void native_finalize();

    /**
     * Copies the text of an error into the array and returns its length in bytes. It is the
     * session's last error, whatever number is asked for.
     */
    native int native_getError(int errnum, boolean oerhmsval, byte[] HErrorBuf);

    native boolean native_autoCommitOn();

    native boolean native_autoCommitOff();

    native boolean native_commit();

    native boolean native_rollback();

    /** May come from another thread while a call runs: it writes no field. */
    native boolean native_obreak();

    /**
     * Sets the mode and nothing more: with our own client library every call still runs to its end.
     */
    native boolean native_setNonBlockingMode();

    native boolean native_setBlockingMode();

    native boolean native_isNonBlockingMode();

    native int native_oci_api_version(byte[] HOciApiVersionBuf);

    native int native_get_nls_lang(byte[] HNlsLangBuf);

    native int native_get_nls_nchar(byte[] HNlsNcharBuf);

    native int native_clibversion();

    native int native_builddate(byte[] HBldBuf);

    /**
     * The list of a stored procedure's parameters is not available: a call with all its arguments
     * writes a notice and ends the process.
     */
    native boolean native_describeParams(OciSchema schobj, byte[] HNameBuf);
}
