// A client of the library that others use for the same phones. It finds the phone by
// USBMUXD_SOCKET_ADDRESS and prints what it was told, for a test to read.
//
//   device-info | list PATH | info PATH | mkdir PATH | write PATH SIZE PIECE | check PATH SIZE
//   read PATH | rename FROM TO | remove PATH | truncate PATH SIZE | link TARGET PATH
//   lock PATH | post NAME... | observe NAME | events COUNT

#include <libimobiledevice/afc.h>
#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/lockdown.h>
#include <libimobiledevice/notification_proxy.h>
#include <usbmuxd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

template <auto Free>
struct Deleter {
    template <typename T>
    void operator()(T* object) const {
        Free(object);
    }
};

using Device = std::unique_ptr<idevice_private, Deleter<idevice_free>>;
using Lockdown = std::unique_ptr<lockdownd_client_private, Deleter<lockdownd_client_free>>;
using ServiceDescriptor =
    std::unique_ptr<lockdownd_service_descriptor, Deleter<lockdownd_service_descriptor_free>>;
using Afc = std::unique_ptr<afc_client_private, Deleter<afc_client_free>>;
using NotificationProxy = std::unique_ptr<np_client_private, Deleter<np_client_free>>;

using Arguments = std::vector<std::string>;

void check(int error, const char* what) {
    if (error != 0) {
        throw std::runtime_error(std::string(what) + " failed: " + std::to_string(error));
    }
}

Device openDevice() {
    idevice_t device = nullptr;
    check(idevice_new(&device, nullptr), "idevice_new");
    return Device(device);
}

ServiceDescriptor startService(idevice_t device, const char* name) {
    lockdownd_client_t client = nullptr;
    check(lockdownd_client_new_with_handshake(device, &client, "peer"), "handshake");
    const Lockdown lockdown(client);
    lockdownd_service_descriptor_t service = nullptr;
    check(lockdownd_start_service(client, name, &service), "start_service");
    return ServiceDescriptor(service);
}

Afc openAfc(idevice_t device) {
    const ServiceDescriptor service = startService(device, "com.apple.afc");
    afc_client_t client = nullptr;
    check(afc_client_new(device, service.get(), &client), "afc_client_new");
    return Afc(client);
}

NotificationProxy openProxy(idevice_t device) {
    const ServiceDescriptor service = startService(device, "com.apple.mobile.notification_proxy");
    np_client_t client = nullptr;
    check(np_client_new(device, service.get(), &client), "np_client_new");
    return NotificationProxy(client);
}

uint64_t openFile(afc_client_t afc, const std::string& path, afc_file_mode_t mode) {
    uint64_t handle = 0;
    check(afc_file_open(afc, path.c_str(), mode, &handle), "open");
    return handle;
}

// The byte that stands at a place of a written file.
char patternAt(uint64_t place) {
    return static_cast<char>(place * 131 + place / 251);
}

std::string pattern(uint64_t from, uint64_t size) {
    std::string bytes(size, '\0');
    for (uint64_t i = 0; i < size; ++i) {
        bytes[i] = patternAt(from + i);
    }
    return bytes;
}

void printSorted(char** list) {
    std::vector<std::string> lines;
    for (char** item = list; *item != nullptr; ++item) {
        lines.emplace_back(*item);
    }
    std::sort(lines.begin(), lines.end());
    for (const std::string& line : lines) {
        std::cout << line << '\n';
    }
    afc_dictionary_free(list);
}

void printPairs(char** list) {
    for (char** item = list; item[0] != nullptr && item[1] != nullptr; item += 2) {
        std::cout << item[0] << '=' << item[1] << '\n';
    }
    afc_dictionary_free(list);
}

void list(afc_client_t afc, const Arguments& arguments) {
    char** names = nullptr;
    check(afc_read_directory(afc, arguments.at(0).c_str(), &names), "read_directory");
    printSorted(names);
}

void info(afc_client_t afc, const Arguments& arguments) {
    char** pairs = nullptr;
    check(afc_get_file_info(afc, arguments.at(0).c_str(), &pairs), "get_file_info");
    printPairs(pairs);
}

void deviceInfo(afc_client_t afc, const Arguments&) {
    char** pairs = nullptr;
    check(afc_get_device_info(afc, &pairs), "get_device_info");
    printPairs(pairs);
}

void write(afc_client_t afc, const Arguments& arguments) {
    const uint64_t size = std::stoull(arguments.at(1));
    const uint64_t piece = std::stoull(arguments.at(2));
    const std::string bytes = pattern(0, size);
    const uint64_t file = openFile(afc, arguments.at(0), AFC_FOPEN_WRONLY);
    const auto start = std::chrono::steady_clock::now();
    for (uint64_t at = 0; at < size; at += piece) {
        uint32_t written = 0;
        errno = 0; // the library takes another value for a failed send
        check(afc_file_write(afc, file, bytes.data() + at,
                             static_cast<uint32_t>(std::min(piece, size - at)), &written),
              "write");
    }
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    check(afc_file_close(afc, file), "close");
    std::cout << "written " << size << '\n';
    std::cerr << static_cast<double>(size) / time.count() / 1048576 << " MiB/s\n";
}

std::string readWhole(afc_client_t afc, const std::string& path) {
    constexpr uint32_t kPiece = 65536;
    const uint64_t file = openFile(afc, path, AFC_FOPEN_RDONLY);
    std::string whole;
    while (true) {
        std::vector<char> piece(kPiece);
        uint32_t got = 0;
        check(afc_file_read(afc, file, piece.data(), kPiece, &got), "read");
        if (got == 0) {
            break;
        }
        whole.append(piece.data(), got);
    }
    check(afc_file_close(afc, file), "close");
    return whole;
}

