package trevalon.db.console;

import java.util.ArrayList;
import java.util.List;
import java.util.Locale;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/**
 * A token of SQL text: what the console needs to know of SQL, which is not its meaning.
 *
 * <p>Possessive quantifiers keep the pattern from going back into what it has taken of a long
 * literal or name. Unclosed quotes and comments reach to the end of the text.
 */
final class SqlToken {
    /** A character of a name: a variable's may begin with any of them, an unquoted name not. */
    static final String NAME_CHARACTER = "[\\p{L}\\p{N}_$#]";

    /**
     * Comments first, since their first characters are symbols too. A doubled quote inside a
     * literal makes two neighbouring literals here, which nobody in this package minds.
     */
    private static final Pattern TOKEN =
            Pattern.compile(
                    "(?<comment>--[^\\n]*+|/\\*.*?(?:\\*/|\\z))"
                            + "|(?<literal>'[^']*+(?:'|\\z))"
                            + "|\"(?<name>[^\"]*+)(?:\"|\\z)"
                            + "|:(?<variable>" + NAME_CHARACTER + "++)"
                            + "|(?<word>[\\p{L}_]" + NAME_CHARACTER + "*+)"
                            + "|\\S",
                    Pattern.DOTALL);

    /** The token as written; a quoted name without its quotes. */
    final String text;

    /** Index of the token's first character in the SQL text. */
    final int start;

    /** A quoted name keeps its case; any other word has none. */
    final boolean quoted;

    /** The name of a placeholder in upper case, null for every other token. */
    final String variable;

    private final boolean isName;

    private SqlToken(String text, int start, String variable, boolean isName, boolean quoted) {
        this.text = text;
        this.start = start;
        this.variable = variable;
        this.isName = isName;
        this.quoted = quoted;
    }

    /** At most `limit` tokens of the text, comments left out. */
    static List<SqlToken> scan(String sql, int limit) {
        List<SqlToken> tokens = new ArrayList<>();
        Matcher matcher = TOKEN.matcher(sql);
        while (tokens.size() < limit && matcher.find()) {
            if (matcher.group("comment") != null) {
                continue;
            }
            String name = matcher.group("name");
            boolean isName = name != null || matcher.group("word") != null;
            String text = name != null ? name : matcher.group();
            String variable = matcher.group("variable");
            tokens.add(
                    new SqlToken(
                            text,
                            matcher.start(),
                            variable == null ? null : variable.toUpperCase(Locale.ROOT),
                            isName,
                            name != null));
        }
        return tokens;
    }

    /** True for this keyword or symbol, in any case. */
    boolean is(String keyword) {
        return !quoted && text.equalsIgnoreCase(keyword);
    }

    /** True where the token can name a table or column; keywords are not told apart. */
    boolean isName() {
        return isName;
    }

    /** True when the token names what the server calls `name`. */
    boolean names(String name) {
        return isName && (quoted ? text.equals(name) : text.equalsIgnoreCase(name));
    }
}
