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
    std::string name;
    std::vector<std::string> arguments;
    std::map<std::string, std::string> wanted; ///< names and sounds afterwards
};

/// A phone with ringtones of several types; on older layouts with placeholders, a pair of names
/// that the firmware does not accept, and a name that is too long, so that files have to move.
Files phoneBefore(bool olderLayout);

/// The jobs, with their files made in a folder of this computer.
std::vector<Job> makeJobs(const std::filesystem::path& folder);

} // namespace torture
