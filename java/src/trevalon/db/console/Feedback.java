package trevalon.db.console;

import java.util.HashMap;
import java.util.Map;

/**
 * What is said after a statement that returns no rows, by its SQL function code.
 *
 * <p>The numbers are those of the interface's attribute for SQL function codes. A statement without
 * an entry here is confirmed in general words, so that the lists need not be complete.
 */
final class Feedback {
    private static final Map<Integer, String> DONE = new HashMap<>();
    private static final Map<Integer, String> ROWS = new HashMap<>();

    static {
        ROWS.put(2, "created");
        ROWS.put(6, "updated");
        ROWS.put(7, "deleted");
        DONE.put(1, "Table created.");
        DONE.put(9, "Index created.");
        DONE.put(10, "Index dropped.");
        DONE.put(12, "Table dropped.");
        DONE.put(13, "Sequence created.");
        DONE.put(15, "Table altered.");
        DONE.put(16, "Sequence dropped.");
        DONE.put(21, "View created.");
        DONE.put(22, "View dropped.");
        DONE.put(44, "Commit complete.");
        DONE.put(45, "Rollback complete.");
        DONE.put(46, "Savepoint created.");
        DONE.put(47, "Block completed.");
        DONE.put(85, "Table truncated.");
    }

    private Feedback() {}

    /** The line for a statement that has changed `rows` rows, or none. */
    static String executed(int functionCode, long rows) {
        String change = ROWS.get(functionCode);
        if (change != null) {
            return rows + (rows == 1 ? " row " : " rows ") + change + ".";
        }
        return DONE.getOrDefault(functionCode, "Statement processed.");
    }

    /** The line below a query's rows. */
    static String selected(long rows) {
        if (rows == 0) {
            return "no rows selected";
        }
        return rows + (rows == 1 ? " row" : " rows") + " selected.";
    }
}
