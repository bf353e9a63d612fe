package trevalon.db.console;

import java.io.PrintStream;
import java.sql.SQLException;
import java.util.Locale;

import trevalon.db.oci.OciColumn;
import trevalon.db.oci.OciConnection;
import trevalon.db.oci.OciException;
import trevalon.db.oci.OciStatement;

/** Runs the console's statements and commands on one connection, and prints what they give. */
final class SqlSession {
    private static final String HELP =
            "Statements end with ; or with a line that holds only / (a BEGIN ... END block always\n"
                    + "with the line). Values are shown up to 80 characters wide.\n"
                    + "  DESCRIBE table   the columns of a table or view\n"
                    + "  PROMPT text      prints the text\n"
                    + "  COMMIT, ROLLBACK ends the transaction; leaving commits, a failed script"
                    + " rolls back\n"
                    + "  EXIT, QUIT       leaves\n"
                    + "Ctrl-C stops the statement that runs.";

    private final OciConnection connection;
    private final PrintStream out;
    private final BreakKey breakKey;
    private final ErrorLocator locator = new ErrorLocator(this::tableExists);

    SqlSession(OciConnection connection, PrintStream out, BreakKey breakKey) {
        this.connection = connection;
        this.out = out;
        this.breakKey = breakKey;
    }

    /** Runs a statement or command; false when it asks to leave. */
    boolean run(StatementReader.Statement statement) throws SQLException {
        if (statement.command) {
            return runCommand(statement.text);
        }
        breakKey.setRunning(connection::breakCall);
        try {
            runSql(statement.text);
        } finally {
            breakKey.setRunning(null);
        }
        return true;
    }

    private boolean runCommand(String text) throws SQLException {
        String[] parts = text.split("\\s+", 2);
        String argument = parts.length > 1 ? parts[1] : "";
        switch (parts[0].toUpperCase(Locale.ROOT)) {
            case "EXIT":
            case "QUIT":
                return false;
            case "DESC":
            case "DESCRIBE":
                describe(argument);
                return true;
            case "PROMPT":
                out.println(argument);
                return true;
            case "HELP":
                out.println(HELP);
                return true;
            default:
                return true;
        }
    }

    private void runSql(String sql) throws SQLException {
        String command = sql.trim().toUpperCase(Locale.ROOT).replaceAll("\\s+WORK$", "");
        if (command.equals("COMMIT")) {
            connection.commit();
            out.println("Commit complete.");
            return;
        }
        if (command.equals("ROLLBACK")) {
            connection.rollback();
            out.println("Rollback complete.");
            return;
        }
        try (OciStatement statement = connection.createStatement()) {
            if (statement.execute(sql)) {
                out.println(Feedback.selected(TablePrinter.print(statement, out)));
            } else {
                out.println(
                        Feedback.executed(statement.sqlFunctionCode(), statement.rowCount()));
            }
        }
    }

    private void describe(String table) throws SQLException {
        if (!table.matches("(?:\"[^\"]+\"|[\\p{L}\\p{N}_$#.])+")) {
            out.println("Usage: DESCRIBE table");
            return;
        }
        try (OciStatement statement = connection.createStatement()) {
            statement.prepare("SELECT * FROM " + table);
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
        out.println(name + padding + "  " + type);
    }

    /** The text to show for an error of this statement. */
    String errorText(String sql, SQLException error) {
        int offset =
                error instanceof OciException
                        ? locator.locate(sql, (OciException) error)
                        : ErrorLocator.UNKNOWN;
        return ErrorReport.format(sql, offset, error.getMessage());
    }

    private boolean tableExists(String name) {
        try (OciStatement statement = connection.createStatement()) {
            statement.prepare("SELECT * FROM " + name);
            return true;
        } catch (SQLException e) {
            return false;
        }
    }
}
