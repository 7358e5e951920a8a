// libplist's nodes with an owner, and checked looks into dictionaries that a phone has sent.
#pragma once

#include "plist/Bounded.h"

#include <plist/plist.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace krl::provider {

/// Owns a root node.
using PlistRef = plist::Owned;

/// Reads a dictionary, XML or binary; null if the bytes are anything else, or are beyond the bounds
/// of plist/Bounded.h.
PlistRef parseDictionary(std::span<const std::byte> bytes);

/// An empty dictionary.
PlistRef newDictionary();

void setString(const PlistRef& dictionary, const char* key, const std::string& value);

void setUnsigned(const PlistRef& dictionary, const char* key, uint64_t value);

void setData(const PlistRef& dictionary, const char* key, const std::string& bytes);

/// The value under a key if it has the type asked for.
std::optional<std::string> stringAt(const PlistRef& dictionary, const char* key);
std::optional<uint64_t> unsignedAt(const PlistRef& dictionary, const char* key);
std::optional<bool> booleanAt(const PlistRef& dictionary, const char* key);

std::optional<std::string> dataAt(const PlistRef& dictionary, const char* key);

/// A copy of the dictionary under a key, null if there is none.
PlistRef dictionaryAt(const PlistRef& dictionary, const char* key);

/// Copies of the dictionaries in the array under a key; nothing if there is none.
std::optional<std::vector<PlistRef>> dictionariesAt(const PlistRef& dictionary, const char* key);

bool hasKey(const PlistRef& dictionary, const char* key);

/// The list as an XML document; empty when memory is out.
std::string xmlOf(const PlistRef& list);

} // namespace krl::provider
