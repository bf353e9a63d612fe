package bench;

import java.io.IOException;
import java.io.InputStream;
import java.io.OutputStream;
import java.lang.management.ManagementFactory;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.concurrent.CyclicBarrier;
import trevalon.db.oci.OciConnection;
import trevalon.db.oci.OciLob;
import trevalon.db.oci.OciStatement;

/** How the cost of one unit of work grows with size: one curve for each thing that can be large. */
final class Growth {
    private static final int REPEATS = 5;
    private static final boolean BUSY = Boolean.getBoolean("bench.busy");
    private static final long MEGABYTE = 1L << 20;

    private final Path data;
    private final boolean quick;
    private final Chart chart = new Chart(BUSY ? "processor time of a busy machine" : "medians");

    private Growth(Path data, boolean quick) {
        this.data = data;
        this.quick = quick;
    }

    /** Arguments: data folder, "quick" or "full", the file to draw. */
    public static void main(String[] arguments) throws Exception {
        Growth growth = new Growth(Path.of(arguments[0]), arguments[1].equals("quick"));
        growth.rows();
        growth.columns();
        growth.valueLength();
        growth.pieceLength();
        growth.sessions();
        growth.lobSize();
        // Small sizes prove the program and are no picture of anything.
        Path file = growth.quick ? growth.data.resolve("growth.svg") : Path.of(arguments[2]);
        growth.chart.write(file);
        System.out.println("drawn: " + file);
    }

    private interface Work {
        void run() throws Exception;
    }

    /** Nanoseconds of one run, the median of several; the first one does not count. */
    private static double time(Work work) throws Exception {
        long[] nanos = new long[REPEATS];
        for (int i = -1; i < REPEATS; i++) {
            long start = now();
            work.run();
            if (i >= 0) {
                nanos[i] = now() - start;
            }
        }
        Arrays.sort(nanos);
        return nanos[REPEATS / 2];
    }

    private String database(String name) throws Exception {
        Path file = data.resolve("growth-" + name + ".db");
        for (String tail : List.of("", "-wal", "-shm")) {
            Files.deleteIfExists(Path.of(file + tail));
        }
        Ours.createDatabase(file.toString());
        return file.toString();
    }

    private static OciConnection open(String file) throws Exception {
        return OciConnection.open("/", "", file);
    }

    private static void delete(String file) throws IOException {
        Files.deleteIfExists(Path.of(file));
    }

    // --- Rows ------------------------------------------------------------------------------------

    private void rows() throws Exception {
        int most = quick ? 10_000 : 10_000_000;
        String file = database("rows");
        Chart.Curve curve = chart.curve("rows of a result", "ns a row, 2 columns", "row");
        try (OciConnection connection = open(file);
                OciStatement statement = connection.createStatement()) {
            statement.execute("create table t (id number(9), name varchar2(20))");
            statement.prepare("insert into t values (:1, :2)");
            for (int i = 0; i < most; i++) {
                statement.setInt(1, i);
                statement.setString(2, "abcdefghijklmnopqrst");
                statement.execute();
            }
            connection.commit();
            scan(connection, most);
            for (int n = 1000; n <= most; n *= 10) {
                int rows = n;
                // Small results again and again, so that each point is of some length.
                int times = Math.max(1, 100_000 / n);
                double nanos =
                        time(
                                () -> {
                                    for (int i = 0; i < times; i++) {
                                        scan(connection, rows);
                                    }
                                });
                curve.point(n, nanos / times / n);
            }
        }
        delete(file);
    }

    private static void scan(OciConnection connection, int rows) throws Exception {
        try (OciStatement query = connection.createStatement()) {
            query.setFetchSize(1000);
            query.prepare("select id, name from t where rownum <= :1");
            query.setInt(1, rows);
            query.execute();
            int seen = 0;
            while (query.next()) {
                seen += query.getInt(1) >= 0 && query.getString(2).length() == 20 ? 1 : 0;
            }
            expect(rows, seen);
        }
    }

    private static void expect(long wanted, long seen) {
        if (wanted != seen) {
            throw new IllegalStateException(seen + " and not " + wanted);
        }
    }

    // --- Columns ---------------------------------------------------------------------------------

