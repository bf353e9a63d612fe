package bench;

import java.io.BufferedReader;
import java.io.IOException;
import java.io.InputStreamReader;
import java.io.PrintStream;
import java.io.PrintWriter;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.time.LocalDateTime;
import java.time.temporal.ChronoUnit;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;

/**
 * Runs the workloads in turns: ours, the peer, plain C, ours, the peer, ... Each contender has one
 * process per workload, so that its code is compiled when it counts and its memory is the
 * workload's own; the processes wait while another one runs.
 */
final class Compare {
    private static final List<String> CONTENDERS = List.of("ours", "peer", "floor");

    /** Rounds before the first that counts, at least; and for how long. */
    private static final int WARM_UP = 3;

    private static final long WARM_UP_NANOS = 4_000_000_000L;

    private final Path data;
    private final boolean quick;

    /** Counts processor time instead of time: on a machine that does other things as well. */
    private final boolean busy = Boolean.getBoolean("bench.busy");

    private final int rounds;
    private final PrintWriter log;

    private Compare(Path data, boolean quick, int rounds, PrintWriter log) {
        this.data = data;
        this.quick = quick;
        this.rounds = rounds;
        this.log = log;
    }

    /** Arguments: data folder, log file, rounds, "quick" or "full", workloads or none for all. */
    public static void main(String[] arguments) throws Exception {
        boolean quick = arguments[3].equals("quick");
        List<String> names =
                Arrays.asList(arguments).subList(4, arguments.length);
        try (PrintWriter log = new PrintWriter(arguments[1])) {
            Compare compare =
                    new Compare(
                            Path.of(arguments[0]), quick, Integer.parseInt(arguments[2]), log);
            boolean good = true;
            compare.heading();
            for (Workload workload : Workload.ALL) {
                if (names.isEmpty() || names.stream().anyMatch(workload.name()::startsWith)) {
                    good &= compare.row(workload);
                }
            }
            System.exit(good ? 0 : 1);
        }
    }

    private void say(String format, Object... values) {
        String line = String.format(format, values);
        System.out.println(line);
        log.println(line);
        log.flush();
    }

    private void heading() {
        say("%s, %s, medians of %d rounds of %s; x = that of the other / ours",
                LocalDateTime.now().truncatedTo(ChronoUnit.MINUTES), machine(), rounds,
                busy ? "the thread's processor time" : "time");
        say("%-4s %-35s %9s %9s %9s %7s %6s %5s %7s  %-20s",
                "", "", "ours ms", "peer ms", "C ms", "x peer", "spread", "aim", "x C",
                "MB ours/peer/C");
    }

    static String machine() {
        String cpu = "?";
        try {
            for (String line : Files.readAllLines(Path.of("/proc/cpuinfo"))) {
                if (line.startsWith("model name")) {
                    cpu = line.substring(line.indexOf(':') + 2);
                }
            }
        } catch (IOException e) {
            cpu = System.getProperty("os.arch");
        }
        return Runtime.getRuntime().availableProcessors() + " x " + cpu + ", Java "
                + System.getProperty("java.version");
    }

    private boolean row(Workload workload) throws Exception {
        List<Process> processes = new ArrayList<>();
        try {
            measure(workload, processes);
            return true;
        } catch (WorkerFailure e) {
            say("%-4s %-35s failed: %s", workload.name(), workload.title(), e.getMessage());
            return false;
        } finally {
            for (Process process : processes) {
                process.destroy();
                process.waitFor();
            }
        }
    }

    private void measure(Workload workload, List<Process> processes) throws Exception {
        String settings = "";
        List<Partner> partners = new ArrayList<>();
        for (String name : CONTENDERS) {
            Path file = make(name, workload, settings);
            Partner partner = new Partner(name, file, settings, processes);
            partner.ask("open " + file);
            String found = partner.ask("settings");
            if (name.equals("ours")) {
                settings = found;
            } else if (!Settings.parse(found).equals(Settings.parse(settings))) {
                throw new WorkerFailure(name + " has " + found + " and not " + settings);
            }
            partners.add(partner);
        }
        String size = workload.count(quick) + " " + workload.length(quick);
        round(workload, partners, "check " + workload.name() + " " + size);
        String time = "time " + workload.name() + " " + size;
        long[][] nanos = new long[partners.size()][rounds];
        long begin = System.nanoTime();
        for (int i = 0; i < (quick ? 1 : WARM_UP)
                || (!quick && System.nanoTime() - begin < partners.size() * WARM_UP_NANOS); i++) {
            round(workload, partners, time);
        }
        for (int round = 0; round < rounds; round++) {
            String[] answers = round(workload, partners, time);
            for (int i = 0; i < answers.length; i++) {
                nanos[i][round] = Long.parseLong(answers[i].split(" ")[busy ? 2 : 0]);
            }
        }
        report(workload, partners, nanos, settings);
    }

    /** One round; every contender must have seen the same values. */
    private static String[] round(Workload workload, List<Partner> partners, String command)
            throws Exception {
        String[] answers = new String[partners.size()];
        for (int i = 0; i < answers.length; i++) {
            partners.get(i).startOver(workload);
            answers[i] = partners.get(i).ask(command);
            String sum = answers[i].split(" ")[1];
            if (!sum.equals(answers[0].split(" ")[1])) {
                throw new WorkerFailure(
                        partners.get(i).name + " delivers other values than ours in "
                                + workload.name() + ": " + sum + " and not " + answers[0]);
            }
        }
        return answers;
    }

