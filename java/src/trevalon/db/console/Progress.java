package trevalon.db.console;

import java.io.PrintStream;

/** One line on the terminal that tells how far a long job is; nothing where it is no terminal. */
final class Progress {
    private static final long INTERVAL_NANOS = 100_000_000L;

    /** Back to the line's start, and erase it. */
    private static final String CLEAR_LINE = "\r\u001b[K";

    private final PrintStream terminal;
    private long lastShown = System.nanoTime();
    private boolean shown;

    /**
     * @param terminal where to show it, or null for nowhere
     */
    Progress(PrintStream terminal) {
        this.terminal = terminal;
    }

    void show(String what, int done, int total) {
        long now = System.nanoTime();
        if (terminal == null || now - lastShown < INTERVAL_NANOS) {
            return;
        }
        lastShown = now;
        shown = true;
        terminal.print(CLEAR_LINE + String.format("%s: %,d of %,d rows", what, done, total));
        terminal.flush();
    }

    void clear() {
        if (shown) {
            terminal.print(CLEAR_LINE);
            terminal.flush();
            shown = false;
        }
    }
}
