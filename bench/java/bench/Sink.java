package bench;

/**
 * Takes every value that a contender delivers. The full sum covers every byte and is made once, out
 * of the timing; the light one touches each value as it passes. Sums of all contenders must agree.
 */
final class Sink {
    /** What stands for NULL. */
    private static final long NULL = -1;

    private final boolean full;
    private long sum;
    private long values;
    private int hash;
    private long length;
    private int touched;

    Sink(boolean full) {
        this.full = full;
    }

    void number(long value) {
        sum = sum * 31 + value;
        values++;
    }

    void number(double value) {
        number(Double.doubleToRawLongBits(value));
    }

    void text(String value) {
        if (value == null) {
            number(NULL);
        } else if (full) {
            number(value.hashCode());
        } else {
            number(value.length() + value.charAt(0));
        }
    }

    void bytes(byte[] value) {
        if (value == null) {
            number(NULL);
            return;
        }
        piece(value, value.length);
        endOfPieces();
    }

    void piece(byte[] piece, int count) {
        length += count;
        touched += piece[0];
        if (full) {
            int h = hash;
            for (int i = 0; i < count; i++) {
                h = 31 * h + (piece[i] & 0xFF);
            }
            hash = h;
        }
    }

    void piece(char[] piece, int count) {
        length += count;
        touched += piece[0];
        if (full) {
            int h = hash;
            for (int i = 0; i < count; i++) {
                h = 31 * h + piece[i];
            }
            hash = h;
        }
    }

    void endOfPieces() {
        number(full ? hash : length);
        hash = 0;
        length = 0;
    }

    /** The number of values, and their sum. */
    String result() {
        return values + ":" + Long.toHexString(sum);
    }

    /** Keeps the compiler from leaving out what only looks at pieces. */
    int touched() {
        return touched;
    }
}
