package bench;

import java.io.BufferedReader;
import java.io.IOException;
import java.io.InputStreamReader;
import java.lang.management.ManagementFactory;
import java.nio.file.Files;
import java.nio.file.Path;

/**
 * One contender in a process of its own: takes a command a line, answers with a line that begins
 * with "=" or "!". The C contender understands the same.
 *
 * <pre>
 * make FILE CONTENT ROWS LENGTH       settings
 * open FILE                           memory
 * prepare WORKLOAD                    quit
 * check|time WORKLOAD COUNT LENGTH
 * </pre>
 */
final class Worker {
    private final Contender contender;

    private Worker(Contender contender) {
        this.contender = contender;
    }

    public static void main(String[] arguments) throws Exception {
        Contender contender =
                arguments[0].equals("ours")
                        ? new Ours()
                        : new Peer(Settings.parse(arguments.length > 1 ? arguments[1] : ""));
        new Worker(contender).serve();
    }

    private void serve() throws Exception {
        BufferedReader in = new BufferedReader(new InputStreamReader(System.in));
        for (String line = in.readLine(); line != null; line = in.readLine()) {
            String[] words = line.split(" ");
            if (words[0].equals("quit")) {
                break;
            }
            String answer;
            try {
                answer = "=" + obey(words);
            } catch (Exception | LinkageError e) {
                answer = "!" + e.toString().replace('\n', ' ');
            }
            System.out.println(answer);
            System.out.flush();
        }
        contender.close();
    }

    private String obey(String[] words) throws Exception {
        switch (words[0]) {
            case "make":
                contender.make(words[1], words[2], number(words[3]), number(words[4]));
                return "";
            case "open":
                contender.open(words[1]);
                return "";
            case "prepare":
                contender.prepare(words[1]);
                return "";
            case "settings":
                return contender.settings();
            case "memory":
                return peakMemory();
            default:
                return run(words[0].equals("check"), words[1], number(words[2]), number(words[3]));
        }
    }

    private static int number(String word) {
        return Integer.parseInt(word);
    }

    private String run(boolean check, String workload, int count, int length) throws Exception {
        Sink sink = new Sink(check);
        long startCpu = processorTime();
        long start = System.nanoTime();
        contender.run(workload, count, length, sink);
        long nanos = System.nanoTime() - start;
        long cpu = processorTime() - startCpu;
        if (check) {
            contender.readBack(workload, sink);
        }
        return nanos + " " + sink.result() + " " + cpu + " " + (sink.touched() & 1);
    }

    /** Of this thread, with what the system did for it, in nanoseconds. */
    private static long processorTime() {
        return ManagementFactory.getThreadMXBean().getCurrentThreadCpuTime();
    }

    /** KB. */
    static String peakMemory() throws IOException {
        for (String line : Files.readAllLines(Path.of("/proc/self/status"))) {
            if (line.startsWith("VmHWM:")) {
                return line.replaceAll("\\D", "");
            }
        }
        return "0";
    }
}
