package trevalon.db.console;

import java.io.BufferedReader;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;

/** Rows of a CSV file with a heading line; one record a line, quotes doubled inside quotes. */
final class CsvFile {
    final List<String> names;
    final List<List<String>> rows;

    private CsvFile(List<String> names, List<List<String>> rows) {
        this.names = names;
        this.rows = rows;
    }

    /** Reads a file; a row with a wrong number of fields is an IOException that names the line. */
    static CsvFile read(Path file) throws IOException {
        try (BufferedReader in = Files.newBufferedReader(file, StandardCharsets.UTF_8)) {
            String heading = in.readLine();
            if (heading == null) {
                throw new IOException(file + " is empty");
            }
            List<String> names = fields(heading);
            List<List<String>> rows = new ArrayList<>();
            for (String line = in.readLine(); line != null; line = in.readLine()) {
                List<String> row = fields(line);
                if (row.size() != names.size()) {
                    throw new IOException(
                            file + ", line " + (rows.size() + 2) + ": " + row.size()
                                    + " fields instead of " + names.size());
                }
                rows.add(row);
            }
            return new CsvFile(names, rows);
        }
    }

    private static List<String> fields(String line) {
        List<String> fields = new ArrayList<>();
        StringBuilder field = new StringBuilder();
        boolean inQuotes = false;
        for (int i = 0; i < line.length(); i++) {
            char c = line.charAt(i);
            boolean doubled = c == '"' && i + 1 < line.length() && line.charAt(i + 1) == '"';
            if (inQuotes && doubled) {
                field.append('"');
                i++;
            } else if (c == '"') {
                inQuotes = !inQuotes;
            } else if (c == ',' && !inQuotes) {
                fields.add(field.toString());
                field.setLength(0);
            } else {
                field.append(c);
            }
        }
        fields.add(field.toString());
        return fields;
    }
}
