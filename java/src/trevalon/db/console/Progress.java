package trevalon.db.console;

import java.io.PrintStream;

/** One line on the terminal that tells how far a long job is; nothing where it is no terminal. */
final class Progress {
    private static final long INTERVAL_NANOS = 100_000_000L;

    /** Back to the line's start, and erase it. */
    private static final String CLEAR_LINE = "\r\u001b[K";

    private final PrintStream terminal;
    /** Begins with now, so that short work shows nothing at all. */
    private long lastShown = System.nanoTime();
    private boolean shown;

    /**
     * @param terminal where to show it, or null for nowhere
     */
    Progress(PrintStream terminal) {
        this.terminal = terminal;
    }

    /** Whether it is time for another look; what is shown may cost something to find out. */
    boolean isDue() {
        return terminal != null && System.nanoTime() - lastShown >= INTERVAL_NANOS;
    }

    /** Shows how many rows, bytes or the like are done, and which part of the whole that is. */
    void show(String what, long done, String unit, int percent) {
        lastShown = System.nanoTime();
        shown = true;
        terminal.print(CLEAR_LINE + String.format("%s: %,d %s, %d %%", what, done, unit, percent));
        terminal.flush();
    }

    /** Takes the line away before anything else is printed there. */
    void clear() {
        if (shown) {
            terminal.print(CLEAR_LINE);
            terminal.flush();
            shown = false;
        }
    }
}
