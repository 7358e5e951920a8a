/// Answers spoiled on purpose, after they were encoded as they should be.
#pragma once

#include "virtualphone/wire/Faults.h"
#include "virtualphone/wire/Packet.h"

namespace virtualphone {

/// Changes a file service packet as the action says; other actions leave it.
void spoilAfc(Packet& packet, FaultAction action);

/// The same for a length and a property list (lockdown, notification proxy).
void spoilFramed(Packet& packet, FaultAction action);

/// The same for a message of the mux.
void spoilMux(Packet& packet, FaultAction action);

} // namespace virtualphone
