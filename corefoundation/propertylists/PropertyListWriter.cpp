#include "corefoundation/propertylists/PropertyListWriter.h"

#include "corefoundation/propertylists/Base64.h"
#include "corefoundation/propertylists/PropertyListReader.h"
#include "corefoundation/values/CFNumberInternal.h"
#include "corefoundation/values/CFStringInternal.h"
#include "corefoundation/values/Decimal.h"
#include "corefoundation/values/GregorianDate.h"
#include "corefoundation/values/Utf8.h"

#include <CoreFoundation/CFRef.h>
#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace krl::cf {
namespace {

/// How a character of ASCII stands in a text.
enum class Form : uint8_t { Plain, Escaped, Impossible };

constexpr std::array<Form, 128> makeForms() {
    std::array<Form, 128> forms{};
    for (unsigned char character = 0; character < 0x20; ++character) {
        forms[character] = Form::Impossible;
    }
    for (const char character : {'\t', '\n', '\r'}) {
        forms[static_cast<unsigned char>(character)] = Form::Plain;
    }
    for (const char character : {'&', '<', '>'}) {
        forms[static_cast<unsigned char>(character)] = Form::Escaped;
    }
    return forms;
}

constexpr std::array<Form, 128> kForms = makeForms();

// ---------------------------------------------------------------------------- checking

bool hasOnlyPairedSurrogates(const Text& text) {
    for (CFIndex i = 0; text.isWide() && i < text.length(); ++i) {
        if (isHighSurrogate(text[i]) && i + 1 < text.length() && isLowSurrogate(text[i + 1])) {
            ++i;
        } else if (isSurrogate(text[i])) {
            return false;
        }
    }
    return true;
}

bool isValid(CFTypeRef object, int depth);

bool isValidArray(CFArrayRef array, int depth) {
    for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
        if (!isValid(CFArrayGetValueAtIndex(array, i), depth + 1)) {
            return false;
        }
    }
    return true;
}

bool isValidDictionary(CFDictionaryRef dictionary, int depth) {
    struct Outcome {
        int depth;
        bool valid;
    } outcome{depth + 1, true};

    CFDictionaryApplyFunction(
        dictionary,
        [](const void* key, const void* value, void* context) {
            auto& all = *static_cast<Outcome*>(context);
            all.valid = all.valid && cast<CFStringRef>(key) != nullptr && isValid(key, 1) &&
                        isValid(value, all.depth);
        },
        &outcome);
    return outcome.valid;
}

bool isValid(CFTypeRef object, int depth) {
    if (object == nullptr || depth > kDepthLimit) {
        return false;
    }
    switch (recordOf<CFObjectHeader>(object).typeID) {
    case kStringTypeID:
        return hasOnlyPairedSurrogates(Text(static_cast<CFStringRef>(object)));
    case kArrayTypeID:
        return isValidArray(static_cast<CFArrayRef>(object), depth);
    case kDictionaryTypeID:
        return isValidDictionary(static_cast<CFDictionaryRef>(object), depth);
    case kNumberTypeID:
    case kBooleanTypeID:
    case kDateTypeID:
    case kDataTypeID:
        return true;
    default:
        return false;
    }
}

// ---------------------------------------------------------------------------- writing

std::string realText(double value) {
    if (std::isnan(value)) {
        return "nan";
    }
    if (std::isinf(value)) {
        return value > 0 ? "+infinity" : "-infinity";
    }
    return value == 0 ? "0.0" : exactDecimal(value);
}

class Writer {
public:
    explicit Writer(ByteBuffer& xml) : xml_(xml) {}

    void writeObject(CFTypeRef object, size_t depth) {
        xml_.append(depth, '\t');
        switch (recordOf<CFObjectHeader>(object).typeID) {
        case kStringTypeID:
            writeText("<string>", static_cast<CFStringRef>(object), "</string>\n");
            break;
        case kNumberTypeID:
            writeNumber(static_cast<CFNumberRef>(object));
            break;
        case kBooleanTypeID:
            xml_.append(object == kCFBooleanTrue ? "<true/>\n" : "<false/>\n");
            break;
        case kDateTypeID:
            writeLine("<date>", formatDate(CFDateGetAbsoluteTime(static_cast<CFDateRef>(object))),
                      "</date>\n");
            break;
        case kDataTypeID:
            writeData(static_cast<CFDataRef>(object), depth);
            break;
        case kArrayTypeID:
            writeArray(static_cast<CFArrayRef>(object), depth);
            break;
        default:
            writeDictionary(static_cast<CFDictionaryRef>(object), depth);
        }
    }

private:
    void writeLine(std::string_view open, std::string_view content, std::string_view close) {
        xml_.append(open);
        xml_.append(content);
        xml_.append(close);
    }

    // ------------------------------------------------------------------------ texts

    void writeText(std::string_view open, CFStringRef string, std::string_view close) {
        const Text text(string);
        xml_.append(open);
        if (text.isWide()) {
            writeWide(text);
        } else {
            writeNarrow(text);
        }
        xml_.append(close);
    }

