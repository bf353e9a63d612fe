package bench;

import java.io.ByteArrayInputStream;
import java.io.InputStream;
import java.io.OutputStream;
import java.io.Writer;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.LocalDateTime;
import java.time.ZoneOffset;
import trevalon.db.oci.OciConnection;
import trevalon.db.oci.OciLob;
import trevalon.db.oci.OciStatement;

/** Through trevalon.db.oci and the two libraries. */
final class Ours implements Contender {
    private static final int ARRAY = 1000;

    private String file;
    private OciConnection connection;
    private final byte[] bytes = new byte[Workload.PIECE];
    private final char[] chars = new char[Workload.PIECE];

    @Override
    public void make(String newFile, String content, int count, int length) throws Exception {
        createDatabase(newFile);
        open(newFile);
        try (OciStatement statement = connection.createStatement()) {
            switch (content) {
                case "six" -> {
                    statement.execute(
                            "create table t (id number(9) primary key, name varchar2(20),"
                                    + " amount number(10,2), made date, code raw(16),"
                                    + " note varchar2(40))");
                    insertSix(statement, count);
                }
                case "three" -> {
                    statement.execute(
                            "create table t (a varchar2(200), b varchar2(200), c varchar2(200))");
                    insertThree(statement, count, length);
                }
                case "five" -> statement.execute(
                        "create table t (id number(9), name varchar2(20), amount number(10,2),"
                                + " made date, code raw(16))");
                case "rawin" -> statement.execute("create table t (id number(9), v long raw)");
                case "raw" -> {
                    statement.execute("create table t (id number(9), v long raw)");
                    insertRaw(statement, count, length);
                }
                case "blob", "clob" -> {
                    statement.execute("create table t (id number(9), v " + content + ")");
                    insertLobs(statement, content, count, length);
                }
                default -> throw new IllegalArgumentException(content);
            }
        }
        connection.commit();
    }

    /** With an account that the operating system vouches for: it logs in without a password's hash. */
    static void createDatabase(String file) throws Exception {
        command("create", file);
        command("add-user", file, "OPS$" + System.getProperty("user.name") + "/");
    }

    private static void command(String verb, String file, String... more) throws Exception {
        String[] line = new String[3 + more.length];
        line[0] = System.getProperty("bench.oci8db");
        line[1] = verb;
        line[2] = file;
        System.arraycopy(more, 0, line, 3, more.length);
        Process process = new ProcessBuilder(line).redirectErrorStream(true).start();
        String said = new String(process.getInputStream().readAllBytes());
        if (process.waitFor() != 0) {
            throw new IllegalStateException(said);
        }
    }

    private static void insertSix(OciStatement statement, int count) throws Exception {
        statement.prepare("insert into t values (:1, :2, :3, :4, :5, :6)");
        for (int i = 1; i <= count; i++) {
            statement.setInt(1, i);
            statement.setString(2, Rows.text(i, 20));
            statement.setDouble(3, Rows.amount(i));
            statement.setDateTime(4, date(i));
            statement.setBytes(5, Rows.raw(i, 16));
            statement.setString(6, Rows.note(i));
            statement.execute();
        }
    }

    private static LocalDateTime date(long number) {
        return LocalDateTime.ofEpochSecond(Rows.second(number), 0, ZoneOffset.UTC);
    }

    private static void insertThree(OciStatement statement, int count, int length)
            throws Exception {
        statement.prepare("insert into t values (:1, :2, :3)");
        for (int i = 1; i <= count; i++) {
            for (int k = 0; k < 3; k++) {
                statement.setString(k + 1, Rows.text(3L * i + k, length));
            }
            statement.execute();
        }
    }

    private static void insertRaw(OciStatement statement, int count, int length) throws Exception {
        statement.prepare("insert into t values (:1, :2)");
        byte[] value = new byte[length];
        for (int i = 1; i <= count; i++) {
            Rows.fill(value, i);
            statement.setInt(1, i);
            statement.setBinaryStream(2, new ByteArrayInputStream(value));
            statement.execute();
        }
    }

