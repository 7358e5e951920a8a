#pragma once

#include <MobileDevice/MobileDevice.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace krl::engine {

/// What passes between the library and one phone's file service. Each of these calls what lies
/// below, the provider, unless a derived class answers in its place.
class FileCalls {
public:
    virtual ~FileCalls() = default;

    virtual int32_t createDirectory(afc_connection* files, const char* path);
    virtual int32_t openDirectory(afc_connection* files, const char* path,
                                  afc_directory** directory);
    virtual int32_t removePath(afc_connection* files, const char* path);
    virtual int32_t renamePath(afc_connection* files, const char* from, const char* to);
    virtual int32_t openFile(afc_connection* files, const char* path, uint64_t mode,
                             afc_file_ref* file);
    virtual int32_t readFile(afc_connection* files, afc_file_ref file, void* buffer,
                             uint32_t* length);
    virtual int32_t writeFile(afc_connection* files, afc_file_ref file, const void* bytes,
                              uint32_t count);
    virtual int32_t closeFile(afc_connection* files, afc_file_ref file);
    virtual int32_t lockFile(afc_connection* files, afc_file_ref file);
    virtual int32_t fileInfo(afc_connection* files, const char* path, afc_dictionary** info);
};

/// A thin layer over the function variables of MobileDevice.h, through which all calls go to the
/// provider. Laid once, before the first phone is looked for, and never taken off. A phone that
/// nobody asks about here has its calls passed on as they are.
namespace layer {

/// Lays it; does nothing where there is no provider, or when it is laid already.
void lay();

/// The connection to a phone's file service that was opened last and is still open, or null.
afc_connection* connectionOf(am_device* device);

/// A directory or a file's values that no phone has listed: for calls that are answered here.
afc_directory* makeDirectory(std::vector<std::string> names);
afc_dictionary* makeFileInfo(uint64_t sizeBytes);

/// What a phone says of a file: its size, or the status of the answer.
struct FileAnswer {
    int32_t status = 0;
    uint64_t sizeBytes = 0;
};

FileAnswer askForFile(afc_connection* files, const char* path);

/// For as long as one lives, the file calls for a phone go to these. One a phone at a time.
class Redirection {
public:
    Redirection(am_device* device, FileCalls& calls);
    ~Redirection();
    Redirection(const Redirection&) = delete;
    Redirection& operator=(const Redirection&) = delete;

private:
    am_device* device_;
};

/// For as long as one lives, it is told of each operation on the phone's file service before it
/// is carried out, with the opens of the phone that the library takes back for it at most.
class Listener {
public:
    Listener(am_device* device, std::function<void(size_t opensTaken)> told);
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

private:
    am_device* device_;
};

} // namespace layer
} // namespace krl::engine
