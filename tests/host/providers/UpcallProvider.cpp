// Test_MirrorProvider: serves one Test_Mirror per Test_Element instance, found through the
// broker's upcalls (enumerateInstances and getInstance of Test_Element), so the instances come
// from another provider library through the host's routing. Errors of the upcall are passed on.
#include "ReadOnlyInstances.h"

#include <cmpidt.h>
#include <cmpift.h>
#include <cmpimacs.h>

#include <string>

namespace {

const CMPIBroker* _broker;

std::string str(const CMPIString* s) {
    const char* p = s ? CMGetCharsPtr(s, nullptr) : nullptr;
    return p ? p : "";
}

CMPIInstance* mirrorOf(const CMPIInstance* element, const char* ns) {
    CMPIData name = CMGetProperty(element, "Name", nullptr);
    CMPIObjectPath* source = CMGetObjectPath(element, nullptr);
    std::string sourceClass = str(CMGetClassName(source, nullptr));
    CMPIObjectPath* op = CMNewObjectPath(_broker, ns, "Test_Mirror", nullptr);
    CMAddKey(op, "Name", &name.value, CMPI_string);
    CMPIInstance* mirror = CMNewInstance(_broker, op, nullptr);
    CMSetProperty(mirror, "Name", &name.value, CMPI_string);
    CMSetProperty(mirror, "Source", sourceClass.c_str(), CMPI_chars);
    return mirror;
}

CMPIStatus MirrorCleanup(CMPIInstanceMI*, const CMPIContext*, CMPIBoolean) {
    CMReturn(CMPI_RC_OK);
}

CMPIStatus MirrorEnumInstances(CMPIInstanceMI*, const CMPIContext* ctx, const CMPIResult* rslt,
                               const CMPIObjectPath* ref, const char**) {
    std::string ns = str(CMGetNameSpace(ref, nullptr));
    CMPIStatus rc{CMPI_RC_OK, nullptr};
    CMPIObjectPath* elements = CMNewObjectPath(_broker, ns.c_str(), "Test_Element", &rc);
    CMPIEnumeration* en = CBEnumInstances(_broker, ctx, elements, nullptr, &rc);
    if (rc.rc != CMPI_RC_OK)
        return rc;
    while (en && CMHasNext(en, nullptr)) {
        CMPIData d = CMGetNext(en, nullptr);
        CMReturnInstance(rslt, mirrorOf(d.value.inst, ns.c_str()));
    }
    CMReturnDone(rslt);
    CMReturn(CMPI_RC_OK);
}

CMPIStatus MirrorEnumInstanceNames(CMPIInstanceMI*, const CMPIContext* ctx, const CMPIResult* rslt,
                                   const CMPIObjectPath* ref) {
    std::string ns = str(CMGetNameSpace(ref, nullptr));
    CMPIStatus rc{CMPI_RC_OK, nullptr};
    CMPIObjectPath* elements = CMNewObjectPath(_broker, ns.c_str(), "Test_Element", &rc);
    CMPIEnumeration* en = CBEnumInstances(_broker, ctx, elements, nullptr, &rc);
    if (rc.rc != CMPI_RC_OK)
        return rc;
    while (en && CMHasNext(en, nullptr)) {
        CMPIData d = CMGetNext(en, nullptr);
        CMReturnObjectPath(rslt, CMGetObjectPath(mirrorOf(d.value.inst, ns.c_str()), nullptr));
    }
    CMReturnDone(rslt);
    CMReturn(CMPI_RC_OK);
}

CMPIStatus MirrorGetInstance(CMPIInstanceMI*, const CMPIContext* ctx, const CMPIResult* rslt,
                             const CMPIObjectPath* cop, const char**) {
    std::string ns = str(CMGetNameSpace(cop, nullptr));
    CMPIStatus rc{CMPI_RC_OK, nullptr};
    CMPIData name = CMGetKey(cop, "Name", &rc);
    if (rc.rc != CMPI_RC_OK)
        CMReturnWithChars(_broker, CMPI_RC_ERR_INVALID_PARAMETER, "a mirror path needs a Name");
    CMPIObjectPath* element = CMNewObjectPath(_broker, ns.c_str(), "Test_Element", nullptr);
    CMAddKey(element, "Name", &name.value, name.type);
    CMPIInstance* inst = CBGetInstance(_broker, ctx, element, nullptr, &rc);
    if (rc.rc != CMPI_RC_OK || !inst)
        return rc;
    CMReturnInstance(rslt, mirrorOf(inst, ns.c_str()));
    CMReturnDone(rslt);
    CMReturn(CMPI_RC_OK);
}

READ_ONLY_INSTANCES(Mirror)

} // namespace

CMInstanceMIStub(Mirror, Test_MirrorProvider, _broker, CMNoHook)
