package trevalon.db.console;

import static java.nio.charset.StandardCharsets.UTF_8;

import java.io.IOException;
import java.io.InputStream;
import java.io.OutputStream;
import java.io.OutputStreamWriter;
import java.io.Reader;
import java.io.Writer;
import java.nio.channels.Channels;
import java.nio.channels.FileChannel;
import java.nio.charset.CharacterCodingException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.nio.file.attribute.FileAttribute;
import java.nio.file.attribute.PosixFilePermissions;
import java.sql.SQLException;
import java.util.List;

import trevalon.db.oci.OciColumn;
import trevalon.db.oci.OciConnection;
import trevalon.db.oci.OciLob;
import trevalon.db.oci.OciStatement;
import trevalon.db.oci.OciType;

/**
 * Moves one LOB value between its row and a file, piece by piece. A BLOB is the file's bytes, a
 * CLOB its text in UTF-8.
 */
final class LobFile {
    /** As much as one call moves. */
    private static final int PIECE = 32 * 1024;
    /** As many as the system follows; there may be a circle of them. */
    private static final int MOST_LINKS = 40;
    private static final FileAttribute<?>[] OWNER_ONLY = {
        PosixFilePermissions.asFileAttribute(PosixFilePermissions.fromString("rw-------"))
    };
    private static final FileAttribute<?>[] AS_USUAL = {};
    private static final String BYTES = "bytes";
    private static final String CHARACTERS = "characters";

    private final OciConnection connection;
    private final Variables variables;
    private final Progress progress;
    private final Path file;
    private volatile boolean stopped;

    LobFile(OciConnection connection, Variables variables, Progress progress, Path file) {
        this.connection = connection;
        this.variables = variables;
        this.progress = progress;
        this.file = file;
    }

    /** Makes a transfer that runs fail before its next piece; may come from another thread. */
    void stop() {
        stopped = true;
        // A call that waits for a lock would not come to its next piece for long.
        connection.breakCall();
    }

    /** Moves the next piece, and returns its units; negative at the end. */
    private interface Piece {
        int move() throws IOException;
    }

    /** How much of the whole it is, once so many units have been moved. */
    private interface Percent {
        long of(long done) throws IOException;
    }

    /**
     * Writes the value of the only row that is meant to the file, which appears once complete.
     *
     * @param column the column's name as SQL has it
     * @param table the table's name
     * @param condition WHERE and what follows it, or nothing
     * @return how much it was, in words
     */
    String get(String column, String table, String condition) throws SQLException, IOException {
        Path target = target();
        if (Files.exists(target) && !Files.isRegularFile(target)) {
            throw new SQLException(file + " is not an ordinary file");
        }
        if (!Files.isDirectory(target.getParent())) {
            throw new SQLException("There is no folder " + target.getParent());
        }
        try (OciStatement query = connection.createStatement()) {
            execute(query, "SELECT " + column + " FROM " + table + condition);
            requireRow(query.next());
            if (query.isNull(1)) {
                throw new SQLException("The value is NULL");
            }
            // Taken before the next row is asked for: the LOB outlives the row that it comes from.
            try (OciLob lob = query.getLob(1)) {
                requireNoRow(query.next());
                writeFile(lob, target);
                return amount(lob);
            }
        } finally {
            progress.clear();
        }
    }

    /** The file behind a symbolic link is written, not the link, also where there is none yet. */
    private Path target() throws SQLException, IOException {
        Path target = file.toAbsolutePath();
        for (int links = 0; Files.isSymbolicLink(target); links++) {
            if (links == MOST_LINKS) {
                throw new SQLException(file + " has too many symbolic links");
            }
            target = target.resolveSibling(Files.readSymbolicLink(target));
        }
        return target;
    }

    /** Runs a query, the last column of which must be a LOB. */
    private void execute(OciStatement query, String sql) throws SQLException {
        variables.prepare(query, sql);
        List<OciColumn> columns = query.columns();
        OciColumn column = columns.get(columns.size() - 1);
        if (!OciType.isLob(column.internalType())) {
            throw new SQLException(
                    column.name() + " is a " + column.typeText() + ", and no CLOB or BLOB");
        }
        query.execute();
    }

    private static void requireRow(boolean found) throws SQLException {
        if (!found) {
            throw new SQLException("There is no such row");
        }
    }

    private static void requireNoRow(boolean found) throws SQLException {
        if (found) {
            throw new SQLException("There are several such rows: a condition must choose one");
        }
    }

    private static String amount(OciLob lob) throws SQLException {
        return String.format("%,d %s", lob.length(), lob.isCharacter() ? CHARACTERS : BYTES);
    }

