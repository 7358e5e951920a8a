/// A phone in a folder, on a bus that is a socket.
///
/// A Phone is a folder (the media partition) and what else outlives a connection; a Bus serves the
/// mux socket protocol on a unix socket, and on the phones that are plugged into it lockdown, the
/// file service and the notification proxy. Clients of real phones find it when
/// USBMUXD_SOCKET_ADDRESS is set to Bus::environmentValue() before they connect.
///
///     virtualphone::Bus bus;
///     auto phone = std::make_shared<virtualphone::Phone>(
///         virtualphone::PhoneOptions{.root = folder, .firmware = "1.1.1", .name = "My Phone"});
///     setenv("USBMUXD_SOCKET_ADDRESS", bus.environmentValue().c_str(), 1);
///     uint32_t id = bus.plug(phone);
///     phone->faults().add(virtualphone::parseFault("afc/Write#3=status:18"));
///     ...
///     bus.unplug(id);
///     bus.log().entries();
///
/// Every function may be called from any thread unless it says otherwise. Constructors throw
/// std::system_error or std::invalid_argument when something is wrong with what they were given.
#pragma once

#include "virtualphone/bus/Bus.h"
#include "virtualphone/phone/Phone.h"
#include "virtualphone/phone/PhoneOptions.h"
#include "virtualphone/services/AfcProtocol.h"
#include "virtualphone/services/RequestLog.h"
#include "virtualphone/wire/Faults.h"
