#pragma once

#include <string>

namespace krl::engine {

/// The socket of the usbmux daemon as the device layer will look for it, tried out.
struct MuxSocket {
    enum class State {
        Answers,
        Absent,    ///< no such socket
        Deserted,  ///< the socket is there, nobody listens
        Silent,    ///< it takes no connection, or does not answer
        Forbidden, ///< this user may not connect
        Broken,    ///< anything else; `reason` says what
        NotTried   ///< an address on the network
    };

    State state = State::NotTried;
    std::string address; ///< a path, or what the environment says
    std::string reason;
};

/// Connects to the socket and asks what is attached; takes a few seconds at most.
MuxSocket tryMuxSocket();

} // namespace krl::engine
