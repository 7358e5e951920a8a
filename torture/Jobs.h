/// The phones that are tortured, and what is done to them.
#pragma once

#include "torture/PhoneContents.h"

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace torture {

/// A command line of vesk, what it starts from and what comes of it.
struct Job {
    /// What becomes of a ringtone that somebody else adds meanwhile.
    enum class Others { Stay, Go, NotTried };

    std::string name;
    std::vector<std::vector<std::string>> first; ///< commands that make what it starts from
    std::vector<std::string> arguments;
    std::map<std::string, std::string> wanted; ///< names and sounds afterwards
    Others others = Others::NotTried;
};

/// What somebody else puts on the phone.
struct Addition {
    std::string name;
    std::string sound;
    std::vector<std::string> arguments; ///< of vesk, to add it
};

/// A phone with ringtones of several types; on older layouts with placeholders, a pair of names
/// that the firmware does not accept, and a name that is too long, so that files have to move.
Files phoneBefore(bool olderLayout);

/// The jobs, with their files made in a folder of this computer.
std::vector<Job> makeJobs(const std::filesystem::path& folder);

/// A ringtone that no job knows, with its file made in a folder of this computer.
Addition makeAddition(const std::filesystem::path& folder, const std::string& name);

} // namespace torture
