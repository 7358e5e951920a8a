/// The host's pair records, kept by the mux under the phones' UDIDs.
#pragma once

#include "virtualphone/phone/SessionKeys.h"
#include "virtualphone/wire/PropertyList.h"

#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace virtualphone {

class PairRecords {
public:
    /// Contents of the property list that was saved.
    std::optional<std::string> read(const std::string& udid) const;
    void save(const std::string& udid, const std::string& contents);

    /// False when there is none.
    bool remove(const std::string& udid);

private:
    mutable std::mutex mutex_;
    std::map<std::string, std::string> records_;
};

/// Identity of this host's mux.
const std::string& hostSystemBuid();

/// HostID in the records that are made here.
const std::string& hostHostId();

/// A record for a phone with these keys. Without, for sessions in clear, its certificates and keys
/// are PEM in form only.
std::string newPairRecord(const SessionKeys* keys);

/// The HostID of a record, or an empty string when it is no record.
std::string hostIdOf(const std::string& contents);

/// The host's certificates in a record, or in what a host shows of one.
HostCertificates certificatesIn(plist_t record);
HostCertificates certificatesOf(const std::string& contents);

} // namespace virtualphone
