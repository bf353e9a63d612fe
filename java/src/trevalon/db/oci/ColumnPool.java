package trevalon.db.oci;

import java.util.ArrayDeque;

/**
 * Keeps the native records of a session's short select-list columns from one statement to the next,
 * with their arrays: to make them anew costs more than a query that brings one row.
 */
final class ColumnPool {
    private static final int MOST_COLUMNS = 64;

    /** Larger arrays are not kept. */
    private static final int MOST_BYTES = 4 * 1024;

    /** For each row, beside its value: indicator, length, return code, and numbers of two kinds. */
    static final int BESIDE_VALUE = 18;

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
     * @param rows of its fetch arrays
     * @param valueBytes of a value in them
     */
    void give(OciColumn column, int rows, int valueBytes) {
        long bytes = (long) rows * (valueBytes + BESIDE_VALUE);
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
