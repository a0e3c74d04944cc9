// The text of a TOML document, parsed.
#pragma once

#include <memory>
#include <string_view>

namespace toml {
inline namespace v3 {
class node;
}
}  // namespace toml

namespace host::simulator {

// The document's top level. What is not TOML, or so much or nested so deeply that it would exhaust
// the reader, is thrown as MistakeFound; its message may hold any bytes of the text.
std::shared_ptr<const toml::node> parseToml(std::string_view text);

}  // namespace host::simulator
