#pragma once

#include <libintl.h>

// The words of the window in the person's language. xgettext knows these two names.

inline const char* _(const char* english) {
    return dgettext("krlvesk", english);
}

/// @param plural  taken for a number that is not one, by the language's own rules
inline const char* ngettext_(const char* singular, const char* plural, size_t count) {
    return dngettext("krlvesk", singular, plural, count);
}
