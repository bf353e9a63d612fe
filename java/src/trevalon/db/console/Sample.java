package trevalon.db.console;

import java.io.BufferedReader;
import java.io.IOException;
import java.io.OutputStream;
import java.io.PrintStream;
import java.io.Writer;
import java.nio.channels.FileChannel;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.sql.SQLException;
import java.time.LocalDateTime;

import trevalon.db.oci.OciConnection;
import trevalon.db.oci.OciException;
import trevalon.db.oci.OciLob;
import trevalon.db.oci.OciStatement;

/**
 * The sample database: loaded once, shown, and checked against what the program works out.
 *
 * <p>Everything goes through the classes that the prompt uses, so that a good run shows that they
 * work. Tables are made first, and commit by themselves; all rows, the mark in sample_loaded among
 * them, are one transaction.
 */
final class Sample {
    private static final int NO_SUCH_TABLE = 942;
    private static final String[] TABLES = {
        "sample_loaded", "exhibit", "letter", "calendar", "person", "studio"
    };

    private final OciConnection connection;
    private final Path content;
    private final Path data;
    private final PrintStream out;
    private final PrintStream errors;
    private final Progress progress;
    private final BreakKey breakKey = new BreakKey();

    /**
     * @param content the folder of the sample's scripts and CSV files
     * @param data a folder where the calendar's CSV file may be written
     */
    Sample(
            OciConnection connection,
            Path content,
            Path data,
            PrintStream out,
            PrintStream errors,
            Progress progress) {
        this.connection = connection;
        this.content = content;
        this.data = data;
        this.out = out;
        this.errors = errors;
        this.progress = progress;
    }

    /** Loads the sample if it is missing, prints its tables, and checks it; true if all is well. */
    boolean run() throws IOException, SQLException {
        if (isLoaded() || !loadAlone()) {
            out.println("The sample is loaded already.");
        }
        if (!runScript("tour.sql", out)) {
            return false;
        }
        out.println();
        boolean good = new SampleChecks(connection, out).run(content.resolve("people.csv"));
        out.println(good ? "All checks passed." : "CHECKS FAILED: the sample is not as expected.");
        return good;
    }

    /** Of programs that start together one loads, as it drops what is half made: true for it. */
    private boolean loadAlone() throws IOException, SQLException {
        Path lock = data.resolve("sample.lock");
        try (FileChannel channel =
                FileChannel.open(lock, StandardOpenOption.CREATE, StandardOpenOption.WRITE)) {
            // Until the channel is closed.
            channel.lock();
            if (isLoaded()) {
                return false;
            }
            load();
            return true;
        }
    }

    /** The mark is made by the transaction that loads, so half a load does not count as one. */
    private boolean isLoaded() throws SQLException {
        try (OciStatement query = connection.createStatement()) {
            query.execute("SELECT finished FROM sample_loaded");
            return query.next();
        } catch (OciException e) {
            if (e.code() == NO_SUCH_TABLE) {
                return false;
            }
            throw e;
        }
    }

    private void load() throws IOException, SQLException {
        // What an interrupted load has left behind: tables commit by themselves, rows do not.
        for (String table : TABLES) {
            dropIfThere(table);
        }
        PrintStream silent = new PrintStream(new NoOutput(), false, "UTF-8");
        if (!runScript("schema.sql", silent)) {
            throw new IOException("The tables of the sample could not be created");
        }
        // The file is written and then read, so that the load works on a real file of some size.
        Path calendar = data.resolve("calendar.csv");
        SampleContent.writeCalendar(calendar);
        long start = System.nanoTime();
        CsvLoader loader = new CsvLoader(connection, progress);
        loader.load("studio", content.resolve("studios.csv"));
        loader.load("person", content.resolve("people.csv"));
        long days = loader.load("calendar", calendar);
        loadLetters();
        loadExhibits();
        try (OciStatement mark = connection.createStatement()) {
            mark.execute("INSERT INTO sample_loaded (finished) VALUES (SYSDATE)");
        }
        connection.commit();
        out.printf(
                "Loaded %,d days from %s in %.1f s.%n",
                days, calendar, (System.nanoTime() - start) / 1e9);
    }

    /** A table that is not there is what was wanted; every other failure is one. */
    private void dropIfThere(String table) throws SQLException {
        try (OciStatement statement = connection.createStatement()) {
            statement.execute("DROP TABLE " + table);
        } catch (OciException e) {
            if (e.code() != NO_SUCH_TABLE) {
                throw e;
            }
        }
    }

    /** As streams of characters, whose length is not known before. */
    private void loadLetters() throws SQLException {
        try (OciStatement statement = connection.createStatement()) {
            statement.prepare(
                    "INSERT INTO letter (letter_id, title, written, body)"
                            + " VALUES (:id, :title, :written, :body)");
            for (SampleContent.Letter letter : SampleContent.letters()) {
                statement.setInt(1, letter.id);
                statement.setString(2, letter.title);
                statement.setDateTime(3, LocalDateTime.of(1976, 12, 30 - letter.id, 18, 45, 30));
                statement.setCharacterStream(4, letter.open());
                statement.execute();
            }
        }
    }

    /** Each row first gets empty values, whose locators then take the text and the picture. */
    private void loadExhibits() throws IOException, SQLException {
        try (OciStatement insert = connection.createStatement();
                OciStatement query = connection.createStatement()) {
            insert.prepare(
                    "INSERT INTO exhibit (exhibit_id, title, description, picture)"
                            + " VALUES (:id, :title, EMPTY_CLOB(), EMPTY_BLOB())");
            query.prepare(
                    "SELECT description, picture FROM exhibit WHERE exhibit_id = :id FOR UPDATE");
            for (SampleExhibit exhibit : SampleExhibit.all()) {
                insert.setInt(1, exhibit.id);
                insert.setString(2, exhibit.title);
                insert.execute();
                query.setInt(1, exhibit.id);
                query.execute();
                // The row was inserted just before, within the same transaction.
                query.next();
                write(exhibit, query);
            }
        }
    }

    private static void write(SampleExhibit exhibit, OciStatement row)
            throws IOException, SQLException {
        try (OciLob description = row.getLob(1);
                OciLob picture = row.getLob(2);
                Writer text = description.writer(0);
                OutputStream bytes = picture.outputStream(0)) {
            text.write(exhibit.description);
            bytes.write(exhibit.picture);
        }
    }

    private boolean runScript(String name, PrintStream output) throws IOException, SQLException {
        Path file = content.resolve(name);
        try (BufferedReader in = Files.newBufferedReader(file, StandardCharsets.UTF_8)) {
            return new Script(connection, output, errors, breakKey, progress)
                    .run(new StatementReader(in, line -> {}), name);
        }
    }

    /** Takes the feedback of the schema's script, which nobody needs to read. */
    private static final class NoOutput extends OutputStream {
        @Override
        public void write(int b) {}

        @Override
        public void write(byte[] bytes, int offset, int length) {}
    }
}
