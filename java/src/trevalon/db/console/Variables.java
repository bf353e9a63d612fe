package trevalon.db.console;

import java.io.PrintStream;
import java.math.BigDecimal;
import java.nio.charset.StandardCharsets;
import java.sql.SQLException;
import java.time.LocalDateTime;
import java.util.ArrayList;
import java.util.Collection;
import java.util.Collections;
import java.util.LinkedHashMap;
import java.util.LinkedHashSet;
import java.util.List;
import java.util.Locale;
import java.util.Map;
import java.util.function.BooleanSupplier;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

import trevalon.db.oci.OciConnection;
import trevalon.db.oci.OciStatement;
import trevalon.db.oci.OciType;

/**
 * The console's variables: what stands for :name in a statement, and takes what a block gives.
 *
 * <p>Values are kept here between statements, since each statement has binds of its own. In a block
 * every variable is bound as an output with its value as input, as nothing tells which of them the
 * block assigns to.
 */
final class Variables {
    /** Groups: name, kind, and the size where one is given. */
    private static final Pattern DECLARATION =
            Pattern.compile(
                    "(" + SqlToken.NAME_CHARACTER + "+)\\s+"
                            + "(NUMBER|DATE|REFCURSOR|CHAR|VARCHAR2?)"
                            + "\\s*(?:\\(\\s*(\\d{1,5})\\s*\\))?",
                    Pattern.CASE_INSENSITIVE);
    /** The longest VARCHAR2 of a block. */
    private static final int LONGEST = 32767;
    private static final String USAGE =
            "Usage: VARIABLE name NUMBER | CHAR[(n)] | VARCHAR2(n) | DATE | REFCURSOR";

    /** One variable; its value lasts until it is declared anew. */
    private static final class Variable {
        final String name;
        final String declaration;
        // 0 for a cursor variable, which has no type of its own.
        final int type;
        final int size;
        String text;
        LocalDateTime moment;

        /** The query that a block has opened on a cursor variable. */
        OciStatement cursorStatement;

        Variable(String name, String declaration, int type, int size) {
            this.name = name;
            this.declaration = declaration;
            this.type = type;
            this.size = size;
        }

        boolean isCursor() {
            return type == 0;
        }
    }

    private final OciConnection connection;
    private final PrintStream out;
    private final Map<String, Variable> variables = new LinkedHashMap<>();

    Variables(OciConnection connection, PrintStream out) {
        this.connection = connection;
        this.out = out;
    }

    /** Declares a variable, NULL at first; without a text lists all. */
    void declare(String text) throws SQLException {
        if (text.isEmpty()) {
            variables.values().forEach(v -> out.println(v.name + "  " + v.declaration));
            return;
        }
        Matcher matcher = DECLARATION.matcher(text);
        if (!matcher.matches()) {
            throw new SQLException(USAGE);
        }
        String name = matcher.group(1).toUpperCase(Locale.ROOT);
        String kind = matcher.group(2).toUpperCase(Locale.ROOT);
        // CHAR without a size has one character; the others that need none ignore it.
        int size = matcher.group(3) == null ? 1 : Integer.parseInt(matcher.group(3));
        boolean sized = kind.contains("CHAR");
        boolean needsSize = kind.startsWith("VARCHAR");
        if ((matcher.group(3) == null ? needsSize : !sized) || size < 1 || size > LONGEST) {
            throw new SQLException(USAGE);
        }
        String declaration = sized ? kind + "(" + size + ")" : kind;
        Variable old = variables.put(name, new Variable(name, declaration, typeOf(kind), size));
        // The old variable's query would stay open with nobody to read it.
        if (old != null && old.cursorStatement != null) {
            old.cursorStatement.close();
        }
    }

    private static int typeOf(String kind) {
        switch (kind) {
            case "NUMBER":
                return OciType.NUMBER;
            case "DATE":
                return OciType.DATE;
            case "CHAR":
                return OciType.CHAR;
            case "REFCURSOR":
                return 0;
            default:
                return OciType.VARCHAR2;
        }
    }

    /** Prepares a statement and binds each of its placeholders to the variable of that name. */
    void prepare(OciStatement statement, String sql) throws SQLException {
        // Before the prepare: an undeclared name is told without a call to the server.
        List<Variable> bound = placeholders(sql);
        statement.prepare(sql);
        boolean block = isBlock(sql);
        for (int i = 0; i < bound.size(); i++) {
            bind(statement, i + 1, bound.get(i), block);
        }
    }

