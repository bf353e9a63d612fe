package trevalon.db.console;

import static trevalon.db.oci.TestRun.*;

import java.io.BufferedReader;
import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.PrintStream;
import java.io.StringReader;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.nio.file.attribute.PosixFilePermissions;
import java.sql.SQLException;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Scanner;
import java.util.concurrent.Executors;
import java.util.concurrent.FutureTask;
import java.util.concurrent.ScheduledExecutorService;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicBoolean;

import trevalon.db.oci.OciConnection;
import trevalon.db.oci.OciStatement;
import trevalon.db.oci.TestRun;

/** The console: cutting of input, shape of output, and whole runs in a process of their own. */
public final class ConsoleCases {
    private static final String LOGIN = "tester/secret@TEST";

    public static void addTo(TestRun tests) {
        tests.add("input is cut into statements", () -> statements());
        tests.add("text is cut in terminal cells, and logins are taken apart", () -> texts());
        tests.add("a script that succeeds prints tables and exits with 0", () -> goodScript());
        tests.add("a script stops at its first error and leaves nothing", () -> refusedScripts());
        tests.add("variables go into statements and come out of blocks", () -> variables());
        tests.add("a file is loaded whole or not at all", () -> load());
        tests.add("a break stops the work, and not what takes it back", () -> breaks());
        tests.add("LOB values are shown short, and move to and from files", () -> lobFiles());
        tests.add("a login that fails ends the console", () -> refusedLogins());
        tests.add("what is lost at the end is told", () -> lostAtTheEnd());
        tests.add("a signal ends a script, and not what it has shown", () -> terminated());
        tests.add("the sample loads once, and its checks notice a change", () -> sample());
    }

    private static void statements() throws Exception {
        String[][] inputs = {
            {"a;b ; c", "a", "b", "c"},
            {"a\nb\n;\n;;\n/\n", "a\nb"},
            {"select ';' , \"x;\" -- no; \n from t /* ; \n ; */ ;",
                "select ';' , \"x;\" -- no; \n from t /* ; \n ; */"},
            {"it's;\n';", "it's;\n'"},
            {"begin a; b; end;\n/\nc;", "begin a; b; end;", "c"},
            {"create or replace procedure p is begin a; end;\n/",
                "create or replace procedure p is begin a; end;"},
            {"-- only remarks;\n\ndesc t;\nquit\n", "desc t", "quit"},
            {"select 1\ndesc\n;", "select 1\ndesc"},
            {"exec :x := 'a;b';\nset autocommit on;\nset role none;",
                "exec :x := 'a;b'", "set autocommit on", "set role none"},
            {"exit; -- x\ncommit; /* y */\nrollback\nto a;", "exit", "commit", "rollback\nto a"},
            {"/* c */ load t from f\n/* */ exit;\n\"exit\";", "load t from f", "exit", "\"exit\""},
        };
        for (String[] input : inputs) {
            List<String> found = new ArrayList<>();
            StatementReader reader = reader(input[0]);
            for (StatementReader.Statement s = reader.next(); s != null; s = reader.next()) {
                found.add(s.text);
            }
            same(Arrays.asList(input).subList(1, input.length), found, input[0]);
        }
        List<Integer> prompts = new ArrayList<>();
        BufferedReader lines = new BufferedReader(new StringReader("/\n\na\nb;"));
        new StatementReader(lines, prompts::add).next();
        same(Arrays.asList(1, 1, 1, 2), prompts, "lines of the statement that are asked for");
    }

    private static void texts() throws Exception {
        same(4, DisplayText.width("京都"), "wide characters");
        same(1, DisplayText.width("e\u0301"), "combining mark");
        same("京...", DisplayText.cut("京都大学", 6), "cut between wide characters");
        same("a b", DisplayText.printable("a\tb"), "control character");
        LoginString login = LoginString.parse("u/p@ss/w@/path/to.db");
        same("u", login.user, "user");
        same("/", LoginString.parse("/@X").user, "external user");
        same(null, LoginString.parse("u@X").password, "missing password");
    }

