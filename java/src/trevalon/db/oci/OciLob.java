package trevalon.db.oci;

/** A LOB locator. The native side keeps its record and error state in these fields. */
public final class OciLob {
    private int lobdata32;
    private long lobdata64;
    private int loberrcode;

    /** True once a locator has been attached to this object. */
    boolean hasLocator() {
        return lobdata32 != 0;
    }

    /** Oracle's error number after the last call on this locator, 0 for none. */
    public int errorCode() {
        return loberrcode;
    }
}
