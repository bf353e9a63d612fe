package trevalon.db.oci;

import java.sql.SQLException;
import java.util.Objects;

import trevalon.db.console.ConsoleCases;

/** Runs named cases one after the other, and remembers whether any failed. */
public final class TestRun {
    /** A case; it fails by throwing. */
    public interface Case {
        void run() throws Exception;
    }

    /** A case with a session and a statement on it. */
    interface SessionCase {
        void run(OciConnection connection, OciStatement statement) throws Exception;
    }

    private int failures;

    /** Runs every case; exits with 1 when one failed. */
    public static void main(String[] arguments) {
        TestRun tests = new TestRun();
        // The queries make the tables that the later cases use.
        QueryCases.addTo(tests);
        BindCases.addTo(tests);
        LobCases.addTo(tests);
        ConnectionCases.addTo(tests);
        ConsoleCases.addTo(tests);
        System.out.println(tests.failures + " failed");
        System.exit(tests.failures == 0 ? 0 : 1);
    }

    public void add(String name, Case test) {
        long start = System.nanoTime();
        try {
            test.run();
            long millis = (System.nanoTime() - start) / 1_000_000;
            System.out.printf("[  OK  ] %s (%d ms)%n", name, millis);
        } catch (Throwable e) {
            failures++;
            System.out.printf("[FAILED] %s%n", name);
            e.printStackTrace(System.out);
        }
    }

    void add(String name, SessionCase test) {
        add(name, () -> {
            try (OciConnection connection = connect()) {
                test.run(connection, connection.createStatement());
            }
        });
    }

    public static void same(Object expected, Object found, String what) {
        if (!Objects.deepEquals(expected, found)) {
            throw new AssertionError(what + ": expected <" + expected + ">, found <" + found + ">");
        }
    }

    public static void yes(boolean condition, String what) {
        if (!condition) {
            throw new AssertionError(what);
        }
    }

    /** Runs a case that must fail with this Oracle error, and returns the error. */
    public static OciException oracleError(int code, Case test) {
        OciException error = throwing(OciException.class, test);
        same(code, error.code(), "error of <" + error.getMessage() + ">");
        return error;
    }

    /** Runs a case that must throw this class; JNI errors show as exceptions, not as crashes. */
    public static <T extends Throwable> T throwing(Class<T> expected, Case test) {
        try {
            test.run();
        } catch (Throwable e) {
            yes(expected.isInstance(e), expected + " expected, but got " + e);
            return expected.cast(e);
        }
        throw new AssertionError(expected + " was not thrown");
    }

    public static OciConnection connect() throws SQLException {
        return OciConnection.open("tester", "secret", "TEST");
    }

    /** Executes statements that return no rows. */
    static void execute(OciConnection connection, String... statements) throws SQLException {
        try (OciStatement statement = connection.createStatement()) {
            for (String sql : statements) {
                statement.execute(sql);
            }
        }
    }

    /** The first value of a query's only row. */
    static String value(OciConnection connection, String sql) throws SQLException {
        try (OciStatement statement = connection.createStatement()) {
            statement.execute(sql);
            yes(statement.next(), "a row of " + sql);
            String value = statement.getString(1);
            yes(!statement.next(), "only one row of " + sql);
            return value;
        }
    }
}
