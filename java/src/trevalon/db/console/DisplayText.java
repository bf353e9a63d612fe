package trevalon.db.console;

import java.util.Arrays;

/**
 * Text as a terminal shows it: cells, not characters.
 *
 * <p>Widths follow the Unicode standard's East Asian Width as far as the ranges below tell it: wide
 * characters take two cells, combining marks none. Terminals differ in rare characters; a table is
 * then off by a cell and nothing else.
 */
final class DisplayText {
    private static final String CUT_MARK = "...";

    /** First and last code points of the ranges whose characters take two cells. */
    private static final int[][] WIDE = {
        {0x1100, 0x115F}, {0x2E80, 0x303E}, {0x3041, 0xA4CF}, {0xAC00, 0xD7A3},
        {0xF900, 0xFAFF}, {0xFE30, 0xFE6F}, {0xFF00, 0xFF60}, {0xFFE0, 0xFFE6},
        {0x1F300, 0x1FAFF}, {0x20000, 0x3FFFD},
    };

    private DisplayText() {}

    /** Cells that the text takes in one line. */
    static int width(String text) {
        return text.codePoints().map(DisplayText::cells).sum();
    }

    private static int cells(int codePoint) {
        // Latin text, which is nearly all, without a look at its character types.
        if (codePoint < 0x300) {
            return 1;
        }
        int type = Character.getType(codePoint);
        if (type == Character.NON_SPACING_MARK
                || type == Character.ENCLOSING_MARK
                || type == Character.FORMAT) {
            return 0;
        }
        for (int[] range : WIDE) {
            if (codePoint >= range[0] && codePoint <= range[1]) {
                return 2;
            }
        }
        return 1;
    }

    /** The text with control characters as blanks, since a line break would tear a table. */
    static String printable(String text) {
        if (text.chars().noneMatch(Character::isISOControl)) {
            return text;
        }
        StringBuilder clean = new StringBuilder(text.length());
        text.codePoints().map(c -> Character.isISOControl(c) ? ' ' : c)
                .forEach(clean::appendCodePoint);
        return clean.toString();
    }

    /** The text cut to so many cells, with a mark where something was left out. */
    static String cut(String text, int cells) {
        if (width(text) <= cells) {
            return text;
        }
        // The mark counts as well: the result is never wider than asked for.
        int room = cells - CUT_MARK.length();
        int end = 0;
        for (int used = 0; end < text.length(); end = text.offsetByCodePoints(end, 1)) {
            used += cells(text.codePointAt(end));
            if (used > room) {
                break;
            }
        }
        return text.substring(0, end) + CUT_MARK;
    }

    /** So many times the character; empty for a negative count. */
    static String repeat(char c, int count) {
        char[] chars = new char[Math.max(0, count)];
        Arrays.fill(chars, c);
        return new String(chars);
    }
}
