package trevalon.db.console;

import java.io.IOException;
import java.io.PrintStream;
import java.nio.file.AccessDeniedException;
import java.nio.file.InvalidPathException;
import java.nio.file.NoSuchFileException;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.sql.SQLException;
import java.util.List;
import java.util.Locale;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

import trevalon.db.oci.OciColumn;
import trevalon.db.oci.OciConnection;
import trevalon.db.oci.OciException;
import trevalon.db.oci.OciStatement;

/**
 * Runs the console's statements and commands on one connection, and prints what they give.
 *
 * <p>Each statement has a fresh {@link OciStatement}: a failure leaves nothing behind but the
 * transaction. Commands are taken by their first word; what they do to files and values is in the
 * classes {@link CsvLoader}, {@link LobFile} and {@link Variables}.
 */
final class SqlSession {
    private static final String HELP =
            "Statements end with ; or with a line that holds only / (a BEGIN ... END block always\n"
                    + "with the line). Values are shown up to 80 characters wide.\n"
                    + "  DESCRIBE table         the columns of a table or view\n"
                    + "  LOAD table FROM file   inserts the rows of a CSV file, all or none; its\n"
                    + "                         first line names the columns\n"
                    + "  PUT table.column FROM file WHERE condition\n"
                    + "                         replaces the CLOB or BLOB of one row with a file,\n"
                    + "                         which is UTF-8 text for a CLOB\n"
                    + "  GET table.column INTO file WHERE condition\n"
                    + "                         writes the CLOB or BLOB of one row to a file\n"
                    + "  VARIABLE name type     declares a variable, used as :name: NUMBER,\n"
                    + "                         CHAR(n), VARCHAR2(n), DATE or REFCURSOR\n"
                    + "  EXECUTE :name := ...   runs one statement of PL/SQL\n"
                    + "  PRINT [name]           the value of a variable, or the rows of its query\n"
                    + "  PROMPT text            prints the text\n"
                    + "  COMMIT; ROLLBACK;      ends the transaction; leaving commits, a failed\n"
                    + "                         script rolls back\n"
                    + "  SET AUTOCOMMIT ON|OFF  lets each statement commit by itself\n"
                    + "  EXIT [ROLLBACK], QUIT  leaves\n"
                    + "Ctrl-C stops the statement that runs, and with it a script.";

    /**
     * A part of a name as SQL has it; it goes into statements as it was typed, so it must not be
     * able to hold anything else. Possessive, because what can be given back piece by piece takes
     * stack for each piece.
     */
    private static final String PART = "(?:\"[^\"]+\"|" + SqlToken.NAME_CHARACTER + "++)";
    /** A name, with an owner perhaps. */
    private static final String TABLE = "(?:" + PART + "|\\.)++";
    /** Groups: table, file in quotes, file without. */
    private static final Pattern LOAD =
            Pattern.compile(
                    "(" + TABLE + ")\\s+FROM\\s+(?:['\"](.+)['\"]|(\\S.*))",
                    Pattern.CASE_INSENSITIVE);
    private static final Pattern PUT = valueAndFile("FROM");
    private static final Pattern GET = valueAndFile("INTO");

    private final OciConnection connection;
    private final PrintStream out;
    private final BreakKey breakKey;
    private final Progress progress;
    private final Variables variables;
    /** Set by Ctrl-C, on a thread of the JVM's own; read between rows, where no call runs. */
    private volatile boolean stopped;
    /** Looks in the statement's text, and asks the database only whether a table is there. */
    private final ErrorLocator locator = new ErrorLocator(this::tableExists);

    SqlSession(
            OciConnection connection, PrintStream out, BreakKey breakKey, Progress progress) {
        this.connection = connection;
        this.out = out;
        this.breakKey = breakKey;
        this.progress = progress;
        variables = new Variables(connection, out);
    }

    /** Runs a statement or command; false when it asks to leave. */
    boolean run(StatementReader.Statement statement) throws SQLException {
        try {
            if (statement.command) {
                return runCommand(statement.text);
            }
            runBreakable(() -> runSql(statement.text));
            return true;
        } catch (RuntimeException e) {
            // A mistake in here is an error of the one statement: the prompt goes on.
            throw new SQLException(e.toString(), e);
        }
    }

    private interface Work {
        void run() throws SQLException;
    }

