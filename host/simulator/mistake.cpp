#include "host/simulator/mistake.h"

#include <algorithm>
#include <cwchar>
#include <locale>

namespace host::simulator {

namespace {

constexpr size_t kLongestQuoted = 40;
constexpr size_t kLongestMessage = 1500;

// The length of the UTF-8 character that `text` begins with; 0 for none that a terminal may be
// given: broken, or a control character.
size_t safeCharacter(std::u8string_view text) {
  using UTF8 = std::codecvt<char32_t, char8_t, std::mbstate_t>;
  std::mbstate_t state{};
  const char8_t *next = nullptr;
  char32_t character = 0;
  char32_t *end = nullptr;
  std::use_facet<UTF8>(std::locale::classic())
      .in(state, text.data(), text.data() + text.size(), next, &character, &character + 1, end);
  const bool isBroken = end == &character;
  const bool isControl = character < 0x20 || (character >= 0x7F && character < 0xA0);
  const bool isSurrogate = character >= 0xD800 && character < 0xE000;
  return isBroken || isControl || isSurrogate ? 0 : static_cast<size_t>(next - text.data());
}

std::string safeText(std::string_view text) {
  std::string safe;
  std::u8string_view rest(reinterpret_cast<const char8_t *>(text.data()), text.size());
  while (!rest.empty()) {
    const size_t length = safeCharacter(rest);
    if (safe.size() + length > kLongestMessage) return safe + "...";
    if (length == 0) {
      safe += '?';
    } else {
      safe.append(rest.begin(), rest.begin() + static_cast<std::ptrdiff_t>(length));
    }
    rest.remove_prefix(std::max<size_t>(length, 1));
  }
  return safe;
}

}  // namespace

std::string Mistake::text() const {
  std::string text = file;
  if (line != 0) text.append(":").append(std::to_string(line));
  text.append(": ").append(what);
  if (!expected.empty()) text.append("; expected ").append(expected);
  return safeText(text);
}

void failAt(const Place &place, std::string_view what, std::string_view expected) {
  std::string text = place.path;
  if (!text.empty()) text += ": ";
  text += what;
  throw MistakeFound({{}, place.line, std::move(text), std::string(expected)});
}

std::string shortened(std::string_view text) {
  std::string result(text.substr(0, kLongestQuoted));
  if (text.size() > kLongestQuoted) result += "...";
  return result;
}

std::string quoted(std::string_view text) {
  return '"' + shortened(text) + '"';
}

std::string quotedList(std::span<const std::string_view> texts) {
  std::string list;
  for (size_t i = 0; i < texts.size(); i++) {
    const auto before = texts.first(i);
    if (std::find(before.begin(), before.end(), texts[i]) != before.end()) continue;
    if (!list.empty()) list += ", ";
    list += quoted(texts[i]);
  }
  return list;
}

}  // namespace host::simulator
