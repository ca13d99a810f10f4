// Helpers shared by the host suite: where its data and provider libraries are, a Host loaded with
// them, a handle on a provider library to read its exported counters, and sorted texts of results.
#ifndef DIAGCORE_TESTS_HOST_HOSTTESTSUPPORT_H
#define DIAGCORE_TESTS_HOST_HOSTTESTSUPPORT_H

#include "host/Host.h"
#include "host/text/PathDialect.h"

#include <cmpift.h>

#include <dlfcn.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace hosttest {

using diaghost::Host;
using diaghost::OperationResult;
using diaghost::PathDialect;

inline std::string dataFile(const std::string& name) {
    return std::string(DIAGHOST_TEST_DATA_DIR) + "/" + name;
}

inline std::string providerDir() {
    return DIAGHOST_TEST_PROVIDER_DIR;
}

inline std::string libraryFile(const std::string& location) {
    return providerDir() + "/lib" + location + ".so";
}

// True while some handle keeps the library mapped in this process.
inline bool libraryMapped(const std::string& location) {
    void* h = dlopen(libraryFile(location).c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NOLOAD);
    if (!h)
        return false;
    dlclose(h);
    return true;
}

// Opens a provider library on its own, keeping it mapped (and its counters readable) while held.
class LibraryHandle {
public:
    explicit LibraryHandle(const std::string& location)
        : handle_(dlopen(libraryFile(location).c_str(), RTLD_NOW | RTLD_LOCAL)) {}
    ~LibraryHandle() {
        if (handle_)
            dlclose(handle_);
    }
    LibraryHandle(const LibraryHandle&) = delete;
    LibraryHandle& operator=(const LibraryHandle&) = delete;

    bool ok() const { return handle_ != nullptr; }
    template <class T>
    T* symbol(const char* name) const {
        return handle_ ? reinterpret_cast<T*>(dlsym(handle_, name)) : nullptr;
    }
    int& counter(const char* name) const { return *symbol<int>(name); }

private:
    void* handle_;
};

inline std::unique_ptr<Host> loadedHost(PathDialect dialect = PathDialect::Pegasus) {
    Host::Options options;
    options.dialect = dialect;
    options.providerPath = {providerDir()};
    auto host = std::make_unique<Host>(options);
    host->loadMof(dataFile("TestHost.mof"));
    host->loadRegistrations(dataFile("TestHost.reg"));
    return host;
}

// The text of one property of every instance of a result, sorted.
inline std::vector<std::string> propertyTexts(Host& host, const OperationResult& result,
                                              const std::string& name) {
    std::vector<std::string> out;
    for (const CMPIInstance* inst : result.instances())
        out.push_back(host.propertyText(inst, name).value_or("<null>"));
    std::sort(out.begin(), out.end());
    return out;
}

// Every path of a result as the host renders it, sorted.
inline std::vector<std::string> pathTexts(Host& host, const OperationResult& result) {
    std::vector<std::string> out;
    for (const CMPIObjectPath* op : result.paths())
        out.push_back(host.pathText(op));
    std::sort(out.begin(), out.end());
    return out;
}

} // namespace hosttest

#endif
