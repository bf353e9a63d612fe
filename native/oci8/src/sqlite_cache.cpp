// Looked through one by one: texts of different length differ at first sight, and the one that is
// asked for was mostly kept last.
#include "sqlite_cache.h"

#include <algorithm>
#include <iterator>
#include <new>

namespace oci8 {
namespace {

// What a session may keep: about as many statements as a program has for one task, and none whose
// text is of a length that is made up anew each time.
constexpr size_t kMost = 32;
constexpr size_t kLongestText = 4000;

}  // namespace

std::optional<Translated> StatementCache::take(std::string_view text) {
  const auto found = std::find_if(entries_.rbegin(), entries_.rend(),
                                  [text](const Entry& entry) { return entry.text == text; });
  if (found == entries_.rend()) return std::nullopt;
  std::optional<Translated> taken = std::move(found->translated);
  entries_.erase(std::next(found).base());
  return taken;
}

// A text that was in use several times over comes back as often; the latest is of the latest
// schema. Without memory nothing is kept.
void StatementCache::keep(std::string_view text, Translated&& statement) noexcept {
  if (text.size() > kLongestText) return;
  try {
    take(text);
    if (entries_.size() == kMost) entries_.erase(entries_.begin());
    entries_.push_back({std::string(text), std::move(statement)});
  } catch (const std::bad_alloc&) {
  }
}

}  // namespace oci8
