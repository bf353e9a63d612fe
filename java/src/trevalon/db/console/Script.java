package trevalon.db.console;

import java.io.IOException;
import java.io.PrintStream;
import java.sql.SQLException;

import trevalon.db.oci.OciConnection;

/** Runs what a reader gives: a script to its first error, a prompt to its end. */
final class Script {
    private final OciConnection connection;
    private final SqlSession session;
    private final PrintStream out;
    private final PrintStream errors;

    Script(
            OciConnection connection,
            PrintStream out,
            PrintStream errors,
            BreakKey breakKey,
            Progress progress) {
        this.connection = connection;
        this.out = out;
        this.errors = errors;
        session = new SqlSession(connection, out, breakKey, progress);
    }

    /**
     * Runs statements until the end of the input; an error is shown, and the prompt goes on.
     *
     * @return whether what they have left was committed
     */
    boolean interact(StatementReader input) throws IOException {
        boolean more = true;
        while (more) {
            StatementReader.Statement statement = input.next();
            if (statement == null) {
                // The end-of-input key leaves the cursor behind the prompt.
                out.println();
                break;
            }
            more = runShowingErrors(statement);
        }
        return commit(null);
    }

    private boolean runShowingErrors(StatementReader.Statement statement) {
        try {
            return session.run(statement);
        } catch (SQLException e) {
            report(statement.text, null, e);
            return true;
        }
    }

    /** Closing the connection would commit, too, but could not say where that fails. */
    private boolean commit(String place) {
        try {
            connection.commit();
            return true;
        } catch (SQLException e) {
            report("", place, e);
            return false;
        }
    }

    /**
     * Runs a script. Its first error ends it, and takes back what was not committed.
     *
     * @param source the script's name in error messages
     * @return whether all statements succeeded, and what they have left was committed
     */
    boolean run(StatementReader input, String source) throws IOException, SQLException {
        boolean succeeded = false;
        try {
            succeeded = runAll(input, source) && commit("In " + source + ", the commit at its end");
        } finally {
            out.flush();
            // Leaving would commit: half a script must not stay, whatever has ended it.
            if (!succeeded) {
                connection.rollback();
            }
        }
        return succeeded;
    }

    private boolean runAll(StatementReader input, String source) throws IOException {
        boolean more = true;
        while (more) {
            StatementReader.Statement statement = input.next();
            if (statement == null) {
                break;
            }
            try {
                more = session.run(statement);
            } catch (SQLException e) {
                String place = "In " + source + ", statement of line " + statement.line;
                report(statement.text, place, e);
                return false;
            }
        }
        return true;
    }

    private void report(String sql, String place, SQLException error) {
        // Both streams may end on one terminal: what came before the error shall stand before it.
        out.flush();
        errors.println(session.errorText(sql, error));
        if (place != null) {
            errors.println(place);
        }
        errors.flush();
    }
}
