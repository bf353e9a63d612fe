package trevalon.db.oci;

import static trevalon.db.oci.TestRun.*;

import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Deque;
import java.util.List;
import java.util.concurrent.Callable;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.Future;

/** Sessions: login, transactions, slots, threads, and the ends of things. */
public final class ConnectionCases {
    private ConnectionCases() {}

    public static void addTo(TestRun tests) {
        tests.add("login errors carry Oracle's code and leave no slot taken", () -> loginErrors());
        tests.add("rollback takes back, commit and autocommit keep", () -> transactions());
        tests.add("a close comes once, whatever is called after it", () -> closeTwice());
        tests.add("session slots run out, and come back", () -> sessionSlots());
        tests.add("cursor slots run out, and come back", () -> cursorSlots());
        tests.add("two sessions on two threads do not meet", () -> twoThreads());
        tests.add("a break from another thread stops the statement alone",
                ConnectionCases::breakCall);
    }

    private static void loginErrors() throws Exception {
        OciException error =
                oracleError(1017, () -> OciConnection.open("tester", "wrong", "TEST"));
        yes(error.getMessage().startsWith("ORA-01017: "), error.getMessage());
        oracleError(12154, () -> OciConnection.open("tester", "secret", "not a name"));
        try (OciConnection connection = OciConnection.open("TESTER", "secret", "TEST")) {
            same(1, connection.slotsInUse(), "slots of one session after failed logins");
        }
    }

    private static void transactions() throws Exception {
        try (OciConnection writer = connect();
                OciConnection reader = connect()) {
            String count = "SELECT COUNT(*) FROM kept";
            execute(writer, "CREATE TABLE kept (n NUMBER(4))", "INSERT INTO kept VALUES (1)");
            same("0", value(reader, count), "rows before the commit");
            writer.rollback();
            same("0", value(writer, count), "rows after the rollback");
            execute(writer, "INSERT INTO kept VALUES (2)");
            writer.commit();
            same("1", value(reader, count), "rows after the commit");
            writer.setAutoCommit(true);
            execute(writer, "INSERT INTO kept VALUES (3)");
            same("2", value(reader, count), "rows after an insert with autocommit");
            writer.setAutoCommit(false);
        }
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

    private static void sessionSlots() throws Exception {
        Deque<OciConnection> held = new ArrayDeque<>();
        for (int i = 0; i < OciConnection.lda_pool_size(); i++) {
            held.add(connect());
        }
        oracleError(18, () -> connect());
        held.pop().close();
        held.add(connect());
        same("1", value(held.peekLast(), "SELECT 1 FROM DUAL"), "a session on a used slot");
        held.forEach(OciConnection::close);
    }

    private static void cursorSlots() throws Exception {
        try (OciConnection connection = connect()) {
            List<OciStatement> held = new ArrayList<>();
            for (int i = 0; i < OciConnection.cda_pool_size(); i++) {
                held.add(connection.createStatement());
            }
            oracleError(1000, () -> connection.createStatement());
            held.get(1234).close();
            same("1", value(connection, "SELECT 1 FROM DUAL"), "a statement on a used slot");
        }
        same(0, NativeLibrary.get().cursors().inUse(), "cursor slots after the session");
    }

    private static void twoThreads() throws Exception {
        ExecutorService threads = Executors.newFixedThreadPool(2);
        try {
            for (Future<?> result : threads.invokeAll(Arrays.asList(rounds(1), rounds(2)))) {
                result.get();
            }
        } finally {
            threads.shutdown();
        }
    }

    private static Callable<Void> rounds(int thread) {
        return () -> {
            try (OciConnection connection = connect()) {
                for (int i = 0; i < 300; i++) {
                    String text = "thread " + thread + " round " + i;
                    same(text, value(connection, "SELECT '" + text + "' FROM DUAL"), "my value");
                    String missing = "SELECT nothing FROM no_" + thread;
                    oracleError(942, () -> execute(connection, missing));
                }
            }
            return null;
        };
    }

    private static void breakCall(OciConnection connection, OciStatement unused) throws Exception {
        Thread breaker = new Thread(() -> breakUntilInterrupted(connection));
        long start = System.nanoTime();
        breaker.start();
        try {
            String endless = "SELECT COUNT(*) FROM big a, big b WHERE a.n + b.n < 0";
            oracleError(1013, () -> value(connection, endless));
        } finally {
            breaker.interrupt();
            breaker.join();
        }
        yes(System.nanoTime() - start < 10_000_000_000L, "the break took too long");
        same("100000", value(connection, "SELECT COUNT(*) FROM big"), "the session afterwards");
    }

    /** Again and again, since a break that comes before the call starts stops nothing. */
    private static void breakUntilInterrupted(OciConnection connection) {
        try {
            while (true) {
                connection.breakCall();
                Thread.sleep(50);
            }
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }
}
