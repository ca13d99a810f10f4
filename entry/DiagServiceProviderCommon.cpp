#include "entry/DiagServiceProviderCommon.h"

#include "common/CmpiBoundary.h"
#include "common/CoreLog.h"
#include "entry/AssociationLookup.h"
#include "entry/EntryGuard.h"
#include "entry/ResultCopy.h"
#include "instance/ClientLimits.h"
#include "instance/InstanceRegistry.h"

#include <cmpift.h>

#include <string>
#include <vector>

using NQORVA20::ClientLimits;
using NQORVA20::coreLog;
using NQORVA20::guarded;
using NQORVA20::InstanceRegistry;
using NQORVA20::LogDebug;
using NQORVA20::CmpiBoundary::returnDone;
using NQORVA20::CmpiBoundary::returnPath;
using NQORVA20::CmpiBoundary::status;
using NQORVA20::CmpiBoundary::usable;

namespace {

// The broker could not make the copy an answer is given: the request fails rather than hand
// over the registry's own instance.
CMPIStatus copyFailed(const CMPIBroker* broker) {
    return status(broker, CMPI_RC_ERR_FAILED, "Could not copy the instance");
}

} // namespace

extern "C" {

CMPIStatus DiagServiceProviderCommonCleanup(const CMPIBroker*, CMPIInstanceMI*, const CMPIContext*,
                                            unsigned char) {
    return status(CMPI_RC_OK);
}

CMPIStatus DiagServiceProviderCommonEnumInstanceNames(const CMPIBroker* broker, CMPIInstanceMI*,
                                                      const CMPIContext*, const CMPIResult* rslt,
                                                      const CMPIObjectPath* ref) {
    return guarded(broker, "EnumInstanceNames", [&] {
        coreLog(broker, LogDebug, "+++ EnumInstanceNames");
        // The status returned is what the last getObjectPath reported.
        CMPIStatus last = status(CMPI_RC_OK);
        std::vector<CMPIInstance*> instances;
        InstanceRegistry::Singleton()->GetCMPIInstances(broker, ref, instances);
        for (std::size_t i = 0; i < instances.size(); ++i) {
            CMPIInstance* inst = instances[i];
            CMPIObjectPath* path = inst->ft->getObjectPath(inst, &last);
            returnPath(rslt, path);
        }
        returnDone(rslt);
        return last;
    });
}

CMPIStatus DiagServiceProviderCommonEnumInstances(const CMPIBroker* broker, CMPIInstanceMI*,
                                                  const CMPIContext*, const CMPIResult* rslt,
                                                  const CMPIObjectPath* ref, const char**) {
    return guarded(broker, "EnumInstances", [&] {
        coreLog(broker, LogDebug, "+++ EnumInstances");
        std::vector<CMPIInstance*> instances;
        InstanceRegistry::Singleton()->GetCMPIInstances(broker, ref, instances);
        if (usable(rslt))
            for (std::size_t i = 0; i < instances.size(); ++i) {
                if (!NQORVA20::ReturnInstanceCopy(rslt, instances[i]))
                    return copyFailed(broker);
            }
        returnDone(rslt);
        return status(CMPI_RC_OK);
    });
}

CMPIStatus DiagServiceProviderCommonGetInstance(const CMPIBroker* broker, CMPIInstanceMI*,
                                                const CMPIContext*, const CMPIResult* rslt,
                                                const CMPIObjectPath* cop, const char**) {
    return guarded(broker, "GetInstance", [&] {
        coreLog(broker, LogDebug, "+++ GetInstance");
        const std::string tooLarge = ClientLimits::Exceeded(cop);
        if (!tooLarge.empty())
            return ClientLimits::Refusal(broker, "the object path", tooLarge);
        CMPIInstance* inst = InstanceRegistry::Singleton()->GetCMPIInstance(broker, cop);
        if (inst == nullptr) {
            return status(broker, CMPI_RC_ERR_FAILED, "Could not find or construct instance");
        }
        if (!NQORVA20::ReturnInstanceCopy(rslt, inst))
            return copyFailed(broker);
        returnDone(rslt);
        return status(CMPI_RC_OK);
    });
}

CMPIStatus DiagServiceProviderCommonCreateInstance(const CMPIBroker*, CMPIInstanceMI*,
                                                   const CMPIContext*, const CMPIResult*,
                                                   const CMPIObjectPath*, const CMPIInstance*) {
    return status(CMPI_RC_ERR_NOT_SUPPORTED);
}

CMPIStatus DiagServiceProviderCommonModifyInstance(const CMPIBroker*, CMPIInstanceMI*,
                                                   const CMPIContext*, const CMPIResult*,
                                                   const CMPIObjectPath*, const CMPIInstance*,
                                                   const char**) {
    return status(CMPI_RC_ERR_NOT_SUPPORTED);
}

CMPIStatus DiagServiceProviderCommonDeleteInstance(const CMPIBroker*, CMPIInstanceMI*,
                                                   const CMPIContext*, const CMPIResult*,
                                                   const CMPIObjectPath*) {
    return status(CMPI_RC_ERR_NOT_SUPPORTED);
}

CMPIStatus DiagServiceProviderCommonExecQuery(const CMPIBroker*, CMPIInstanceMI*,
                                              const CMPIContext*, const CMPIResult*,
                                              const CMPIObjectPath*, const char*, const char*) {
    return status(CMPI_RC_ERR_NOT_SUPPORTED);
}

CMPIStatus DiagServiceProviderCommonMethodCleanup(const CMPIBroker*, CMPIMethodMI*,
                                                  const CMPIContext*, unsigned char) {
    return status(CMPI_RC_OK);
}

CMPIStatus DiagServiceProviderCommonInvokeMethod(const CMPIBroker* broker, CMPIMethodMI*,
                                                 const CMPIContext* ctx, const CMPIResult* rslt,
                                                 const CMPIObjectPath* ref, const char* methodName,
                                                 const CMPIArgs* in, CMPIArgs* out) {
    return guarded(broker, "InvokeMethod", [&] {
        coreLog(broker, LogDebug, "+++ InvokeMethod");
        const std::string tooLarge = ClientLimits::Exceeded(ref);
        if (!tooLarge.empty())
            return ClientLimits::Refusal(broker, "the object path", tooLarge);
        std::string name(methodName ? methodName : "");
        return InstanceRegistry::Singleton()->InvokeMethod(broker, ctx, rslt, ref, name, in, out);
    });
}

CMPIStatus DiagServiceProviderCommonAssociationCleanup(const CMPIBroker*, CMPIAssociationMI*,
                                                       const CMPIContext*, unsigned char) {
    return status(CMPI_RC_OK);
}

CMPIStatus DiagServiceProviderCommonAssociators(const CMPIBroker* broker, CMPIAssociationMI*,
                                                const CMPIContext*, const CMPIResult* rslt,
                                                const CMPIObjectPath* op, const char* assocClass,
                                                const char* resultClass, const char* role,
                                                const char* resultRole, const char**) {
    return guarded(broker, "Associators", [&] {
        const std::string tooLarge = ClientLimits::Exceeded(op);
        if (!tooLarge.empty())
            return ClientLimits::Refusal(broker, "the object path", tooLarge);
        NQORVA20::AssociatorsImpl(broker, rslt, op, assocClass, resultClass, role, resultRole,
                                  NQORVA20::ReturnInstance);
        return status(CMPI_RC_OK);
    });
}

CMPIStatus DiagServiceProviderCommonAssociatorNames(const CMPIBroker* broker, CMPIAssociationMI*,
                                                    const CMPIContext*, const CMPIResult* rslt,
                                                    const CMPIObjectPath* op,
                                                    const char* assocClass, const char* resultClass,
                                                    const char* role, const char* resultRole) {
    return guarded(broker, "AssociatorNames", [&] {
        const std::string tooLarge = ClientLimits::Exceeded(op);
        if (!tooLarge.empty())
            return ClientLimits::Refusal(broker, "the object path", tooLarge);
        NQORVA20::AssociatorsImpl(broker, rslt, op, assocClass, resultClass, role, resultRole,
                                  NQORVA20::ReturnObjectPath);
        return status(CMPI_RC_OK);
    });
}

CMPIStatus DiagServiceProviderCommonReferences(const CMPIBroker*, CMPIAssociationMI*,
                                               const CMPIContext*, const CMPIResult*,
                                               const CMPIObjectPath*, const char*, const char*,
                                               const char**) {
    return status(CMPI_RC_ERR_NOT_SUPPORTED);
}

CMPIStatus DiagServiceProviderCommonReferenceNames(const CMPIBroker*, CMPIAssociationMI*,
                                                   const CMPIContext*, const CMPIResult*,
                                                   const CMPIObjectPath*, const char*,
                                                   const char*) {
    return status(CMPI_RC_ERR_NOT_SUPPORTED);
}

} // extern "C"