    private static void goodScript() throws Exception {
        script("\uFEFFCREATE TABLE shown (n NUMBER(5), t VARCHAR2(9), body LONG);\n"
                + "INSERT INTO shown VALUES (7, 'seven', '" + DisplayText.repeat('x', 99) + "');\n"
                + "INSERT INTO shown VALUES (12345, NULL, NULL);\n"
                + "SELECT n, t, n \"a\tb\" FROM shown ORDER BY n;\n"
                + "SELECT body FROM shown;\nDESC shown\n")
                .ends(0, "1 row created.", "    N T       a b", "----- -----", "    7 seven",
                "12345", "2 rows selected.", DisplayText.repeat('x', 77) + "...", "N     NUMBER(5)");
    }

    /** In this process, and on one connection: what a script has left would be seen at the end. */
    private static void refusedScripts() throws Exception {
        script("CREATE TABLE refused_rows (n NUMBER(5));").ends(0);
        String[][] scripts = {
            {"PROMPT before\nSELECT COUNT(*)\n  FROM dual, nowhere n\n WHERE 1 = 1;\n",
                "before\n", "  FROM dual, nowhere n\n             *\nERROR at line 2:\nORA-00942",
                "statement of line 3"},
            {"LOAD refused_rows FROM a\0b\n", "No file can have this name"},
            {"LOAD refused_rows FROM /tmp\n", "/tmp: Is a directory"},
            {"LOAD " + DisplayText.repeat('x', 99_999) + " FROM a\n", "There is no file a"},
            {"GET " + DisplayText.repeat('x', 99_999) + " INTO a\n", "Usage: GET"},
            {"DESC refused_rows -- c\n", "Usage: DESCRIBE table"},
            {"EXIT 3\n", "Usage: EXIT [COMMIT | ROLLBACK]"},
            {"exec:x := 1", "The variable \"X\" is not declared"},
            {"\n/* DELETE FROM refused_rows;\nSELECT 1 FROM DUAL;\n", "statement of line 3"},
        };
        try (OciConnection connection = connect()) {
            for (String[] script : scripts) {
                String shown =
                        "INSERT INTO refused_rows VALUES (1);\n" + script[0] + "\nPROMPT after\n";
                ByteArrayOutputStream output = new ByteArrayOutputStream();
                PrintStream out = new PrintStream(output, true, "UTF-8");
                Script run = new Script(connection, out, out, new BreakKey(), new Progress(null));
                yes(!run.run(reader(shown), "script"), "no failure of " + shown);
                String found = output.toString("UTF-8");
                for (int i = 1; i < script.length; i++) {
                    yes(found.contains(script[i]), found);
                }
                yes(!found.contains("\nafter\n"), "the script went on");
            }
        }
        script("INSERT INTO refused_rows VALUES (2);\n/* not kept */ EXIT ROLLBACK -- bye\n")
                .ends(0);
        new Run("SELECT COUNT(*) || ' left' FROM refused_rows;\n", LOGIN).ends(0, "0 left");
    }

    private static StatementReader reader(String text) {
        return new StatementReader(new BufferedReader(new StringReader(text)), n -> {});
    }

    private static void variables() throws Exception {
        Run run = script("CREATE TABLE digits (n NUMBER(5));\nINSERT INTO digits VALUES (7);\n"
                + "INSERT INTO digits VALUES (41);\n"
                + "VARIABLE n NUMBER\nVAR t VARCHAR2(5)\nvar d date\nVAR c REFCURSOR\n"
                + "EXEC :N := 6 * 7 -- one\nEXEC :t := 'a:x'; -- two\n"
                + "BEGIN\n  SELECT MAX(n) INTO :n FROM digits WHERE n < :n;\n"
                + "  :d := TO_DATE('1999-12-31', 'YYYY-MM-DD');\n"
                + "  OPEN :c FOR SELECT n, n || :t label FROM digits WHERE n <= :n ORDER BY n;\n"
                + "END;\n/\nPRINT\nPRINT c\nUPDATE digits SET n = n + 1 WHERE n = :n;\n"
                + "SELECT n, ':t', :t copy FROM digits WHERE n = :n + 1;\n");
        run.ends(0, "Block completed.", " N\n--\n41\n", "T\n---\na:x\n", "1999-12-31",
                " 7 7a:x\n41 41a:x\n", "2 rows selected.", "C has no open query.",
                "1 row updated.", "42 :t   a:x");
        script("CREATE TABLE padded (a CHAR(5));\nINSERT INTO padded VALUES ('é');\n"
                + "VARIABLE c CHAR(5)\nEXEC :c := 'é'\n"
                + "SELECT COUNT(*) || ' found' FROM padded WHERE a = :c;\n").ends(0, "1 found");
        script("VARIABLE y NUMBER\nSELECT ':x', :y, :z FROM DUAL;\n")
                .ends(1, "The variable \"Z\" is not declared", "statement of line 2");
    }

