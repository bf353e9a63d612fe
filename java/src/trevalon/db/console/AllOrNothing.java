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

    /** What is done as a whole. */
    interface Work<T> {
        T run() throws SQLException, IOException;
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

    private static void takeBack(
            OciConnection connection, boolean autoCommit, Throwable reason) {
        try {
            if (autoCommit) {
                connection.rollback();
            } else {
                execute(connection, "ROLLBACK TO SAVEPOINT " + SAVEPOINT);
            }
        } catch (SQLException e) {
            // The work's own error is what the user has to see.
            reason.addSuppressed(e);
        }
    }

    private static void execute(OciConnection connection, String sql) throws SQLException {
        try (OciStatement statement = connection.createStatement()) {
            statement.execute(sql);
        }
    }
}
