/// The file service on one connection.
#pragma once

#include "virtualphone/services/AfcProtocol.h"
#include "virtualphone/services/Responder.h"
#include "virtualphone/wire/Packet.h"
#include "virtualphone/wire/UniqueFd.h"

#include <cstdint>
#include <map>
#include <string_view>

namespace virtualphone {

class AfcServer {
public:
    explicit AfcServer(const Client& client);

    /// Serves until the connection ends; open files are closed with this object.
    void run();

private:
    struct Request {
        afc::Header header;
        uint64_t payload; ///< bytes that are still to be read
        LogEntry entry;   ///< holds the arguments too, where the log names them
    };

    /// Carries a request out and puts its answer down, unless that is just the status.
    using Handler = uint64_t (AfcServer::*)(Request& request);

    /// Where in the log's entry an argument belongs.
    enum class Field { Path, NewPath, Mode, Handle, Size, Offset, Nanoseconds };
    struct Operation;

    static const Operation* operationOf(uint64_t number);

    bool serve(const afc::Header& header);
    bool refuseHeader(const afc::Header& header);
    /// False when arguments are missing.
    bool decode(const Operation& operation, Request& request) const;
    bool answer(Request& request, uint64_t status);

    uint64_t readDirectory(Request& request);
    uint64_t truncatePath(Request& request);
    uint64_t removePath(Request& request);
    uint64_t makeDirectory(Request& request);
    uint64_t fileInfo(Request& request);
    uint64_t deviceInfo(Request& request);
    uint64_t open(Request& request);
    uint64_t read(Request& request);
    uint64_t write(Request& request);
    uint64_t seek(Request& request);
    uint64_t tell(Request& request);
    uint64_t close(Request& request);
    uint64_t setSize(Request& request);
    uint64_t rename(Request& request);
    uint64_t lock(Request& request);
    uint64_t makeLink(Request& request);
    uint64_t setModificationTime(Request& request);
    uint64_t removePathAndContents(Request& request);

    /// The open file of the request's handle, and -1 when there is none.
    int fileOf(const Request& request) const;
    uint64_t newHandle();

    void startData();
    void addPair(std::string_view key, std::string_view value);
    void replyNumber(afc::Operation operation, uint64_t number);

    struct OpenFile {
        UniqueFd file;
        std::string writtenPath; ///< empty when it is open for reading only
    };

    Channel& channel_;
    PhoneState& phone_;
    Responder responder_;
    const bool hasTimes_;             ///< modification times came with 3.1
    const bool hasRemovalOfContents_; ///< and this with 6.0
    std::map<uint64_t, OpenFile> files_;
    uint64_t lastHandle_ = 0;

    Packet arguments_;
    Packet reply_; ///< header, then what the handler put down
    uint64_t replyOperation_ = afc::kStatus;
};

} // namespace virtualphone
