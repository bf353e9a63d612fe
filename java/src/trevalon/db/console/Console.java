package trevalon.db.console;

import java.io.BufferedOutputStream;
import java.io.BufferedReader;
import java.io.FileDescriptor;
import java.io.FileInputStream;
import java.io.FileOutputStream;
import java.io.IOException;
import java.io.InputStreamReader;
import java.io.PrintStream;
import java.io.UnsupportedEncodingException;
import java.nio.charset.CharacterCodingException;
import java.nio.charset.StandardCharsets;
import java.nio.file.InvalidPathException;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.sql.SQLException;
import java.util.concurrent.TimeUnit;

import trevalon.db.oci.OciConnection;

/**
 * The command line: a SQL prompt, a script, or the sample database.
 *
 * <p>Exit codes are 0 for success, 1 for a failed statement, commit, file, check or output, and 2
 * for a command line that cannot be understood: scripts tell the last two apart. Results go to
 * standard output, everything about errors and progress to standard error.
 */
public final class Console {
    private static final int OK = 0;
    private static final int FAILED = 1;
    private static final int USAGE = 2;
    /**
     * Large, because tables are printed line by line; a terminal is flushed after each line all the
     * same.
     */
    private static final int OUTPUT_BUFFER = 64 * 1024;

    /** What a reader that has stopped reading may cost a program that is told to end. */
    private static final long LAST_FLUSH_SECONDS = 1;

    private static final String USAGE_TEXT =
            "Usage: run                          loads and shows the sample database\n"
                    + "       run USER/PASSWORD@NAME       a SQL prompt, or a script from a pipe\n"
                    + "       run USER/PASSWORD@NAME FILE  runs a script";

    /** Which of the descriptors 0, 1 and 2 are terminals; the starting script knows it. */
    private static final String TERMINALS_PROPERTY = "oralayer.terminals";

    private static final String SAMPLE_FOLDER_PROPERTY = "oralayer.sample";
    private static final String SAMPLE_LOGIN_PROPERTY = "oralayer.sample.login";

    private final PrintStream out;
    private final PrintStream errors;
    /** The last one shown; read when a key is pressed. */
    private volatile String prompt = "";

    private Console() throws UnsupportedEncodingException {
        // The JVM's own streams follow the locale, and lose characters in the C locale.
        out =
                new PrintStream(
                        new BufferedOutputStream(
                                new FileOutputStream(FileDescriptor.out), OUTPUT_BUFFER),
                        isTerminal(1),
                        "UTF-8");
        errors = new PrintStream(new FileOutputStream(FileDescriptor.err), true, "UTF-8");
    }

    public static void main(String[] arguments) throws UnsupportedEncodingException {
        Console console = new Console();
        Runtime.getRuntime().addShutdownHook(new Thread(console::flushAtEnd));
        int exitCode = console.run(arguments);
        // A print stream tells of its failures only when it is asked.
        if (console.out.checkError()) {
            console.errors.println("ERROR:\nThe output could not be written");
            exitCode = exitCode == OK ? FAILED : exitCode;
        }
        System.exit(exitCode);
    }

    /** A signal ends the program as well, while results are in the buffer. */
    private void flushAtEnd() {
        Thread flush = new Thread(out::flush);
        // It stays behind where the output takes nothing.
        flush.setDaemon(true);
        flush.start();
        try {
            TimeUnit.SECONDS.timedJoin(flush, LAST_FLUSH_SECONDS);
        } catch (InterruptedException e) {
            // The program ends now in any case.
            return;
        }
    }

    private int run(String[] arguments) {
        try {
            switch (arguments.length) {
                case 0:
                    return sample();
                // A pipe or a file as input is a script: nobody could correct a statement after an
                // error.
                case 1:
                    return isTerminal(0)
                            ? prompt(arguments[0])
                            : script(arguments[0], strictInput(), "standard input");
                case 2:
                    return script(arguments[0], open(Paths.get(arguments[1])), arguments[1]);
                default:
                    errors.println(USAGE_TEXT);
                    return USAGE;
            }
        } catch (SQLException e) {
            errors.println("ERROR:\n" + e.getMessage());
            return FAILED;
        } catch (UnsatisfiedLinkError e) {
            errors.println("The native library cannot be loaded: " + e.getMessage());
            return FAILED;
        } catch (UsageException e) {
            errors.println(e.getMessage() + "\n" + USAGE_TEXT);
            return USAGE;
        } catch (IOException | InvalidPathException e) {
            errors.println(e.getClass().getSimpleName() + ": " + e.getMessage());
            return FAILED;
        }
    }

