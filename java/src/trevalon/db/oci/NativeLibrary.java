package trevalon.db.oci;

/**
 * The native library of this process: loaded on first use, never by a static initialiser, so that
 * a library that cannot be loaded is reported anew to each caller as what it is.
 *
 * <p>Also the owner of the process's slot pools: the native side tells their sizes, and who holds
 * which slot is known here only. XA sessions have a pool of their own.
 */
final class NativeLibrary {
    /** Names the library file where it is not on the JVM's library path. */
    private static final String PATH_PROPERTY = "oralayer.library";

    private static final String NAME = "oralayer";

    private static NativeLibrary loaded;

    private final SlotPool sessions;
    private final SlotPool xaSessions;
    private final SlotPool cursors;

    private NativeLibrary() {
        String path = System.getProperty(PATH_PROPERTY);
        if (path != null) {
            System.load(path);
        } else {
            System.loadLibrary(NAME);
        }
        sessions = sessionPool();
        xaSessions = sessionPool();
        cursors =
                new SlotPool(
                        OciConnection.cda_pool_size(),
                        1000,
                        "ORA-01000: maximum open cursors exceeded");
    }

    private static SlotPool sessionPool() {
        return new SlotPool(
                OciConnection.lda_pool_size(),
                18,
                "ORA-00018: maximum number of sessions exceeded");
    }

    /**
     * The library, loaded by the first caller. Raises UnsatisfiedLinkError where that fails, each
     * time.
     */
    static synchronized NativeLibrary get() {
        if (loaded == null) {
            loaded = new NativeLibrary();
        }
        return loaded;
    }

    SlotPool sessions(boolean xa) {
        return xa ? xaSessions : sessions;
    }

    SlotPool cursors() {
        return cursors;
    }
}
