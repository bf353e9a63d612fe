package trevalon.db.console;

import java.nio.charset.StandardCharsets;
import java.util.Arrays;
import java.util.List;

/**
 * An exhibit of the sample: a text as a CLOB and a picture as a BLOB.
 *
 * <p>The second one is empty on purpose: an empty LOB is a value and not NULL.
 */
final class SampleExhibit {
    private static final int WIDTH = 240;
    private static final int HEIGHT = 160;
    private static final int COLOURS = 3;
    private static final int FIRINGS = 1200;

    final int id;
    final String title;
    final String description;
    final byte[] picture;

    private SampleExhibit(int id, String title, String description, byte[] picture) {
        this.id = id;
        this.title = title;
        this.description = description;
        this.picture = picture;
    }

    static List<SampleExhibit> all() {
        return Arrays.asList(
                new SampleExhibit(1, "A dish from the first kiln", firings(), dish()),
                new SampleExhibit(2, "An empty case", "", new byte[0]));
    }

    /** Text of one to four bytes a character; the lines' lengths put pairs on every border. */
    private static String firings() {
        StringBuilder text = new StringBuilder("Glaze after a bowl seen in 京都, by Adela Nørgård\n");
        for (int firing = 1; firing <= FIRINGS; firing++) {
            text.append("Firing ").append(firing).append(": ").append(900 + firing % 391);
            text.append(" °C, the kiln sang 𝄞 and the glaze was ");
            text.append(firing % 7 == 0 ? "good 😀\n" : "dull\n");
        }
        return text.toString();
    }

    /** Rings of blue glaze, in the simplest format that picture viewers know (PPM). */
    private static byte[] dish() {
        byte[] heading =
                ("P6\n" + WIDTH + " " + HEIGHT + "\n255\n").getBytes(StandardCharsets.US_ASCII);
        byte[] picture = Arrays.copyOf(heading, heading.length + WIDTH * HEIGHT * COLOURS);
        int at = heading.length;
        for (int y = 0; y < HEIGHT; y++) {
            for (int x = 0; x < WIDTH; x++) {
                double radius = Math.hypot(x - WIDTH / 2.0, y - HEIGHT / 2.0);
                boolean inside = radius < HEIGHT / 2.0 - 4;
                int shade = inside ? (int) (127 + 100 * Math.cos(radius / 5)) : 240;
                picture[at++] = (byte) (inside ? shade / 3 : shade);
                picture[at++] = (byte) (inside ? shade / 2 : shade);
                picture[at++] = (byte) shade;
            }
        }
        return picture;
    }
}
