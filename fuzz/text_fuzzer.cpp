// Any bytes as a name that came from a phone: what is shown for it holds nothing that a terminal
// acts on or does not show, a document keeps the name as it is, and both fit where they are put.

#include "engine/values/Text.h"
#include "examples/text.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

bool holdsUnsafe(const std::string& text) {
    const std::u32string characters = krl::engine::codePoints(text);
    return std::any_of(characters.begin(), characters.end(), krl::engine::isUnsafe);
}

bool holdsControls(const std::string& text) {
    const std::u32string characters = krl::engine::codePoints(text);
    return std::any_of(characters.begin(), characters.end(), [](char32_t c) {
        return c < 0x20 || (c >= 0x7F && c <= 0x9F) || (c >= 0x202A && c <= 0x202E);
    });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    const std::string name(reinterpret_cast<const char*>(bytes), size);
    const std::string shown = krl::engine::forTerminal(name);
    require(krl::engine::isUtf8(shown) && !holdsUnsafe(shown));
    require(krl::engine::forTerminal(shown) == shown);

    const size_t columns = size % 32;
    require(krl::engine::displayWidth(krl::engine::fitted(shown, columns)) <= columns);
    require(krl::engine::displayWidth(krl::engine::padded(shown, columns)) >= columns);

    const std::string document = nlohmann::json{{"name", name}}.dump(
        -1, ' ', /*ensure_ascii=*/false, nlohmann::json::error_handler_t::replace);
    const std::string shownDocument = krl::engine::jsonForTerminal(document);
    require(!holdsUnsafe(shownDocument));
    require(nlohmann::json::parse(shownDocument) == nlohmann::json::parse(document));

    std::string text = name.c_str(); // up to a zero byte, as the examples have it
    harmless(text.data());
    require(!krl::engine::isUtf8(name) || !holdsControls(text.c_str()));
    return 0;
}
