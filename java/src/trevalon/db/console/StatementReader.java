package trevalon.db.console;

import java.io.BufferedReader;
import java.io.IOException;
import java.util.Arrays;
import java.util.HashSet;
import java.util.List;
import java.util.Locale;
import java.util.Set;

/**
 * Cuts lines of input into statements: each ends at a semicolon, or at a line with only a slash. A
 * block of PL/SQL holds semicolons of its own, and so ends at the slash alone.
 *
 * <p>Commands of the console are one line each and are recognised at the start of a statement only.
 * Quotes and comments are followed from line to line, as a semicolon inside of them ends nothing.
 * What was cut is otherwise not looked at: mistakes are the server's to find.
 */
final class StatementReader {
    /** Commands of the console itself; they take one line and need no semicolon. */
    private static final Set<String> COMMANDS =
            new HashSet<>(
                    Arrays.asList(
                            "DESC", "DESCRIBE", "EXEC", "EXECUTE", "EXIT", "GET", "HELP", "LOAD",
                            "PRINT", "PROMPT", "PUT", "QUIT", "REM", "VAR", "VARIABLE"));

    /** Kinds of objects whose definition is a block of its own, with semicolons inside. */
    private static final Set<String> STORED_CODE =
            new HashSet<>(Arrays.asList("FUNCTION", "PROCEDURE", "TRIGGER", "PACKAGE", "TYPE"));

    /** CREATE OR REPLACE and the kind of object: what decides about a block. */
    private static final int DECIDING_TOKENS = 4;

    /** A statement, and the line of the input that it starts on (from 1). */
    static final class Statement {
        final String text;
        final int line;
        final boolean command;

        private Statement(String text, int line, boolean command) {
            this.text = text;
            this.line = line;
            this.command = command;
        }
    }

    /** Asks for a line; the argument counts the lines of the statement from 1. */
    interface Prompt {
        void show(int lineOfStatement);
    }

    /**
     * Where in the SQL the last line ended: in a literal, a quoted name or a comment it goes on
     * there.
     */
    private enum State {
        CODE,
        LITERAL,
        QUOTED_NAME,
        COMMENT
    }

    private final BufferedReader in;
    private final Prompt prompt;
    private final StringBuilder text = new StringBuilder();
    private State state = State.CODE;
    /** Whether the statement has anything but blanks and comments yet. */
    private boolean hasCode;
    private int lineNumber;
    private int startLine;
    private int linesOfStatement;
    /** What follows a statement's semicolon on its line: the next statement's first line. */
    private String restOfLine;

    StatementReader(BufferedReader in, Prompt prompt) {
        this.in = in;
        this.prompt = prompt;
    }

    /**
     * The next statement without its terminator, null at the end of the input. The last statement
     * of the input needs no terminator.
     */
    Statement next() throws IOException {
        startStatement();
        for (String line = nextLine(); line != null; line = nextLine()) {
            // In a literal or a comment such a line is text like any other.
            if (state == State.CODE && line.trim().equals("/")) {
                if (hasCode) {
                    return statement();
                }
                startStatement();
                continue;
            }
            String command = hasCode || state != State.CODE ? null : command(line);
            if (command != null) {
                return new Statement(command, lineNumber, true);
            }
            int end = scan(line);
            if (end >= 0) {
                restOfLine = line.substring(end + 1).trim();
                text.append(line, 0, end);
                return statement();
            }
            // Only blanks or a comment so far: they are dropped, so that lines count from the
            // statement's first.
            if (!hasCode && state == State.CODE) {
                startStatement();
            } else {
                text.append(line).append('\n');
            }
        }
        // A comment that is never closed may have swallowed statements: silence would be taken for
        // success, and the server refuses it.
        return hasCode || state == State.COMMENT ? statement() : null;
    }

    private void startStatement() {
        text.setLength(0);
        state = State.CODE;
        hasCode = false;
        linesOfStatement = 0;
    }