    private static void load() throws Exception {
        String good = "\uFEFF\"N\",d,\"t\",body,bytes\n1,1970-01-01,\"a \"\"b\"\", c\",,00fF\n\n"
                + "2.5,1999-12-31 23:59:58,\"two\nlines\",京都,\n,,,"
                + DisplayText.repeat('x', 70_000) + ",\n";
        Path csv = file("load.csv", good);
        String load = "LOAD filled FROM " + csv + "\n";
        Run run = script("CREATE TABLE filled (n NUMBER(5,1), d DATE, t VARCHAR2(20), body LONG,"
                + " bytes RAW(2));\n" + load + "SELECT n, d, t, bytes, body FROM filled;");
        run.ends(0, "3 rows loaded.", "1970-01-01          a \"b\", c  00FF",
                "1999-12-31 23:59:58 two lines", "京都", "xxx...");
        String[][] faults = {
            {"9,1970-02-30,,,\n", "line 7: Text '1970-02-30'"},
            {"9x,,,,\n", "line 7: <9x> is no number"},
            {"9,,,\n", "line 7: 4 fields instead of 5"},
            {"12345.6,,,,\n", "line 7: ORA-01438"},
            {"1,,\"", "line 7: a quote is never closed"},
            {"1,,5\" pipe,,\n2,,6\" pipe,,\n", "line 7: a quote inside a field"},
            {"1,,\"x\"y\"z\",,\n", "line 7: a closing quote in the middle"},
        };
        for (String[] fault : faults) {
            file("load.csv", good + fault[0]);
            Run piped = new Run("INSERT INTO filled (n) VALUES (0);\n" + load, LOGIN);
            piped.ends(1, csv.getFileName() + ", " + fault[1]);
        }
        file("load.csv", good + faults[0][0]);
        try (OciConnection failed = connect()) {
            failed.setAutoCommit(true);
            CsvLoader loader = new CsvLoader(failed, new Progress(null));
            throwing(SQLException.class, () -> loader.load("filled", csv));
            // Its session goes on, and keeps nobody from writing.
            new Run("UPDATE filled SET n = n;\n", LOGIN).ends(0);
        }
        new Run("SELECT COUNT(*) || ' left' FROM filled;\n", LOGIN).ends(0, "3 left");
    }

    private static void breaks() throws Exception {
        List<String> done = new ArrayList<>();
        BreakKey prompt = new BreakKey(() -> done.add("idle"));
        prompt.setRunning(() -> done.add("broken"));
        prompt.pressed();
        prompt.setRunning(null);
        prompt.pressed();
        same(Arrays.asList("broken", "idle"), done, "what a key does at a prompt");
        // Ctrl-C ends the tests again.
        new BreakKey();
        Path csv = file("load.csv", "n\n1\n");
        ScheduledExecutorService key = Executors.newSingleThreadScheduledExecutor();
        try (OciConnection holder = connect();
                OciConnection broken = connect();
                OciStatement insert = holder.createStatement();
                OciStatement half = broken.createStatement()) {
            insert.execute("INSERT INTO digits VALUES (1)");
            CsvLoader waiting = new CsvLoader(broken, new Progress(null));
            // Repeated, since it may find the load between two calls.
            key.scheduleWithFixedDelay(waiting::stop, 200, 50, TimeUnit.MILLISECONDS);
            SQLException error = throwing(SQLException.class, () -> waiting.load("digits", csv));
            yes(error.getErrorCode() != 54, "the load has waited to the end: " + error);
            holder.rollback();
            key.shutdown();
            yes(key.awaitTermination(9, TimeUnit.SECONDS), "the key came to rest");
            AtomicBoolean pressed = new AtomicBoolean();
            throwing(IOException.class, () -> AllOrNothing.run(broken, () -> {
                half.execute("DELETE FROM digits");
                new Thread(() -> {
                    for (int i = 0; i < 100_000; i++) {
                        broken.breakCall();
                        pressed.set(true);
                    }
                }).start();
                while (!pressed.get()) {
                    Thread.yield();
                }
                throw new IOException("The other half is missing");
            }));
        } finally {
            key.shutdownNow();
        }
        new Run("SELECT COUNT(*) || ' left' FROM digits;\n", LOGIN).ends(0, "2 left");
    }

