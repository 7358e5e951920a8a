// A client of the file service on one connection.
#pragma once

#include "mobiledevice/provider/services/AfcWire.h"
#include "mobiledevice/provider/services/TransferCount.h"
#include "mobiledevice/provider/wire/Channel.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace krl::provider {

/// Each function returns 0 when the phone has confirmed all of it, or the phone's status. Silence
/// (kAFCTimedOut), the end of the stream (kAFCNotConnected) and replies that are not exactly of the
/// form that the request asks for (kAFCBadReply) end the connection: every later call gives
/// kAFCNotConnected at once.
class AfcClient {
public:
    /// `count` is kept about the file that was opened last.
    explicit AfcClient(std::shared_ptr<Channel> channel,
                       std::shared_ptr<TransferCount> count = std::make_shared<TransferCount>());

    int32_t makeDirectory(std::string_view path);
    int32_t removePath(std::string_view path);
    int32_t renamePath(std::string_view from, std::string_view to);

    /// Names, each ended by a zero.
    int32_t readDirectory(std::string_view path, std::vector<char>& names);
    /// Keys and values in turn, each ended by a zero.
    int32_t fileInfo(std::string_view path, std::vector<char>& pairs);
    int32_t deviceInfo(std::vector<char>& pairs);

    int32_t openFile(std::string_view path, uint64_t mode, uint64_t& file);
    int32_t closeFile(uint64_t file);
    int32_t lockFile(uint64_t file, afc::Lock lock);

    /// Reads until the target is full or the file ends. `received`: how many bytes are good, also
    /// after a failure.
    int32_t readFile(uint64_t file, std::span<std::byte> target, size_t& received);
    /// Writes all. After a refusal it is not known how much was written.
    int32_t writeFile(uint64_t file, std::span<const std::byte> bytes);

    void shutdown() noexcept;

private:
    struct Reply {
        afc::Operation operation;
        uint64_t bodyBytes;
    };

    /// A read that is not answered yet.
    struct PieceAsked {
        uint64_t number;
        size_t bytes;
    };

    int32_t requestStatus(afc::Operation operation, const std::string& arguments);
    int32_t requestData(afc::Operation operation, const std::string& arguments,
                        std::vector<char>& data);

    int32_t send(afc::Operation operation, const std::string& arguments);
    /// Asks for the next pieces of a file, at least for one, as far as they may be unanswered.
    int32_t askForPieces(uint64_t file, size_t bytes, std::deque<PieceAsked>& pieces);
    /// Receives the answer to a read. `bytes`: how many it has brought.
    int32_t receivePiece(const PieceAsked& piece, std::span<std::byte> target, size_t& bytes);
    /// Writes what may be unanswered at a time.
    int32_t writePieces(uint64_t file, std::span<const std::byte> bytes);

    int32_t receiveHeader(uint64_t number, Reply& reply);
    /// Receives what stands before the body of a reply of the wanted form; a status of failure,
    /// which answers any request, is received whole and returned.
    int32_t receiveReply(uint64_t number, afc::Operation wanted, uint64_t& bodyBytes);
    /// For requests that are answered with a status.
    int32_t receiveStatus(uint64_t number);
    /// For requests that are answered with data, which comes next.
    int32_t receiveDataHeader(uint64_t number, uint64_t maxBytes, uint64_t& bytes);
    int32_t receiveStatusWord();
    int32_t receiveWord(uint64_t& word);
    int32_t receiveBytes(std::span<std::byte> target);

    int32_t checked(IoResult result);
    int32_t badReply();

    std::shared_ptr<Channel> channel_;
    std::shared_ptr<TransferCount> count_;
    uint64_t nextNumber_ = 1;
};

} // namespace krl::provider