void read(afc_client_t afc, const Arguments& arguments) {
    std::cout << readWhole(afc, arguments.at(0)) << '\n';
}

void checkContents(afc_client_t afc, const Arguments& arguments) {
    const bool isSame = readWhole(afc, arguments.at(0)) == pattern(0, std::stoull(arguments.at(1)));
    std::cout << (isSame ? "same" : "different") << '\n';
}

void makeDirectory(afc_client_t afc, const Arguments& arguments) {
    std::cout << afc_make_directory(afc, arguments.at(0).c_str()) << '\n';
}

void rename(afc_client_t afc, const Arguments& arguments) {
    std::cout << afc_rename_path(afc, arguments.at(0).c_str(), arguments.at(1).c_str()) << '\n';
}

void remove(afc_client_t afc, const Arguments& arguments) {
    std::cout << afc_remove_path(afc, arguments.at(0).c_str()) << '\n';
}

void truncate(afc_client_t afc, const Arguments& arguments) {
    std::cout << afc_truncate(afc, arguments.at(0).c_str(), std::stoull(arguments.at(1))) << '\n';
}

void makeLink(afc_client_t afc, const Arguments& arguments) {
    std::cout << afc_make_link(afc, AFC_SYMLINK, arguments.at(0).c_str(), arguments.at(1).c_str())
              << '\n';
}

// Two connections want the same lock.
void lock(idevice_t device, const Arguments& arguments) {
    const Afc first = openAfc(device);
    const uint64_t firstFile = openFile(first.get(), arguments.at(0), AFC_FOPEN_RW);
    const Afc second = openAfc(device);
    const uint64_t secondFile = openFile(second.get(), arguments.at(0), AFC_FOPEN_RW);
    std::cout << "first " << afc_file_lock(first.get(), firstFile, AFC_LOCK_EX) << '\n';
    std::cout << "second " << afc_file_lock(second.get(), secondFile, AFC_LOCK_EX) << '\n';
    std::cout << "unlock " << afc_file_lock(first.get(), firstFile, AFC_LOCK_UN) << '\n';
    std::cout << "second " << afc_file_lock(second.get(), secondFile, AFC_LOCK_EX) << '\n';
    std::cout << "close " << afc_file_close(second.get(), secondFile) << '\n';
    std::cout << "first " << afc_file_lock(first.get(), firstFile, AFC_LOCK_EX) << '\n';
}

void post(idevice_t device, const Arguments& arguments) {
    const NotificationProxy proxy = openProxy(device);
    for (const std::string& name : arguments) {
        check(np_post_notification(proxy.get(), name.c_str()), "post_notification");
    }
    std::cout << "posted\n";
}

/// What the library's threads have to tell.
class Mailbox {
public:
    void add(std::string line) {
        const std::lock_guard lock(mutex_);
        lines_.push_back(std::move(line));
        added_.notify_all();
    }

    void print(size_t count) {
        for (size_t i = 0; i < count; ++i) {
            std::unique_lock lock(mutex_);
            added_.wait(lock, [&] { return lines_.size() > i; });
            std::cout << lines_[i] << std::endl;
        }
    }

private:
    std::mutex mutex_;
    std::condition_variable added_;
    std::vector<std::string> lines_;
};

void observe(idevice_t device, const Arguments& arguments) {
    Mailbox mailbox;
    const NotificationProxy proxy = openProxy(device);
    check(np_observe_notification(proxy.get(), arguments.at(0).c_str()), "observe_notification");
    check(np_set_notify_callback(
              proxy.get(),
              [](const char* name, void* context) {
                  static_cast<Mailbox*>(context)->add(std::string("got ") + name);
              },
              &mailbox),
          "set_notify_callback");
    std::cout << "observing" << std::endl;
    mailbox.print(1);
    np_set_notify_callback(proxy.get(), nullptr, nullptr);
}

void events(const Arguments& arguments) {
    Mailbox mailbox;
    libusbmuxd_set_use_inotify(0); // it watches another place than this socket's
    check(idevice_event_subscribe(
              [](const idevice_event_t* event, void* context) {
                  const char* const what = event->event == IDEVICE_DEVICE_ADD      ? "add "
                                           : event->event == IDEVICE_DEVICE_REMOVE ? "remove "
                                                                                   : "paired ";
                  static_cast<Mailbox*>(context)->add(std::string(what) + event->udid);
              },
              &mailbox),
          "event_subscribe");
    mailbox.print(std::stoul(arguments.at(0)));
    idevice_event_unsubscribe();
}

int act(const std::string& command, const Arguments& arguments) {
    if (command == "events") {
        events(arguments);
        return 0;
    }
    const std::map<std::string, std::function<void(idevice_t, const Arguments&)>> ofDevice = {
        {"lock", lock}, {"post", post}, {"observe", observe}};
    const std::map<std::string, std::function<void(afc_client_t, const Arguments&)>> ofFiles = {
        {"list", list},           {"info", info},     {"device-info", deviceInfo},
        {"write", write},         {"read", read},     {"check", checkContents},
        {"mkdir", makeDirectory}, {"rename", rename}, {"remove", remove},
        {"truncate", truncate},   {"link", makeLink}};
    const Device device = openDevice();
    if (const auto found = ofDevice.find(command); found != ofDevice.end()) {
        found->second(device.get(), arguments);
        return 0;
    }
    ofFiles.at(command)(openAfc(device.get()).get(), arguments);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return act(argv[1], Arguments(argv + 2, argv + argc));
    } catch (const std::exception& error) {
        std::cout << error.what() << '\n';
        return 1;
    }
}
