// The functions a provider library forwards its CMPI instance, method and association calls to.
// Each takes the provider's broker first, then the arguments of the CMPI operation of the same
// name; the MI argument is not consulted. They answer from the instance registry; none lets an
// exception out.
#ifndef DIAGCORE_ENTRY_DIAGSERVICEPROVIDERCOMMON_H
#define DIAGCORE_ENTRY_DIAGSERVICEPROVIDERCOMMON_H

#include "common/Export.h"

// The MI types are declared with the function tables, not with the data types.
#include <cmpift.h>

#ifdef __cplusplus
extern "C" {
#endif

DIAGCORE_EXPORT CMPIStatus DiagServiceProviderCommonCleanup(const CMPIBroker* broker,
                                                            CMPIInstanceMI* mi,
                                                            const CMPIContext* ctx,
                                                            unsigned char terminating);
DIAGCORE_EXPORT CMPIStatus DiagServiceProviderCommonEnumInstanceNames(const CMPIBroker* broker,
                                                                      CMPIInstanceMI* mi,
                                                                      const CMPIContext* ctx,
                                                                      const CMPIResult* rslt,
                                                                      const CMPIObjectPath* ref);
DIAGCORE_EXPORT CMPIStatus DiagServiceProviderCommonEnumInstances(
    const CMPIBroker* broker, CMPIInstanceMI* mi, const CMPIContext* ctx, const CMPIResult* rslt,
    const CMPIObjectPath* ref, const char** properties);
DIAGCORE_EXPORT CMPIStatus DiagServiceProviderCommonGetInstance(
    const CMPIBroker* broker, CMPIInstanceMI* mi, const CMPIContext* ctx, const CMPIResult* rslt,
    const CMPIObjectPath* cop, const char** properties);
DIAGCORE_EXPORT CMPIStatus DiagServiceProviderCommonCreateInstance(
    const CMPIBroker* broker, CMPIInstanceMI* mi, const CMPIContext* ctx, const CMPIResult* rslt,
    const CMPIObjectPath* cop, const CMPIInstance* ci);
DIAGCORE_EXPORT CMPIStatus DiagServiceProviderCommonModifyInstance(
    const CMPIBroker* broker, CMPIInstanceMI* mi, const CMPIContext* ctx, const CMPIResult* rslt,
    const CMPIObjectPath* cop, const CMPIInstance* ci, const char** properties);
DIAGCORE_EXPORT CMPIStatus DiagServiceProviderCommonDeleteInstance(const CMPIBroker* broker,
                                                                   CMPIInstanceMI* mi,
                                                                   const CMPIContext* ctx,
                                                                   const CMPIResult* rslt,
                                                                   const CMPIObjectPath* cop);
DIAGCORE_EXPORT CMPIStatus DiagServiceProviderCommonExecQuery(
    const CMPIBroker* broker, CMPIInstanceMI* mi, const CMPIContext* ctx, const CMPIResult* rslt,
    const CMPIObjectPath* cop, const char* query, const char* language);

DIAGCORE_EXPORT CMPIStatus DiagServiceProviderCommonMethodCleanup(const CMPIBroker* broker,
                                                                  CMPIMethodMI* mi,
                                                                  const CMPIContext* ctx,
                                                                  unsigned char terminating);
DIAGCORE_EXPORT CMPIStatus DiagServiceProviderCommonInvokeMethod(
    const CMPIBroker* broker, CMPIMethodMI* mi, const CMPIContext* ctx, const CMPIResult* rslt,
    const CMPIObjectPath* ref, const char* methodName, const CMPIArgs* in, CMPIArgs* out);

DIAGCORE_EXPORT CMPIStatus DiagServiceProviderCommonAssociationCleanup(const CMPIBroker* broker,
                                                                       CMPIAssociationMI* mi,
                                                                       const CMPIContext* ctx,
                                                                       unsigned char terminating);
DIAGCORE_EXPORT CMPIStatus DiagServiceProviderCommonAssociators(
    const CMPIBroker* broker, CMPIAssociationMI* mi, const CMPIContext* ctx, const CMPIResult* rslt,
    const CMPIObjectPath* op, const char* assocClass, const char* resultClass, const char* role,
    const char* resultRole, const char** properties);
DIAGCORE_EXPORT CMPIStatus DiagServiceProviderCommonAssociatorNames(
    const CMPIBroker* broker, CMPIAssociationMI* mi, const CMPIContext* ctx, const CMPIResult* rslt,
    const CMPIObjectPath* op, const char* assocClass, const char* resultClass, const char* role,
    const char* resultRole);
DIAGCORE_EXPORT CMPIStatus DiagServiceProviderCommonReferences(
    const CMPIBroker* broker, CMPIAssociationMI* mi, const CMPIContext* ctx, const CMPIResult* rslt,
    const CMPIObjectPath* op, const char* resultClass, const char* role, const char** properties);
DIAGCORE_EXPORT CMPIStatus DiagServiceProviderCommonReferenceNames(
    const CMPIBroker* broker, CMPIAssociationMI* mi, const CMPIContext* ctx, const CMPIResult* rslt,
    const CMPIObjectPath* op, const char* resultClass, const char* role);

#ifdef __cplusplus
}
#endif

#endif
