#include "corefoundation/propertylists/PropertyListWriter.h"

#include "corefoundation/propertylists/Base64.h"
#include "corefoundation/propertylists/XMLDocument.h"
#include "corefoundation/values/CFNumberInternal.h"
#include "corefoundation/values/CFStringInternal.h"
#include "corefoundation/values/Decimal.h"
#include "corefoundation/values/GregorianDate.h"
#include "corefoundation/values/Utf8.h"

#include <CoreFoundation/CFRef.h>
#include <algorithm>
#include <cmath>
#include <vector>

namespace krl::cf {
namespace {

// ---------------------------------------------------------------------------- checking

bool hasOnlyPairedSurrogates(const Text& text) {
    if (!text.isWide()) {
        return true;
    }
    for (CFIndex i = 0; i < text.length(); ++i) {
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

struct Pair {
    CFTypeRef key;
    CFTypeRef value;
};

std::vector<Pair> pairsOf(CFDictionaryRef dictionary) {
    std::vector<Pair> pairs;
    pairs.reserve(static_cast<size_t>(CFDictionaryGetCount(dictionary)));
    CFDictionaryApplyFunction(
        dictionary,
        [](const void* key, const void* value, void* context) {
            static_cast<std::vector<Pair>*>(context)->push_back({key, value});
        },
        &pairs);
    return pairs;
}

bool isValidDictionary(CFDictionaryRef dictionary, int depth) {
    const auto pairs = pairsOf(dictionary);
    return std::all_of(pairs.begin(), pairs.end(), [&](const Pair& pair) {
        auto key = cast<CFStringRef>(pair.key);
        return key != nullptr && hasOnlyPairedSurrogates(Text(key)) &&
               isValid(pair.value, depth + 1);
    });
}

bool isValid(CFTypeRef object, int depth) {
    if (object == nullptr || depth > kDepthLimit) {
        return false;
    }
    if (auto string = cast<CFStringRef>(object)) {
        return hasOnlyPairedSurrogates(Text(string));
    }
    if (auto array = cast<CFArrayRef>(object)) {
        return isValidArray(array, depth);
    }
    if (auto dictionary = cast<CFDictionaryRef>(object)) {
        return isValidDictionary(dictionary, depth);
    }
    return cast<CFNumberRef>(object) != nullptr || cast<CFBooleanRef>(object) != nullptr ||
           cast<CFDateRef>(object) != nullptr || cast<CFDataRef>(object) != nullptr;
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
    std::string write(CFTypeRef object) {
        xml_ = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
               "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
               "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
               "<plist version=\"1.0\">\n";
        writeObject(object, 0);
        xml_ += "</plist>\n";
        return std::move(xml_);
    }

private:
    void writeObject(CFTypeRef object, size_t depth) {
        indent(depth);
        if (auto string = cast<CFStringRef>(object)) {
            writeText("string", string);
        } else if (auto number = cast<CFNumberRef>(object)) {
            writeNumber(number);
        } else if (auto boolean = cast<CFBooleanRef>(object)) {
            xml_ += CFBooleanGetValue(boolean) ? "<true/>\n" : "<false/>\n";
        } else if (auto date = cast<CFDateRef>(object)) {
            writeLine("date", formatDate(CFDateGetAbsoluteTime(date)));
        } else if (auto data = cast<CFDataRef>(object)) {
            writeData(data, depth);
        } else if (auto array = cast<CFArrayRef>(object)) {
            writeArray(array, depth);
        } else {
            writeDictionary(static_cast<CFDictionaryRef>(object), depth);
        }
    }

    void indent(size_t depth) { xml_.append(depth, '\t'); }

    void writeLine(std::string_view element, std::string_view content) {
        xml_ += '<';
        xml_ += element;
        xml_ += '>';
        xml_ += content;
        closeLine(element);
    }

    void closeLine(std::string_view element) {
        xml_ += "</";
        xml_ += element;
        xml_ += ">\n";
    }

    void writeText(std::string_view element, CFStringRef string) {
        text_.clear();
        appendUtf8(text_, Text(string));
        xml_ += '<';
        xml_ += element;
        xml_ += '>';
        appendEscaped();
        closeLine(element);
    }

    void appendEscaped() {
        size_t copied = 0;
        for (;;) {
            const size_t special = text_.find_first_of("&<>", copied);
            xml_.append(text_, copied, special - copied);
            if (special == std::string::npos) {
                return;
            }
            const char character = text_[special];
            xml_ += character == '&' ? "&amp;" : character == '<' ? "&lt;" : "&gt;";
            copied = special + 1;
        }
    }

    void writeNumber(CFNumberRef number) {
        if (CFNumberIsFloatType(number)) {
            double value = 0;
            CFNumberGetValue(number, kCFNumberFloat64Type, &value);
            writeLine("real", realText(value));
            return;
        }
        int64_t value = 0;
        CFNumberGetValue(number, kCFNumberSInt64Type, &value);
        writeLine("integer", isBeyondSigned(number) ? std::to_string(static_cast<uint64_t>(value))
                                                    : std::to_string(value));
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
        xml_ += "<data>\n";
        while (!bytes.empty()) {
            const size_t count = std::min(bytesPerLine, bytes.size());
            indent(tabs);
            appendBase64(xml_, bytes.first(count));
            xml_ += '\n';
            bytes = bytes.subspan(count);
        }
        indent(depth);
        closeLine("data");
    }

    void writeArray(CFArrayRef array, size_t depth) {
        const CFIndex count = CFArrayGetCount(array);
        if (count == 0) {
            xml_ += "<array/>\n";
            return;
        }
        xml_ += "<array>\n";
        for (CFIndex i = 0; i < count; ++i) {
            writeObject(CFArrayGetValueAtIndex(array, i), depth + 1);
        }
        indent(depth);
        closeLine("array");
    }

    void writeDictionary(CFDictionaryRef dictionary, size_t depth) {
        auto pairs = pairsOf(dictionary);
        if (pairs.empty()) {
            xml_ += "<dict/>\n";
            return;
        }
        std::sort(pairs.begin(), pairs.end(), [](const Pair& left, const Pair& right) {
            return Text(static_cast<CFStringRef>(left.key))
                       .compare(Text(static_cast<CFStringRef>(right.key))) == kCFCompareLessThan;
        });
        xml_ += "<dict>\n";
        for (const Pair& pair : pairs) {
            indent(depth + 1);
            writeText("key", static_cast<CFStringRef>(pair.key));
            writeObject(pair.value, depth + 1);
        }
        indent(depth);
        closeLine("dict");
    }

    std::string xml_;
    std::string text_; ///< of one string, kept for its memory
};

} // namespace

bool isPropertyList(CFTypeRef object) {
    return isValid(object, 1);
}

std::string writePropertyList(CFTypeRef object) {
    return Writer().write(object);
}

} // namespace krl::cf
