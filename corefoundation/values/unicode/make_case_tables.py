#!/usr/bin/env python3
"""Writes CaseTables.h from the Unicode data that Python carries.

    python3 make_case_tables.py > CaseTables.h && clang-format -i CaseTables.h

Mappings of one character to one are kept as runs: every stride-th character from first to last is
moved by the same distance. Mappings to several characters stand in a list of their own.
"""

import sys
import unicodedata


def mappings(convert):
    """All characters that change, as pairs of code point and result."""
    for code in range(sys.maxunicode + 1):
        if 0xD800 <= code < 0xE000:
            continue
        result = convert(chr(code))
        if result != chr(code):
            yield code, result


def runs(pairs):
    """Groups (code, distance) pairs into [first, last, stride, distance]."""
    found = []
    for code, distance in pairs:
        if found:
            first, last, stride, same = found[-1]
            step = code - last
            if same == distance and step <= 2 and (first == last or step == stride):
                found[-1] = [first, code, step, same]
                continue
        found.append([code, code, 1, distance])
    return found


def write_table(name, comment, convert):
    pairs = list(mappings(convert))
    single = [(code, ord(text) - code) for code, text in pairs if len(text) == 1]
    print(f"/** {comment} */")
    print(f"inline constexpr CaseRun k{name}Runs[] = {{")
    for first, last, stride, distance in runs(single):
        print(f"    {{0x{first:X}, 0x{last:X}, {stride}, {distance}}},")
    print("};")
    print(f"inline constexpr CaseExpansion k{name}Expansions[] = {{")
    for code, text in pairs:
        if len(text) > 1:
            units = [f"0x{ord(character):X}" for character in text] + ["0"] * (3 - len(text))
            print(f"    {{0x{code:X}, {{{', '.join(units)}}}}},")
    print("};\n")


print(f"""/**
 * Case mappings of Unicode {unicodedata.unidata_version}, written by make_case_tables.py. Internal.
 */
#ifndef COREFOUNDATION_CASETABLES_H
#define COREFOUNDATION_CASETABLES_H

#include <CoreFoundation/CFBase.h>

namespace krl::cf {{

/** Every stride-th character from first to last is moved by distance. */
struct CaseRun {{
    UTF32Char first;
    UTF32Char last;
    UTF32Char stride;
    int32_t distance;
}};

/** A character that becomes two or three, the last one 0 when there are two. */
struct CaseExpansion {{
    UTF32Char character;
    UTF32Char expansion[3];
}};
""")
write_table("Lower", "To lower case.", str.lower)
write_table("Upper", "To upper case.", str.upper)
write_table("Fold", "Full case folding, for comparing.", str.casefold)
print("} // namespace krl::cf\n\n#endif")