    void writeNarrow(const Text& text) {
        const char* at = text.narrow();
        const char* const end = at + text.length();
        for (;;) {
            const char* const special = std::find_if(at, end, [](char character) {
                return kForms[static_cast<unsigned char>(character)] != Form::Plain;
            });
            xml_.append({at, static_cast<size_t>(special - at)});
            if (special == end) {
                return;
            }
            writeCharacter(static_cast<unsigned char>(*special));
            at = special + 1;
        }
    }

    void writeWide(const Text& text) {
        for (CFIndex i = 0; i < text.length(); ++i) {
            if (isHighSurrogate(text[i])) {
                writeCharacter(joinSurrogates(text[i], text[i + 1]));
                ++i;
            } else {
                writeCharacter(text[i]);
            }
        }
    }

    void writeCharacter(UTF32Char codePoint) {
        constexpr UTF32Char kReplacement = 0xFFFD;
        constexpr size_t kMostBytes = 4;
        const Form form = codePoint < kForms.size() ? kForms[codePoint] : Form::Plain;
        if (form == Form::Escaped) {
            xml_.append(codePoint == '&' ? "&amp;" : codePoint == '<' ? "&lt;" : "&gt;");
            return;
        }
        auto* bytes = reinterpret_cast<UInt8*>(xml_.room(kMostBytes));
        xml_.add(
            static_cast<size_t>(encodeUtf8(form == Form::Plain ? codePoint : kReplacement, bytes)));
    }

    // ------------------------------------------------------------------------ other leaves

    void writeNumber(CFNumberRef number) {
        if (CFNumberIsFloatType(number)) {
            double value = 0;
            CFNumberGetValue(number, kCFNumberFloat64Type, &value);
            writeLine("<real>", realText(value), "</real>\n");
            return;
        }
        int64_t value = 0;
        CFNumberGetValue(number, kCFNumberSInt64Type, &value);
        char digits[32];
        char* const last = digits + sizeof digits;
        const char* const end = isBeyondSigned(number)
                                    ? std::to_chars(digits, last, static_cast<uint64_t>(value)).ptr
                                    : std::to_chars(digits, last, value).ptr;
        writeLine("<integer>", {digits, static_cast<size_t>(end - digits)}, "</integer>\n");
    }

    /// The lines get shorter with the depth, as if a tab took eight characters, up to a point.
    void writeData(CFDataRef data, size_t depth) {
        constexpr size_t kLineLength = 76;
        constexpr size_t kTabLength = 8;
        constexpr size_t kDeepestIndent = 8;
        const size_t tabs = std::min(depth, kDeepestIndent);
        const size_t bytesPerLine = (kLineLength - tabs * kTabLength) / 4 * 3;
        std::span<const UInt8> bytes(CFDataGetBytePtr(data),
                                     static_cast<size_t>(CFDataGetLength(data)));
        xml_.append("<data>\n");
        while (!bytes.empty()) {
            const size_t count = std::min(bytesPerLine, bytes.size());
            xml_.append(tabs, '\t');
            appendBase64(xml_, bytes.first(count));
            xml_.append("\n");
            bytes = bytes.subspan(count);
        }
        xml_.append(depth, '\t');
        xml_.append("</data>\n");
    }

    // ------------------------------------------------------------------------ containers

    void writeArray(CFArrayRef array, size_t depth) {
        const CFIndex count = CFArrayGetCount(array);
        if (count == 0) {
            xml_.append("<array/>\n");
            return;
        }
        xml_.append("<array>\n");
        for (CFIndex i = 0; i < count; ++i) {
            writeObject(CFArrayGetValueAtIndex(array, i), depth + 1);
        }
        xml_.append(depth, '\t');
        xml_.append("</array>\n");
    }

    void writeDictionary(CFDictionaryRef dictionary, size_t depth) {
        if (CFDictionaryGetCount(dictionary) == 0) {
            xml_.append("<dict/>\n");
            return;
        }

        struct Place {
            Writer& writer;
            size_t depth;
        } place{*this, depth + 1};

        xml_.append("<dict>\n");
        CFDictionaryApplyFunction(
            dictionary,
            [](const void* key, const void* value, void* context) {
                const auto& at = *static_cast<const Place*>(context);
                at.writer.xml_.append(at.depth, '\t');
                at.writer.writeText("<key>", static_cast<CFStringRef>(key), "</key>\n");
                at.writer.writeObject(value, at.depth);
            },
            &place);
        xml_.append(depth, '\t');
        xml_.append("</dict>\n");
    }

    ByteBuffer& xml_;
};

} // namespace

bool isPropertyList(CFTypeRef object) {
    return isValid(object, 1);
}

void writePropertyList(ByteBuffer& xml, CFTypeRef object) {
    xml.append("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
               "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
               "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
               "<plist version=\"1.0\">\n");
    Writer(xml).writeObject(object, 0);
    xml.append("</plist>\n");
}

} // namespace krl::cf
