#include "torture/disk/Unsynced.h"

#include <system_error>
#include <utility>

namespace torture {

namespace fs = std::filesystem;

Unsynced::Unsynced(fs::path kept) : kept_(std::move(kept)) {}

void Unsynced::created(const std::string& path) {
    names_.push_back({Kind::Created, path, {}, {}});
    sizes_[path] = 0;
}

void Unsynced::folderMade(const std::string& path) {
    names_.push_back({Kind::FolderMade, path, {}, {}});
}

void Unsynced::emptied(const std::string& path) {
    sizes_[path] = 0;
}

void Unsynced::written(const std::string& path, off_t sizeBefore) {
    sizes_.try_emplace(path, sizeBefore);
}

void Unsynced::synced(const std::string& path) {
    sizes_.erase(path);
    std::erase_if(names_, [&](const Name& name) { return name.path.parent_path() == path; });
}

void Unsynced::renamed(const std::string& from, const std::string& to, const fs::path& kept) {
    names_.push_back({Kind::Renamed, to, from, kept});
    sizes_.erase(to);
    if (auto size = sizes_.extract(from)) {
        size.key() = to;
        sizes_.insert(std::move(size));
    }
}

void Unsynced::removed(const std::string& path, const fs::path& kept) {
    names_.push_back({Kind::Removed, path, {}, kept});
    sizes_.erase(path);
}

void Unsynced::loseBytes() {
    for (const auto& [path, size] : sizes_) {
        std::error_code gone;
        fs::resize_file(path, static_cast<uintmax_t>(size), gone);
    }
    sizes_.clear();
}

void Unsynced::loseNames() {
    for (auto name = names_.rbegin(); name != names_.rend(); ++name) {
        takeBack(*name);
    }
    names_.clear();
}

fs::path Unsynced::keep(const std::string& path) {
    std::error_code missing;
    fs::create_directories(kept_, missing);
    const fs::path second = kept_ / std::to_string(++count_);
    fs::create_hard_link(path, second, missing);
    return missing ? fs::path() : second;
}

void Unsynced::takeBack(const Name& name) {
    std::error_code gone;
    switch (name.kind) {
    case Kind::Created:
        fs::remove(name.path, gone);
        break;
    case Kind::FolderMade:
        fs::remove_all(name.path, gone);
        break;
    case Kind::Renamed:
        fs::rename(name.path, name.from, gone);
        [[fallthrough]];
    case Kind::Removed:
        if (!name.kept.empty()) {
            fs::rename(name.kept, name.path, gone);
        }
        break;
    }
}

} // namespace torture
