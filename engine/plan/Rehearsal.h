#pragma once

#include "engine/layer/DeviceLayer.h"
#include "engine/plan/PhonePicture.h"
#include "engine/plan/Plan.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace krl::engine {

/// A phone's file service in memory, over what was read from the phone: what is written, renamed
/// and removed stays here and is noted. Nothing of it reaches the phone. What is read and is not
/// known here is asked from the phone.
class Rehearsal : public FileCalls {
public:
    explicit Rehearsal(const PhoneState& phone) : picture_(phone) {}

    const std::vector<Operation>& notes() const { return notes_; }

    const PhonePicture& picture() const { return picture_; }

    /// The next file that is written is this ringtone's, from a file of this computer.
    void uploadBegins(const std::string& name) { uploading_ = name; }

    /// The origin of an uploaded file.
    static std::string fromComputer(const std::string& name) { return "computer:" + name; }

    int32_t createDirectory(afc_connection* files, const char* path) override;
    int32_t openDirectory(afc_connection* files, const char* path,
                          afc_directory** directory) override;
    int32_t removePath(afc_connection* files, const char* path) override;
    int32_t renamePath(afc_connection* files, const char* from, const char* to) override;
    int32_t openFile(afc_connection* files, const char* path, uint64_t mode,
                     afc_file_ref* file) override;
    int32_t readFile(afc_connection* files, afc_file_ref file, void* buffer,
                     uint32_t* length) override;
    int32_t writeFile(afc_connection* files, afc_file_ref file, const void* bytes,
                      uint32_t count) override;
    int32_t closeFile(afc_connection* files, afc_file_ref file) override;
    int32_t lockFile(afc_connection* files, afc_file_ref file) override;
    int32_t fileInfo(afc_connection* files, const char* path, afc_dictionary** info) override;

protected:
    /// A file that is open here.
    struct Open {
        std::string path;
        size_t next = 0;                 ///< the byte to be read
        std::optional<size_t> note = {}; ///< of what is written
    };

    /// The file of this handle, or null.
    Open* opened(afc_file_ref file);

    /// What this has of a file; none when only the phone knows.
    std::optional<layer::FileAnswer> known(const std::string& path) const;

private:
    void note(Operation operation) { notes_.push_back(std::move(operation)); }

    PhonePicture picture_;
    std::vector<Operation> notes_;
    std::map<afc_file_ref, Open> open_;
    std::string uploading_;
    bool wroteCatalogue_ = false;
};

} // namespace krl::engine