    /** Runs work that Ctrl-C stops; afterwards the key has nothing to stop. */
    private void runStoppable(Runnable stop, Work work) throws SQLException {
        breakKey.setRunning(stop);
        try {
            work.run();
        } finally {
            breakKey.setRunning(null);
        }
    }

    private void runBreakable(Work work) throws SQLException {
        // A stop that was asked of the statement before must not stop this one.
        stopped = false;
        runStoppable(
                () -> {
                    stopped = true;
                    connection.breakCall();
                },
                work);
    }

    private boolean runCommand(String text) throws SQLException {
        String word = SqlToken.scan(text, 1).get(0).text;
        String argument = text.substring(word.length()).trim();
        switch (word.toUpperCase(Locale.ROOT)) {
            case "EXIT":
            case "QUIT":
                leave(argument);
                return false;
            case "DESC":
            case "DESCRIBE":
                describe(argument);
                return true;
            case "EXEC":
            case "EXECUTE":
                String block = block(argument);
                runBreakable(() -> runSql(block));
                return true;
            case "LOAD":
                load(matched(LOAD, argument, "LOAD table FROM file.csv"));
                return true;
            case "PUT":
                put(matched(PUT, argument, "PUT table.column FROM file WHERE condition"));
                return true;
            case "GET":
                get(matched(GET, argument, "GET table.column INTO file WHERE condition"));
                return true;
            case "PRINT":
                runBreakable(() -> variables.print(argument, () -> stopped));
                return true;
            case "SET":
                setAutoCommit(argument);
                return true;
            case "VAR":
            case "VARIABLE":
                variables.declare(argument);
                return true;
            case "PROMPT":
                out.println(argument);
                return true;
            case "HELP":
                out.println(HELP);
                return true;
            case "REM":
                return true;
            default:
                throw new SQLException("Not a command: " + word);
        }
    }

    /** A block of what EXECUTE was given, which may end in a comment, with a semicolon or none. */
    private static String block(String argument) {
        List<SqlToken> tokens = SqlToken.scan(argument, Integer.MAX_VALUE);
        boolean ended = !tokens.isEmpty() && tokens.get(tokens.size() - 1).is(";");
        return "BEGIN " + argument + (ended ? "\nEND;" : "\n; END;");
    }

    /** Does the ROLLBACK only: what is not committed yet is committed by every end of a session. */
    private void leave(String argument) throws SQLException {
        List<SqlToken> words = SqlToken.scan(argument, 2);
        if (words.size() == 1 && words.get(0).is("ROLLBACK")) {
            connection.rollback();
        } else if (words.size() > 1 || !(words.isEmpty() || words.get(0).is("COMMIT"))) {
            throw new SQLException("Usage: EXIT [COMMIT | ROLLBACK]");
        }
    }

    private void runSql(String sql) throws SQLException {
        // Through the connection and not as statements: its own calls are what a program would use.
        String command = sql.trim().toUpperCase(Locale.ROOT);
        if (command.matches("COMMIT(\\s+WORK)?")) {
            connection.commit();
            out.println("Commit complete.");
            return;
        }
        if (command.matches("ROLLBACK(\\s+WORK)?")) {
            connection.rollback();
            out.println("Rollback complete.");
            return;
        }
        try (OciStatement statement = connection.createStatement()) {
            variables.prepare(statement, sql);
            if (statement.execute()) {
                out.println(Feedback.selected(TablePrinter.print(statement, out, () -> stopped)));
            } else {
                // Before anything is printed: output that does not fit its variable is an error of
                // the statement.
                variables.takeOutputs(statement, sql);
                out.println(
                        Feedback.executed(statement.sqlFunctionCode(), statement.rowCount()));
            }
        }
    }

    /** The one SET that the console knows; other ones are statements of the server's. */
    private void setAutoCommit(String argument) throws SQLException {
        String[] words = argument.toUpperCase(Locale.ROOT).split("\\s+");
        boolean on = words.length == 2 && words[1].equals("ON");
        if (!on && !(words.length == 2 && words[1].equals("OFF"))) {
            throw new SQLException("Usage: SET AUTOCOMMIT ON | OFF");
        }
        connection.setAutoCommit(on);
    }

