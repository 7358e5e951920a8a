#include "corefoundation/values/CFStringInternal.h"
#include "corefoundation/values/Decimal.h"

#include <CoreFoundation/CFRef.h>
#include <algorithm>
#include <cstdio>
#include <cstring>

namespace krl::cf {
namespace {

/// Who promoted the argument to what: the length modifiers of printf.
enum class Length { None, Char, Short, Long, LongLong, Size };

/// One conversion of a format, such as "%-8.3ld".
struct Conversion {
    std::string flags;
    int width = 0;
    int precision = -1;
    Length length = Length::None;
    char kind = 0;
};

/// Turns a format and its arguments into text, conversion by conversion.
class Formatter {
public:
    Formatter(const Text& format, va_list arguments)
        : format_(format), result_(adopt(CFStringCreateMutable(nullptr, 0))) {
        va_copy(arguments_, arguments);
    }

    ~Formatter() { va_end(arguments_); }

    Formatter(const Formatter&) = delete;
    Formatter& operator=(const Formatter&) = delete;

    /// Null when the format or an argument is not understood.
    CFStringRef format() {
        while (at_ < format_.length()) {
            const CFIndex start = at_;
            while (at_ < format_.length() && format_[at_] != '%') {
                ++at_;
            }
            appendText(result_.get(), format_.part(start, at_ - start));
            if (at_ < format_.length() && !convertNext()) {
                return nullptr;
            }
        }
        return freeze(result_.leak());
    }

private:
    UniChar peek() const { return at_ < format_.length() ? format_[at_] : UniChar{0}; }

    bool take(char unit) {
        if (peek() != static_cast<UniChar>(unit)) {
            return false;
        }
        ++at_;
        return true;
    }

    int takeNumber() {
        if (take('*')) {
            return va_arg(arguments_, int);
        }
        int number = 0;
        for (; peek() >= '0' && peek() <= '9' && number < kMaximumWidth; ++at_) {
            number = number * 10 + (peek() - '0');
        }
        return number;
    }

    Length takeLength() {
        if (take('h')) {
            return take('h') ? Length::Char : Length::Short;
        }
        if (take('l')) {
            return take('l') ? Length::LongLong : Length::Long;
        }
        if (take('q')) {
            return Length::LongLong;
        }
        return take('z') ? Length::Size : Length::None;
    }

    Conversion parse() {
        Conversion conversion;
        for (++at_; peek() < 0x80 && std::strchr("-+ #0", peek()) != nullptr && peek() != 0;
             ++at_) {
            conversion.flags += static_cast<char>(peek());
        }
        conversion.width = takeNumber();
        if (conversion.width < 0) {
            conversion.flags += '-';
            conversion.width = -conversion.width;
        }
        if (take('.')) {
            conversion.precision = takeNumber();
        }
        conversion.length = takeLength();
        conversion.kind = peek() < 0x80 ? static_cast<char>(peek()) : '\0';
        ++at_;
        return conversion;
    }

    bool convertNext() {
        const Conversion conversion = parse();
        if (conversion.width > kMaximumWidth || conversion.precision > kMaximumWidth) {
            return false;
        }
        switch (conversion.kind) {
        case '%':
            appendAscii(result_.get(), "%");
            return true;
        case '@':
            return convertObject(conversion);
        case 's':
            return convertCString(conversion);
        case 'c':
            return convertCharacter(conversion);
        case 'd':
        case 'i':
            return print(conversion, "lld", takeSigned(conversion.length));
        case 'u':
            return print(conversion, "llu", takeUnsigned(conversion.length));
        case 'x':
            return print(conversion, "llx", takeUnsigned(conversion.length));
        case 'X':
            return print(conversion, "llX", takeUnsigned(conversion.length));
        case 'o':
            return print(conversion, "llo", takeUnsigned(conversion.length));
        case 'e':
        case 'f':
        case 'g': {
            const char kind[] = {conversion.kind, 0};
            const locale_t before = uselocale(cLocale());
            const bool printed = print(conversion, kind, va_arg(arguments_, double));
            uselocale(before);
            return printed;
        }
        case 'p':
            return print(conversion, "p", va_arg(arguments_, void*));
        default:
            return false;
        }
    }

