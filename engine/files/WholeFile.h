#pragma once

#include <filesystem>
#include <string_view>

namespace krl::engine {

/// A file of this computer that gets its name once it is whole: whoever finds the name finds all of
/// it. Until then it is a hidden file "….part" of the same folder, and one that is not finished goes
/// with its object.
class WholeFile {
public:
    /// What becomes of a file that has the name already.
    enum class Existing { IsKept, IsReplaced };

    /// Begins a file, and makes its folder where there is none.
    /// @throw Failure when it cannot be written
    explicit WholeFile(std::filesystem::path place);
    ~WholeFile();
    WholeFile(const WholeFile&) = delete;
    WholeFile& operator=(const WholeFile&) = delete;

    /// @throw Failure when it cannot be written
    void add(std::string_view bytes);

    /// Gives the file its name. The last call to an object.
    /// @throw Failure when the name is taken, or cannot be given
    void finish(Existing existing);

private:
    std::filesystem::path place_;
    std::filesystem::path incoming_;
    int descriptor_ = -1;
};

} // namespace krl::engine
