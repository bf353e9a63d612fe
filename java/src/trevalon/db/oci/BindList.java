package trevalon.db.oci;

import java.sql.SQLException;
import java.sql.SQLFeatureNotSupportedException;
import java.util.ArrayList;
import java.util.Collections;
import java.util.List;

/**
 * The bind variables of one prepared statement.
 *
 * <p>Variables are made when they are first set, and those before them, too: which positions the
 * statement has is the server's to say, at the bind (ORA-01036) or the execution (ORA-01008).
 */
final class BindList {
    /** The interface's own limit. */
    private static final int MOST_VARIABLES = 65535;

    private static final int PLSQL_FUNCTION = 47;

    private final OciCursor cursor;
    private final List<BindVariable> variables = new ArrayList<>();

    /** Whether the execution that comes, or runs, has cursor variables: nearly none has. */
    private boolean cursors;

    BindList(OciCursor cursor) {
        this.cursor = cursor;
    }

    /** The variable at a position from 1. */
    BindVariable at(int position) {
        if (position < 1 || position > MOST_VARIABLES) {
            throw new IndexOutOfBoundsException("No variable " + position);
        }
        while (variables.size() < position) {
            variables.add(new BindVariable(cursor, variables.size() + 1));
        }
        return variables.get(position - 1);
    }

    /** Fails, before anything is bound, where an execution would find nothing to read. */
    void requireValues(boolean query) throws SQLException {
        cursors = false;
        for (BindVariable variable : variables) {
            variable.requireValue();
            cursors |= variable.cursorStatement() != null;
            if (query && variable.isStream()) {
                // Only the execution of a statement without rows releases what a stream holds.
                throw new SQLFeatureNotSupportedException("A stream as value in a query");
            }
        }
    }

    /**
     * Hands the values to the interface.
     *
     * @return true when a call failed
     */
    boolean bind() throws SQLException {
        // A block may have left the lengths of its own values in any variable.
        boolean always = cursor.sqlFunctionCode() == PLSQL_FUNCTION;
        for (BindVariable variable : variables) {
            if (variable.bind(always)) {
                return true;
            }
        }
        return false;
    }

    /** Notes for the cursor variables that a call begins or ends which opens their queries. */
    void setExecuting(boolean on) {
        for (OciStatement statement : results()) {
            statement.setExecuting(on);
        }
    }

    /** Notes that an execution has taken the values. */
    void executed() {
        for (BindVariable variable : variables) {
            variable.executed();
        }
    }

    /** Makes the queries that the execution has opened ready for reading. */
    void takeResults() throws SQLException {
        for (OciStatement statement : results()) {
            statement.takeResult();
        }
    }

    private List<OciStatement> results() {
        if (!cursors) {
            return Collections.emptyList();
        }
        List<OciStatement> statements = new ArrayList<>();
        for (BindVariable variable : variables) {
            if (variable.cursorStatement() != null) {
                statements.add(variable.cursorStatement());
            }
        }
        return statements;
    }

    /** Frees the variables; the cursor that they were bound to must be closed by then. */
    void clear() {
        for (BindVariable variable : variables) {
            variable.close();
        }
        variables.clear();
    }
}
