// Everything a diagnostic provider library needs to expose itself to an object manager:
// DIAGCORE_PROVIDER(ProviderName, startup) generates the library's CMPI instance, method and
// association MI factories (ProviderName_Create_InstanceMI, ..._Create_MethodMI,
// ..._Create_AssociationMI) whose functions forward every call unchanged to the core's
// DiagServiceProviderCommon* functions. Before the first operation, startup(broker, ctx) runs
// once per process to create and register the provider's objects. Cleanup is forwarded to the
// core; an idle-unload offer is answered CMPI_RC_NEVER_UNLOAD (the registry lives in process
// memory), a terminating cleanup OK. DIAGCORE_LOG=stderr|<file> (and DIAGCORE_LOG_LEVEL=1..4)
// mirror the core's log lines for operators.
//
//     static void startup(const CMPIBroker* broker, const CMPIContext* ctx) { ... }
//     DIAGCORE_PROVIDER(ZORQ_FSDiagProvider, startup)
#ifndef DIAGCORE_ENTRY_DIAGPROVIDER_H
#define DIAGCORE_ENTRY_DIAGPROVIDER_H

#include "common/LogMirror.h"
#include "entry/DiagServiceProviderCommon.h"
#include "entry/ProviderStartup.h"

#include <cmpift.h>

#include <atomic>

#define DIAGCORE_PROVIDER_SYMBOL extern "C" __attribute__((visibility("default")))

// Runs the start-up if needed; a call that may not go on answers the start-up's status.
#define DIAGCORE_PROVIDER_STARTED(pn, ctx, op)                                                     \
    do {                                                                                           \
        CMPIStatus started = pn##_startup.ensure(pn##_broker.load(), ctx, op);                     \
        if (started.rc != CMPI_RC_OK)                                                              \
            return started;                                                                        \
    } while (0)

