// What the safe costs: vesk syncs ringtones onto a phone with it and without it, in turns, when the
// safe has all of them already.

#include "bench/Programs.h"
#include "tests/support/TemporaryFolder.h"
#include "virtualphone/VirtualPhone.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr int kRuns = 9;
constexpr int kRingtones = 20;
constexpr size_t kBytes = 300 * 1024;

void writeRingtones(const fs::path& folder) {
    fs::create_directories(folder);
    for (int i = 0; i < kRingtones; ++i) {
        std::string sound(kBytes, static_cast<char>('a' + i));
        std::ofstream(folder / ("tone " + std::to_string(i) + ".m4r"), std::ios::binary) << sound;
    }
}

void vesk(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), KRL_VESK);
    arguments.emplace_back("--quiet");
    krl::bench::run(arguments);
}

/// Syncs the ringtones onto a phone that has none, and takes them off again.
double secondsOfSync(const fs::path& root, const std::vector<std::string>& options) {
    std::vector<std::string> fill{"sync", "--unchecked", (root / "tones").string()};
    std::vector<std::string> empty{"sync", (root / "none").string(), "--yes"};
    fill.insert(fill.end(), options.begin(), options.end());
    empty.insert(empty.end(), options.begin(), options.end());
    const double taken = krl::bench::secondsOf([&] { vesk(fill); });
    vesk(empty);
    return taken;
}

} // namespace

int main() {
    const virtualphone::testing::TemporaryFolder root;
    setenv("XDG_STATE_HOME", (root.path() / "state").c_str(), 1);
    setenv("XDG_CACHE_HOME", (root.path() / "cache").c_str(), 1);
    writeRingtones(root.path() / "tones");
    fs::create_directories(root.path() / "none");
    {
        virtualphone::Bus bus;
        setenv("USBMUXD_SOCKET_ADDRESS", bus.environmentValue().c_str(), 1);
        bus.plug(std::make_shared<virtualphone::Phone>(
            virtualphone::PhoneOptions{.root = root.path() / "phone"}));
        secondsOfSync(root.path(), {}); // all is in the safe afterwards
        std::vector<double> with;
        std::vector<double> without;
        for (int i = 0; i < kRuns; ++i) {
            with.push_back(secondsOfSync(root.path(), {}));
            without.push_back(secondsOfSync(root.path(), {"--no-backup"}));
        }
        std::printf("sync of %d ringtones with the safe over one without: %.2f (with it %.3g ms), "
                    "median of %d runs\n",
                    kRingtones, krl::bench::median(with) / krl::bench::median(without),
                    krl::bench::median(with) * 1e3, kRuns);
    }
}
