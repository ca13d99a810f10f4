// A provider library that serves the Diagnostics profile beside the core's classes:
// DIAGCORE_PROFILE_PROVIDER(ProviderName, startup, profileClasses) exports the same three MI
// factories as DIAGCORE_PROVIDER, over the core's functions for the library
// (DiagProviderFunctions), with the profile layer in front: calls for the layer's classes and
// methods are answered by this module's ProfileModule, every other call goes to the core's
// function unchanged. Association calls reach both: the layer's matches first, then the core's,
// which ends the result. profileClasses() answers the module's ProfileClasses.
//
//     DIAGCORE_PROFILE_PROVIDER(ZORQ_NetDiagProvider, startFamily<NetworkFamily>, netClasses)
#ifndef DIAGPROFILE_PROFILEPROVIDER_H
#define DIAGPROFILE_PROFILEPROVIDER_H

#include "entry/DiagProvider.h"
#include "profile/ProfileProviderFunctions.h"

#define DIAGCORE_PROFILE_PROVIDER(pn, startupFunction, classesFunction)                            \
    namespace {                                                                                    \
    NQORVA20::ProviderStartup::Function pn##_startup() {                                           \
        return startupFunction;                                                                    \
    }                                                                                              \
    NQORVA20::profile::ProfileClasses pn##_classes() {                                             \
        return classesFunction();                                                                  \
    }                                                                                              \
    struct pn##_Provider {                                                                         \
        static constexpr char instanceName[] = "instance" #pn;                                     \
        static constexpr char methodName[] = "method" #pn;                                         \
        static constexpr char associationName[] = "association" #pn;                               \
        static NQORVA20::ProviderStartup::Function startup() { return pn##_startup(); }            \
        static NQORVA20::profile::ProfileClasses profileClasses() { return pn##_classes(); }       \
    };                                                                                             \
    using pn##_Functions = NQORVA20::profile::ProfileProviderFunctions<pn##_Provider>;             \
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
