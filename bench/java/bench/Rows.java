package bench;

/** The content of the tables, made from the row's number: the same for every contender. */
final class Rows {
    /** As many rows of values as inserts cycle through. */
    static final int CYCLE = 1000;

    private static final String LETTERS =
            "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789 .";
    private static final long FIRST_SECOND = 315_532_800L;
    private static final long SECONDS = 1_262_304_000L;

    private Rows() {}

    /** SplitMix64: a long of noise for each number. native/floor.c has the same. */
    static long mix(long number) {
        long z = number * 0x9E3779B97F4A7C15L + 0x9E3779B97F4A7C15L;
        z = (z ^ (z >>> 30)) * 0xBF58476D1CE4E5B9L;
        z = (z ^ (z >>> 27)) * 0x94D049BB133111EBL;
        return z ^ (z >>> 31);
    }

    static String text(long number, int length) {
        StringBuilder text = new StringBuilder(length);
        for (int i = 0; i < length; i += 10) {
            long noise = mix(number * 1000 + i);
            for (int k = 0; k < 10 && i + k < length; k++) {
                text.append(LETTERS.charAt((int) (noise >>> (6 * k)) & 63));
            }
        }
        return text.toString();
    }

    /** An amount with two decimals. */
    static double amount(long number) {
        return Math.floorMod(mix(number ^ 0x1111), 100_000_000L) / 100.0;
    }

    /** A second between 1980 and 2020. */
    static long second(long number) {
        return FIRST_SECOND + Math.floorMod(mix(number ^ 0x2222), SECONDS);
    }

    static byte[] raw(long number, int length) {
        byte[] bytes = new byte[length];
        fill(bytes, number);
        return bytes;
    }

    static void fill(byte[] bytes, long number) {
        for (int i = 0; i < bytes.length; i += 8) {
            long noise = mix((number << 24) + i);
            for (int k = 0; k < 8 && i + k < bytes.length; k++) {
                bytes[i + k] = (byte) (noise >>> (8 * k));
            }
        }
    }

    /** Every fourth is NULL. */
    static String note(long number) {
        return number % 4 == 0 ? null : "note " + text(number + 7, 1 + (int) (number % 20));
    }

    /** The order in which rows are asked for by key: every row, far from the one before. */
    static int key(long step, int rows) {
        return 1 + (int) (step * 7919 % rows);
    }
}