    private void report(Workload workload, List<Partner> partners, long[][] nanos, String settings)
            throws Exception {
        double[] byPeer = ratios(nanos[1], nanos[0]);
        double[] byFloor = ratios(nanos[2], nanos[0]);
        String memory = "";
        for (Partner partner : partners) {
            memory += (memory.isEmpty() ? "" : "/") + Integer.parseInt(partner.ask("memory")) / 1024;
        }
        double ratio = median(byPeer);
        say("%-4s %-35s %9.1f %9.1f %9.1f %7.2f %6.2f %5s %7.2f  %-14s %s",
                workload.name(), workload.title(), millis(nanos[0]), millis(nanos[1]),
                millis(nanos[2]), ratio, byPeer[byPeer.length - 1] - byPeer[0], workload.aimHere(),
                median(byFloor), memory, settings);
        for (int i = 0; i < partners.size(); i++) {
            log.println("#    " + partners.get(i).name + " ns " + Arrays.toString(nanos[i]));
        }
        log.flush();
    }

    /** Round by round, in order of size: what disturbs the machine disturbs neighbours alike. */
    private static double[] ratios(long[] of, long[] to) {
        double[] result = new double[of.length];
        for (int i = 0; i < result.length; i++) {
            result[i] = (double) of[i] / to[i];
        }
        Arrays.sort(result);
        return result;
    }

    private static double median(double[] sorted) {
        int half = sorted.length / 2;
        return sorted.length % 2 == 1 ? sorted[half] : (sorted[half - 1] + sorted[half]) / 2;
    }

    private static double millis(long[] nanos) {
        return median(Arrays.stream(nanos).sorted().mapToDouble(n -> n / 1e6).toArray());
    }

    /**
     * The contender's own file, made once by a process of its own. Plain C reads the peer's; where
     * it writes, it has one like it.
     */
    private Path make(String contender, Workload workload, String settings) throws Exception {
        boolean mine = !contender.equals("floor") || workload.inserts();
        Path file =
                data.resolve(
                        String.format(
                                "%s-%s-%dx%d.db",
                                mine ? contender : "peer", workload.content(),
                                workload.rows(quick), workload.length(quick)));
        if (Files.exists(file)) {
            return file;
        }
        System.err.println("making " + file);
        Path part = data.resolve("making.db");
        for (String tail : List.of("", "-wal", "-shm")) {
            Files.deleteIfExists(data.resolve("making.db" + tail));
        }
        List<Process> processes = new ArrayList<>();
        Partner maker =
                new Partner(contender.equals("ours") ? "ours" : "peer", part, settings, processes);
        maker.ask("make " + part + " " + workload.content() + " " + workload.rows(quick) + " "
                + workload.length(quick));
        maker.end();
        processes.get(0).waitFor();
        Files.move(part, file, StandardCopyOption.ATOMIC_MOVE);
        return file;
    }

    /** A process that speaks as {@link Worker} does. */
    private static final class Partner {
        final String name;
        private final Path file;
        private final BufferedReader in;
        private final PrintStream out;

        Partner(String name, Path file, String settings, List<Process> processes)
                throws IOException {
            this.name = name;
            this.file = file;
            List<String> command = new ArrayList<>();
            if (name.equals("floor")) {
                command.add(System.getProperty("bench.floor"));
            } else {
                // The same machine for both, except for where their native halves are.
                command.addAll(
                        List.of(
                                System.getProperty("java.home") + "/bin/java",
                                "-Xmx1g",
                                "-Djava.library.path=" + System.getProperty("java.library.path"),
                                "-cp",
                                System.getProperty("java.class.path")));
                for (String key : List.of("bench.oci8db", "bench.settings", "bench.batch")) {
                    command.add("-D" + key + "=" + System.getProperty(key, ""));
                }
                command.addAll(List.of("bench.Worker", name));
            }
            command.add(settings);
            Process process =
                    new ProcessBuilder(command)
                            .redirectError(ProcessBuilder.Redirect.INHERIT)
                            .start();
            processes.add(process);
            in = new BufferedReader(new InputStreamReader(process.getInputStream()));
            out = new PrintStream(process.getOutputStream(), true);
        }

        String ask(String command) throws IOException {
            out.println(command);
            String answer = in.readLine();
            if (answer == null || !answer.startsWith("=")) {
                throw new WorkerFailure(name + ": " + command + ": " + answer);
            }
            return answer.substring(1);
        }

        /**
         * What deleted rows leave in a file is taken out of it: the next ones would go into their
         * pages, in an order that makes them slower from round to round.
         */
        void startOver(Workload workload) throws IOException, InterruptedException {
            ask("prepare " + workload.name());
            if (workload.inserts()) {
                String floor = System.getProperty("bench.floor");
                Process shrinking =
                        new ProcessBuilder(floor, "shrink", file.toString()).inheritIO().start();
                if (shrinking.waitFor() != 0) {
                    throw new WorkerFailure("cannot shrink " + file);
                }
            }
        }

        void end() {
            out.println("quit");
        }
    }

    private static final class WorkerFailure extends IOException {
        private static final long serialVersionUID = 1;

        WorkerFailure(String message) {
            super(message);
        }
    }
}