    /** A table, a column after its last dot, a file, and a condition with its WHERE. */
    private static Pattern valueAndFile(String direction) {
        return Pattern.compile(
                "((?:" + PART + "\\.(?=" + PART + "\\.))*+" + PART + ")\\.(" + PART + ")\\s+"
                        + direction
                        + "\\s+(?:['\"](.+?)['\"]|(\\S+))(\\s+WHERE\\s.*)?",
                Pattern.CASE_INSENSITIVE);
    }

    private static Matcher matched(Pattern command, String argument, String usage)
            throws SQLException {
        Matcher matcher = command.matcher(argument);
        if (!matcher.matches()) {
            throw new SQLException("Usage: " + usage);
        }
        return matcher;
    }

    private void load(Matcher command) throws SQLException {
        String file = command.group(3) == null ? command.group(2) : command.group(3);
        Path path = path(file);
        CsvLoader loader = new CsvLoader(connection, progress);
        runWithFile(
                loader::stop,
                () -> {
                    long rows = loader.load(command.group(1), path);
                    out.println(rows + (rows == 1 ? " row" : " rows") + " loaded.");
                });
    }

    private void put(Matcher command) throws SQLException {
        LobFile file = lobFile(command);
        runWithFile(
                file::stop,
                () -> {
                    String amount =
                            file.put(command.group(2), command.group(1), condition(command));
                    out.println(amount + " stored.");
                });
    }

    private void get(Matcher command) throws SQLException {
        LobFile file = lobFile(command);
        runWithFile(
                file::stop,
                () -> {
                    String amount =
                            file.get(command.group(2), command.group(1), condition(command));
                    out.println(amount + " written.");
                });
    }

    private LobFile lobFile(Matcher command) throws SQLException {
        String name = command.group(command.group(3) == null ? 4 : 3);
        return new LobFile(connection, variables, progress, path(name));
    }

    private static Path path(String name) throws SQLException {
        try {
            return Paths.get(name);
        } catch (InvalidPathException e) {
            throw new SQLException("No file can have this name: " + e.getReason(), e);
        }
    }

    private static String condition(Matcher command) {
        return command.group(5) == null ? "" : command.group(5);
    }

    private interface FileWork {
        void run() throws SQLException, IOException;
    }

    /** Between two rows or pieces no call runs that could be broken: the work is told to stop. */
    private void runWithFile(Runnable stop, FileWork work) throws SQLException {
        runStoppable(
                stop,
                () -> {
                    try {
                        work.run();
                    } catch (NoSuchFileException e) {
                        throw new SQLException("There is no file " + e.getFile(), e);
                    } catch (AccessDeniedException e) {
                        throw new SQLException("No access to " + e.getFile(), e);
                    } catch (IOException e) {
                        throw new SQLException(e.getMessage(), e);
                    } catch (OciException e) {
                        // Its place is one in a statement that the user has not written.
                        throw new SQLException(e.getMessage(), null, e.code(), e);
                    }
                });
    }

    private void describe(String table) throws SQLException {
        if (!table.matches(TABLE)) {
            throw new SQLException("Usage: DESCRIBE table");
        }
        try (OciStatement statement = connection.createStatement()) {
            // Preparing describes and executes nothing, so that a large table costs nothing.
            statement.prepare("SELECT * FROM " + table);
            // As wide as the heading "Name".
            int width = 4;
            for (OciColumn column : statement.columns()) {
                width = Math.max(width, DisplayText.width(column.name()));
            }
            printDescribed("Name", "Type", width);
            printDescribed(DisplayText.repeat('-', width), "--------------", width);
            for (OciColumn column : statement.columns()) {
                printDescribed(column.name(), column.typeText(), width);
            }
        }
    }

    private void printDescribed(String name, String type, int width) {
        String padding = DisplayText.repeat(' ', width - DisplayText.width(name));
        out.println(DisplayText.printable(name) + padding + "  " + type);
    }

    /** The text to show for an error of this statement. */
    String errorText(String sql, SQLException error) {
        int offset =
                error instanceof OciException
                        ? locator.locate(sql, (OciException) error)
                        : ErrorLocator.UNKNOWN;
        return ErrorReport.format(sql, offset, error.getMessage());
    }

    /** Asked for the place of an error only, when a statement names several tables. */
    private boolean tableExists(String name) {
        try (OciStatement statement = connection.createStatement()) {
            statement.prepare("SELECT * FROM " + name);
            return true;
        } catch (SQLException e) {
            return false;
        }
    }
}
