#include "corefoundation/propertylists/Base64.h"

#include <array>

namespace krl::cf {
namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kPadding = '=';

/// What each byte stands for: 0 to 63, or one of these.
enum : int8_t { kIgnored = -1, kSpace = -2, kPad = -3 };

constexpr std::array<int8_t, 256> makeValues() {
    std::array<int8_t, 256> values{};
    values.fill(kIgnored);
    for (size_t i = 0; i < kAlphabet.size(); ++i) {
        values[static_cast<unsigned char>(kAlphabet[i])] = static_cast<int8_t>(i);
    }
    for (const char space : {' ', '\t', '\r', '\n'}) {
        values[static_cast<unsigned char>(space)] = kSpace;
    }
    values[static_cast<unsigned char>(kPadding)] = kPad;
    return values;
}

constexpr std::array<int8_t, 256> kValues = makeValues();

int8_t valueOf(char character) {
    return kValues[static_cast<unsigned char>(character)];
}

} // namespace

void appendBase64(std::string& text, std::span<const UInt8> bytes) {
    for (size_t i = 0; i < bytes.size(); i += 3) {
        const size_t count = std::min<size_t>(3, bytes.size() - i);
        unsigned group = unsigned{bytes[i]} << 16;
        group |= count > 1 ? unsigned{bytes[i + 1]} << 8 : 0;
        group |= count > 2 ? unsigned{bytes[i + 2]} : 0;
        text += kAlphabet[group >> 18];
        text += kAlphabet[group >> 12 & 0x3F];
        text += count > 1 ? kAlphabet[group >> 6 & 0x3F] : kPadding;
        text += count > 2 ? kAlphabet[group & 0x3F] : kPadding;
    }
}

std::string decodeBase64(std::string_view text) {
    std::string bytes;
    unsigned group = 0;
    int inGroup = 0;
    int padding = 0; // in a row, up to here
    for (const char character : text) {
        const int8_t value = valueOf(character);
        if (value == kIgnored || value == kSpace) {
            continue;
        }
        padding = value == kPad ? padding + 1 : 0;
        group = group << 6 | (value == kPad ? 0U : static_cast<unsigned>(value));
        if (++inGroup < 4) {
            continue;
        }
        bytes += static_cast<char>(group >> 16 & 0xFF);
        if (padding < 2) {
            bytes += static_cast<char>(group >> 8 & 0xFF);
        }
        if (padding < 1) {
            bytes += static_cast<char>(group & 0xFF);
        }
        group = 0;
        inGroup = 0;
    }
    return bytes;
}

bool isPlainBase64(std::string_view text) {
    size_t characters = 0;
    size_t padding = 0;
    for (const char character : text) {
        const int8_t value = valueOf(character);
        if (value == kSpace) {
            continue;
        }
        if (value == kIgnored || (value != kPad && padding > 0)) {
            return false;
        }
        padding += value == kPad ? 1 : 0;
        ++characters;
    }
    return characters % 4 == 0 && padding <= 2;
}

} // namespace krl::cf
