package trevalon.db.console;

/** The text of a failed statement's error as Oracle's own tools show it. */
final class ErrorReport {
    private ErrorReport() {}

    /**
     * The offending line, a star under the error's position, and the message.
     *
     * @param offset index of the offending character, or {@link ErrorLocator#UNKNOWN}
     */
    static String format(String sql, int offset, String message) {
        if (offset < 0) {
            return "ERROR:\n" + message;
        }
        // From before the place: a place at a line's end belongs to that line.
        int start = sql.lastIndexOf('\n', offset - 1) + 1;
        int end = sql.indexOf('\n', offset);
        String line = sql.substring(start, end < 0 ? sql.length() : end);
        int lineNumber = 1 + (int) sql.substring(0, start).chars().filter(c -> c == '\n').count();
        // Tabs become blanks so that the star stands under its character on every terminal.
        String before = DisplayText.printable(sql.substring(start, offset));
        return DisplayText.printable(line) + '\n'
                + DisplayText.repeat(' ', DisplayText.width(before)) + "*\n"
                + "ERROR at line " + lineNumber + ":\n"
                + message;
    }
}
