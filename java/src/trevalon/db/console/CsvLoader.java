package trevalon.db.console;

import java.io.IOException;
import java.io.StringReader;
import java.math.BigDecimal;
import java.nio.file.Path;
import java.sql.SQLException;
import java.time.LocalDate;
import java.time.LocalDateTime;
import java.time.format.DateTimeParseException;
import java.util.ArrayList;
import java.util.List;
import java.util.stream.Collectors;
import java.util.stream.IntStream;

import trevalon.db.oci.OciColumn;
import trevalon.db.oci.OciConnection;
import trevalon.db.oci.OciStatement;
import trevalon.db.oci.OciType;

/**
 * Inserts the rows of a CSV file into a table: one statement, each row as its bind variables.
 *
 * <p>Values are converted here by the columns' types and not by the server, so that a file means
 * the same under every date and number format, and an error names the line.
 */
final class CsvLoader {
    /**
     * What a heading may name goes into the statement as it is, so nothing but names is let
     * through.
     */
    private static final String NAME = "\\p{L}" + SqlToken.NAME_CHARACTER + "*";

    /** Texts for a LONG or CLOB that are longer go in as streams. */
    private static final int LONGEST_TEXT = 4000;

    private final OciConnection connection;
    private final Progress progress;
    private volatile boolean stopped;

    CsvLoader(OciConnection connection, Progress progress) {
        this.connection = connection;
        this.progress = progress;
    }

    /** Makes a load that runs fail before its next row; may come from another thread. */
    void stop() {
        stopped = true;
        // A call that waits for a lock would not come to its next row for long.
        connection.breakCall();
    }

    /**
     * Loads all rows of a file or none, and says which line is at fault. The heading names the
     * columns; an empty field is NULL, dates are in ISO form, raw bytes in hexadecimal. Commits
     * only where every statement does.
     *
     * @return the rows loaded
     */
    long load(String table, Path path) throws SQLException, IOException {
        try (CsvFile file = CsvFile.open(path)) {
            return AllOrNothing.run(
                    connection, () -> insertRows(table, file, path.getFileName().toString()));
        } finally {
            progress.clear();
        }
    }

    private long insertRows(String table, CsvFile file, String fileName)
            throws SQLException, IOException {
        String columns = columnList(file);
        int[] types = columnTypes(table, columns);
        String marks =
                IntStream.rangeClosed(1, types.length)
                        .mapToObj(i -> ":" + i)
                        .collect(Collectors.joining(", "));
        try (OciStatement insert = connection.createStatement()) {
            // Prepared once: each row only changes the values, and mostly not even the binds.
            insert.prepare(
                    "INSERT INTO " + table + " (" + columns + ") VALUES (" + marks + ")");
            long rows = 0;
            for (List<String> row = file.next(); row != null; row = file.next()) {
                try {
                    insertRow(insert, types, row);
                } catch (SQLException | IllegalArgumentException | DateTimeParseException e) {
                    // What the server refuses and what cannot be converted: the user needs the line
                    // in both cases.
                    throw complaint(fileName + ", line " + file.line(), e);
                }
                rows++;
                if (progress.isDue()) {
                    progress.show(table, rows, "rows", file.percentRead());
                }
            }
            return rows;
        }
    }

    /** Keeps Oracle's number, by which callers tell errors apart. */
    private static SQLException complaint(String place, Exception e) {
        int code = e instanceof SQLException ? ((SQLException) e).getErrorCode() : 0;
        return new SQLException(place + ": " + e.getMessage(), null, code, e);
    }

    private static String columnList(CsvFile file) throws SQLException {
        List<String> names = new ArrayList<>();
        for (String name : file.names()) {
            if (!name.trim().matches(NAME)) {
                throw new SQLException("The heading names no column: <" + name + ">");
            }
            names.add(name.trim());
        }
        return String.join(", ", names);
    }

    private int[] columnTypes(String table, String columns) throws SQLException {
        try (OciStatement query = connection.createStatement()) {
            // Describes the columns in the heading's order; a name that is no column fails here.
            query.prepare("SELECT " + columns + " FROM " + table);
            return query.columns().stream().mapToInt(OciColumn::internalType).toArray();
        }
    }

    private void insertRow(OciStatement insert, int[] types, List<String> row)
            throws SQLException {
        if (stopped) {
            throw new SQLException("The load was stopped");
        }
        for (int i = 0; i < types.length; i++) {
            setField(insert, i + 1, types[i], row.get(i));
        }
        insert.execute();
    }

    private static void setField(OciStatement insert, int position, int type, String field)
            throws SQLException {
        if (field.isEmpty()) {
            insert.setNull(position, type);
            return;
        }
        switch (type) {
            case OciType.NUMBER:
                insert.setBigDecimal(position, number(field));
                break;
            case OciType.DATE:
                insert.setDateTime(position, moment(field.trim()));
                break;
            case OciType.RAW:
            case OciType.LONG_RAW:
            case OciType.BLOB:
                insert.setBytes(position, bytes(field));
                break;
            case OciType.LONG:
            case OciType.CLOB:
                if (field.length() > LONGEST_TEXT) {
                    insert.setCharacterStream(position, new StringReader(field));
                    break;
                }
                insert.setString(position, field);
                break;
            default:
                insert.setString(position, field);
        }
    }

    private static BigDecimal number(String field) {
        try {
            return new BigDecimal(field.trim());
        } catch (NumberFormatException e) {
            throw new IllegalArgumentException("<" + field + "> is no number", e);
        }
    }

    /** A day, or a day and a time with T or a blank between them. */
    private static LocalDateTime moment(String field) {
        // A day in ISO form has ten characters, and every moment more.
        return field.length() <= 10
                ? LocalDate.parse(field).atStartOfDay()
                : LocalDateTime.parse(field.replace(' ', 'T'));
    }

    private static byte[] bytes(String field) {
        byte[] bytes = new byte[field.length() / 2];
        boolean good = field.length() % 2 == 0;
        for (int i = 0; good && i < bytes.length; i++) {
            int high = Character.digit(field.charAt(2 * i), 16);
            int low = Character.digit(field.charAt(2 * i + 1), 16);
            good = high >= 0 && low >= 0;
            bytes[i] = (byte) (high << 4 | low);
        }
        if (!good) {
            throw new IllegalArgumentException("<" + field + "> is not in hexadecimal");
        }
        return bytes;
    }
}
