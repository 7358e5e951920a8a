// What callers hold instead of pointers: numbers that are never used twice.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace krl::provider {

/// What a handle may stand for.
class Object {
public:
    Object() = default;
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;
    virtual ~Object() = default;
};

/// Handles look like pointers and never are: a null, stale, doubled or foreign one is simply not
/// found, and so is one of another type. An object stays alive while a call that found it goes on.
/// A handle may have an owner, with which it goes at the latest. Any thread.
class Handles {
public:
    using Id = uintptr_t;

    /// Adds an object with one reference. 0 if its owner is no longer there.
    Id add(std::shared_ptr<Object> object, Id owner = 0);

    template <typename T>
    std::shared_ptr<T> find(const void* handle) {
        const std::lock_guard lock(mutex_);
        return std::dynamic_pointer_cast<T>(objectOf(idOf(handle)));
    }

    /// All objects of a type.
    template <typename T>
    std::vector<std::shared_ptr<T>> all() {
        std::vector<std::shared_ptr<T>> found;
        const std::lock_guard lock(mutex_);
        for (const auto& [id, entry] : entries_) {
            if (auto object = std::dynamic_pointer_cast<T>(entry.object)) {
                found.push_back(std::move(object));
            }
        }
        return found;
    }

    /// Finds the object and adds a reference.
    template <typename T>
    std::shared_ptr<T> retain(const void* handle) {
        const std::lock_guard lock(mutex_);
        auto object = std::dynamic_pointer_cast<T>(objectOf(idOf(handle)));
        if (object) {
            ++entries_.at(idOf(handle)).references;
        }
        return object;
    }

    /// Takes a reference back. With the last one the handle goes, and the object is returned.
    template <typename T>
    std::shared_ptr<T> release(const void* handle) {
        std::vector<Entry> removed; // destroyed after the lock is given back
        const std::lock_guard lock(mutex_);
        auto object = std::dynamic_pointer_cast<T>(objectOf(idOf(handle)));
        if (!object || --entries_.at(idOf(handle)).references > 0) {
            return nullptr;
        }
        remove(idOf(handle), removed);
        return object;
    }

    /// Finds the object and makes the handle stale, whatever its references.
    template <typename T>
    std::shared_ptr<T> take(const void* handle) {
        std::vector<Entry> removed;
        const std::lock_guard lock(mutex_);
        auto object = std::dynamic_pointer_cast<T>(objectOf(idOf(handle)));
        if (object) {
            remove(idOf(handle), removed);
        }
        return object;
    }

private:
    struct Entry {
        std::shared_ptr<Object> object;
        Id owner;
        size_t references;
        std::unordered_set<Id> owned;
    };

    static Id idOf(const void* handle) { return reinterpret_cast<Id>(handle); }

    std::shared_ptr<Object> objectOf(Id id) const;
    /// Takes an entry and all that it owns out of the table.
    void remove(Id id, std::vector<Entry>& removed);

    std::mutex mutex_;
    Id lastId_ = 0;
    std::unordered_map<Id, Entry> entries_;
};

/// A handle as callers hold it.
template <typename Opaque>
Opaque* toHandle(Handles::Id id) {
    return reinterpret_cast<Opaque*>(id); // NOLINT(performance-no-int-to-ptr): never dereferenced
}

/// The process's handles. They outlive whoever could ask for one, exit handlers included.
Handles& handles();

} // namespace krl::provider
