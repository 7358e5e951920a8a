// The pair record that the mux daemon keeps, read and changed behind the phone's back.
#pragma once

#include "mobiledevice/provider/wire/PlistRef.h"

#include <gtest/gtest.h>
#include <usbmuxd.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>
#include <string>

namespace krl::provider::testing {

inline PlistRef readKeptRecord(const std::string& udid) {
    char* data = nullptr;
    uint32_t size = 0;
    EXPECT_EQ(usbmuxd_read_pair_record(udid.c_str(), &data, &size), 0);
    const std::unique_ptr<char, decltype(&std::free)> owned(data, &std::free);
    return parseDictionary(std::as_bytes(std::span(data, size)));
}

inline void keepRecord(const std::string& udid, const PlistRef& record) {
    const std::string xml = xmlOf(record);
    EXPECT_EQ(usbmuxd_save_pair_record(udid.c_str(), xml.data(), static_cast<uint32_t>(xml.size())),
              0);
}

template <typename Change>
void changeKeptRecord(const std::string& udid, Change change) {
    const PlistRef record = readKeptRecord(udid);
    change(record);
    keepRecord(udid, record);
}

} // namespace krl::provider::testing
