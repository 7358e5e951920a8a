/// Property lists on the wire, with their owner.
#pragma once

#include "plist/Bounded.h"

#include <plist/plist.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace virtualphone {

using Plist = krl::plist::Owned;

Plist newDictionary();
Plist newArray();
Plist newString(const std::string& text);
Plist newInteger(uint64_t number);
Plist newBoolean(bool value);
Plist newData(const std::string& bytes);

/// Puts a value into a dictionary, which owns it from then on.
void setItem(const Plist& dictionary, const std::string& key, Plist value);
void setItem(const Plist& dictionary, const std::string& key, const std::string& text);
void appendItem(const Plist& array, Plist value);

/// The value, lent by the dictionary; null when it is missing.
plist_t itemOf(const Plist& dictionary, const std::string& key);

/// Checked reading: none when the value is missing or of another type.
std::optional<std::string> stringOf(plist_t node);
std::optional<uint64_t> integerOf(plist_t node);
std::optional<std::string> dataOf(plist_t node);
bool isDictionary(plist_t node);

std::string toXml(const Plist& list);
std::string toBinary(const Plist& list);

/// Reads XML or binary; null when it is neither, or beyond the bounds of plist/Bounded.h.
Plist fromBytes(std::span<const char> bytes);

} // namespace virtualphone
