#include "diag/DiagUser.h"

#include "instance/SystemIdentity.h"

#include <cmpift.h>

namespace NQORVA20 {

namespace {

std::string text(CMPIString* s) {
    const char* chars = s && s->ft ? s->ft->getCharPtr(s, nullptr) : nullptr;
    return chars ? chars : "";
}

} // namespace

DiagUser::DiagUser() = default;
DiagUser::~DiagUser() = default;
void DiagUser::init() {}

void DiagUser::setLocation(const CMPIObjectPath* reference) {
    if (reference == nullptr || reference->ft == nullptr)
        return;
    host_ = text(reference->ft->getHostname(reference, nullptr));
    nameSpace_ = text(reference->ft->getNameSpace(reference, nullptr));
}

bool DiagUser::isLocal() const {
    return SystemIdentity::IsThisSystem(host_) && SystemIdentity::IsPublishedNamespace(nameSpace_);
}

} // namespace NQORVA20
