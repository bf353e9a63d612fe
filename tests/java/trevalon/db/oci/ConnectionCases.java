package trevalon.db.oci;

import static trevalon.db.oci.TestRun.*;

import java.io.File;
import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.Deque;
import java.util.List;
import java.util.concurrent.FutureTask;

/** Sessions: login, transactions, slots, threads, and the ends of things. */
public final class ConnectionCases {
    public static void addTo(TestRun tests) {
        tests.add("login errors carry Oracle's code and leave no slot taken", () -> loginErrors());
        tests.add("autocommit keeps each change while it is on", ConnectionCases::autoCommit);
        tests.add("a close comes once, whatever is called after it", () -> closeTwice());
        tests.add("a close tells of a commit that fails", () -> unkept());
        tests.add("session and cursor slots run out, and come back", () -> slots());
        tests.add("two sessions on two threads do not meet", () -> twoThreads());
        tests.add("a call that meets another thread's is refused", ConnectionCases::meetingThreads);
    }

    private static void loginErrors() throws Exception {
        OciException error = oracleError(1017, () -> OciConnection.open("tester", "wrong", "TEST"));
        yes(error.getMessage().startsWith("ORA-01017: "), error.getMessage());
        oracleError(12154, () -> OciConnection.open("tester", "secret", "not a name"));
        oracleError(1017, () -> OciConnection.open("tester\0x", "secret", "TEST"));
        oracleError(1017, () -> OciConnection.open("tester", "secret\0x", "TEST"));
        oracleError(12154, () -> OciConnection.open("tester", "secret", "TEST\0x"));
        // Cut to what the native side takes, this would name the database that is there.
        String folder = System.getenv("OCI8_DATA");
        String file = "TEST.db";
        int slashes = 255 - folder.length() - file.length();
        String path = folder + BindCases.repeat("/", slashes) + file;
        OciConnection.open("tester", "secret", path).close();
        oracleError(12154, () -> OciConnection.open("tester", "secret", path + ".copy"));
        try (OciConnection connection = OciConnection.open("TESTER", "secret", "TEST")) {
            same(1, connection.slotsInUse(), "slots of one session after failed logins");
        }
    }

    private static void autoCommit(OciConnection writer, OciStatement unused) throws Exception {
        execute(writer, "CREATE TABLE kept (n NUMBER(4))");
        writer.setAutoCommit(true);
        execute(writer, "INSERT INTO kept VALUES (1)");
        writer.setAutoCommit(false);
        execute(writer, "INSERT INTO kept VALUES (2)");
        writer.rollback();
        same("1", value(writer, "SELECT MAX(n) FROM kept"), "what is kept");
    }

    private static void closeTwice() throws Exception {
        OciConnection connection = connect();
        OciStatement statement = connection.createStatement();
        statement.execute("SELECT 1 FROM DUAL");
        statement.close();
        statement.close();
        connection.createStatement().close();
        oracleError(1001, () -> statement.execute("SELECT 1 FROM DUAL"));
        OciStatement left = connection.createStatement();
        left.execute("SELECT 1 FROM DUAL");
        connection.close();
        connection.close();
        connection.breakCall();
        oracleError(1001, () -> left.next());
        oracleError(3114, () -> connection.commit());
        oracleError(3114, () -> connection.createStatement());
        throwing(NullPointerException.class, () -> connection.native_commit());
    }

    private static void unkept() throws Exception {
        OciConnection connection = connect();
        execute(connection, "CREATE TABLE unkept (n NUMBER(4))", "INSERT INTO unkept VALUES (1)");
        limitFiles("0");
        try {
            oracleError(2091, connection::close);
        } finally {
            limitFiles("unlimited");
        }
        connection.close();
        try (OciConnection next = connect()) {
            same("0", value(next, "SELECT COUNT(*) FROM unkept"), "what is kept");
            same(1, next.slotsInUse(), "slots of one session");
        }
    }

    /** Bytes that this process may write to any file. */
    private static void limitFiles(String bytes) throws Exception {
        String process = new File("/proc/self").getCanonicalFile().getName();
        String limit = "--fsize=" + bytes + ":";
        same(0, new ProcessBuilder("prlimit", "--pid", process, limit).start().waitFor(), limit);
    }

    private static void slots() throws Exception {
        Deque<OciConnection> sessions = new ArrayDeque<>();
        for (int i = 0; i < OciConnection.lda_pool_size(); i++) {
            sessions.add(connect());
        }
        oracleError(18, () -> connect());
        sessions.pop().close();
        OciConnection connection = connect();
        List<OciStatement> cursors = new ArrayList<>();
        for (int i = 0; i < OciConnection.cda_pool_size(); i++) {
            cursors.add(connection.createStatement());
        }
        oracleError(1000, () -> connection.createStatement());
        cursors.get(1234).close();
        same("1", value(connection, "SELECT 1 FROM DUAL"), "a statement on a used slot");
        connection.close();
        for (OciConnection session : sessions) {
            session.close();
        }
        same(0, NativeLibrary.get().cursors().inUse(), "cursor slots after the sessions");
    }

    private static void twoThreads() throws Exception {
        FutureTask<Void> other = new FutureTask<>(() -> rounds("two"));
        new Thread(other).start();
        rounds("one");
        other.get();
    }

    private static Void rounds(String thread) throws Exception {
        try (OciConnection connection = connect()) {
            for (int i = 0; i < 300; i++) {
                String text = thread + " round " + i;
                same(text, value(connection, "SELECT '" + text + "' FROM DUAL"), "my value");
                oracleError(942, () -> execute(connection, "SELECT nothing FROM no_" + thread));
            }
        }
        return null;
    }

    private static void meetingThreads(OciConnection connection, OciStatement unused)
            throws Exception {
        execute(connection, "CREATE TABLE met (c CLOB, v LONG)", "INSERT INTO met VALUES ('x', 'y')");
        OciStatement query = connection.createStatement();
        query.setFetchSize(1);
        query.execute("SELECT c FROM met");
        yes(query.next(), "a row");
        OciLob lob = query.getLob(1);
        OciStatement longs = connection.createStatement();
        longs.execute("SELECT v FROM met");
        yes(longs.next(), "a row with a LONG");
        OciStatement insert = connection.createStatement();
        insert.prepare("INSERT INTO met VALUES (NULL, :1)");
        TestRun.Case[] calls = {
            connection::commit, connection::rollback, connection::close,
            () -> connection.setAutoCommit(true), () -> connection.createStatement(),
            () -> query.next(), () -> longs.next(), () -> query.prepare("SELECT 1 FROM DUAL"),
            query::execute, query::close, lob::length, lob::close,
            () -> lob.read(0, new char[1], 0, 1), () -> lob.substring(0, 1),
        };
        FutureTask<Void> others = new FutureTask<>(() -> {
            for (TestRun.Case call : calls) {
                oracleError(3127, call);
            }
            return null;
        });
        // While the stream is being read the insert is under way.
        insert.setAsciiStream(1, BindCases.during("z", () -> {
            new Thread(others).start();
            while (!others.isDone()) {
                Thread.yield();
            }
        }));
        insert.execute();
        others.get();
        same("x", lob.substring(0, 9), "the LOB afterwards");
        same("y", longs.getString(1), "the LONG of the row that stands");
        same("z", value(connection, "SELECT v FROM met WHERE c IS NULL"), "the value");
    }
}
