package trevalon.db.console;

/** A command line that cannot be understood; the message says why. */
final class UsageException extends Exception {
    private static final long serialVersionUID = 1L;

    UsageException(String message) {
        super(message);
    }
}
