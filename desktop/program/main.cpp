#include "desktop/program/Application.h"

#include <clocale>
#include <csignal>
#include <filesystem>
#include <libintl.h>

namespace {

/// Where translations lie: beside the folder of programs, wherever that is.
std::filesystem::path localeFolder() {
    std::error_code ignored;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", ignored);
    return program.parent_path().parent_path() / VESK_LOCALE_FOLDER;
}

} // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "");
    bindtextdomain("krlvesk", localeFolder().c_str());
    bind_textdomain_codeset("krlvesk", "UTF-8");
    std::signal(SIGPIPE,
                SIG_IGN); // a process that is asked about a song may end before it is asked
    return krl::desktop::Application().run(argc, argv);
}
