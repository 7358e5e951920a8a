// PEM: base64 between a line that begins and one that ends.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace krl::nss {

using Bytes = std::string; ///< any bytes

std::string toPem(std::string_view label, std::string_view der);

/// The bytes of the first block of this label; none when there is none or it is damaged.
std::optional<Bytes> fromPem(std::string_view label, std::string_view text);

} // namespace krl::nss
