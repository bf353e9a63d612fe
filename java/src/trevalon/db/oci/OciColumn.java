package trevalon.db.oci;

/**
 * One select-list column or bind variable, and the owner of its native record.
 *
 * <p>The record exists from construction to {@link #close}. A cursor that has this column in its
 * select list refers to the record, so the cursor's native close comes first.
 *
 * <p>A column belongs to its statement, which ends it. After that every native method but a second
 * close finds no record and raises; sizes and positions are kept nowhere else.
 */
public final class OciColumn {
    // By the names that the native side knows: the stream's kind, and the record's address.
    private int input_stream_type;
    private int coldata32;
    private long coldata64;

    /**
     * Creates the column and its native record.
     *
     * @param position 1-based position in the select list or among the bind variables
     * @param name the column's name, or null where a describe will set it
     */
    OciColumn(int position, String name) {
        initialize(OciLimits.BIND_ROWS, OciLimits.BIND_SIZE);
        setPosition(position);
        if (name != null) {
            setName(OciText.encode(name));
        }
    }

    /** A column of a select list: its position comes later, and its arrays with the define. */
    OciColumn() {
        initialize(0, OciLimits.BIND_SIZE);
    }

    /** Takes the record of another column over, which is closed after that. */
    OciColumn(OciColumn ended) {
        coldata32 = ended.coldata32;
        ended.coldata32 = 0;
    }

    /** The column's name as the server described it. */
    public String name() {
        byte[] buffer = new byte[OciLimits.COLUMN_NAME];
        return OciText.decode(buffer, name(buffer));
    }

    /** The declared type as it would be written in a CREATE TABLE. */
    public String typeText() {
        return OciType.describe(internalType(), length(), precision(), scale());
    }

    /** Names the kind of stream that feeds this bind variable: a constant of {@link OciCursor}. */
    void setInputStreamType(int streamType) {
        input_stream_type = streamType;
    }

    /** Frees the native record; a second call does nothing. */
    void close() {
        native_finalize();
    }

    native void initialize(int vectsize, int min_bind_size);

    native void native_finalize();

    /** 1-based position in the select list. */
    public native int position();

    /** Decimal precision of a NUMBER, 0 where none was declared. */
    public native int precision();

    /** Decimal scale of a NUMBER. */
    public native int scale();

    /** Described maximum length in bytes. */
    public native int length();

    /** Oracle's internal type code; see {@link OciType}. */
    public native int internalType();

    /**
     * The type that a bind or define names: what a setter chose, else the one that the described
     * type maps to.
     */
    native int externalType();

    native int actualExternalType();

    native boolean nullAllowed();

    native boolean hasDefault();

    native int level();

    native int overloading();

    native int radix();

    native int iomode();

    native void setPosition(int position);

    native void setDbType(int dbtype);

    native void setLength(int length);

    native void setNullOK(int nullok);

    native void setPrecision(int precision);

    native void setScale(int scale);

    native int name(byte[] HNameBuf);

    native void setName(byte[] HNameBuf);

    native void setValueWithInt(int val, boolean setnull);

    native void setValueWithFloat(float val, boolean setnull);

    native void setValueWithDouble(double val, boolean setnull);

    /** Copies the whole array; the value ends at its first zero byte. */
    native void setValueWithString(byte[] HStrBuf, boolean setnull);

    /** As a RAW, or as a LONG RAW, whose length is not limited to 2000 bytes. */
    native void setValueWithBytes(byte[] val, boolean setnull, boolean useraw);

    /**
     * Has the next bind take the value in pieces from {@link OciCursor#getNextStreamBuffer}; a
     * piece length of 0 ends that.
     */
    native void setValueWithStream(int len, int piecelen, int stream_type, boolean setnull);

    /**
     * Hour, minute and second come with 1 added, as the seven bytes have them; century and year
     * without their excess.
     */
    native void setValueWithDate(
            int century, int year, int month, int day, int hour, int min, int sec, boolean setnull);

    /** Gives the column a locator of its own for fetches to fill; the next method frees it. */
    native void allocLobLocator(OciConnection connobj, int type);

    native void deallocLobLocator();

    native void setValueWithLob(OciLob lobobj, int type, boolean setnull);

    native void setValueWithBlob(OciLob lobobj, boolean setnull);

    native void setValueWithClob(OciLob lobobj, boolean setnull);
}
