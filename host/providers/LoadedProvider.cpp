#include "host/providers/LoadedProvider.h"

#include <cmpift.h>

#include <dlfcn.h>
#include <sys/stat.h>

#include <exception>

namespace diaghost {

namespace {

using InstanceFactory = CMPIInstanceMI* (*)(const CMPIBroker*, const CMPIContext*, CMPIStatus*);
using MethodFactory = CMPIMethodMI* (*)(const CMPIBroker*, const CMPIContext*, CMPIStatus*);
using AssociationFactory = CMPIAssociationMI* (*)(const CMPIBroker*, const CMPIContext*,
                                                  CMPIStatus*);

bool isRegularFile(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

std::string joinPath(const std::string& dir, const std::string& file) {
    if (dir.empty())
        return file;
    return dir.back() == '/' ? dir + file : dir + "/" + file;
}

std::string loaderError() {
    const char* e = dlerror();
    return e ? e : "unknown reason";
}

} // namespace

LoadedProvider::LoadedProvider(std::string location) : location_(std::move(location)) {}

LoadedProvider::~LoadedProvider() {
    close();
}

std::string LoadedProvider::fileName() const {
    return "lib" + location_ + ".so";
}

bool LoadedProvider::open(const std::vector<std::string>& searchPath, std::string& error) {
    if (handle_)
        return true;
    std::string file = fileName();
    std::string tried;
    for (const std::string& dir : searchPath) {
        std::string candidate = joinPath(dir, file);
        if (!isRegularFile(candidate)) {
            tried += (tried.empty() ? "" : ", ") + dir;
            continue;
        }
        dlerror();
        handle_ = dlopen(candidate.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!handle_) {
            error = "provider library " + candidate + " cannot be loaded: " + loaderError();
            return false;
        }
        path_ = candidate;
        return true;
    }
    // Not in any provider folder: let the system loader search (LD_LIBRARY_PATH, ld.so.cache).
    dlerror();
    handle_ = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle_) {
        error = "provider library " + file + " not found on the provider search path (" +
                (tried.empty() ? std::string("no folders") : tried) +
                ") nor by the system loader: " + loaderError();
        return false;
    }
    path_ = file;
    return true;
}

void LoadedProvider::close() {
    if (!handle_)
        return;
    dlclose(handle_);
    handle_ = nullptr;
}

void* LoadedProvider::symbol(const std::string& name) const {
    if (!handle_)
        return nullptr;
    return dlsym(handle_, name.c_str());
}

const char* LoadedProvider::kindName(MiKind kind) {
    switch (kind) {
    case MiKind::Instance:
        return "Instance";
    case MiKind::Method:
        return "Method";
    case MiKind::Association:
        return "Association";
    }
    return "?";
}

void* LoadedProvider::createMi(const std::string& providerName, MiKind kind,
                               const CMPIBroker* broker, const CMPIContext* ctx,
                               OperationStatus& status) const {
    std::string name = providerName + "_Create_" + kindName(kind) + "MI";
    void* factory = symbol(name);
    if (!factory) {
        status = OperationStatus::make(CMPI_RC_ERR_FAILED,
                                       "provider library " + path_ + " does not export " + name);
        return nullptr;
    }
    CMPIStatus rc{CMPI_RC_OK, nullptr};
    void* mi = nullptr;
    try {
        switch (kind) {
        case MiKind::Instance:
            mi = reinterpret_cast<InstanceFactory>(factory)(broker, ctx, &rc);
            break;
        case MiKind::Method:
            mi = reinterpret_cast<MethodFactory>(factory)(broker, ctx, &rc);
            break;
        case MiKind::Association:
            mi = reinterpret_cast<AssociationFactory>(factory)(broker, ctx, &rc);
            break;
        }
    } catch (const std::exception& e) {
        status = OperationStatus::make(CMPI_RC_ERR_FAILED, name + " threw: " + e.what());
        return nullptr;
    } catch (...) {
        status = OperationStatus::make(CMPI_RC_ERR_FAILED, name + " threw an exception");
        return nullptr;
    }
    if (!mi || rc.rc != CMPI_RC_OK) {
        OperationStatus answered = OperationStatus::fromCmpi(rc);
        std::string reason = answered.hasMessage ? ": " + answered.message : std::string();
        status = OperationStatus::make(rc.rc == CMPI_RC_OK ? CMPI_RC_ERR_FAILED : rc.rc,
                                       name + " made no MI (" + rcName(rc.rc) + ")" + reason);
        return nullptr;
    }
    bool hasTable = kind == MiKind::Instance ? static_cast<CMPIInstanceMI*>(mi)->ft != nullptr
                    : kind == MiKind::Method ? static_cast<CMPIMethodMI*>(mi)->ft != nullptr
                                             : static_cast<CMPIAssociationMI*>(mi)->ft != nullptr;
    if (!hasTable) {
        status = OperationStatus::make(CMPI_RC_ERR_FAILED,
                                       name + " made an MI without a function table");
        return nullptr;
    }
    status = OperationStatus::make(CMPI_RC_OK);
    return mi;
}

OperationStatus LoadedProvider::cleanupMi(void* mi, MiKind kind, const CMPIContext* ctx,
                                          bool terminating) {
    CMPIBoolean term = terminating ? 1 : 0;
    CMPIStatus rc{CMPI_RC_OK, nullptr};
    try {
        switch (kind) {
        case MiKind::Instance: {
            auto* m = static_cast<CMPIInstanceMI*>(mi);
            if (m->ft && m->ft->cleanup)
                rc = m->ft->cleanup(m, ctx, term);
            break;
        }
        case MiKind::Method: {
            auto* m = static_cast<CMPIMethodMI*>(mi);
            if (m->ft && m->ft->cleanup)
                rc = m->ft->cleanup(m, ctx, term);
            break;
        }
        case MiKind::Association: {
            auto* m = static_cast<CMPIAssociationMI*>(mi);
            if (m->ft && m->ft->cleanup)
                rc = m->ft->cleanup(m, ctx, term);
            break;
        }
        }
    } catch (const std::exception& e) {
        return OperationStatus::make(CMPI_RC_ERR_FAILED, std::string("cleanup threw: ") + e.what());
    } catch (...) {
        return OperationStatus::make(CMPI_RC_ERR_FAILED, "cleanup threw an exception");
    }
    return OperationStatus::fromCmpi(rc);
}

} // namespace diaghost
