// A provider with one instance of its class whose idle cleanup answers a fixed code, built once
// per answer (CMPI_RC_NEVER_UNLOAD, CMPI_RC_DO_NOT_UNLOAD) under its own provider name. The
// exported counters tell tests how often each kind of cleanup ran.
#include "ReadOnlyInstances.h"

#include <cmpidt.h>
#include <cmpift.h>
#include <cmpimacs.h>

#ifndef LIFECYCLE_PROVIDER
#error "LIFECYCLE_PROVIDER (the provider name) must be defined"
#endif
#ifndef LIFECYCLE_CLASS
#error "LIFECYCLE_CLASS (the class served) must be defined"
#endif
#ifndef LIFECYCLE_IDLE_ANSWER
#error "LIFECYCLE_IDLE_ANSWER (what cleanup with terminating false answers) must be defined"
#endif

namespace {
const CMPIBroker* _broker;
}

extern "C" {
CMPI_EXPORT int Lifecycle_cleanups = 0;
CMPI_EXPORT int Lifecycle_terminations = 0;
}

namespace {

CMPIObjectPath* onlyPath(const CMPIObjectPath* ref) {
    CMPIObjectPath* op = CMNewObjectPath(
        _broker, CMGetCharsPtr(CMGetNameSpace(ref, nullptr), nullptr), LIFECYCLE_CLASS, nullptr);
    CMAddKey(op, "Name", "only", CMPI_chars);
    return op;
}

CMPIStatus LifecycleCleanup(CMPIInstanceMI*, const CMPIContext*, CMPIBoolean terminating) {
    if (terminating) {
        ++Lifecycle_terminations;
        CMReturn(CMPI_RC_OK);
    }
    ++Lifecycle_cleanups;
    CMReturn(LIFECYCLE_IDLE_ANSWER);
}

CMPIStatus LifecycleEnumInstanceNames(CMPIInstanceMI*, const CMPIContext*, const CMPIResult* rslt,
                                      const CMPIObjectPath* ref) {
    CMReturnObjectPath(rslt, onlyPath(ref));
    CMReturnDone(rslt);
    CMReturn(CMPI_RC_OK);
}

CMPIStatus LifecycleEnumInstances(CMPIInstanceMI*, const CMPIContext*, const CMPIResult* rslt,
                                  const CMPIObjectPath* ref, const char**) {
    CMPIInstance* inst = CMNewInstance(_broker, onlyPath(ref), nullptr);
    CMSetProperty(inst, "Name", "only", CMPI_chars);
    CMReturnInstance(rslt, inst);
    CMReturnDone(rslt);
    CMReturn(CMPI_RC_OK);
}

CMPIStatus LifecycleGetInstance(CMPIInstanceMI*, const CMPIContext*, const CMPIResult*,
                                const CMPIObjectPath*, const char**) {
    CMReturn(CMPI_RC_ERR_NOT_SUPPORTED);
}

READ_ONLY_INSTANCES(Lifecycle)

} // namespace

// The provider name arrives as a macro; expand it before the stub pastes it into symbol names.
#define LIFECYCLE_STUB(name) CMInstanceMIStub(Lifecycle, name, _broker, CMNoHook)
LIFECYCLE_STUB(LIFECYCLE_PROVIDER)
