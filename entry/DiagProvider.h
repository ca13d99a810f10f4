// Everything a diagnostic provider library needs to expose itself to an object manager:
// DIAGCORE_PROVIDER(ProviderName, startup) generates the library's CMPI instance, method and
// association MI factories (ProviderName_Create_InstanceMI, ..._Create_MethodMI,
// ..._Create_AssociationMI) whose functions forward every call unchanged to the core's
// DiagServiceProviderCommon* functions (entry/DiagProviderFunctions.h). Before the first
// operation, startup(broker, ctx) runs once per process to create and register the provider's
// objects. Cleanup is forwarded to the core; an idle-unload offer is answered
// CMPI_RC_NEVER_UNLOAD (the registry lives in process memory), a terminating cleanup OK.
// DIAGCORE_LOG=stderr|<file> (and DIAGCORE_LOG_LEVEL=1..4) mirror the core's log lines for
// operators. Loading the library runs nothing, and no generated function lets an exception out.
//
//     static void startup(const CMPIBroker* broker, const CMPIContext* ctx) { ... }
//     DIAGCORE_PROVIDER(ZORQ_FSDiagProvider, startup)
#ifndef DIAGCORE_ENTRY_DIAGPROVIDER_H
#define DIAGCORE_ENTRY_DIAGPROVIDER_H

#include "entry/DiagProviderFunctions.h"
#include "entry/ProviderStartup.h"

#include <cmpift.h>

#define DIAGCORE_PROVIDER_SYMBOL extern "C" __attribute__((visibility("default")))

// The start-up function is named at namespace scope, where DIAGCORE_PROVIDER is written, so
// that no member of the provider's type can hide it.
#define DIAGCORE_PROVIDER(pn, startupFunction)                                                     \
    namespace {                                                                                    \
    NQORVA20::ProviderStartup::Function pn##_startup() {                                           \
        return startupFunction;                                                                    \
    }                                                                                              \
    struct pn##_Provider {                                                                         \
        static constexpr char instanceName[] = "instance" #pn;                                     \
        static constexpr char methodName[] = "method" #pn;                                         \
        static constexpr char associationName[] = "association" #pn;                               \
        static NQORVA20::ProviderStartup::Function startup() { return pn##_startup(); }            \
    };                                                                                             \
    using pn##_Functions = NQORVA20::DiagProviderFunctions<pn##_Provider>;                         \
    }                                                                                              \
    DIAGCORE_PROVIDER_SYMBOL CMPIInstanceMI* pn##_Create_InstanceMI(                               \
        const CMPIBroker* broker, const CMPIContext*, CMPIStatus* rc) noexcept {                   \
        return pn##_Functions::createInstanceMI(broker, rc);                                       \
    }                                                                                              \
    DIAGCORE_PROVIDER_SYMBOL CMPIMethodMI* pn##_Create_MethodMI(                                   \
        const CMPIBroker* broker, const CMPIContext*, CMPIStatus* rc) noexcept {                   \
        return pn##_Functions::createMethodMI(broker, rc);                                         \
    }                                                                                              \
    DIAGCORE_PROVIDER_SYMBOL CMPIAssociationMI* pn##_Create_AssociationMI(                         \
        const CMPIBroker* broker, const CMPIContext*, CMPIStatus* rc) noexcept {                   \
        return pn##_Functions::createAssociationMI(broker, rc);                                    \
    }

#endif