    /** In SQL each placeholder is a variable of the statement, in a block each name is one. */
    private List<Variable> placeholders(String sql) throws SQLException {
        Collection<String> names = isBlock(sql) ? new LinkedHashSet<>() : new ArrayList<>();
        for (SqlToken token : SqlToken.scan(sql, Integer.MAX_VALUE)) {
            if (token.variable != null) {
                names.add(token.variable);
            }
        }
        // In the order of the statement's positions.
        List<Variable> found = new ArrayList<>();
        for (String name : names) {
            found.add(find(name));
        }
        return found;
    }

    private static boolean isBlock(String sql) {
        List<SqlToken> first = SqlToken.scan(sql, 1);
        return !first.isEmpty() && (first.get(0).is("BEGIN") || first.get(0).is("DECLARE"));
    }

    private Variable find(String name) throws SQLException {
        Variable variable = variables.get(name.toUpperCase(Locale.ROOT));
        if (variable == null) {
            throw new SQLException(
                    "The variable \"" + name.toUpperCase(Locale.ROOT)
                            + "\" is not declared: VARIABLE " + name + " type declares it");
        }
        return variable;
    }

    private void bind(OciStatement statement, int position, Variable variable, boolean block)
            throws SQLException {
        if (variable.isCursor()) {
            // Kept for the next block: the statement is opened anew at each execution.
            if (variable.cursorStatement == null) {
                variable.cursorStatement = connection.createStatement();
            }
            statement.setCursor(position, variable.cursorStatement);
            return;
        }
        if (block) {
            statement.registerOut(position, variable.type, variable.size);
        }
        switch (variable.type) {
            case OciType.NUMBER:
                statement.setBigDecimal(
                        position, variable.text == null ? null : new BigDecimal(variable.text));
                break;
            case OciType.DATE:
                statement.setDateTime(position, variable.moment);
                break;
            default:
                statement.setString(position, variable.text);
        }
    }

    /** Takes what an executed block has left in its variables. */
    void takeOutputs(OciStatement statement, String sql) throws SQLException {
        if (!isBlock(sql)) {
            return;
        }
        List<Variable> bound = placeholders(sql);
        for (int i = 0; i < bound.size(); i++) {
            Variable variable = bound.get(i);
            if (variable.type == OciType.DATE) {
                variable.moment = statement.getOutDateTime(i + 1);
            } else if (!variable.isCursor()) {
                variable.text = valueOf(variable, statement.getOutString(i + 1));
            }
        }
    }

    /**
     * What the variable holds of a text that came out. A NUMBER comes out as text, and a block may
     * have put any text there; a CHAR has its whole size in bytes, as the values of a column have
     * that it is compared with.
     */
    private static String valueOf(Variable variable, String text) throws SQLException {
        if (variable.type == OciType.CHAR && text != null) {
            int bytes = text.getBytes(StandardCharsets.UTF_8).length;
            return text + DisplayText.repeat(' ', variable.size - bytes);
        }
        if (variable.type == OciType.NUMBER && text != null) {
            try {
                new BigDecimal(text);
            } catch (NumberFormatException e) {
                throw new SQLException(
                        "ORA-06502: PL/SQL: numeric or value error\nThe variable \"" + variable.name
                                + "\" is a NUMBER and cannot hold this text",
                        e);
            }
        }
        return text;
    }

    /** Prints one variable, or all of them; the rows of a cursor can be printed once. */
    void print(String name, BooleanSupplier stopped) throws SQLException {
        Collection<Variable> chosen =
                name.isEmpty()
                        ? variables.values()
                        : Collections.singleton(find(name.replaceFirst("^:", "")));
        for (Variable variable : chosen) {
            if (variable.isCursor()) {
                printRows(variable, stopped);
            } else {
                printValue(variable);
            }
        }
    }

    private void printRows(Variable variable, BooleanSupplier stopped) throws SQLException {
        if (variable.cursorStatement == null || variable.cursorStatement.columns().isEmpty()) {
            out.println(variable.name + " has no open query.");
            return;
        }
        try (OciStatement query = variable.cursorStatement) {
            // Its rows are used up by this: the next block opens a query on a statement of its own.
            variable.cursorStatement = null;
            out.println(Feedback.selected(TablePrinter.print(query, out, stopped)));
        }
    }

    private void printValue(Variable variable) {
        String value =
                variable.type == OciType.DATE ? TablePrinter.text(variable.moment) : variable.text;
        String shown = value == null ? "" : DisplayText.printable(value);
        int width = Math.max(DisplayText.width(variable.name), DisplayText.width(shown));
        boolean right = variable.type == OciType.NUMBER;
        for (String line :
                new String[] {variable.name, DisplayText.repeat('-', width), shown}) {
            String padding = DisplayText.repeat(' ', width - DisplayText.width(line));
            out.println(right ? padding + line : line);
        }
    }
}
