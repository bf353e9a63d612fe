package trevalon.db.console;

import java.io.ByteArrayInputStream;
import java.io.IOException;
import java.io.InputStream;
import java.io.InputStreamReader;
import java.io.PrintStream;
import java.io.Reader;
import java.nio.charset.StandardCharsets;
import java.sql.SQLException;
import java.time.LocalDateTime;
import java.time.LocalTime;
import java.time.format.DateTimeFormatter;
import java.util.ArrayList;
import java.util.List;
import java.util.function.BooleanSupplier;

import trevalon.db.oci.OciColumn;
import trevalon.db.oci.OciDates;
import trevalon.db.oci.OciLob;
import trevalon.db.oci.OciStatement;
import trevalon.db.oci.OciType;

/**
 * Prints the rows of a query as a table, with memory that does not grow with the rows.
 *
 * <p>Widths are known for a batch only, and never shrink. Most results fit one batch, and get one
 * heading.
 */
final class TablePrinter {
    /** Rows that are looked at together to size the columns. */
    private static final int BATCH = 500;

    /** Widest column, and the part of a LONG or CLOB that is shown. */
    private static final int MAX_WIDTH = 80;

    /** Bytes of a BLOB that are shown before its length. */
    private static final int BLOB_START = 16;

    private static final DateTimeFormatter DAY = OciDates.formatter("");
    private static final DateTimeFormatter MOMENT = OciDates.formatter(" HH:mm:ss");

    private final PrintStream out;
    private final OciStatement query;
    private final List<OciColumn> columns;
    private final int[] widths;
    private final BooleanSupplier stopped;
    /**
     * Whether a heading stands above; printed with the first batch, so that a query without rows
     * shows none.
     */
    private boolean headed;

    private TablePrinter(PrintStream out, OciStatement query, BooleanSupplier stopped) {
        this.out = out;
        this.query = query;
        this.stopped = stopped;
        columns = query.columns();
        widths = new int[columns.size()];
        for (int i = 0; i < widths.length; i++) {
            // The width of the heading is the least that a column has.
            widths[i] = Math.min(MAX_WIDTH, DisplayText.width(columns.get(i).name()));
        }
    }

    /**
     * Prints the executed query's remaining rows, and returns how many there were.
     *
     * @param stopped asked before each row, because a break finds no call to stop between two
     */
    static long print(OciStatement query, PrintStream out, BooleanSupplier stopped)
            throws SQLException {
        return new TablePrinter(out, query, stopped).printAll();
    }

    private long printAll() throws SQLException {
        long rows = 0;
        List<String[]> batch = new ArrayList<>();
        while (query.next()) {
            if (stopped.getAsBoolean()) {
                throw new SQLException("ORA-01013: user requested cancel of current operation");
            }
            batch.add(readRow());
            rows++;
            if (batch.size() == BATCH) {
                printBatch(batch);
                batch.clear();
            }
        }
        if (!batch.isEmpty()) {
            printBatch(batch);
        }
        return rows;
    }

    private String[] readRow() throws SQLException {
        String[] row = new String[widths.length];
        for (int i = 0; i < row.length; i++) {
            // Cut as it is read: a batch of long values must not be held in memory whole.
            row[i] = DisplayText.cut(DisplayText.printable(value(i + 1)), MAX_WIDTH);
        }
        return row;
    }

    private String value(int position) throws SQLException {
        if (query.isNull(position)) {
            return "";
        }
        switch (columns.get(position - 1).internalType()) {
            case OciType.DATE:
                return text(query.getDateTime(position));
            case OciType.LONG:
                return startOfLong(position);
            case OciType.LONG_RAW:
                return startOfLongRaw(position);
            case OciType.CLOB:
                return startOfClob(position);
            case OciType.BLOB:
                return startOfBlob(position);
            default:
                return query.getString(position);
        }
    }

    /** A DATE, without its time at midnight; null for null. */
    static String text(LocalDateTime moment) {
        if (moment == null) {
            return null;
        }
        boolean midnight = moment.toLocalTime().equals(LocalTime.MIDNIGHT);
        return (midnight ? DAY : MOMENT).format(moment);
    }

    /** One character more than fits, so that the cut is seen. */
    private String startOfLong(int position) throws SQLException {
        char[] start = new char[MAX_WIDTH + 1];
        Reader in = new InputStreamReader(query.longStream(position), StandardCharsets.UTF_8);
        try {
            int length = 0;
            for (int count = 0; count >= 0 && length < start.length; ) {
                length += count;
                count = in.read(start, length, start.length - length);
            }
            return new String(start, 0, length);
        } catch (IOException e) {
            throw new SQLException("Reading a LONG value", e);
        }
    }

    private String startOfLongRaw(int position) throws SQLException {
        try {
            return hexadecimal(query.longStream(position), MAX_WIDTH / 2 + 1);
        } catch (IOException e) {
            throw new SQLException("Reading a LONG RAW value", e);
        }
    }

    /** Twice as many units as characters: each may be a surrogate pair. */
    private String startOfClob(int position) throws SQLException {
        try (OciLob value = query.getLob(position)) {
            return value.substring(0, 2 * (MAX_WIDTH + 1));
        }
    }

    private String startOfBlob(int position) throws SQLException {
        byte[] start = new byte[BLOB_START];
        try (OciLob value = query.getLob(position)) {
            int count = Math.max(0, value.read(0, start, 0, start.length));
            long length = value.length();
            return hexadecimal(new ByteArrayInputStream(start, 0, count), count)
                    + (count < length ? "... " : " ")
                    + String.format("(%,d bytes)", length);
        } catch (IOException e) {
            throw new SQLException("Reading a BLOB value", e);
        }
    }

    private static String hexadecimal(InputStream in, int most) throws IOException {
        StringBuilder text = new StringBuilder();
        for (int i = 0; i < most; i++) {
            int value = in.read();
            if (value < 0) {
                break;
            }
            text.append(String.format("%02X", value));
        }
        return text.toString();
    }

    /** Rows in columns; the heading comes again where a column had to grow. */
    private void printBatch(List<String[]> batch) {
        boolean grown = false;
        for (String[] row : batch) {
            for (int i = 0; i < row.length; i++) {
                int width = DisplayText.width(row[i]);
                grown |= width > widths[i];
                widths[i] = Math.max(widths[i], width);
            }
        }
        if (!headed || grown) {
            printHeading();
        }
        for (String[] row : batch) {
            printRow(row);
        }
    }

    private void printHeading() {
        String[] names = new String[widths.length];
        String[] lines = new String[widths.length];
        for (int i = 0; i < widths.length; i++) {
            names[i] = DisplayText.cut(DisplayText.printable(columns.get(i).name()), MAX_WIDTH);
            lines[i] = DisplayText.repeat('-', widths[i]);
        }
        printRow(names);
        printRow(lines);
        headed = true;
    }

    private void printRow(String[] values) {
        StringBuilder line = new StringBuilder();
        for (int i = 0; i < values.length; i++) {
            String padding = DisplayText.repeat(' ', widths[i] - DisplayText.width(values[i]));
            // Numbers to the right, so that their digits stand below one another.
            boolean right = columns.get(i).internalType() == OciType.NUMBER;
            line.append(right ? padding + values[i] : values[i] + padding).append(' ');
        }
        // Trailing blanks would wrap the line on a terminal that is just too narrow.
        int end = line.length();
        while (end > 0 && line.charAt(end - 1) == ' ') {
            end--;
        }
        out.println(line.substring(0, end));
    }
}