#define DIAGCORE_PROVIDER(pn, startupFunction)                                                     \
    static std::atomic<const CMPIBroker*> pn##_broker{nullptr};                                    \
    static NQORVA20::ProviderStartup pn##_startup(startupFunction);                                \
                                                                                                   \
    static CMPIStatus pn##_Cleanup(CMPIInstanceMI* mi, const CMPIContext* ctx, CMPIBoolean t) {    \
        return NQORVA20::ProviderStartup::cleanupAnswer(                                           \
            DiagServiceProviderCommonCleanup(pn##_broker.load(), mi, ctx, t), t);                  \
    }                                                                                              \
    static CMPIStatus pn##_EnumInstanceNames(CMPIInstanceMI* mi, const CMPIContext* ctx,           \
                                             const CMPIResult* rslt, const CMPIObjectPath* op) {   \
        DIAGCORE_PROVIDER_STARTED(pn, ctx, op);                                                    \
        return DiagServiceProviderCommonEnumInstanceNames(pn##_broker.load(), mi, ctx, rslt, op);  \
    }                                                                                              \
    static CMPIStatus pn##_EnumInstances(CMPIInstanceMI* mi, const CMPIContext* ctx,               \
                                         const CMPIResult* rslt, const CMPIObjectPath* op,         \
                                         const char** props) {                                     \
        DIAGCORE_PROVIDER_STARTED(pn, ctx, op);                                                    \
        return DiagServiceProviderCommonEnumInstances(pn##_broker.load(), mi, ctx, rslt, op,       \
                                                      props);                                      \
    }                                                                                              \
    static CMPIStatus pn##_GetInstance(CMPIInstanceMI* mi, const CMPIContext* ctx,                 \
                                       const CMPIResult* rslt, const CMPIObjectPath* op,           \
                                       const char** props) {                                       \
        DIAGCORE_PROVIDER_STARTED(pn, ctx, op);                                                    \
        return DiagServiceProviderCommonGetInstance(pn##_broker.load(), mi, ctx, rslt, op, props); \
    }                                                                                              \
    static CMPIStatus pn##_CreateInstance(CMPIInstanceMI* mi, const CMPIContext* ctx,              \
                                          const CMPIResult* rslt, const CMPIObjectPath* op,        \
                                          const CMPIInstance* inst) {                              \
        return DiagServiceProviderCommonCreateInstance(pn##_broker.load(), mi, ctx, rslt, op,      \
                                                       inst);                                      \
    }                                                                                              \
    static CMPIStatus pn##_ModifyInstance(CMPIInstanceMI* mi, const CMPIContext* ctx,              \
                                          const CMPIResult* rslt, const CMPIObjectPath* op,        \
                                          const CMPIInstance* inst, const char** props) {          \
        return DiagServiceProviderCommonModifyInstance(pn##_broker.load(), mi, ctx, rslt, op,      \
                                                       inst, props);                               \
    }                                                                                              \
    static CMPIStatus pn##_DeleteInstance(CMPIInstanceMI* mi, const CMPIContext* ctx,              \
                                          const CMPIResult* rslt, const CMPIObjectPath* op) {      \
        return DiagServiceProviderCommonDeleteInstance(pn##_broker.load(), mi, ctx, rslt, op);     \
    }                                                                                              \
    static CMPIStatus pn##_ExecQuery(CMPIInstanceMI* mi, const CMPIContext* ctx,                   \
                                     const CMPIResult* rslt, const CMPIObjectPath* op,             \
                                     const char* query, const char* lang) {                        \
        return DiagServiceProviderCommonExecQuery(pn##_broker.load(), mi, ctx, rslt, op, query,    \
                                                  lang);                                           \
    }                                                                                              \
    static CMPIStatus pn##_MethodCleanup(CMPIMethodMI* mi, const CMPIContext* ctx,                 \
                                         CMPIBoolean t) {                                          \
        return NQORVA20::ProviderStartup::cleanupAnswer(                                           \
            DiagServiceProviderCommonMethodCleanup(pn##_broker.load(), mi, ctx, t), t);            \
    }                                                                                              \
    static CMPIStatus pn##_InvokeMethod(CMPIMethodMI* mi, const CMPIContext* ctx,                  \
                                        const CMPIResult* rslt, const CMPIObjectPath* op,          \
                                        const char* method, const CMPIArgs* in, CMPIArgs* out) {   \
        DIAGCORE_PROVIDER_STARTED(pn, ctx, op);                                                    \
        return DiagServiceProviderCommonInvokeMethod(pn##_broker.load(), mi, ctx, rslt, op,        \
                                                     method, in, out);                             \
    }                                                                                              \
    static CMPIStatus pn##_AssociationCleanup(CMPIAssociationMI* mi, const CMPIContext* ctx,       \
                                              CMPIBoolean t) {                                     \
        return NQORVA20::ProviderStartup::cleanupAnswer(                                           \
            DiagServiceProviderCommonAssociationCleanup(pn##_broker.load(), mi, ctx, t), t);       \
    }                                                                                              \
    static CMPIStatus pn##_Associators(                                                            \
        CMPIAssociationMI* mi, const CMPIContext* ctx, const CMPIResult* rslt,                     \
        const CMPIObjectPath* op, const char* assocClass, const char* resultClass,                 \
        const char* role, const char* resultRole, const char** props) {                            \
        DIAGCORE_PROVIDER_STARTED(pn, ctx, op);                                                    \
        return DiagServiceProviderCommonAssociators(pn##_broker.load(), mi, ctx, rslt, op,         \
                                                    assocClass, resultClass, role, resultRole,     \
                                                    props);                                        \
    }                                                                                              \
    static CMPIStatus pn##_AssociatorNames(CMPIAssociationMI* mi, const CMPIContext* ctx,          \
                                           const CMPIResult* rslt, const CMPIObjectPath* op,       \
                                           const char* assocClass, const char* resultClass,        \
                                           const char* role, const char* resultRole) {             \
        DIAGCORE_PROVIDER_STARTED(pn, ctx, op);                                                    \
        return DiagServiceProviderCommonAssociatorNames(                                           \
            pn##_broker.load(), mi, ctx, rslt, op, assocClass, resultClass, role, resultRole);     \
    }                                                                                              \
    static CMPIStatus pn##_References(                                                             \
        CMPIAssociationMI* mi, const CMPIContext* ctx, const CMPIResult* rslt,                     \
        const CMPIObjectPath* op, const char* resultClass, const char* role, const char** props) { \
        return DiagServiceProviderCommonReferences(pn##_broker.load(), mi, ctx, rslt, op,          \
                                                   resultClass, role, props);                      \
    }                                                                                              \
    static CMPIStatus pn##_ReferenceNames(CMPIAssociationMI* mi, const CMPIContext* ctx,           \
                                          const CMPIResult* rslt, const CMPIObjectPath* op,        \
                                          const char* resultClass, const char* role) {             \
        return DiagServiceProviderCommonReferenceNames(pn##_broker.load(), mi, ctx, rslt, op,      \
                                                       resultClass, role);                         \
    }                                                                                              \
                                                                                                   \
    static CMPIInstanceMIFT pn##_instanceFT = {                                                    \
        CMPICurrentVersion,     CMPICurrentVersion,  "instance" #pn,   pn##_Cleanup,               \
        pn##_EnumInstanceNames, pn##_EnumInstances,  pn##_GetInstance, pn##_CreateInstance,        \
        pn##_ModifyInstance,    pn##_DeleteInstance, pn##_ExecQuery};                              \
    static CMPIMethodMIFT pn##_methodFT = {CMPICurrentVersion, CMPICurrentVersion, "method" #pn,   \
                                           pn##_MethodCleanup, pn##_InvokeMethod};                 \
    static CMPIAssociationMIFT pn##_associationFT = {                                              \
        CMPICurrentVersion, CMPICurrentVersion,   "association" #pn, pn##_AssociationCleanup,      \
        pn##_Associators,   pn##_AssociatorNames, pn##_References,   pn##_ReferenceNames};         \
                                                                                                   \
    static void pn##_attach(const CMPIBroker* broker, CMPIStatus* rc) {                            \
        pn##_broker.store(broker);                                                                 \
        NQORVA20::LogMirror::openFromEnvironment();                                                \
        if (rc != nullptr) {                                                                       \
            rc->rc = CMPI_RC_OK;                                                                   \
            rc->msg = nullptr;                                                                     \
        }                                                                                          \
    }                                                                                              \
    DIAGCORE_PROVIDER_SYMBOL CMPIInstanceMI* pn##_Create_InstanceMI(                               \
        const CMPIBroker* broker, const CMPIContext*, CMPIStatus* rc) {                            \
        static CMPIInstanceMI mi = {nullptr, &pn##_instanceFT};                                    \
        pn##_attach(broker, rc);                                                                   \
        return &mi;                                                                                \
    }                                                                                              \
    DIAGCORE_PROVIDER_SYMBOL CMPIMethodMI* pn##_Create_MethodMI(                                   \
        const CMPIBroker* broker, const CMPIContext*, CMPIStatus* rc) {                            \
        static CMPIMethodMI mi = {nullptr, &pn##_methodFT};                                        \
        pn##_attach(broker, rc);                                                                   \
        return &mi;                                                                                \
    }                                                                                              \
    DIAGCORE_PROVIDER_SYMBOL CMPIAssociationMI* pn##_Create_AssociationMI(                         \
        const CMPIBroker* broker, const CMPIContext*, CMPIStatus* rc) {                            \
        static CMPIAssociationMI mi = {nullptr, &pn##_associationFT};                              \
        pn##_attach(broker, rc);                                                                   \
        return &mi;                                                                                \
    }

#endif
