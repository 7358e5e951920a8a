#include "mobiledevice/provider/services/AfcClient.h"

#include <MobileDevice/MobileDevice.h>

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

namespace krl::provider {

using afc::Operation;

namespace {

// Early firmware gives wrong data for longer reads.
constexpr size_t kPieceBytes = 65536;

// Pieces of a write that may be unanswered: 4 MiB, the most that callers write at a time, so that
// such a write waits for the phone once. Their answers take three kilobytes, which every socket on
// the way holds.
constexpr size_t kPiecesInFlight = 64;

// Reads that may be unanswered, so that the phone has the next one when it has sent a piece. When half
// of them are answered, as many go out at once.
constexpr size_t kReadsInFlight = 8;

// Pieces that leave with one system call. After a refusal what has been begun of them is finished.
constexpr size_t kPiecesInBurst = 16;

constexpr size_t kStatusReplyBytes = afc::kHeaderBytes + sizeof(uint64_t);

// A listing of a hundred thousand names takes some megabytes.
constexpr uint64_t kMaxListBytes = uint64_t{16} * 1024 * 1024;

std::string word(uint64_t value) {
    const uint64_t wire = htole64(value);
    return {reinterpret_cast<const char*>(&wire), sizeof wire};
}

std::string text(std::string_view path) {
    std::string argument(path);
    argument.push_back('\0');
    return argument;
}

// sendmsg takes no const memory, but does not write to it.
iovec part(const void* bytes, size_t count) {
    return {const_cast<void*>(bytes), count};
}

/// Pieces of a write as they stand on the wire. The data stays where it is.
class Burst {
public:
    /// Takes its pieces off `rest`, at least one, and counts their numbers up from `nextNumber`.
    Burst(uint64_t file, uint64_t& nextNumber, std::span<const std::byte>& rest) {
        do {
            const std::span<const std::byte> piece = rest.first(std::min(rest.size(), kPieceBytes));
            rest = rest.subspan(piece.size());
            prefixes_[count_] = {
                afc::makeHeader(Operation::WriteFile, nextNumber++, sizeof file, piece.size()),
                htole64(file)};
            parts_[2 * count_] = part(&prefixes_[count_], sizeof(Prefix));
            parts_[2 * count_ + 1] = part(piece.data(), piece.size());
            ++count_;
        } while (!rest.empty() && count_ < kPiecesInBurst);
    }

    Burst(const Burst&) = delete;
    Burst& operator=(const Burst&) = delete;

    std::span<iovec> parts() { return std::span(parts_).first(2 * count_); }

private:
    struct Prefix {
        afc::Header header;
        uint64_t file;
    };