    private int sample() throws SQLException, IOException, UsageException {
        String login = System.getProperty(SAMPLE_LOGIN_PROPERTY);
        String folder = System.getProperty(SAMPLE_FOLDER_PROPERTY);
        String data = System.getenv("OCI8_DATA");
        if (login == null || folder == null || data == null) {
            throw new UsageException(
                    "The sample needs -D" + SAMPLE_LOGIN_PROPERTY + ", -D" + SAMPLE_FOLDER_PROPERTY
                            + " and the environment variable OCI8_DATA");
        }
        try (OciConnection connection = connect(login)) {
            out.println("Connected: " + connection.clientVersion());
            Sample sample =
                    new Sample(
                            connection,
                            Paths.get(folder),
                            Paths.get(data),
                            out,
                            errors,
                            progress());
            return sample.run() ? OK : FAILED;
        }
    }

    private int prompt(String login) throws SQLException, IOException, UsageException {
        try (OciConnection connection = connect(login)) {
            out.println("Connected: " + connection.clientVersion() + "\nHELP tells more.\n");
            BreakKey key = new BreakKey(this::sayWhatLeaves);
            Script script = new Script(connection, out, errors, key, progress());
            return script.interact(new StatementReader(standardInput(), this::showPrompt))
                    ? OK
                    : FAILED;
        }
    }

    private void showPrompt(int lineOfStatement) {
        prompt = lineOfStatement == 1 ? "SQL> " : String.format("%3d  ", lineOfStatement);
        out.print(prompt);
        out.flush();
    }

    /** On the key's thread: the line that was being typed is gone, those before it are not. */
    private void sayWhatLeaves() {
        out.print("\nEXIT leaves.\n" + prompt);
        out.flush();
    }

    private int script(String login, BufferedReader input, String name)
            throws SQLException, IOException, UsageException {
        // The file is open before the login, so that a missing script costs no session.
        try (BufferedReader in = input;
                OciConnection connection = connect(login)) {
            Script script = new Script(connection, out, errors, new BreakKey(), progress());
            // No prompt: a script's lines were not asked for.
            return script.run(new StatementReader(in, line -> {}), name) ? OK : FAILED;
        } catch (CharacterCodingException e) {
            // Read somehow, text of another encoding would store other characters.
            errors.println("ERROR:\nThe script " + name + " is not UTF-8 text");
            return FAILED;
        }
    }

    private Progress progress() {
        return new Progress(isTerminal(2) ? errors : null);
    }

    private OciConnection connect(String text) throws SQLException, UsageException {
        LoginString login = LoginString.parse(text);
        String password = login.password == null ? askPassword() : login.password;
        return OciConnection.open(login.user, password, login.server);
    }

    /**
     * Without an echo, which takes a terminal; a password that is needed and cannot be asked for is
     * an error of the command line.
     */
    private static String askPassword() throws UsageException {
        java.io.Console console = System.console();
        char[] typed = console == null ? null : console.readPassword("Password: ");
        if (typed == null) {
            throw new UsageException("The password is missing");
        }
        return new String(typed);
    }

    private static BufferedReader open(Path file) throws IOException {
        return new BufferedReader(CsvFile.text(CsvFile.channel(file)));
    }

    /** Standard input of a script: malformed bytes are an error, which ends it. */
    private static BufferedReader strictInput() {
        return new BufferedReader(
                new InputStreamReader(
                        new FileInputStream(FileDescriptor.in),
                        StandardCharsets.UTF_8.newDecoder()));
    }

    /**
     * Standard input of a prompt: malformed bytes become replacement characters, which the user
     * sees.
     */
    private static BufferedReader standardInput() {
        return new BufferedReader(
                new InputStreamReader(
                        new FileInputStream(FileDescriptor.in), StandardCharsets.UTF_8));
    }

    private static boolean isTerminal(int descriptor) {
        String terminals = System.getProperty(TERMINALS_PROPERTY);
        // Started by hand: the JVM has one answer for all of them.
        return terminals == null
                ? System.console() != null
                : terminals.contains(Integer.toString(descriptor));
    }
}
