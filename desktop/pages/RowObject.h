#pragma once

#include "desktop/session/PhoneBook.h"

#include <glib-object.h>

// A row of the list as an object, which is what list models hold.

#define VESK_TYPE_ROW (vesk_row_get_type())
G_DECLARE_FINAL_TYPE(VeskRow, vesk_row, VESK, ROW, GObject)

namespace krl::desktop {

/// A new object, which is the caller's.
VeskRow* newRowObject(const Row& row);

const Row& rowOf(VeskRow* object);

/// Tells whoever shows it, by the signal "changed", unless nothing is different.
void setRow(VeskRow* object, const Row& row);

} // namespace krl::desktop