    private static void lobFiles() throws Exception {
        Path folder = Files.createDirectory(Paths.get(System.getenv("OCI8_DATA"), "two words"));
        Path text = folder.resolve("text");
        Path bytes = folder.resolve("bytes");
        String content = DisplayText.repeat('x', 32_767) + "😀京\n" + DisplayText.repeat('y', 40_000);
        file("two words/text", content);
        Files.write(bytes, new byte[] {(byte) 0x80, 1, 2});
        Files.setPosixFilePermissions(text, PosixFilePermissions.fromString("r--------"));
        String quoted = "'" + folder + "/";
        Run run = script("CREATE TABLE filed (n NUMBER(2), t CLOB, b BLOB);\n"
                + "INSERT INTO filed VALUES (1, 'old', EMPTY_BLOB());\n"
                + "INSERT INTO filed VALUES (2, '" + DisplayText.repeat('z', 99) + "', NULL);\n"
                + "PUT filed.t FROM " + quoted + "text' WHERE n = 1\n"
                + "put \"FILED\".b from " + quoted + "text' where b is null\n"
                + "PUT filed.b FROM " + quoted + "bytes' WHERE n = 2\n"
                + "GET filed.t INTO " + quoted + "copy' WHERE n = 1\nSELECT * FROM filed;\n");
        run.ends(0, "72,771 characters stored.", "3 bytes stored.", "72,771 characters written.",
                "1 xxx", "2 zzz", "zzz...", " (0 bytes)", "800102 (3 bytes)");
        same(content, new String(Files.readAllBytes(folder.resolve("copy")), "UTF-8"), "copy");
        Run prompt = new Run("0", ":", ("PUT filed.t FROM bytes WHERE n = 2\n"
                + "PUT filed.b FROM missing\nPUT filed.b FROM bytes\n"
                + "PUT filed.n FROM bytes\nGET filed.t\nGET filed.t INTO copy WHERE n = 3\n"
                + "GET nosuch.t INTO copy\n"
                + "GET lobs.t INTO copy\n").replaceAll("(FROM|INTO) (\\w+)", "$1 " + quoted + "$2'"),
                new String[] {LOGIN});
        prompt.ends(0, "bytes is not UTF-8 text", "There is no file", "several such rows",
                "N is a NUMBER(2), and no CLOB or BLOB", "Usage: GET table.column INTO file",
                "There is no such row", "ORA-00942", "half a surrogate pair");
        Path dangling = Files.createSymbolicLink(folder.resolve("link"), Paths.get("new"));
        script("GET filed.t INTO " + quoted + "text' WHERE n = 2\n"
                + "GET filed.b INTO " + quoted + "link' WHERE n = 2").ends(0);
        yes(Files.isSymbolicLink(dangling), "the link stays");
        same(3L, Files.size(folder.resolve("new")), "what it leads to");
        same(99L, Files.size(text), "a failed PUT has changed the value");
        same("r--------", PosixFilePermissions.toString(Files.getPosixFilePermissions(text)),
                "who may read it");
        same(5, folder.toFile().list().length, "files are left over");
    }

    private static void refusedLogins() throws Exception {
        new Run("", "tester/wrong@TEST").ends(1, "ORA-01017");
        new Run("", "nonsense").ends(2);
        new Run("", LOGIN, "/tmp").ends(1, "/tmp: Is a directory");
    }

