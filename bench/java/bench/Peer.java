package bench;

import java.io.ByteArrayInputStream;
import java.io.InputStream;
import java.io.Reader;
import java.sql.Connection;
import java.sql.DriverManager;
import java.sql.PreparedStatement;
import java.sql.ResultSet;
import java.sql.Statement;
import java.sql.Timestamp;
import java.util.Map;
import java.util.Properties;

/**
 * What people would pick instead for an embedded database: SQLite's JDBC driver. Each value has the
 * type that this driver handles best: REAL for amounts, INTEGER milliseconds for dates, BLOB, TEXT.
 */
final class Peer implements Contender {
    private static final int ARRAY = 1000;

    private final Map<String, String> wanted;
    private String file;
    private Connection connection;
    private final byte[] bytes = new byte[Workload.PIECE];
    private final char[] chars = new char[Workload.PIECE];

    /**
     * @param wanted the engine's settings that ours has
     */
    Peer(Map<String, String> wanted) {
        this.wanted = wanted;
    }

    @Override
    public void make(String newFile, String content, int count, int length) throws Exception {
        open(newFile);
        try (Statement statement = connection.createStatement()) {
            // Kept in the file.
            connection.commit();
            connection.setAutoCommit(true);
            statement.execute("pragma journal_mode = " + wanted.get("journal_mode"));
            connection.setAutoCommit(false);
            statement.execute(
                    switch (content) {
                        case "six" -> "create table t (id int primary key, name text,"
                                + " amount real, made integer, code blob, note text)";
                        case "three" -> "create table t (a text, b text, c text)";
                        case "five" -> "create table t (id integer, name text, amount real,"
                                + " made integer, code blob)";
                        case "raw", "rawin", "blob" -> "create table t (id integer, v blob)";
                        case "clob" -> "create table t (id integer, v text)";
                        default -> throw new IllegalArgumentException(content);
                    });
        }
        connection.commit();
        switch (content) {
            case "six" -> insertSix(count);
            case "three" -> insertThree(count, length);
            case "raw", "blob", "clob" -> insertLarge(content, count, length);
            default -> {
                // Stays empty.
            }
        }
        connection.commit();
    }

    private void insertSix(int count) throws Exception {
        try (PreparedStatement insert =
                connection.prepareStatement("insert into t values (?, ?, ?, ?, ?, ?)")) {
            for (int i = 1; i <= count; i++) {
                insert.setInt(1, i);
                insert.setString(2, Rows.text(i, 20));
                insert.setDouble(3, Rows.amount(i));
                insert.setTimestamp(4, date(i));
                insert.setBytes(5, Rows.raw(i, 16));
                insert.setString(6, Rows.note(i));
                insert.executeUpdate();
            }
        }
    }

    private static Timestamp date(long number) {
        return new Timestamp(Rows.second(number) * 1000);
    }

    private void insertThree(int count, int length) throws Exception {
        try (PreparedStatement insert =
                connection.prepareStatement("insert into t values (?, ?, ?)")) {
            for (int i = 1; i <= count; i++) {
                for (int k = 0; k < 3; k++) {
                    insert.setString(k + 1, Rows.text(3L * i + k, length));
                }
                insert.executeUpdate();
            }
        }
    }

    private void insertLarge(String content, int count, int length) throws Exception {
        try (PreparedStatement insert = connection.prepareStatement("insert into t values (?, ?)")) {
            for (int i = 1; i <= count; i++) {
                insert.setInt(1, i);
                if (content.equals("clob")) {
                    insert.setString(2, Rows.text(i, length));
                } else {
                    insert.setBytes(2, Rows.raw(i, length));
                }
                insert.executeUpdate();
            }
        }
    }

    @Override
    public void open(String existing) throws Exception {
        file = existing;
        connection = connect();
        connection.setAutoCommit(false);
    }

    private Connection connect() throws Exception {
        Properties properties = new Properties();
        for (Map.Entry<String, String> setting : wanted.entrySet()) {
            // A login sets only what would be different without it.
            if (!setting.getValue().equals(Settings.DEFAULTS.get(setting.getKey()))) {
                properties.put(setting.getKey(), setting.getValue());
            }
        }
        properties.remove("journal_mode");
        return DriverManager.getConnection("jdbc:sqlite:" + file, properties);
    }