    private void insertLobs(OciStatement statement, String content, int count, int length)
            throws Exception {
        statement.prepare("insert into t values (:1, empty_" + content + "())");
        for (int i = 1; i <= count; i++) {
            statement.setInt(1, i);
            statement.execute();
        }
        byte[] value = new byte[length];
        try (OciStatement query = connection.createStatement()) {
            query.prepare("select id, v from t order by id for update");
            query.execute();
            while (query.next()) {
                int id = query.getInt(1);
                try (OciLob lob = query.getLob(2)) {
                    if (lob.isCharacter()) {
                        try (Writer out = lob.writer(0)) {
                            out.write(Rows.text(id, length));
                        }
                    } else {
                        Rows.fill(value, id);
                        try (OutputStream out = lob.outputStream(0)) {
                            out.write(value);
                        }
                    }
                }
            }
        }
    }

    @Override
    public void open(String existing) throws Exception {
        file = existing;
        connection = OciConnection.open("/", "", file);
    }

    @Override
    public void prepare(String workload) throws Exception {
        if (workload.equals("W4") || workload.equals("W5")) {
            try (OciStatement statement = connection.createStatement()) {
                statement.execute("delete from t");
            }
            connection.commit();
        } else if (workload.equals("W7") && connection != null) {
            connection.close();
            connection = null;
        }
    }

    @Override
    public void run(String workload, int count, int length, Sink sink) throws Exception {
        switch (workload) {
            case "W1" -> scanSix(sink);
            case "W2" -> scanThree(sink);
            case "W3a" -> readRaw(sink);
            case "W3b", "W3c" -> readLobs(sink);
            case "W4" -> insertFive(count);
            case "W5" -> insertStreams(count, length);
            case "W6a" -> prepareEach(count, sink);
            case "W6b" -> prepareOnce(count, sink);
            case "W7" -> logIn(count, sink);
            default -> throw new IllegalArgumentException(workload);
        }
    }

    private void scanSix(Sink sink) throws Exception {
        try (OciStatement query = connection.createStatement()) {
            query.setFetchSize(ARRAY);
            query.prepare("select id, name, amount, made, code, note from t");
            query.execute();
            while (query.next()) {
                sink.number(query.getInt(1));
                sink.text(query.getString(2));
                sink.number(query.getDouble(3));
                sink.number(query.getDateTime(4).toEpochSecond(ZoneOffset.UTC));
                sink.bytes(query.getBytes(5));
                sink.text(query.getString(6));
            }
        }
    }

    private void scanThree(Sink sink) throws Exception {
        try (OciStatement query = connection.createStatement()) {
            query.setFetchSize(ARRAY);
            query.prepare("select a, b, c from t");
            query.execute();
            while (query.next()) {
                sink.text(query.getString(1));
                sink.text(query.getString(2));
                sink.text(query.getString(3));
            }
        }
    }

    private void readRaw(Sink sink) throws Exception {
        try (OciStatement query = connection.createStatement(Workload.PIECE)) {
            query.prepare("select v from t");
            query.execute();
            while (query.next()) {
                InputStream in = query.longStream(1);
                for (int n = in.read(bytes); n > 0; n = in.read(bytes)) {
                    sink.piece(bytes, n);
                }
                sink.endOfPieces();
            }
        }
    }

    private void readLobs(Sink sink) throws Exception {
        try (OciStatement query = connection.createStatement()) {
            query.prepare("select v from t");
            query.execute();
            while (query.next()) {
                try (OciLob lob = query.getLob(1)) {
                    readLob(lob, sink);
                }
            }
        }
    }

    private void readLob(OciLob lob, Sink sink) throws Exception {
        long position = 0;
        if (lob.isCharacter()) {
            for (int n; (n = lob.read(position, chars, 0, chars.length)) > 0; position += n) {
                sink.piece(chars, n);
            }
        } else {
            for (int n; (n = lob.read(position, bytes, 0, bytes.length)) > 0; position += n) {
                sink.piece(bytes, n);
            }
        }
        sink.endOfPieces();
    }

