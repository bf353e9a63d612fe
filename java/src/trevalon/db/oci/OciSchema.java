package trevalon.db.oci;

import java.util.ArrayList;
import java.util.Collections;
import java.util.List;

/** The columns of a described object, in the order in which they were added. */
public final class OciSchema {
    private final List<OciColumn> columns = new ArrayList<>();

    /**
     * Appends a column; also called by the native side.
     *
     * @return this schema, so that calls can be chained
     */
    public OciSchema addColumn(OciColumn column) {
        columns.add(column);
        return this;
    }

    /** The columns added so far, as a view that cannot be changed. */
    public List<OciColumn> columns() {
        return Collections.unmodifiableList(columns);
    }
}
