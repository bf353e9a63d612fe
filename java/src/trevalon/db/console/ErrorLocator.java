package trevalon.db.console;

import java.util.ArrayList;
import java.util.List;
import java.util.function.Predicate;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

import trevalon.db.oci.OciException;

/**
 * Finds the place in a statement that an error is about. The interface seldom tells it, so the name
 * in the error's text, or the table that does not exist, is looked for in the statement.
 */
final class ErrorLocator {
    static final int UNKNOWN = -1;

    private static final int NO_SUCH_TABLE = 942;
    private static final int WHOLE_TEXT = Integer.MAX_VALUE;
    /**
     * The last one of the message's line: a qualified name ends with the part that was not found.
     */
    private static final Pattern LAST_QUOTED_NAME =
            Pattern.compile("\"([^\"]+)\"(?![^\\n]*\"[^\"]+\")");

    /** Tells whether a table of this name can be queried. */
    private final Predicate<String> tableExists;

    ErrorLocator(Predicate<String> tableExists) {
        this.tableExists = tableExists;
    }

    /** Index of the character in `sql` that the error is about, or UNKNOWN. */
    int locate(String sql, OciException error) {
        if (error.offset() >= 0) {
            return Math.min(error.offset(), sql.length());
        }
        if (error.code() == NO_SUCH_TABLE) {
            return locateMissingTable(sql);
        }
        Matcher name = LAST_QUOTED_NAME.matcher(error.getMessage());
        if (name.find()) {
            for (SqlToken token : SqlToken.scan(sql, WHOLE_TEXT)) {
                if (token.names(name.group(1))) {
                    return token.start;
                }
            }
        }
        return UNKNOWN;
    }

    private int locateMissingTable(String sql) {
        List<SqlToken> tables = tables(SqlToken.scan(sql, WHOLE_TEXT));
        // No question to the database where there is no choice.
        if (tables.size() == 1) {
            return tables.get(0).start;
        }
        for (SqlToken table : tables) {
            if (!tableExists.test(table.quoted ? '"' + table.text + '"' : table.text)) {
                return table.start;
            }
        }
        return UNKNOWN;
    }

    /** The names that stand where a table is named: after FROM, its commas, JOIN and so on. */
    private static List<SqlToken> tables(List<SqlToken> tokens) {
        List<SqlToken> found = new ArrayList<>();
        boolean inFrom = false;
        for (int i = 0; i + 1 < tokens.size(); i++) {
            SqlToken token = tokens.get(i);
            if (token.is("FROM")) {
                inFrom = true;
            } else if (token.is("WHERE") || token.is("SELECT") || token.is("ORDER")
                    || token.is("GROUP") || token.is("ON")) {
                inFrom = false;
            }
            // A comma separates tables within a FROM clause only; elsewhere it separates columns.
            boolean introduces =
                    token.is("FROM") || token.is("JOIN") || token.is("INTO") || token.is("UPDATE")
                            || token.is("TABLE") || (inFrom && token.is(","));
            if (introduces && tokens.get(i + 1).isName()) {
                found.add(tokens.get(i + 1));
            }
        }
        return found;
    }
}