    private void columns() throws Exception {
        int most = 250;
        int rows = quick ? 100 : 2000;
        String file = database("columns");
        Chart.Curve curve = chart.curve("columns of a row", "ns a value", "value");
        try (OciConnection connection = open(file);
                OciStatement statement = connection.createStatement()) {
            List<String> names = new ArrayList<>();
            List<String> values = new ArrayList<>();
            for (int i = 1; i <= most; i++) {
                names.add("c" + i);
                values.add(":1");
            }
            statement.execute(
                    "create table t (" + String.join(" number(9), ", names) + " number(9))");
            statement.prepare(
                    "insert into t values (" + String.join(", ", values).replace(":1", "12345")
                            + ")");
            for (int i = 0; i < rows; i++) {
                statement.execute();
            }
            connection.commit();
            for (int n : new int[] {1, 2, 5, 10, 25, 50, 100, 250}) {
                String sql = "select " + String.join(", ", names.subList(0, n)) + " from t";
                curve.point(n, time(() -> readAll(connection, sql, n, rows)) / n / rows);
            }
        }
        delete(file);
    }

    private static void readAll(OciConnection connection, String sql, int columns, int rows)
            throws Exception {
        try (OciStatement query = connection.createStatement()) {
            query.prepare(sql);
            query.execute();
            int seen = 0;
            while (query.next()) {
                for (int i = 1; i <= columns; i++) {
                    seen += query.getInt(i) == 12345 ? 1 : 0;
                }
            }
            expect((long) rows * columns, seen);
        }
    }

    // --- Length of values ------------------------------------------------------------------------

    private void valueLength() throws Exception {
        long most = quick ? 1_000_000 : 1_000_000_000;
        Chart.Curve in = chart.curve("bytes of a LONG RAW, inserted", "ns a byte", "byte");
        Chart.Curve out = chart.curve("bytes of a LONG RAW, read", "ns a byte", "byte");
        for (long n = 1; n <= most; n *= 10) {
            String file = database("length");
            long length = n;
            int times = (int) Math.max(1, Math.min(1000, 1_000_000 / n));
            try (OciConnection connection = open(file);
                    OciStatement statement = connection.createStatement()) {
                statement.execute("create table t (id number(9), v long raw)");
                in.point(
                        n, once(() -> insert(connection, length, times)) / times / n);
                Work read = () -> expect(length * times, readLong(connection, 32 * 1024));
                out.point(n, time(read) / times / n);
            }
            delete(file);
        }
    }

    private static double once(Work work) throws Exception {
        long start = now();
        work.run();
        return now() - start;
    }

    /** On a busy machine the time that this thread has had of it. */
    private static long now() {
        return BUSY
                ? ManagementFactory.getThreadMXBean().getCurrentThreadCpuTime()
                : System.nanoTime();
    }

    private static void insert(OciConnection connection, long length, int times) throws Exception {
        try (OciStatement statement = connection.createStatement()) {
            statement.prepare("insert into t values (:1, :2)");
            for (int i = 0; i < times; i++) {
                statement.setInt(1, i);
                statement.setBinaryStream(2, new Same(length));
                statement.execute();
            }
        }
        connection.commit();
    }

    private static long readLong(OciConnection connection, int piece) throws Exception {
        byte[] buffer = new byte[piece];
        long seen = 0;
        try (OciStatement query = connection.createStatement(piece)) {
            query.execute("select v from t");
            while (query.next()) {
                InputStream in = query.longStream(1);
                for (int n = in.read(buffer); n > 0; n = in.read(buffer)) {
                    seen += n;
                }
            }
        }
        return seen;
    }

    /** A stream of so many bytes that costs nothing. */
    private static final class Same extends InputStream {
        private long left;

        Same(long length) {
            left = length;
        }

        @Override
        public int read() {
            return left-- > 0 ? 'x' : -1;
        }

        @Override
        public int read(byte[] buffer, int offset, int length) {
            int count = (int) Math.min(left, length);
            left -= count;
            return count == 0 ? -1 : count;
        }
    }

    private void pieceLength() throws Exception {
        long length = quick ? 1_000_000 : 50_000_000;
        String file = database("piece");
        Chart.Curve curve = chart.curve("bytes of a piece, LONG RAW of 50 MB", "ns a byte", "byte");
        try (OciConnection connection = open(file);
                OciStatement statement = connection.createStatement()) {
            statement.execute("create table t (id number(9), v long raw)");
            insert(connection, length, 1);
            for (int n = 512; n <= MEGABYTE; n *= 2) {
                int piece = n;
                curve.point(n, time(() -> expect(length, readLong(connection, piece))) / length);
            }
        }
        delete(file);
    }

