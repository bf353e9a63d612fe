package bench;

import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/** The engine's settings that decide about speed; native/settings.cpp and floor.c know the same. */
final class Settings {
    static final List<String> NAMES =
            List.of(
                    "journal_mode", "synchronous", "page_size", "cache_size", "mmap_size",
                    "foreign_keys");

    static final Map<String, String> DEFAULTS =
            Map.of(
                    "synchronous", "2", "page_size", "4096", "cache_size", "-2000", "mmap_size",
                    "0", "foreign_keys", "0");

    private Settings() {}

    /** Reads "name=value name=value". */
    static Map<String, String> parse(String text) {
        Map<String, String> settings = new LinkedHashMap<>();
        for (String part : text.split(" ")) {
            int at = part.indexOf('=');
            if (at > 0) {
                settings.put(part.substring(0, at), part.substring(at + 1));
            }
        }
        return settings;
    }
}
