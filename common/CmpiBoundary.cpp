#include "common/CmpiBoundary.h"

#include "common/ProviderScope.h"

#include <cmpift.h>
#include <cmpimacs.h>

namespace NQORVA20 {
namespace CmpiBoundary {

bool brokerUsable(const CMPIBroker* broker) noexcept {
    return broker != nullptr && broker->eft != nullptr;
}

const char* chars(const CMPIString* s) noexcept {
    return usable(s) ? s->ft->getCharPtr(s, nullptr) : nullptr;
}

std::string text(const CMPIString* s) {
    const char* c = chars(s);
    return c != nullptr ? std::string(c) : std::string();
}

CMPIString* newString(const CMPIBroker* broker, const char* text) noexcept {
    if (!brokerUsable(broker) || broker->eft->newString == nullptr)
        return nullptr;
    return broker->eft->newString(broker, text, nullptr);
}

CMPIStatus status(const CMPIBroker* broker, CMPIrc rc, const char* message) noexcept {
    CMPIStatus s = {rc, nullptr};
    s.msg = newString(broker, message);
    return s;
}

CMPIStatus status(CMPIrc rc) noexcept {
    CMPIStatus s = {rc, nullptr};
    return s;
}

void returnPath(const CMPIResult* result, const CMPIObjectPath* path) noexcept {
    if (usable(result) && path != nullptr)
        result->ft->returnObjectPath(result, path);
}

void returnUint32(const CMPIResult* result, CMPIUint32 value) noexcept {
    if (!usable(result))
        return;
    CMPIValue v;
    v.uint32 = value;
    result->ft->returnData(result, &v, CMPI_uint32);
}

void returnDone(const CMPIResult* result) noexcept {
    if (usable(result))
        result->ft->returnDone(result);
}

CMPIObjectPath* newPath(const CMPIBroker* broker, const char* className,
                        const char* nameSpace) noexcept {
    if (!brokerUsable(broker))
        return nullptr;
    return broker->eft->newObjectPath(broker, nameSpace, className, nullptr);
}

CMPIEnumeration* enumInstances(const CMPIBroker* broker, const CMPIContext* ctx,
                               const std::string& className) {
    if (!brokerUsable(broker) || broker->bft == nullptr)
        return nullptr;
    CMPIObjectPath* path = newPath(broker, className.c_str());
    if (path == nullptr)
        return nullptr;
    ProviderScope::StartupUpcall upcall(className);
    return CBEnumInstances(broker, ctx, path, nullptr, nullptr);
}

bool next(CMPIEnumeration* e, CMPIInstance** instance) noexcept {
    if (!usable(e) || !e->ft->hasNext(e, nullptr))
        return false;
    CMPIData data = e->ft->getNext(e, nullptr);
    CMPIInstance* inst = data.value.inst;
    *instance = data.type == CMPI_instance && usable(inst) ? inst : nullptr;
    return true;
}

std::string hostName(const CMPIObjectPath* path) {
    if (!usable(path))
        return std::string();
    return text(path->ft->getHostname(path, nullptr));
}

std::string nameSpace(const CMPIObjectPath* path) {
    if (!usable(path))
        return std::string();
    return text(path->ft->getNameSpace(path, nullptr));
}

} // namespace CmpiBoundary
} // namespace NQORVA20
