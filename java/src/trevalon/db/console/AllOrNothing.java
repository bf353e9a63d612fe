package trevalon.db.console;

import java.io.IOException;
import java.sql.SQLException;

import trevalon.db.oci.OciConnection;
import trevalon.db.oci.OciStatement;

/**
 * Lets several statements take effect together or not at all, within the user's transaction.
 *
 * <p>Autocommit is off meanwhile, since it would keep every statement by itself. What the user had
 * not committed before stays as it was, whatever becomes of the work: hence a savepoint and no
 * rollback.
 */
final class AllOrNothing {
    private static final String SAVEPOINT = "oralayer_begins";
    private static final int BROKEN = 1013;

    /** What is done as a whole. */
    interface Work<T> {
        T run() throws SQLException, IOException;
    }

    private interface Step {
        void run() throws SQLException;
    }

    private AllOrNothing() {}

    /**
     * Commits the work only where every statement does; what fails is taken back. With autocommit
     * no transaction is open afterwards in either case, and so no lock is held.
     */
    static <T> T run(OciConnection connection, Work<T> work) throws SQLException, IOException {
        boolean autoCommit = connection.isAutoCommit();
        connection.setAutoCommit(false);
        try {
            if (autoCommit) {
                // What is left from before it was switched on: any statement would commit it.
                connection.commit();
            }
            execute(connection, "SAVEPOINT " + SAVEPOINT);
            try {
                T result = work.run();
                if (autoCommit) {
                    connection.commit();
                }
                return result;
            } catch (SQLException | IOException | RuntimeException | Error e) {
                takeBack(connection, autoCommit, e);
                throw e;
            }
        } finally {
            connection.setAutoCommit(autoCommit);
        }
    }

    /** What the work has left must not stay, as leaving would commit it. */
    private static void takeBack(
            OciConnection connection, boolean autoCommit, Throwable reason) throws SQLException {
        String back = "ROLLBACK TO SAVEPOINT " + SAVEPOINT;
        if (!autoCommit && succeeds(() -> execute(connection, back), reason)) {
            return;
        }
        boolean gone = succeeds(connection::rollback, reason);
        if (!autoCommit || !gone) {
            String outcome =
                    gone
                            ? "The whole transaction was rolled back"
                            : "What was done of it could not be taken back";
            throw new SQLException(reason.getMessage() + "\n" + outcome, reason);
        }
    }

    /**
     * A break was meant for the work, so what it stops is done again. The work's own error is what
     * the user has to see: any other one is only added to it.
     */
    private static boolean succeeds(Step step, Throwable reason) {
        while (true) {
            try {
                step.run();
                return true;
            } catch (SQLException e) {
                if (e.getErrorCode() != BROKEN) {
                    reason.addSuppressed(e);
                    return false;
                }
            }
        }
    }

    private static void execute(OciConnection connection, String sql) throws SQLException {
        try (OciStatement statement = connection.createStatement()) {
            statement.execute(sql);
        }
    }
}
