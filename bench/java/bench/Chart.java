package bench;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.LocalDate;
import java.util.ArrayList;
import java.util.List;
import java.util.Locale;

/** Curves on logarithmic axes, one panel each, as an SVG; a sentence under each. */
final class Chart {
    private static final int COLUMNS = 3;
    private static final int WIDTH = 360;
    private static final int HEIGHT = 270;
    private static final int LEFT = 60;
    private static final int TOP = 40;
    private static final int PLOT_WIDTH = 270;
    private static final int PLOT_HEIGHT = 160;

    private final String what;
    private final List<Curve> curves = new ArrayList<>();

    /**
     * An empty chart.
     *
     * @param what the kind of figures
     */
    Chart(String what) {
        this.what = what;
    }

    static final class Curve {
        private final String title;
        private final String unit;
        private final String of;
        private final List<double[]> points = new ArrayList<>();

        private Curve(String title, String unit, String of) {
            this.title = title;
            this.unit = unit;
            this.of = of;
        }

        void point(double x, double y) {
            points.add(new double[] {x, y});
            System.out.printf("%-40s %12.0f %14.3f %s%n", title, x, y, unit);
        }

        private double edge(int axis, boolean most) {
            double edge = points.get(0)[axis];
            for (double[] point : points) {
                edge = most ? Math.max(edge, point[axis]) : Math.min(edge, point[axis]);
            }
            return edge;
        }

        /** What the curve says from end to end. */
        private String sentence() {
            double[] first = points.get(0);
            double[] last = points.get(points.size() - 1);
            return String.format(
                    Locale.ROOT,
                    "From %s to %s, a %s goes from %s to %s ns.",
                    number(first[0]), number(last[0]), of, number(first[1]), number(last[1]));
        }
    }

    /**
     * A new curve.
     *
     * @param title what grows
     * @param unit what a point says
     * @param of the unit of work that a point is the cost of
     */
    Curve curve(String title, String unit, String of) {
        Curve curve = new Curve(title, unit, of);
        curves.add(curve);
        return curve;
    }

    private static String number(double value) {
        if (value >= 1e9) {
            return trimmed(value / 1e9) + " G";
        }
        if (value >= 1e6) {
            return trimmed(value / 1e6) + " M";
        }
        if (value >= 1e4) {
            return trimmed(value / 1e3) + " k";
        }
        return trimmed(value);
    }

    private static String trimmed(double value) {
        String text = String.format(Locale.ROOT, value < 1 ? "%.2g" : value < 100 ? "%.1f" : "%.0f", value);
        return text.contains(".") && !text.contains("e") ? text.replaceAll("\\.?0+$", "") : text;
    }

    void write(Path file) throws IOException {
        int rows = (curves.size() + COLUMNS - 1) / COLUMNS;
        StringBuilder out = new StringBuilder();
        out.append(
                String.format(
                        "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %d %d\""
                                + " font-family=\"sans-serif\" font-size=\"11\">%n"
                                + "<rect width=\"100%%\" height=\"100%%\" fill=\"white\"/>%n",
                        COLUMNS * WIDTH, rows * HEIGHT + 30));
        out.append(
                text(LEFT, 20, "start",
                        "How cost grows: " + LocalDate.now() + ", " + Compare.machine()
                                + "; " + what + "; axes are logarithmic"));
        for (int i = 0; i < curves.size(); i++) {
            panel(out, curves.get(i), i % COLUMNS * WIDTH, 30 + i / COLUMNS * HEIGHT);
        }
        out.append("</svg>\n");
        Files.writeString(file, out);
        curves.forEach(curve -> System.out.println(curve.title + ": " + curve.sentence()));
    }

    private static void panel(StringBuilder out, Curve curve, int left, int top) {
        int x = left + LEFT;
        int y = top + TOP;
        double lowX = Math.log10(curve.edge(0, false));
        double highX = Math.log10(curve.edge(0, true));
        double lowY = Math.floor(Math.log10(curve.edge(1, false)));
        double highY = Math.max(lowY + 1, Math.ceil(Math.log10(curve.edge(1, true))));
        out.append(text(x, top + 16, "start", curve.title));
        out.append(text(x, top + 32, "start", curve.unit));
        out.append(text(x, top + TOP + PLOT_HEIGHT + 36, "start", curve.sentence()));
        for (double tick = lowY; tick <= highY; tick++) {
            double at = y + PLOT_HEIGHT * (highY - tick) / (highY - lowY);
            line(out, x, at, x + PLOT_WIDTH, at);
            out.append(text(x - 6, at + 4, "end", number(Math.pow(10, tick))));
        }
        for (double tick = Math.ceil(lowX); tick <= highX; tick++) {
            double at = x + PLOT_WIDTH * (tick - lowX) / (highX - lowX);
            line(out, at, y, at, y + PLOT_HEIGHT);
            out.append(text(at, y + PLOT_HEIGHT + 16, "middle", number(Math.pow(10, tick))));
        }
        StringBuilder path = new StringBuilder();
        for (double[] point : curve.points) {
            double atX = x + PLOT_WIDTH * (Math.log10(point[0]) - lowX) / (highX - lowX);
            double atY = y + PLOT_HEIGHT * (highY - Math.log10(point[1])) / (highY - lowY);
            path.append(String.format(Locale.ROOT, "%.1f,%.1f ", atX, atY));
            out.append(
                    String.format(
                            Locale.ROOT,
                            "<circle cx=\"%.1f\" cy=\"%.1f\" r=\"3\" fill=\"#1560bd\"/>%n",
                            atX, atY));
        }
        out.append(
                String.format(
                        "<polyline points=\"%s\" fill=\"none\" stroke=\"#1560bd\""
                                + " stroke-width=\"1.5\"/>%n",
                        path.toString().trim()));
    }

    private static void line(StringBuilder out, double x1, double y1, double x2, double y2) {
        out.append(
                String.format(
                        Locale.ROOT,
                        "<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\""
                                + " stroke=\"#ccc\"/>%n",
                        x1, y1, x2, y2));
    }

    private static String text(double x, double y, String anchor, String words) {
        return String.format(
                Locale.ROOT, "<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"%s\">%s</text>%n", x, y,
                anchor, words);
    }
}
