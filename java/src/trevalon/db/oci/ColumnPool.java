package trevalon.db.oci;

import java.util.ArrayDeque;

/**
 * Keeps the native records of a session's short select-list columns from one statement to the next,
 * with their arrays: to make them anew costs more than a query that brings one row.
 */
final class ColumnPool {
    private static final int MOST_COLUMNS = 64;

    /** Longer arrays are not kept. */
    private static final int MOST_BYTES = 4 * 1024;

    private final ArrayDeque<OciColumn> spare = new ArrayDeque<>();

    /** A column for a position of a select list. */
    OciColumn take(int position) {
        OciColumn column = spare.isEmpty() ? new OciColumn() : spare.pop();
        column.setPosition(position);
        return column;
    }

    /**
     * Ends a column that holds no LONG or LOB, and that no open cursor refers to. Whoever still has
     * the object finds it closed.
     *
     * @param bytes of its fetch array
     */
    void give(OciColumn column, long bytes) {
        if (bytes > MOST_BYTES || spare.size() == MOST_COLUMNS) {
            column.close();
        } else {
            spare.push(new OciColumn(column));
        }
    }

    /** Frees what is kept. */
    void clear() {
        spare.forEach(OciColumn::close);
        spare.clear();
    }
}