    private Statement statement() {
        int end = text.length();
        while (end > 0 && Character.isWhitespace(text.charAt(end - 1))) {
            end--;
        }
        return new Statement(text.substring(0, end), startLine, false);
    }

    private String nextLine() throws IOException {
        String line = restOfLine;
        restOfLine = null;
        if (line == null) {
            prompt.show(linesOfStatement + 1);
            line = in.readLine();
            lineNumber++;
            if (lineNumber == 1 && line != null) {
                line = CsvFile.withoutMark(line);
            }
        }
        // The first line that is kept; a statement behind a semicolon begins on the same line.
        if (text.length() == 0) {
            startLine = lineNumber;
        }
        linesOfStatement++;
        return line;
    }

    /**
     * The command that a line holds, without comments before it and the semicolon that it may have;
     * null for any other line.
     */
    private static String command(String line) {
        List<SqlToken> first = SqlToken.scan(line, 2);
        if (first.isEmpty() || !isCommand(first)) {
            return null;
        }
        List<SqlToken> tokens = SqlToken.scan(line, Integer.MAX_VALUE);
        SqlToken last = tokens.get(tokens.size() - 1);
        int end = last.is(";") ? last.start : line.length();
        return line.substring(first.get(0).start, end).trim();
    }

    private static boolean isCommand(List<SqlToken> tokens) {
        SqlToken first = tokens.get(0);
        return first.is("SET")
                ? tokens.size() > 1 && tokens.get(1).is("AUTOCOMMIT")
                : !first.quoted && COMMANDS.contains(first.text.toUpperCase(Locale.ROOT));
    }

    /** Follows quotes and comments through the line; the index of an ending semicolon, or -1. */
    private int scan(String line) {
        for (int i = 0; i < line.length(); i++) {
            char c = line.charAt(i);
            boolean pair = i + 1 < line.length();
            switch (state) {
                case LITERAL:
                    // A doubled quote leaves the literal and enters it again at once, with the same
                    // effect.
                    state = c == '\'' ? State.CODE : state;
                    break;
                case QUOTED_NAME:
                    state = c == '"' ? State.CODE : state;
                    break;
                case COMMENT:
                    if (c == '*' && pair && line.charAt(i + 1) == '/') {
                        state = State.CODE;
                        i++;
                    }
                    break;
                default:
                    if (c == '-' && pair && line.charAt(i + 1) == '-') {
                        return -1;
                    }
                    if (c == ';' && !isBlock(line, i)) {
                        return hasCode ? i : skipEmpty(line, i);
                    }
                    enter(c, pair ? line.charAt(i + 1) : ' ');
            }
        }
        return -1;
    }

    /** A semicolon without a statement before it is passed over. */
    private int skipEmpty(String line, int at) {
        restOfLine = line.substring(at + 1).trim();
        text.setLength(0);
        return -1;
    }

    private void enter(char c, char following) {
        if (c == '/' && following == '*') {
            state = State.COMMENT;
            return;
        }
        hasCode |= !Character.isWhitespace(c);
        if (c == '\'') {
            state = State.LITERAL;
        } else if (c == '"') {
            state = State.QUOTED_NAME;
        }
    }

    private boolean isBlock(String line, int end) {
        // At each semicolon anew, from the statement's beginning: only its first few tokens are
        // read.
        List<SqlToken> tokens =
                SqlToken.scan(text + line.substring(0, end), DECIDING_TOKENS);
        if (tokens.isEmpty()) {
            return false;
        }
        if (tokens.get(0).is("BEGIN") || tokens.get(0).is("DECLARE")) {
            return true;
        }
        if (!tokens.get(0).is("CREATE")) {
            return false;
        }
        int kind = tokens.size() > 1 && tokens.get(1).is("OR") ? 3 : 1;
        return kind < tokens.size()
                && STORED_CODE.contains(tokens.get(kind).text.toUpperCase(Locale.ROOT));
    }
}
