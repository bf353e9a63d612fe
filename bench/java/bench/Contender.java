package bench;

/** One way from Java to the data. A file is one database, made by {@link #make}. */
interface Contender extends AutoCloseable {
    /** Creates the database with the tables and rows of a content; see {@link Workload}. */
    void make(String file, String content, int count, int length) throws Exception;

    /** Opens what {@link #make} has made; not for workloads that log in themselves. */
    void open(String file) throws Exception;

    /** Back to the state that the workload starts from: no rows for one that inserts. */
    void prepare(String workload) throws Exception;

    /** Runs the workload once. */
    void run(String workload, int count, int length, Sink sink) throws Exception;

    /** Reads what the workload has stored; nothing for those that only read. */
    void readBack(String workload, Sink sink) throws Exception;

    /** The settings of the engine behind it, as this contender's connections have them. */
    String settings() throws Exception;

    @Override
    void close() throws Exception;
}
