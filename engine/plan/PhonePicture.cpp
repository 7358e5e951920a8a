#include "engine/plan/PhonePicture.h"

#include <algorithm>

namespace krl::engine {

PhonePicture::PhonePicture(const PhoneState& phone)
    : catalogue_(phone.catalogueFile), folderExists_(phone.folderExists) {
    for (const FolderFile& file : phone.folder) {
        files_[file.name] = {onPhone(file.name), file.size};
        order_.push_back(file.name);
        listed_.insert(file.name);
    }
}

const PhonePicture::File* PhonePicture::find(const std::string& file) const {
    const auto found = files_.find(file);
    return found == files_.end() ? nullptr : &found->second;
}

std::vector<std::string> PhonePicture::names() const {
    std::vector<std::string> names;
    std::copy_if(order_.begin(), order_.end(), std::back_inserter(names),
                 [this](const std::string& name) { return files_.contains(name); });
    return names;
}

void PhonePicture::create(const std::string& file, const std::string& origin) {
    remove(file);
    files_[file] = {origin, 0};
    if (listed_.insert(file).second) {
        order_.push_back(file);
    }
}

void PhonePicture::grow(const std::string& file, uint64_t bytes) {
    files_.at(file).size += bytes;
    take(static_cast<int64_t>(bytes));
}

void PhonePicture::rename(const std::string& from, const std::string& to) {
    const File file = files_.at(from);
    remove(from);
    create(to, file.origin);
    grow(to, file.size);
}

void PhonePicture::remove(const std::string& file) {
    const auto found = files_.find(file);
    if (found != files_.end()) {
        take(-static_cast<int64_t>(found->second.size));
        files_.erase(found);
    }
}

void PhonePicture::createCatalogue() {
    removeCatalogue();
    catalogue_ = std::string();
}

void PhonePicture::growCatalogue(std::string_view bytes) {
    catalogue_->append(bytes);
    take(static_cast<int64_t>(bytes.size()));
}

void PhonePicture::removeCatalogue() {
    take(catalogue_ ? -static_cast<int64_t>(catalogue_->size()) : 0);
    catalogue_.reset();
}

void PhonePicture::take(int64_t bytes) {
    taken_ += bytes;
    mostSpace_ = std::max(mostSpace_, static_cast<uint64_t>(std::max<int64_t>(taken_, 0)));
}

} // namespace krl::engine
