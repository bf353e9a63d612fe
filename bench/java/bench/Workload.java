package bench;

import java.util.List;
import java.util.Map;

/** What is measured: how much of what content, and the speed aimed at beside the peer's. */
record Workload(
        String name,
        String title,
        String content,
        int rows,
        int quickRows,
        int length,
        int quickLength,
        int count,
        int quickCount,
        double aim) {

    /** By workload, for 32-bit Linux. */
    private static final Map<String, Double> AIMS_ON_32_BITS =
            Map.of("W1", 1.3, "W2", 1.35, "W4", 1.25);

    static final int PIECE = 32 * 1024;
    private static final int LARGE = 5_000_000;
    private static final int QUICK_LARGE = 200_000;

    /**
     * Contents: six = number, text of 20, amount, date, raw of 16, text or NULL, with the number as
     * the key; three = three texts; raw, blob, clob = one large value a row; five and rawin = what
     * inserts fill, empty at first.
     */
    static final List<Workload> ALL =
            List.of(
                    scan("W1", "scan, 6 columns", "six", 1_000_000, 20_000, 20, 20, 1.7),
                    scan("W2", "scan, 3 texts of 200", "three", 200_000, 5_000, 200, 200, 1.6),
                    large("W3a", "LONG RAW of 5 MB, 32 KB pieces", "raw", 1.0),
                    large("W3b", "BLOB of 5 MB, 32 KB reads", "blob", 1.5),
                    large("W3c", "CLOB of 5 M characters, 32 K reads", "clob", 1.4),
                    new Workload(
                            "W4", "insert, 5 binds, one transaction", "five", 0, 0, 20, 20,
                            300_000, 10_000, 1.35),
                    new Workload(
                            "W5", "insert streams of 5 MB", "rawin", 0, 0, LARGE, QUICK_LARGE, 100,
                            10, 1.2),
                    byKey("W6a", "prepare, bind, execute, fetch by key", 200_000, 5_000),
                    byKey("W6b", "the same, prepared once", 200_000, 5_000),
                    new Workload(
                            "W7", "login, one row, logout", "six", 1, 1, 20, 20, 2_000, 100, 1.2));

    private static Workload scan(
            String name, String title, String content, int rows, int quickRows, int length,
            int quickLength, double aim) {
        return new Workload(
                name, title, content, rows, quickRows, length, quickLength, rows, quickRows, aim);
    }

    private static Workload large(String name, String title, String content, double aim) {
        return new Workload(name, title, content, 200, 10, LARGE, QUICK_LARGE, 200, 10, aim);
    }

    private static Workload byKey(String name, String title, int count, int quickCount) {
        return new Workload(
                name, title, "six", 100_000, 2_000, 20, 20, count, quickCount, 1.2);
    }

    int rows(boolean quick) {
        return quick ? quickRows : rows;
    }

    int length(boolean quick) {
        return quick ? quickLength : length;
    }

    int count(boolean quick) {
        return quick ? quickCount : count;
    }

    /** The aim on this machine, as the table shows it. */
    String aimHere() {
        boolean wide = System.getProperty("os.arch").contains("64");
        Double here = wide ? Double.valueOf(aim) : AIMS_ON_32_BITS.get(name);
        return here == null ? "-" : String.format("%.2f", here);
    }

    boolean inserts() {
        return rows == 0;
    }

    /** The rows of the table that W6 picks its keys from. */
    static int keys(int count) {
        return count >= 100_000 ? 100_000 : 2_000;
    }
}
