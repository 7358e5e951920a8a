/// What a folder loses when the power goes.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace torture {

/// Bytes are on the disk once their file has been synced, names once their folder has. Everything
/// else is noted here and can be taken back, as if it had never come to the disk. Paths are absolute.
class Unsynced {
public:
    /// @param kept  a folder of the same file system, for files whose names are taken away
    explicit Unsynced(std::filesystem::path kept);

    /// Gives a file that is about to lose its name a second one; empty when there is no file.
    std::filesystem::path keep(const std::string& path);

    // What was done, with what stood under a name before.

    void created(const std::string& path);
    void folderMade(const std::string& path);
    void emptied(const std::string& path);
    void written(const std::string& path, off_t sizeBefore);
    void renamed(const std::string& from, const std::string& to, const std::filesystem::path& kept);
    void removed(const std::string& path, const std::filesystem::path& kept);
    void synced(const std::string& path); ///< a file, or a folder

    /// Bytes that were not synced are gone.
    void loseBytes();

    /// Names that were not synced are as they were before.
    void loseNames();

private:
    enum class Kind { Created, FolderMade, Renamed, Removed };

    struct Name {
        Kind kind;
        std::filesystem::path path; ///< after a renaming, the new one
        std::filesystem::path from;
        std::filesystem::path kept; ///< what stood there before; empty when nothing did
    };

    static void takeBack(const Name& name);

    std::filesystem::path kept_;
    unsigned count_ = 0;
    std::vector<Name> names_;
    std::map<std::string, off_t> sizes_; ///< of files with bytes that are not synced: what is
};

} // namespace torture
