#pragma once

#include "engine/files/ContentDigests.h"
#include "engine/files/RegularFile.h"
#include "engine/safe/Disk.h"
#include "engine/values/Digest.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace krl::engine {

/// A content and how long it is.
struct Content {
    Digest digest;
    uint64_t size = 0;

    friend auto operator<=>(const Content&, const Content&) = default;
};

/// Takes contents in and gives them back, each once, by its digest. A content has its name only
/// when it is there whole: it is written and synced under another one first.
class ContentStore {
public:
    /// Makes the folder where it is missing.
    ContentStore(std::filesystem::path folder, Disk& disk);

    /// A content on its way in; given up unless it is kept. A small one, as most are, comes to the
    /// disk only when it is kept and not there yet.
    class Incoming {
    public:
        /// @param awaited  what it probably is: compared with what is there, it costs no digest
        explicit Incoming(ContentStore& store,
                          const std::optional<Content>& awaited = std::nullopt);

        ~Incoming();
        Incoming(const Incoming&) = delete;
        Incoming& operator=(const Incoming&) = delete;

        void add(std::string_view bytes);

        /// Keeps it under its digest. The last call to an object.
        Content keep();

    private:
        friend class ContentStore;

        void take(std::string_view bytes);
        void takeCompared();
        void beginFile();

        ContentStore& store_;
        std::optional<Content> awaited_;
        Descriptor copy_;            ///< of what is awaited, while nothing else has come
        uint64_t compared_ = 0;      ///< bytes that are as awaited, and not taken
        std::string held_;           ///< all of it, while there is no file
        std::filesystem::path path_; ///< empty while there is no file
        Descriptor file_;
        Sha256 sha_;
        uint64_t size_ = 0;
    };

    Content put(std::string_view bytes);

    /// A copy of a file of this computer, which shares its blocks where the disk can.
    /// @throw Failure also when the file cannot be read
    Content putFile(const std::filesystem::path& file);

    /// The same. Of a file that is kept already and whose digest is known, nothing is read.
    Content putFile(const std::filesystem::path& file, ContentDigests& digests);

    bool has(const Content& content) const;

    /// @throw Failure when this computer has no room for so many bytes more
    void requireRoom(uint64_t bytes) const;

    /// Gives a content piece by piece.
    /// @throw Failure when it is not there or, after the last piece, when it is damaged; it is
    ///        dropped then, so that it is taken in anew when it is met again
    void read(const Digest& digest, const std::function<void(std::string_view)>& take);

    /// A content as a file that is open for reading.
    /// @throw Failure when it is not there
    Descriptor open(const Digest& digest) const;

    /// The same as read() at once.
    std::string bytes(const Digest& digest);

    /// Makes sure that all that was kept is on the disk under its name.
    void settle();

    /// Drops all other contents, and what broken runs left.
    void dropAllBut(const std::set<Digest>& kept);

private:
    Content putFile(const RegularFile& source);

    std::filesystem::path pathOf(const Digest& digest) const { return folder_ / digest.hex(); }

    void copyInto(Incoming& incoming, const Descriptor& source, uint64_t size);

    std::filesystem::path folder_;
    Disk& disk_;
    bool isSettled_ = false; ///< a broken run may have left names that are not on the disk yet
};

} // namespace krl::engine
