/// Turning a connection to encryption, with the faults that can meet it.
#pragma once

#include "virtualphone/phone/SessionKeys.h"
#include "virtualphone/services/Responder.h"

#include <vector>

namespace virtualphone {

/// Waits for the client's handshake and carries it out; the client must show the certificate of one
/// of these hosts. In the log and for faults it is a request "Handshake" of the service. False when
/// the connection is over.
bool shakeHands(const Client& client, Responder& responder, std::vector<HostCertificates> hosts);

} // namespace virtualphone
