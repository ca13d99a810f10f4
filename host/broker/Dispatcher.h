// Routes an operation on a class to whatever serves that class in the host. The broker sends its
// upcalls here and the host's own client operations go through it too; implementations open a
// CallScope around every provider call and copy what the provider returns into the sink.
#ifndef DIAGHOST_BROKER_DISPATCHER_H
#define DIAGHOST_BROKER_DISPATCHER_H

#include "host/broker/OperationStatus.h"

#include <cmpidt.h>

namespace diaghost {

class ResultSink;

class Dispatcher {
public:
    virtual ~Dispatcher() = default;

    virtual OperationStatus enumerateInstanceNames(const CMPIContext* ctx, const CMPIObjectPath* op,
                                                   ResultSink& out) = 0;
    virtual OperationStatus enumerateInstances(const CMPIContext* ctx, const CMPIObjectPath* op,
                                               const char** properties, ResultSink& out) = 0;
    virtual OperationStatus getInstance(const CMPIContext* ctx, const CMPIObjectPath* op,
                                        const char** properties, ResultSink& out) = 0;
    virtual OperationStatus createInstance(const CMPIContext* ctx, const CMPIObjectPath* op,
                                           const CMPIInstance* inst, ResultSink& out) = 0;
    virtual OperationStatus modifyInstance(const CMPIContext* ctx, const CMPIObjectPath* op,
                                           const CMPIInstance* inst, const char** properties,
                                           ResultSink& out) = 0;
    virtual OperationStatus deleteInstance(const CMPIContext* ctx, const CMPIObjectPath* op,
                                           ResultSink& out) = 0;
    virtual OperationStatus execQuery(const CMPIContext* ctx, const CMPIObjectPath* op,
                                      const char* query, const char* language, ResultSink& out) = 0;
    virtual OperationStatus associators(const CMPIContext* ctx, const CMPIObjectPath* op,
                                        const char* assocClass, const char* resultClass,
                                        const char* role, const char* resultRole,
                                        const char** properties, ResultSink& out) = 0;
    virtual OperationStatus associatorNames(const CMPIContext* ctx, const CMPIObjectPath* op,
                                            const char* assocClass, const char* resultClass,
                                            const char* role, const char* resultRole,
                                            ResultSink& out) = 0;
    virtual OperationStatus references(const CMPIContext* ctx, const CMPIObjectPath* op,
                                       const char* resultClass, const char* role,
                                       const char** properties, ResultSink& out) = 0;
    virtual OperationStatus referenceNames(const CMPIContext* ctx, const CMPIObjectPath* op,
                                           const char* resultClass, const char* role,
                                           ResultSink& out) = 0;
    virtual OperationStatus invokeMethod(const CMPIContext* ctx, const CMPIObjectPath* op,
                                         const char* method, const CMPIArgs* in, CMPIArgs* out,
                                         ResultSink& result) = 0;
};

} // namespace diaghost

#endif
