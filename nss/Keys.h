// RSA keys, and their PEM forms in pair records. start() must have been true.
#pragma once

#include "nss/Owners.h"

#include <string>
#include <string_view>

namespace krl::nss {

struct KeyPair {
    PrivateKey privateKey;
    PublicKey publicKey;
};

/// Null keys when NSS cannot make them.
KeyPair newKeyPair(int bits);

/// "RSA PRIVATE KEY", which every reader of pair records knows; empty on failure.
std::string privateKeyPem(const KeyPair& keys);

/// "RSA PUBLIC KEY", the form in which phones say theirs; empty on failure.
std::string publicKeyPem(const KeyPair& keys);

/// Of "RSA PRIVATE KEY" or "PRIVATE KEY"; null when the text has neither.
PrivateKey parsePrivateKey(std::string_view pem);

/// Of "RSA PUBLIC KEY" or "PUBLIC KEY"; null when the text has neither.
PublicKey parsePublicKey(std::string_view pem);

} // namespace krl::nss
