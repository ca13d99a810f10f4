#include "diag/DiagUser.h"

#include "common/CmpiBoundary.h"
#include "instance/SystemIdentity.h"

#include <cmpift.h>

namespace NQORVA20 {

DiagUser::DiagUser() = default;
DiagUser::~DiagUser() = default;
void DiagUser::init() {}

void DiagUser::setLocation(const CMPIObjectPath* reference) {
    if (!CmpiBoundary::usable(reference))
        return;
    host_ = CmpiBoundary::hostName(reference);
    nameSpace_ = CmpiBoundary::nameSpace(reference);
}

bool DiagUser::isLocal() const {
    return SystemIdentity::IsThisSystem(host_) && SystemIdentity::IsPublishedNamespace(nameSpace_);
}

} // namespace NQORVA20
