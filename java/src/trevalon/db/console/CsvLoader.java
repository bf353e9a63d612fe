package trevalon.db.console;

import java.math.BigDecimal;
import java.sql.SQLException;
import java.util.ArrayList;
import java.util.List;

import trevalon.db.oci.OciColumn;
import trevalon.db.oci.OciConnection;
import trevalon.db.oci.OciStatement;
import trevalon.db.oci.OciType;

/** Inserts the rows of a CSV file into a table, each value as a literal of its column's type. */
final class CsvLoader {
    private final OciConnection connection;
    private final Progress progress;

    CsvLoader(OciConnection connection, Progress progress) {
        this.connection = connection;
        this.progress = progress;
    }

    /** Loads the file's rows; an empty field is NULL. Does not commit. */
    void load(String table, CsvFile file) throws SQLException {
        String columns = String.join(", ", file.names);
        try (OciStatement statement = connection.createStatement()) {
            statement.prepare("SELECT " + columns + " FROM " + table);
            int[] types =
                    statement.columns().stream().mapToInt(OciColumn::internalType).toArray();
            String insert = "INSERT INTO " + table + " (" + columns + ") VALUES (";
            int done = 0;
            for (List<String> row : file.rows) {
                statement.execute(insert + literals(row, types) + ")");
                progress.show(table, ++done, file.rows.size());
            }
        } finally {
            progress.clear();
        }
    }

    private static String literals(List<String> row, int[] types) {
        List<String> literals = new ArrayList<>();
        for (int i = 0; i < types.length; i++) {
            literals.add(literal(row.get(i), types[i]));
        }
        return String.join(", ", literals);
    }

    private static String literal(String value, int type) {
        if (value.isEmpty()) {
            return "NULL";
        }
        switch (type) {
            case OciType.NUMBER:
                return new BigDecimal(value).toPlainString();
            case OciType.DATE:
                return "TO_DATE(" + quote(value) + ", 'YYYY-MM-DD')";
            default:
                return quote(value);
        }
    }

    /** The text as an SQL literal. */
    static String quote(String text) {
        return '\'' + text.replace("'", "''") + '\'';
    }
}