    @Override
    public void prepare(String workload) throws Exception {
        boolean inserts = workload.equals("W4") || workload.equals("W5");
        if (connection != null) {
            // Queries outside of a transaction, as ours are: each sees what is committed by then.
            connection.setAutoCommit(!inserts);
        }
        if (inserts) {
            try (Statement statement = connection.createStatement()) {
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
            case "W3a", "W3b" -> readBytes(sink);
            case "W3c" -> readText(sink);
            case "W4" -> insertFive(count);
            case "W5" -> insertStreams(count, length);
            case "W6a" -> prepareEach(count, sink);
            case "W6b" -> prepareOnce(count, sink);
            case "W7" -> logIn(count, sink);
            default -> throw new IllegalArgumentException(workload);
        }
    }

    private void scanSix(Sink sink) throws Exception {
        try (PreparedStatement query =
                connection.prepareStatement("select id, name, amount, made, code, note from t")) {
            query.setFetchSize(ARRAY);
            try (ResultSet rows = query.executeQuery()) {
                while (rows.next()) {
                    sink.number(rows.getInt(1));
                    sink.text(rows.getString(2));
                    sink.number(rows.getDouble(3));
                    sink.number(rows.getTimestamp(4).getTime() / 1000);
                    sink.bytes(rows.getBytes(5));
                    sink.text(rows.getString(6));
                }
            }
        }
    }

    private void scanThree(Sink sink) throws Exception {
        try (PreparedStatement query = connection.prepareStatement("select a, b, c from t")) {
            query.setFetchSize(ARRAY);
            try (ResultSet rows = query.executeQuery()) {
                while (rows.next()) {
                    sink.text(rows.getString(1));
                    sink.text(rows.getString(2));
                    sink.text(rows.getString(3));
                }
            }
        }
    }

    /** This driver has no getBlob; its stream stands on an array of the whole value. */
    private void readBytes(Sink sink) throws Exception {
        try (PreparedStatement query = connection.prepareStatement("select v from t");
                ResultSet rows = query.executeQuery()) {
            while (rows.next()) {
                InputStream in = rows.getBinaryStream(1);
                for (int n = in.read(bytes); n > 0; n = in.read(bytes)) {
                    sink.piece(bytes, n);
                }
                sink.endOfPieces();
            }
        }
    }

    private void readText(Sink sink) throws Exception {
        try (PreparedStatement query = connection.prepareStatement("select v from t");
                ResultSet rows = query.executeQuery()) {
            while (rows.next()) {
                Reader in = rows.getCharacterStream(1);
                for (int n = in.read(chars); n > 0; n = in.read(chars)) {
                    sink.piece(chars, n);
                }
                sink.endOfPieces();
            }
        }
    }

    /** One by one: batches of this driver were not faster. */
    private void insertFive(int count) throws Exception {
        String[] names = new String[Rows.CYCLE];
        double[] amounts = new double[Rows.CYCLE];
        Timestamp[] dates = new Timestamp[Rows.CYCLE];
        byte[][] codes = new byte[Rows.CYCLE][];
        for (int i = 0; i < Rows.CYCLE; i++) {
            names[i] = Rows.text(i, 20);
            amounts[i] = Rows.amount(i);
            dates[i] = date(i);
            codes[i] = Rows.raw(i, 16);
        }
        boolean batch = Boolean.getBoolean("bench.batch");
        try (PreparedStatement insert =
                connection.prepareStatement("insert into t values (?, ?, ?, ?, ?)")) {
            for (int i = 0; i < count; i++) {
                int k = i % Rows.CYCLE;
                insert.setInt(1, i);
                insert.setString(2, names[k]);
                insert.setDouble(3, amounts[k]);
                insert.setTimestamp(4, dates[k]);
                insert.setBytes(5, codes[k]);
                if (!batch) {
                    insert.executeUpdate();
                    continue;
                }
                insert.addBatch();
                if (k == Rows.CYCLE - 1) {
                    insert.executeBatch();
                }
            }
        }
        connection.commit();
    }

    private void insertStreams(int count, int length) throws Exception {
        byte[] value = Rows.raw(1, length);
        try (PreparedStatement insert = connection.prepareStatement("insert into t values (?, ?)")) {
            for (int i = 0; i < count; i++) {
                value[0] = (byte) i;
                insert.setInt(1, i);
                insert.setBinaryStream(2, new ByteArrayInputStream(value), length);
                insert.executeUpdate();
            }
        }
        connection.commit();
    }

    private static final String BY_KEY = "select name, amount, note from t where id = ?";

    private void prepareEach(int count, Sink sink) throws Exception {
        int rows = Workload.keys(count);
        for (int i = 0; i < count; i++) {
            try (PreparedStatement query = connection.prepareStatement(BY_KEY)) {
                oneByKey(query, Rows.key(i, rows), sink);
            }
        }
    }

    private void prepareOnce(int count, Sink sink) throws Exception {
        int rows = Workload.keys(count);
        try (PreparedStatement query = connection.prepareStatement(BY_KEY)) {
            for (int i = 0; i < count; i++) {
                oneByKey(query, Rows.key(i, rows), sink);
            }
        }
    }

    private static void oneByKey(PreparedStatement query, int key, Sink sink) throws Exception {
        query.setInt(1, key);
        try (ResultSet row = query.executeQuery()) {
            row.next();
            sink.text(row.getString(1));
            sink.number(row.getDouble(2));
            sink.text(row.getString(3));
        }
    }

    private void logIn(int count, Sink sink) throws Exception {
        for (int i = 0; i < count; i++) {
            try (Connection session = connect();
                    Statement query = session.createStatement();
                    ResultSet row = query.executeQuery("select name from t")) {
                row.next();
                sink.text(row.getString(1));
            }
        }
    }

    @Override
    public void readBack(String workload, Sink sink) throws Exception {
        if (workload.equals("W5")) {
            readBytes(sink);
        } else if (workload.equals("W4")) {
            try (Statement query = connection.createStatement();
                    ResultSet rows = query.executeQuery("select id, name, amount, made, code from t")) {
                while (rows.next()) {
                    sink.number(rows.getInt(1));
                    sink.text(rows.getString(2));
                    sink.number(rows.getDouble(3));
                    sink.number(rows.getTimestamp(4).getTime() / 1000);
                    sink.bytes(rows.getBytes(5));
                }
            }
        }
    }

    @Override
    public String settings() throws Exception {
        StringBuilder said = new StringBuilder();
        try (Connection session = connect();
                Statement query = session.createStatement()) {
            for (String name : Settings.NAMES) {
                try (ResultSet row = query.executeQuery("pragma " + name)) {
                    row.next();
                    said.append(name).append('=').append(row.getString(1)).append(' ');
                }
            }
        }
        return said.toString().trim();
    }

    @Override
    public void close() throws Exception {
        if (connection != null) {
            connection.close();
        }
    }
}