    private void insertFive(int count) throws Exception {
        String[] names = new String[Rows.CYCLE];
        double[] amounts = new double[Rows.CYCLE];
        LocalDateTime[] dates = new LocalDateTime[Rows.CYCLE];
        byte[][] codes = new byte[Rows.CYCLE][];
        for (int i = 0; i < Rows.CYCLE; i++) {
            names[i] = Rows.text(i, 20);
            amounts[i] = Rows.amount(i);
            dates[i] = date(i);
            codes[i] = Rows.raw(i, 16);
        }
        try (OciStatement insert = connection.createStatement()) {
            insert.prepare("insert into t values (:1, :2, :3, :4, :5)");
            for (int i = 0; i < count; i++) {
                int k = i % Rows.CYCLE;
                insert.setInt(1, i);
                insert.setString(2, names[k]);
                insert.setDouble(3, amounts[k]);
                insert.setDateTime(4, dates[k]);
                insert.setBytes(5, codes[k]);
                insert.execute();
            }
        }
        connection.commit();
    }

    private void insertStreams(int count, int length) throws Exception {
        byte[] value = Rows.raw(1, length);
        try (OciStatement insert = connection.createStatement()) {
            insert.prepare("insert into t values (:1, :2)");
            for (int i = 0; i < count; i++) {
                value[0] = (byte) i;
                insert.setInt(1, i);
                insert.setBinaryStream(2, new ByteArrayInputStream(value));
                insert.execute();
            }
        }
        connection.commit();
    }

    private static final String BY_KEY = "select name, amount, note from t where id = :1";

    private void prepareEach(int count, Sink sink) throws Exception {
        int rows = Workload.keys(count);
        for (int i = 0; i < count; i++) {
            try (OciStatement query = connection.createStatement()) {
                query.prepare(BY_KEY);
                oneByKey(query, Rows.key(i, rows), sink);
            }
        }
    }

    private void prepareOnce(int count, Sink sink) throws Exception {
        int rows = Workload.keys(count);
        try (OciStatement query = connection.createStatement()) {
            query.prepare(BY_KEY);
            for (int i = 0; i < count; i++) {
                oneByKey(query, Rows.key(i, rows), sink);
            }
        }
    }

    private static void oneByKey(OciStatement query, int key, Sink sink) throws Exception {
        query.setInt(1, key);
        query.execute();
        query.next();
        sink.text(query.getString(1));
        sink.number(query.getDouble(2));
        sink.text(query.getString(3));
    }

    private void logIn(int count, Sink sink) throws Exception {
        for (int i = 0; i < count; i++) {
            try (OciConnection session = OciConnection.open("/", "", file);
                    OciStatement query = session.createStatement()) {
                query.execute("select name from t");
                query.next();
                sink.text(query.getString(1));
            }
        }
    }

    @Override
    public void readBack(String workload, Sink sink) throws Exception {
        if (workload.equals("W5")) {
            readRaw(sink);
        } else if (workload.equals("W4")) {
            try (OciStatement query = connection.createStatement()) {
                query.execute("select id, name, amount, made, code from t");
                while (query.next()) {
                    sink.number(query.getInt(1));
                    sink.text(query.getString(2));
                    sink.number(query.getDouble(3));
                    sink.number(query.getDateTime(4).toEpochSecond(ZoneOffset.UTC));
                    sink.bytes(query.getBytes(5));
                }
            }
        }
    }

    /** The interface gives no access to them: a tool beside it opens the file as the library does. */
    @Override
    public String settings() throws Exception {
        Path tool = Path.of(System.getProperty("bench.settings"));
        Process process = new ProcessBuilder(tool.toString(), file).start();
        String said = new String(process.getInputStream().readAllBytes()).trim();
        if (process.waitFor() != 0 || !Files.exists(Path.of(file))) {
            throw new IllegalStateException("settings of " + file);
        }
        return said;
    }

    @Override
    public void close() throws Exception {
        if (connection != null) {
            connection.close();
        }
    }
}