    std::array<Prefix, kPiecesInBurst> prefixes_;
    std::array<iovec, 2 * kPiecesInBurst> parts_;
    size_t count_ = 0;
};

} // namespace

AfcClient::AfcClient(std::shared_ptr<Channel> channel, std::shared_ptr<TransferCount> count)
    : channel_(std::move(channel)), count_(std::move(count)) {}

int32_t AfcClient::makeDirectory(std::string_view path) {
    return requestStatus(Operation::MakeDirectory, text(path));
}

int32_t AfcClient::removePath(std::string_view path) {
    return requestStatus(Operation::RemovePath, text(path));
}

int32_t AfcClient::renamePath(std::string_view from, std::string_view to) {
    return requestStatus(Operation::RenamePath, text(from) + text(to));
}

int32_t AfcClient::readDirectory(std::string_view path, std::vector<char>& names) {
    return requestData(Operation::ReadDirectory, text(path), names);
}

int32_t AfcClient::fileInfo(std::string_view path, std::vector<char>& pairs) {
    return requestData(Operation::FileInfo, text(path), pairs);
}

int32_t AfcClient::deviceInfo(std::vector<char>& pairs) {
    return requestData(Operation::DeviceInfo, "", pairs);
}

int32_t AfcClient::openFile(std::string_view path, uint64_t mode, uint64_t& file) {
    const uint64_t number = nextNumber_;
    if (const int32_t status = send(Operation::OpenFile, word(mode) + text(path))) {
        return status;
    }
    uint64_t bodyBytes = 0;
    if (const int32_t status = receiveReply(number, Operation::FileOpened, bodyBytes)) {
        return status;
    }
    count_->begin();
    return receiveWord(file);
}

int32_t AfcClient::closeFile(uint64_t file) {
    return requestStatus(Operation::CloseFile, word(file));
}

int32_t AfcClient::lockFile(uint64_t file, afc::Lock lock) {
    return requestStatus(Operation::LockFile, word(file) + word(static_cast<uint64_t>(lock)));
}

// The phone reads a file on from where the last request ended, so that one answer that brings less
// than was asked for puts nothing out of order. It is probably the last one that brings anything: what
// is under way will tell, and nothing more is asked for before.
int32_t AfcClient::readFile(uint64_t file, std::span<std::byte> target, size_t& received) {
    received = 0;
    int32_t failure = 0;
    bool goesOn = true;
    bool isShort = false;  // an answer has brought less than was asked for
    size_t unanswered = 0; // bytes that were asked for
    std::deque<PieceAsked> pieces;
    while (goesOn || !pieces.empty()) {
        if (goesOn && pieces.size() <= (isShort ? 0 : kReadsInFlight / 2)) {
            isShort = false;
            const size_t before = pieces.size();
            failure = askForPieces(file, target.size() - received - unanswered, pieces);
            for (size_t i = before; i < pieces.size(); ++i) {
                unanswered += pieces[i].bytes;
            }
        }
        const PieceAsked piece = pieces.front();
        pieces.pop_front();
        size_t bytes = 0;
        const int32_t status = receivePiece(piece, target.subspan(received), bytes);
        unanswered -= piece.bytes;
        // After a failure the rest is taken all the same, so that the next request does not meet it.
        failure = failure != 0 ? failure : status;
        received += failure == 0 ? bytes : 0;
        count_->add(failure == 0 ? bytes : 0);
        isShort = isShort || bytes < piece.bytes;
        goesOn = failure == 0 && bytes > 0 && received + unanswered < target.size();
    }
    return failure;
}

int32_t AfcClient::askForPieces(uint64_t file, size_t bytes, std::deque<PieceAsked>& pieces) {
    struct Request {
        afc::Header header;
        uint64_t file;
        uint64_t bytes;
    };

    std::array<Request, kReadsInFlight> requests;
    size_t count = 0;
    do {
        const size_t asked = std::min(bytes, kPieceBytes);
        bytes -= asked;
        requests[count++] = {afc::makeHeader(Operation::ReadFile, nextNumber_,
                                             sizeof(Request) - afc::kHeaderBytes, 0),
                             htole64(file), htole64(asked)};
        pieces.push_back({nextNumber_++, asked});
    } while (bytes > 0 && pieces.size() < kReadsInFlight);
    std::array parts{part(requests.data(), count * sizeof(Request))};
    channel_->beginExchange();
    return checked(channel_->send(parts));
}

int32_t AfcClient::receivePiece(const PieceAsked& piece, std::span<std::byte> target,
                                size_t& bytes) {
    uint64_t bodyBytes = 0;
    int32_t status = receiveDataHeader(piece.number, piece.bytes, bodyBytes);
    if (status == 0) {
        status = receiveBytes(target.first(bodyBytes));
    }
    bytes = status == 0 ? bodyBytes : 0;
    return status;
}

int32_t AfcClient::writeFile(uint64_t file, std::span<const std::byte> bytes) {
    int32_t failure = 0;
    do {
        const auto next = bytes.first(std::min(bytes.size(), kPiecesInFlight * kPieceBytes));
        bytes = bytes.subspan(next.size());
        failure = writePieces(file, next);
    } while (failure == 0 && !bytes.empty());
    return failure;
}

// Answers are taken as they come, so that the phone is never stopped by them, a refusal is known
// soon, and whoever watches sees the file move.
int32_t AfcClient::writePieces(uint64_t file, std::span<const std::byte> bytes) {
    int32_t failure = 0;
    uint64_t unanswered = nextNumber_;
    size_t unconfirmed = bytes.size();
    const auto takeAnswer = [&] {
        const int32_t status = receiveStatus(unanswered++);
        failure = failure != 0 ? failure : status;
        const size_t piece = std::min(unconfirmed, kPieceBytes);
        unconfirmed -= piece;
        count_->add(status == 0 ? piece : 0);
    };
    channel_->beginExchange();
    do {
        Burst burst(file, nextNumber_, bytes);
        std::span<iovec> parts = burst.parts();
        bool hasGone = false;
        while (!hasGone && !channel_->hasEnded()) {
            const int32_t status = checked(channel_->sendUntilHeard(parts, hasGone));
            failure = failure != 0 ? failure : status;
            while (unanswered < nextNumber_ && channel_->heldBytes() >= kStatusReplyBytes) {
                takeAnswer();
            }
            // Held answers to what was not sent yet would be heard at once, again and again.
            if (!hasGone && unanswered == nextNumber_ && channel_->heldBytes() > 0) {
                return badReply();
            }
        }
    } while (failure == 0 && !bytes.empty());
    // After a failure too, so that the next request does not meet them.
    while (unanswered < nextNumber_) {
        takeAnswer();
    }
    return failure;
}

void AfcClient::shutdown() noexcept {
    channel_->shutdown();
}

int32_t AfcClient::requestStatus(Operation operation, const std::string& arguments) {
    const uint64_t number = nextNumber_;
    if (const int32_t status = send(operation, arguments)) {
        return status;
    }
    return receiveStatus(number);
}

int32_t AfcClient::requestData(Operation operation, const std::string& arguments,
                               std::vector<char>& data) {
    const uint64_t number = nextNumber_;
    uint64_t bytes = 0;
    if (const int32_t status = send(operation, arguments)) {
        return status;
    }
    if (const int32_t status = receiveDataHeader(number, kMaxListBytes, bytes)) {
        return status;
    }
    data.resize(bytes);
    return receiveBytes(std::as_writable_bytes(std::span(data)));
}

int32_t AfcClient::send(Operation operation, const std::string& arguments) {
    const afc::Header header = afc::makeHeader(operation, nextNumber_++, arguments.size(), 0);
    std::array parts{part(&header, sizeof header), part(arguments.data(), arguments.size())};
    channel_->beginExchange();
    return checked(channel_->send(parts));
}

int32_t AfcClient::receiveHeader(uint64_t number, Reply& reply) {
    afc::Header header;
    if (const int32_t status = receiveBytes(std::as_writable_bytes(std::span(&header, 1)))) {
        return status;
    }
    const uint64_t entireLength = le64toh(header.entireLength);
    const uint64_t thisLength = le64toh(header.thisLength);
    if (header.magic != afc::kMagic || le64toh(header.number) != number ||
        entireLength < afc::kHeaderBytes) {
        return badReply();
    }
    reply = {static_cast<Operation>(le64toh(header.operation)), entireLength - afc::kHeaderBytes};
    // Data is all payload, everything else one word of arguments.
    const bool wellFormed = reply.operation == Operation::Data
                                ? thisLength == afc::kHeaderBytes
                                : thisLength == entireLength && reply.bodyBytes == sizeof(uint64_t);
    return wellFormed ? 0 : badReply();
}

int32_t AfcClient::receiveReply(uint64_t number, Operation wanted, uint64_t& bodyBytes) {
    Reply reply{};
    if (const int32_t status = receiveHeader(number, reply)) {
        return status;
    }
    if (reply.operation == Operation::Status && wanted != Operation::Status) {
        const int32_t status = receiveStatusWord();
        // Success alone is no answer to a request for something.
        return status != 0 ? status : badReply();
    }
    bodyBytes = reply.bodyBytes;
    return reply.operation == wanted ? 0 : badReply();
}

int32_t AfcClient::receiveStatus(uint64_t number) {
    uint64_t bodyBytes = 0;
    if (const int32_t status = receiveReply(number, Operation::Status, bodyBytes)) {
        return status;
    }
    return receiveStatusWord();
}

int32_t AfcClient::receiveStatusWord() {
    uint64_t status = 0;
    if (const int32_t failure = receiveWord(status)) {
        return failure;
    }
    return status <= std::numeric_limits<int32_t>::max() ? static_cast<int32_t>(status)
                                                         : badReply();
}

int32_t AfcClient::receiveDataHeader(uint64_t number, uint64_t maxBytes, uint64_t& bytes) {
    if (const int32_t status = receiveReply(number, Operation::Data, bytes)) {
        return status;
    }
    return bytes <= maxBytes ? 0 : badReply();
}

int32_t AfcClient::receiveWord(uint64_t& word) {
    uint64_t wire = 0;
    if (const int32_t status = receiveBytes(std::as_writable_bytes(std::span(&wire, 1)))) {
        return status;
    }
    word = le64toh(wire);
    return 0;
}

int32_t AfcClient::receiveBytes(std::span<std::byte> target) {
    return checked(channel_->receive(target));
}

int32_t AfcClient::checked(IoResult result) {
    switch (result) {
    case IoResult::Done:
        return 0;
    case IoResult::Closed:
        channel_->shutdown();
        return kAFCNotConnected;
    case IoResult::Cancelled:
        return kAFCCancelled;
    case IoResult::TimedOut:
        channel_->shutdown();
        return kAFCTimedOut;
    }
    return kAFCNotConnected;
}

int32_t AfcClient::badReply() {
    channel_->shutdown();
    return kAFCBadReply;
}

} // namespace krl::provider