    /** The output, and the rows where no file may become as long as their log. */
    private static void lostAtTheEnd() throws Exception {
        script("CREATE TABLE lost (v VARCHAR2(4000));\n").ends(0);
        String insert = "INSERT INTO lost SELECT RPAD('x', 4000) FROM digit a, digit b;\n";
        String[][] runs = {
            {"", "ulimit -f 200", insert, "ORA-02091", "In standard input, the commit at its end"},
            {"", "ulimit -f 200", insert + "EXIT COMMIT\n", "ORA-02091"},
            {"0", "ulimit -f 200", insert, "ORA-02091"},
            {"0", "ulimit -f 200", insert + "EXIT\n", "ORA-02091"},
            {"", "exec >/dev/full", "SELECT 1 FROM DUAL;\n", "The output could not be written"},
        };
        for (String[] run : runs) {
            new Run(run[0], run[1], run[2], new String[] {LOGIN})
                    .ends(1, Arrays.copyOfRange(run, 3, run.length));
        }
    }

    /** The script has come as far as its file, and tells of it or waits for more of its input. */
    private static void terminated() throws Exception {
        String ready = System.getenv("OCI8_DATA") + "/ready";
        String signal = "mkfifo " + ready + ".in; exec 3<>" + ready + ".in; cat >&3; exec <&3;"
                + " (while kill -0 $$ && ! test -e " + ready + "; do sleep 0.1; done; kill $$) & :";
        String script = "SELECT 'shown' FROM DUAL;\nGET filed.b INTO '" + ready + "' WHERE n = 2\n";
        new Run("", signal, script, new String[] {LOGIN}).ends(143, "1 row selected.");
    }

    private static void sample() throws Exception {
        FutureTask<Run> beside = new FutureTask<>(() -> new Run(""));
        new Thread(beside).start();
        String outputs = "";
        for (Run run : new Run[] {new Run(""), beside.get()}) {
            run.ends(0, "All checks passed.");
            outputs += run.output;
        }
        yes(outputs.contains("Loaded 11,323 days") && outputs.contains("loaded already"), outputs);
        new Run("UPDATE calendar SET iso_week = 99 WHERE remark IS NOT NULL;\nDELETE FROM exhibit;",
                LOGIN).ends(0);
        new Run("").ends(1, "checksum of the calendar", "WRONG", "text of exhibit 1: nothing",
                "CHECKS FAILED");
        new Run("DROP TABLE exhibit;", LOGIN).ends(0);
        new Run("").ends(1, "  FROM exhibit\n       *\nERROR at line 2:\nORA-00942", "In tour.sql");
    }

    private static Run script(String text) throws Exception {
        return new Run("", LOGIN, file("script.sql", text).toString());
    }

    /** A file with this text, in the folder that goes with the run. */
    private static Path file(String name, String text) throws IOException {
        Path file = Paths.get(System.getenv("OCI8_DATA"), name);
        return Files.write(file, text.getBytes(StandardCharsets.UTF_8));
    }

    /** A console in a JVM of its own, with this one's class path and library. */
    private static final class Run {
        final String output;
        final int exitCode;

        Run(String input, String... arguments) throws IOException, InterruptedException {
            this("", ":", input, arguments);
        }

        /** @param before what the shell does before it becomes the console */
        Run(String terminals, String before, String input, String[] arguments)
                throws IOException, InterruptedException {
            List<String> command = new ArrayList<>(Arrays.asList(
                    "sh", "-c", before + "; exec \"$@\"", "sh",
                    System.getProperty("java.home") + "/bin/java", "-Xcheck:jni",
                    "-cp", System.getProperty("java.class.path"),
                    "-Doralayer.sample.login=" + LOGIN, "-Doralayer.terminals=" + terminals));
            for (String property : new String[] {"java.library.path", "oralayer.sample"}) {
                command.add("-D" + property + "=" + System.getProperty(property));
            }
            command.add(Console.class.getName());
            command.addAll(Arrays.asList(arguments));
            Process process = new ProcessBuilder(command).redirectErrorStream(true).start();
            process.getOutputStream().write(input.getBytes(StandardCharsets.UTF_8));
            process.getOutputStream().close();
            Scanner all = new Scanner(process.getInputStream(), "UTF-8").useDelimiter("\\A");
            output = all.hasNext() ? all.next() : "";
            exitCode = process.waitFor();
            // What the checker of JNI calls says there must be seen here as well.
            Arrays.stream(output.split("\n")).filter(l -> l.contains("native method"))
                    .forEach(System.out::println);
        }

        void ends(int code, String... parts) {
            same(code, exitCode, output);
            for (String part : parts) {
                yes(output.contains(part), "<" + part + "> is missing in:\n" + output);
            }
        }
    }
}
