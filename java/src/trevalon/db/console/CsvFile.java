package trevalon.db.console;

import java.io.BufferedReader;
import java.io.Closeable;
import java.io.IOException;
import java.io.Reader;
import java.nio.channels.Channels;
import java.nio.channels.FileChannel;
import java.nio.charset.CharacterCodingException;
import java.nio.charset.StandardCharsets;
import java.nio.file.FileSystemException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;

/**
 * Reads a CSV file row by row: UTF-8, a heading line, quotes doubled inside quotes, and line breaks
 * only there. Every complaint names the line that it is about.
 *
 * <p>Rows are as RFC 4180 has them, with line feeds alone as line ends, too; a break inside quotes
 * becomes a line feed. The reader holds one row in memory. An empty line between rows is passed
 * over, but not where there is a single column, whose empty field it is.
 */
final class CsvFile implements Closeable {
    /** Leaves the size of the decoder's buffer to the library, see {@code Channels.newReader}. */
    private static final int DEFAULT_BUFFER = -1;

    /**
     * Some programs write it before UTF-8 text, where it would be a part of the first column's
     * name.
     */
    private static final String BYTE_ORDER_MARK = "\uFEFF";

    private final Path path;
    /** Kept beside the reader for its position, to which what waits in buffers counts, too. */
    private final FileChannel channel;
    private final BufferedReader in;
    private final List<String> names;
    /** The fields of the record that is being read, and what there is of the last one. */
    private final List<String> row = new ArrayList<>();
    private final StringBuilder field = new StringBuilder();
    private int linesRead;
    private int rowLine;

    private CsvFile(Path path, FileChannel channel) throws IOException {
        this.path = path;
        this.channel = channel;
        in = new BufferedReader(text(channel));
        List<String> heading = readRecord();
        if (heading == null) {
            throw new IOException(path + " is empty");
        }
        // A copy, because the next record fills the same list.
        names = new ArrayList<>(heading);
    }

    /** Opens a file and reads its heading. */
    static CsvFile open(Path path) throws IOException {
        FileChannel channel = channel(path);
        try {
            return new CsvFile(path, channel);
        } catch (IOException | RuntimeException e) {
            channel.close();
            throw e;
        }
    }

    /** Opens a file to read. A folder could be opened, too, and would fail without its name. */
    static FileChannel channel(Path path) throws IOException {
        if (Files.isDirectory(path)) {
            throw new FileSystemException(path.toString(), null, "Is a directory");
        }
        return FileChannel.open(path);
    }

    /** The text of a file, of which bytes that are not UTF-8 are an error. */
    static Reader text(FileChannel channel) {
        return Channels.newReader(channel, StandardCharsets.UTF_8.newDecoder(), DEFAULT_BUFFER);
    }

    /** The first line of a text without its mark, if any. */
    static String withoutMark(String text) {
        return text.startsWith(BYTE_ORDER_MARK) ? text.substring(1) : text;
    }

    /** The columns that the heading names. */
    List<String> names() {
        return names;
    }

    /** The line, from 1, that the last row began on. */
    int line() {
        return rowLine;
    }

    /** How much of the file has been read. */
    int percentRead() throws IOException {
        return (int) (100 * channel.position() / Math.max(1, channel.size()));
    }

    /** The next row's fields, in a list that the following call fills anew; null at the end. */
    List<String> next() throws IOException {
        List<String> fields = readRecord();
        while (fields != null && names.size() > 1 && isEmptyLine(fields)) {
            fields = readRecord();
        }
        if (fields != null && fields.size() != names.size()) {
            throw complaint(fields.size() + " fields instead of " + names.size());
        }
        return fields;
    }

    private static boolean isEmptyLine(List<String> fields) {
        return fields.size() == 1 && fields.get(0).isEmpty();
    }

    private IOException complaint(String what) {
        return new IOException(path.getFileName() + ", line " + rowLine + ": " + what);
    }

    private List<String> readRecord() throws IOException {
        row.clear();
        field.setLength(0);
        rowLine = linesRead + 1;
        String line = readLine();
        if (line == null) {
            return null;
        }
        // A quote is open at the line's end: the break belongs to the field.
        while (takeFields(line)) {
            field.append('\n');
            line = readLine();
            if (line == null) {
                throw complaint("a quote is never closed");
            }
        }
        row.add(field.toString());
        return row;
    }

    @Override
    public void close() throws IOException {
        channel.close();
    }

    private String readLine() throws IOException {
        try {
            linesRead++;
            String line = in.readLine();
            return linesRead == 1 && line != null ? withoutMark(line) : line;
        } catch (CharacterCodingException e) {
            // The decoder works ahead of the lines: the place is not known exactly.
            throw complaint("from here on, there are bytes that are not UTF-8");
        }
    }

    /**
     * Adds the line's fields but the last, which stays in `field`; true when it goes on. Guessing
     * what a stray quote means could make one row of many, so it is refused.
     */
    private boolean takeFields(String line) throws IOException {
        // Only a quote that is still open lets a field begin on an earlier line.
        boolean inQuotes = field.length() > 0;
        boolean quoted = inQuotes;
        for (int i = 0; i < line.length(); i++) {
            char c = line.charAt(i);
            boolean doubled = c == '"' && i + 1 < line.length() && line.charAt(i + 1) == '"';
            if (inQuotes && doubled) {
                field.append('"');
                i++;
            } else if (inQuotes && c == '"') {
                inQuotes = false;
            } else if (c == ',' && !inQuotes) {
                row.add(field.toString());
                field.setLength(0);
                quoted = false;
            } else if (quoted && !inQuotes) {
                throw complaint("a closing quote in the middle of a field");
            } else if (c == '"' && field.length() > 0) {
                throw complaint("a quote inside a field that does not begin with one");
            } else if (c == '"') {
                inQuotes = true;
                quoted = true;
            } else {
                field.append(c);
            }
        }
        return inQuotes;
    }
}
