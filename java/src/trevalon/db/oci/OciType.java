package trevalon.db.oci;

/**
 * Oracle's type codes: what a describe reports, and what bind variables come in.
 *
 * <p>One set of numbers serves for the internal types of columns and the external ones of
 * variables; INTEGER, FLOAT and STRING occur as variables only.
 */
public final class OciType {
    public static final int VARCHAR2 = 1;
    public static final int NUMBER = 2;
    public static final int INTEGER = 3;
    public static final int FLOAT = 4;
    public static final int STRING = 5;
    public static final int LONG = 8;
    public static final int ROWID = 11;
    public static final int DATE = 12;
    public static final int RAW = 23;
    public static final int LONG_RAW = 24;
    public static final int CHAR = 96;
    public static final int ROWID_DESCRIPTOR = 104;
    public static final int CLOB = 112;
    public static final int BLOB = 113;

    /** The scale that the server reports for a NUMBER declared as FLOAT. */
    private static final int FLOAT_SCALE = -127;

    private OciType() {}

    /** True for the types whose values arrive in pieces. */
    public static boolean isLong(int type) {
        return type == LONG || type == LONG_RAW;
    }

    /** True for the types whose values are reached through a locator. */
    public static boolean isLob(int type) {
        return type == CLOB || type == BLOB;
    }

    /** True for the types whose values are bytes, and are shown in hexadecimal. */
    static boolean isBinary(int type) {
        return type == RAW || type == LONG_RAW || type == BLOB;
    }

    /** The type with its sizes as a CREATE TABLE would say it; an unknown code in words. */
    static String describe(int type, int length, int precision, int scale) {
        switch (type) {
            case VARCHAR2:
                return "VARCHAR2(" + length + ")";
            case CHAR:
                return "CHAR(" + length + ")";
            case RAW:
                return "RAW(" + length + ")";
            case NUMBER:
                return number(precision, scale);
            case LONG:
                return "LONG";
            case LONG_RAW:
                return "LONG RAW";
            case DATE:
                return "DATE";
            case ROWID:
            case ROWID_DESCRIPTOR:
                return "ROWID";
            case CLOB:
                return "CLOB";
            case BLOB:
                return "BLOB";
            default:
                return "type " + type;
        }
    }

    private static String number(int precision, int scale) {
        // No precision was declared.
        if (precision == 0) {
            return scale == 0 || scale == FLOAT_SCALE ? "NUMBER" : "NUMBER(38," + scale + ")";
        }
        if (scale == FLOAT_SCALE) {
            return "FLOAT(" + precision + ")";
        }
        return "NUMBER(" + precision + (scale == 0 ? "" : "," + scale) + ")";
    }
}