    // --- Sessions --------------------------------------------------------------------------------

    private void sessions() throws Exception {
        int each = quick ? 200 : 10_000;
        String file = database("sessions");
        try (OciConnection connection = open(file);
                OciStatement statement = connection.createStatement()) {
            statement.execute("create table t (id number(9) primary key, name varchar2(20))");
            statement.prepare("insert into t values (:1, 'abcdefghijklmnopqrst')");
            for (int i = 0; i < 1000; i++) {
                statement.setInt(1, i);
                statement.execute();
            }
            connection.commit();
        }
        Chart.Curve curve =
                chart.curve("sessions, each on a thread", "ns of the machine a query", "query");
        for (int n = 1; n <= 64; n *= 2) {
            curve.point(n, together(file, n, each) / n / each);
        }
        delete(file);
    }

    private static double together(String file, int sessions, int each) throws Exception {
        CyclicBarrier start = new CyclicBarrier(sessions + 1);
        CyclicBarrier end = new CyclicBarrier(sessions + 1);
        List<Exception> failures = new ArrayList<>();
        for (int i = 0; i < sessions; i++) {
            new Thread(
                            () -> {
                                try (OciConnection connection = open(file);
                                        OciStatement query = connection.createStatement()) {
                                    query.prepare("select name from t where id = :1");
                                    look(query, each / 10);
                                    start.await();
                                    look(query, each);
                                    end.await();
                                } catch (Exception e) {
                                    synchronized (failures) {
                                        failures.add(e);
                                    }
                                    start.reset();
                                    end.reset();
                                }
                            })
                    .start();
        }
        start.await();
        // Always by the clock: the work is done by other threads.
        long begin = System.nanoTime();
        end.await();
        double nanos = System.nanoTime() - begin;
        if (!failures.isEmpty()) {
            throw failures.get(0);
        }
        return nanos;
    }

    private static void look(OciStatement query, int times) throws Exception {
        for (int i = 0; i < times; i++) {
            query.setInt(1, i % 1000);
            query.execute();
            query.next();
            expect(20, query.getString(1).length());
        }
    }

    // --- LOBs ------------------------------------------------------------------------------------

    private void lobSize() throws Exception {
        long most = quick ? 4 * MEGABYTE : 1024 * MEGABYTE;
        int reads = quick ? 50 : 2000;
        Chart.Curve curve =
                chart.curve("bytes of a BLOB, 32 KB read at random", "ns a read", "read");
        for (long n = MEGABYTE; n <= most; n *= 4) {
            String file = database("lob");
            try (OciConnection connection = open(file);
                    OciStatement statement = connection.createStatement()) {
                statement.execute("create table t (v blob)");
                statement.execute("insert into t values (empty_blob())");
                long size = n;
                withLob(connection, " for update", lob -> fill(lob, size));
                connection.commit();
                withLob(
                        connection,
                        "",
                        lob -> curve.point(size, time(() -> readAround(lob, size, reads)) / reads));
            }
            delete(file);
        }
    }

    private interface LobWork {
        void run(OciLob lob) throws Exception;
    }

    private static void withLob(OciConnection connection, String mode, LobWork work)
            throws Exception {
        try (OciStatement query = connection.createStatement()) {
            query.execute("select v from t" + mode);
            query.next();
            try (OciLob lob = query.getLob(1)) {
                work.run(lob);
            }
        }
    }

    private static void fill(OciLob lob, long size) throws Exception {
        byte[] part = new byte[(int) MEGABYTE];
        try (OutputStream out = lob.outputStream(0)) {
            for (long at = 0; at < size; at += part.length) {
                out.write(part);
            }
        }
    }

    private static void readAround(OciLob lob, long size, int reads) throws Exception {
        byte[] buffer = new byte[Workload.PIECE];
        for (int i = 0; i < reads; i++) {
            long at = Math.floorMod(Rows.mix(i), size - buffer.length);
            expect(buffer.length, lob.read(at, buffer, 0, buffer.length));
        }
    }
}
