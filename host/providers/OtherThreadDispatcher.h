// Serves the broker's upcalls on a thread of their own, as OpenPegasus does: a provider that
// calls the broker waits while another thread runs the providers that answer, so a provider
// that the upcall reaches again is entered on a different thread than the one waiting. Each
// call runs on a fresh thread and is joined before the upcall returns.
#ifndef DIAGHOST_PROVIDERS_OTHERTHREADDISPATCHER_H
#define DIAGHOST_PROVIDERS_OTHERTHREADDISPATCHER_H

#include "host/broker/Dispatcher.h"

namespace diaghost {

class OtherThreadDispatcher final : public Dispatcher {
public:
    explicit OtherThreadDispatcher(Dispatcher& inner) : inner_(inner) {}

    OperationStatus enumerateInstanceNames(const CMPIContext* ctx, const CMPIObjectPath* op,
                                           ResultSink& out) override;
    OperationStatus enumerateInstances(const CMPIContext* ctx, const CMPIObjectPath* op,
                                       const char** properties, ResultSink& out) override;
    OperationStatus getInstance(const CMPIContext* ctx, const CMPIObjectPath* op,
                                const char** properties, ResultSink& out) override;
    OperationStatus createInstance(const CMPIContext* ctx, const CMPIObjectPath* op,
                                   const CMPIInstance* inst, ResultSink& out) override;
    OperationStatus modifyInstance(const CMPIContext* ctx, const CMPIObjectPath* op,
                                   const CMPIInstance* inst, const char** properties,
                                   ResultSink& out) override;
    OperationStatus deleteInstance(const CMPIContext* ctx, const CMPIObjectPath* op,
                                   ResultSink& out) override;
    OperationStatus execQuery(const CMPIContext* ctx, const CMPIObjectPath* op, const char* query,
                              const char* language, ResultSink& out) override;
    OperationStatus associators(const CMPIContext* ctx, const CMPIObjectPath* op,
                                const char* assocClass, const char* resultClass, const char* role,
                                const char* resultRole, const char** properties,
                                ResultSink& out) override;
    OperationStatus associatorNames(const CMPIContext* ctx, const CMPIObjectPath* op,
                                    const char* assocClass, const char* resultClass,
                                    const char* role, const char* resultRole,
                                    ResultSink& out) override;
    OperationStatus references(const CMPIContext* ctx, const CMPIObjectPath* op,
                               const char* resultClass, const char* role, const char** properties,
                               ResultSink& out) override;
    OperationStatus referenceNames(const CMPIContext* ctx, const CMPIObjectPath* op,
                                   const char* resultClass, const char* role,
                                   ResultSink& out) override;
    OperationStatus invokeMethod(const CMPIContext* ctx, const CMPIObjectPath* op,
                                 const char* method, const CMPIArgs* in, CMPIArgs* out,
                                 ResultSink& result) override;

private:
    template <class Call>
    OperationStatus elsewhere(Call&& call);

    Dispatcher& inner_;
};

} // namespace diaghost

#endif
