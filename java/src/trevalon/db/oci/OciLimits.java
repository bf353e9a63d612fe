package trevalon.db.oci;

/**
 * Sizes and an indicator that the peers and the native side agree on.
 *
 * <p>A size that is smaller here than there would cut values, or have a native getter refuse its
 * array.
 */
final class OciLimits {
    /** Longest column name, in bytes. */
    static final int COLUMN_NAME = 128;

    /** Room for an error text; the server cuts its own at about this length. */
    static final int ERROR_TEXT = 1024;

    /** A user, a password or a connect string, in bytes: what is longer would be cut. */
    static final int LOGIN_TEXT = 255;

    /** A NUMBER, which arrives as text. */
    static final int NUMBER_TEXT = 129;

    /** A ROWID or a label, which arrive as text. */
    static final int ROWID_TEXT = 24;

    /** A DATE: century, year, month, day, hour, minute, second. */
    static final int DATE = 7;

    /** A bind variable needs one element for its indicator; a define sets its own size. */
    static final int BIND_ROWS = 1;

    /** Smallest buffer of a character bind variable, in bytes: its text decides alone. */
    static final int BIND_SIZE = 0;

    /** The indicator of NULL. */
    static final int NULL_INDICATOR = -1;

    private OciLimits() {}
}
