// Fills the function variables from MobileDevice.so when this library is loaded.

#include <MobileDevice/Provider.h>
#include <dlfcn.h>

#include <algorithm>
#include <iterator>
#include <string>

namespace {

// Where this library stands, with a slash at the end; empty if that cannot be told.
std::string ownFolder() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<const void*>(&ownFolder), &info) == 0 ||
        info.dli_fname == nullptr) {
        return "";
    }
    const std::string path = info.dli_fname;
    return path.substr(0, path.rfind('/') + 1);
}

bool isComplete(const MobileDeviceTable* table) {
    if (table == nullptr || table->version != MOBILEDEVICE_PROVIDER_VERSION ||
        table->size != sizeof(MobileDeviceTable)) {
        return false;
    }
#define KRL_IS_THERE(function) table->function != nullptr,
    const bool areThere[] = {MOBILEDEVICE_REQUIRED_FUNCTIONS(KRL_IS_THERE)};
#undef KRL_IS_THERE
    return std::find(std::begin(areThere), std::end(areThere), false) == std::end(areThere);
}

// The table of the provider at a path, or null. A provider that is taken stays loaded for good,
// for its functions are in use from then on.
const MobileDeviceTable* tableOf(const std::string& path) {
    void* provider = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (provider == nullptr) {
        return nullptr;
    }
    const auto tableFunction = reinterpret_cast<MobileDeviceProviderTableFunction>(
        dlsym(provider, MOBILEDEVICE_PROVIDER_TABLE_NAME));
    const MobileDeviceTable* table = tableFunction == nullptr ? nullptr : tableFunction();
    if (!isComplete(table)) {
        dlclose(provider);
        return nullptr;
    }
    return table;
}

bool isAnyAssigned() {
#define KRL_IS_ASSIGNED(function) function != nullptr,
    const bool areAssigned[] = {MOBILEDEVICE_FUNCTIONS(KRL_IS_ASSIGNED)};
#undef KRL_IS_ASSIGNED
    return std::find(std::begin(areAssigned), std::end(areAssigned), true) != std::end(areAssigned);
}

void assignAll(const MobileDeviceTable& table) {
#define KRL_ASSIGN(function) function = table.function;
    MOBILEDEVICE_FUNCTIONS(KRL_ASSIGN)
#undef KRL_ASSIGN
}

// All functions come from one provider: if the application has brought its own, it is left alone.
__attribute__((constructor)) void loadProvider() {
    const std::string folder = ownFolder();
    if (folder.empty() || isAnyAssigned()) {
        return;
    }
    for (const char* name : {"MobileDevice.so", "KRLVesk/MobileDevice.so"}) {
        if (const MobileDeviceTable* table = tableOf(folder + name)) {
            assignAll(*table);
            return;
        }
    }
}

} // namespace