    private void writeFile(OciLob lob, Path target) throws SQLException, IOException {
        // Written beside its place, so that a failure leaves what stood there.
        String name = target.getFileName() + "." + Long.toHexString(System.nanoTime()) + ".part";
        Path part = target.resolveSibling(name);
        // Asked once, for the percentages of the whole transfer.
        long length = lob.length();
        try {
            boolean replaces = Files.exists(target);
            // Nobody may read it meanwhile who could not read the file that it replaces.
            Files.createFile(part, replaces ? OWNER_ONLY : AS_USUAL);
            try (OutputStream out = Files.newOutputStream(part)) {
                read(lob, out, done -> 100 * done / length);
            }
            if (replaces) {
                Files.setPosixFilePermissions(part, Files.getPosixFilePermissions(target));
            }
            // A rename within one folder: readers see the old file or the new one, never a part.
            Files.move(part, target, StandardCopyOption.REPLACE_EXISTING);
        } catch (CharacterCodingException e) {
            throw new SQLException("The text has half a surrogate pair, which UTF-8 has not", e);
        } finally {
            Files.deleteIfExists(part);
        }
    }

    private void read(OciLob lob, OutputStream out, Percent percent)
            throws SQLException, IOException {
        if (lob.isCharacter()) {
            try (Reader in = lob.reader(0);
                    Writer text = new OutputStreamWriter(out, UTF_8.newEncoder())) {
                copyText(in, text, percent);
            }
        } else {
            try (InputStream in = lob.inputStream(0)) {
                copyBytes(in, out, percent);
            }
        }
    }

    /**
     * Replaces the value of the only row that is meant with the file's content; the row stays as
     * it was where that fails.
     *
     * @param column the column's name as SQL has it
     * @param table the table's name
     * @param condition WHERE and what follows it, or nothing
     * @return how much it was, in words
     */
    String put(String column, String table, String condition) throws SQLException, IOException {
        try (FileChannel channel = CsvFile.channel(file)) {
            return AllOrNothing.run(connection, () -> {
                String row = lockRow(column, table, condition);
                try (OciLob lob = emptied(column, table, row)) {
                    write(lob, channel);
                    return amount(lob);
                }
            });
        } catch (CharacterCodingException e) {
            throw new SQLException(file + " is not UTF-8 text", e);
        } finally {
            progress.clear();
        }
    }

    /** The row's ROWID: a condition may not hold any more once the value has changed. */
    private String lockRow(String column, String table, String condition) throws SQLException {
        try (OciStatement query = connection.createStatement()) {
            execute(
                    query,
                    "SELECT ROWID, " + column + " FROM " + table + condition + " FOR UPDATE");
            requireRow(query.next());
            String row = query.getString(1);
            requireNoRow(query.next());
            return row;
        }
    }

    /** Values can be written over, not cut: a new one takes the old one's place. */
    private OciLob emptied(String column, String table, String row) throws SQLException {
        String where = " WHERE ROWID = :1";
        try (OciStatement statement = connection.createStatement()) {
            // FOR UPDATE again, because a locator of the value before the change names that value.
            String select = "SELECT " + column + " FROM " + table + where + " FOR UPDATE";
            statement.prepare(select);
            boolean text = statement.columns().get(0).internalType() == OciType.CLOB;
            String empty = text ? "EMPTY_CLOB()" : "EMPTY_BLOB()";
            statement.prepare("UPDATE " + table + " SET " + column + " = " + empty + where);
            statement.setString(1, row);
            statement.execute();
            statement.prepare(select);
            statement.setString(1, row);
            statement.execute();
            requireRow(statement.next());
            return statement.getLob(1);
        }
    }

    private void write(OciLob lob, FileChannel channel) throws SQLException, IOException {
        // By the file and not by units: how many characters a text has shows at its end only.
        Percent percent = done -> 100 * channel.position() / Math.max(1, channel.size());
        if (lob.isCharacter()) {
            Reader in = CsvFile.text(channel);
            try (Writer out = lob.writer(0)) {
                copyText(in, out, percent);
            }
        } else {
            try (OutputStream out = lob.outputStream(0)) {
                copyBytes(Channels.newInputStream(channel), out, percent);
            }
        }
    }

    private void copyText(Reader in, Writer out, Percent percent)
            throws SQLException, IOException {
        char[] piece = new char[PIECE];
        copy(CHARACTERS, percent, () -> {
            int count = in.read(piece);
            out.write(piece, 0, Math.max(0, count));
            return count;
        });
    }

    private void copyBytes(InputStream in, OutputStream out, Percent percent)
            throws SQLException, IOException {
        byte[] piece = new byte[PIECE];
        copy(BYTES, percent, () -> {
            int count = in.read(piece);
            out.write(piece, 0, Math.max(0, count));
            return count;
        });
    }

    private void copy(String unit, Percent percent, Piece piece)
            throws SQLException, IOException {
        long done = 0;
        for (int count = piece.move(); count >= 0; count = piece.move()) {
            // Here for the time between two calls; a call that runs is broken by stop().
            if (stopped) {
                throw new SQLException("The transfer was stopped");
            }
            done += count;
            if (progress.isDue()) {
                progress.show(file.toString(), done, unit, (int) percent.of(done));
            }
        }
    }
}
