#include "desktop/program/Application.h"

#include <clocale>
#include <csignal>
#include <libintl.h>

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "");
    bindtextdomain("krlvesk", VESK_LOCALE_FOLDER);
    bind_textdomain_codeset("krlvesk", "UTF-8");
    std::signal(SIGPIPE,
                SIG_IGN); // a process that is asked about a song may end before it is asked
    return krl::desktop::Application().run(argc, argv);
}