    long long takeSigned(Length length) {
        switch (length) {
        case Length::None:
            return va_arg(arguments_, int);
        case Length::Char:
            return static_cast<signed char>(va_arg(arguments_, int));
        case Length::Short:
            return static_cast<short>(va_arg(arguments_, int));
        case Length::Long:
            return va_arg(arguments_, long);
        case Length::LongLong:
            return va_arg(arguments_, long long);
        case Length::Size:
            return va_arg(arguments_, ssize_t);
        }
        return 0;
    }

    unsigned long long takeUnsigned(Length length) {
        switch (length) {
        case Length::None:
            return va_arg(arguments_, unsigned);
        case Length::Char:
            return static_cast<unsigned char>(va_arg(arguments_, int));
        case Length::Short:
            return static_cast<unsigned short>(va_arg(arguments_, int));
        case Length::Long:
            return va_arg(arguments_, unsigned long);
        case Length::LongLong:
            return va_arg(arguments_, unsigned long long);
        case Length::Size:
            return va_arg(arguments_, size_t);
        }
        return 0;
    }

    bool convertObject(const Conversion& conversion) {
        CFTypeRef object = va_arg(arguments_, CFTypeRef);
        auto description =
            object != nullptr ? adopt(CFCopyDescription(object)) : retain(CFSTR("(null)"));
        pad(conversion, Text(description.get()));
        return true;
    }

    bool convertCString(const Conversion& conversion) {
        const char* cStr = va_arg(arguments_, const char*);
        if (cStr == nullptr) {
            cStr = "(null)";
        }
        const size_t size = conversion.precision < 0
                                ? std::strlen(cStr)
                                : strnlen(cStr, static_cast<size_t>(conversion.precision));
        auto string = adopt(createStringFromUtf8({cStr, size}));
        if (!string) {
            return false;
        }
        pad(conversion, Text(string.get()));
        return true;
    }

    bool convertCharacter(const Conversion& conversion) {
        const auto unit = static_cast<UniChar>(static_cast<unsigned char>(va_arg(arguments_, int)));
        pad(conversion, Text(&unit, 1, true));
        return true;
    }

    void pad(const Conversion& conversion, const Text& text) {
        const auto missing = std::max<CFIndex>(0, conversion.width - text.length());
        const std::string spaces(static_cast<size_t>(missing), ' ');
        const bool left = conversion.flags.find('-') != std::string::npos;
        appendAscii(result_.get(), left ? "" : spaces);
        appendText(result_.get(), text);
        appendAscii(result_.get(), left ? spaces : "");
    }

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

    template <typename Value>
    bool print(const Conversion& conversion, const char* kind, Value value) {
        std::string format = "%" + conversion.flags;
        if (conversion.width > 0) {
            format += std::to_string(conversion.width);
        }
        if (conversion.precision >= 0) {
            format += "." + std::to_string(conversion.precision);
        }
        format += kind;
        const int size = std::snprintf(nullptr, 0, format.c_str(), value);
        if (size < 0) {
            return false;
        }
        std::string text(static_cast<size_t>(size) + 1, '\0');
        std::snprintf(text.data(), text.size(), format.c_str(), value);
        appendText(result_.get(), Text(std::string_view(text.data(), text.size() - 1)));
        return true;
    }

#pragma GCC diagnostic pop

    static constexpr int kMaximumWidth = 100000;

    Text format_;
    CFIndex at_ = 0;
    va_list arguments_;
    CFRef<CFMutableStringRef> result_;
};

} // namespace
} // namespace krl::cf

using namespace krl::cf;

CFStringRef CFStringCreateWithFormatAndArguments(CFAllocatorRef, CFDictionaryRef,
                                                 CFStringRef format, va_list arguments) {
    return Formatter(Text(format), arguments).format();
}

CFStringRef CFStringCreateWithFormat(CFAllocatorRef allocator, CFDictionaryRef formatOptions,
                                     CFStringRef format, ...) {
    va_list arguments;
    va_start(arguments, format);
    CFStringRef string =
        CFStringCreateWithFormatAndArguments(allocator, formatOptions, format, arguments);
    va_end(arguments);
    return string;
}

void CFStringAppendFormat(CFMutableStringRef string, CFDictionaryRef formatOptions,
                          CFStringRef format, ...) {
    va_list arguments;
    va_start(arguments, format);
    auto appended =
        adopt(CFStringCreateWithFormatAndArguments(nullptr, formatOptions, format, arguments));
    va_end(arguments);
    if (appended) {
        CFStringAppend(string, appended.get());
    }
}
