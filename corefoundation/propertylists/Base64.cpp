#include "corefoundation/propertylists/Base64.h"

#include <algorithm>
#include <array>

namespace krl::cf {
namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kPadding = '=';

/// What each byte stands for: 0 to 63, or one of these.
enum : int8_t { kIgnored = -1, kPad = -2 };

constexpr std::array<int8_t, 256> makeValues() {
    std::array<int8_t, 256> values{};
    values.fill(kIgnored);
    for (size_t i = 0; i < kAlphabet.size(); ++i) {
        values[static_cast<unsigned char>(kAlphabet[i])] = static_cast<int8_t>(i);
    }
    values[static_cast<unsigned char>(kPadding)] = kPad;
    return values;
}

constexpr std::array<int8_t, 256> kValues = makeValues();

} // namespace

void appendBase64(ByteBuffer& text, std::span<const UInt8> bytes) {
    char* out = text.room((bytes.size() + 2) / 3 * 4);
    for (size_t i = 0; i < bytes.size(); i += 3) {
        const size_t count = std::min<size_t>(3, bytes.size() - i);
        unsigned group = unsigned{bytes[i]} << 16;
        group |= count > 1 ? unsigned{bytes[i + 1]} << 8 : 0;
        group |= count > 2 ? unsigned{bytes[i + 2]} : 0;
        *out++ = kAlphabet[group >> 18];
        *out++ = kAlphabet[group >> 12 & 0x3F];
        *out++ = count > 1 ? kAlphabet[group >> 6 & 0x3F] : kPadding;
        *out++ = count > 2 ? kAlphabet[group & 0x3F] : kPadding;
        text.add(4);
    }
}

void appendDecodedBase64(ByteBuffer& bytes, std::string_view text) {
    char* out = bytes.room(text.size() / 4 * 3);
    unsigned group = 0;
    int inGroup = 0;
    size_t padding = 0; // in a row, up to here
    for (const char character : text) {
        const int8_t value = kValues[static_cast<unsigned char>(character)];
        if (value == kIgnored) {
            continue;
        }
        padding = value == kPad ? padding + 1 : 0;
        group = group << 6 | (value == kPad ? 0U : static_cast<unsigned>(value));
        if (++inGroup < 4) {
            continue;
        }
        const size_t size = 3 - std::min<size_t>(padding, 2);
        for (size_t i = 0; i < size; ++i) {
            *out++ = static_cast<char>(group >> (16 - 8 * i) & 0xFF);
        }
        bytes.add(size);
        group = 0;
        inGroup = 0;
    }
}

} // namespace krl::cf
