package trevalon.db.oci;

import java.sql.SQLException;

/**
 * A failed Oracle call: the error number, its text, and the place in the statement if known.
 *
 * <p>The vendor code of the SQLException is Oracle's number; there is no SQL state, as the
 * interface gives none. The text may have several lines, the first of which names the error.
 */
public final class OciException extends SQLException {
    private static final long serialVersionUID = 1L;
    private static final int UNKNOWN = -1;

    private final int offset;

    OciException(int code, String text, int offset) {
        super(text, null, code);
        this.offset = offset;
    }

    OciException(int code, String text) {
        this(code, text, UNKNOWN);
    }

    /** What is asked of a value of another type. */
    static OciException inconsistentTypes() {
        return new OciException(932, "ORA-00932: inconsistent datatypes");
    }

    /** A number that has a fraction, or too many digits for the Java type. */
    static OciException overflow() {
        return new OciException(1455, "ORA-01455: converting column overflows integer datatype");
    }

    /** Oracle's error number, for example 942. */
    public int code() {
        return getErrorCode();
    }

    /** Offset of the error in the statement in bytes from 0, or -1 where it is not known. */
    public int offset() {
        return offset;
    }
}
