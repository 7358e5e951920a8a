// NSS's objects with an owner each.
#pragma once

#include <cert.h>
#include <keyhi.h>
#include <pk11pub.h>
#include <prio.h>
#include <secitem.h>

#include <memory>

namespace krl::nss {

template <auto function>
struct Destroy {
    template <typename Object>
    void operator()(Object* object) const {
        function(object);
    }
};

struct DestroyArena {
    void operator()(PLArenaPool* arena) const { PORT_FreeArena(arena, PR_TRUE); }
};

struct DestroyItem {
    void operator()(SECItem* item) const { SECITEM_ZfreeItem(item, PR_TRUE); }
};

struct DestroyKeyInfo {
    void operator()(SECKEYPrivateKeyInfo* info) const {
        SECKEY_DestroyPrivateKeyInfo(info, PR_TRUE);
    }
};

using Arena = std::unique_ptr<PLArenaPool, DestroyArena>;
using Item = std::unique_ptr<SECItem, DestroyItem>;
using Slot = std::unique_ptr<PK11SlotInfo, Destroy<PK11_FreeSlot>>;
using PublicKey = std::unique_ptr<SECKEYPublicKey, Destroy<SECKEY_DestroyPublicKey>>;
using PrivateKey = std::unique_ptr<SECKEYPrivateKey, Destroy<SECKEY_DestroyPrivateKey>>;
using PrivateKeyInfo = std::unique_ptr<SECKEYPrivateKeyInfo, DestroyKeyInfo>;
using SubjectKeyInfo =
    std::unique_ptr<CERTSubjectPublicKeyInfo, Destroy<SECKEY_DestroySubjectPublicKeyInfo>>;
using Certificate = std::unique_ptr<CERTCertificate, Destroy<CERT_DestroyCertificate>>;
using Name = std::unique_ptr<CERTName, Destroy<CERT_DestroyName>>;
using Validity = std::unique_ptr<CERTValidity, Destroy<CERT_DestroyValidity>>;
using Request = std::unique_ptr<CERTCertificateRequest, Destroy<CERT_DestroyCertificateRequest>>;
using FileDescriptor = std::unique_ptr<PRFileDesc, Destroy<PR_Close>>;

} // namespace krl::nss
