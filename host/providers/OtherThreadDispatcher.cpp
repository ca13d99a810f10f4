#include "host/providers/OtherThreadDispatcher.h"

#include <exception>
#include <thread>

namespace diaghost {

template <class Call>
OperationStatus OtherThreadDispatcher::elsewhere(Call&& call) {
    OperationStatus status;
    std::exception_ptr failure;
    std::thread worker([&] {
        try {
            status = call(inner_);
        } catch (...) {
            failure = std::current_exception();
        }
    });
    worker.join();
    if (failure)
        std::rethrow_exception(failure);
    return status;
}

OperationStatus OtherThreadDispatcher::enumerateInstanceNames(const CMPIContext* ctx,
                                                              const CMPIObjectPath* op,
                                                              ResultSink& out) {
    return elsewhere([&](Dispatcher& d) { return d.enumerateInstanceNames(ctx, op, out); });
}

OperationStatus OtherThreadDispatcher::enumerateInstances(const CMPIContext* ctx,
                                                          const CMPIObjectPath* op,
                                                          const char** properties,
                                                          ResultSink& out) {
    return elsewhere([&](Dispatcher& d) { return d.enumerateInstances(ctx, op, properties, out); });
}

OperationStatus OtherThreadDispatcher::getInstance(const CMPIContext* ctx, const CMPIObjectPath* op,
                                                   const char** properties, ResultSink& out) {
    return elsewhere([&](Dispatcher& d) { return d.getInstance(ctx, op, properties, out); });
}

OperationStatus OtherThreadDispatcher::createInstance(const CMPIContext* ctx,
                                                      const CMPIObjectPath* op,
                                                      const CMPIInstance* inst, ResultSink& out) {
    return elsewhere([&](Dispatcher& d) { return d.createInstance(ctx, op, inst, out); });
}

OperationStatus OtherThreadDispatcher::modifyInstance(const CMPIContext* ctx,
                                                      const CMPIObjectPath* op,
                                                      const CMPIInstance* inst,
                                                      const char** properties, ResultSink& out) {
    return elsewhere(
        [&](Dispatcher& d) { return d.modifyInstance(ctx, op, inst, properties, out); });
}

OperationStatus OtherThreadDispatcher::deleteInstance(const CMPIContext* ctx,
                                                      const CMPIObjectPath* op, ResultSink& out) {
    return elsewhere([&](Dispatcher& d) { return d.deleteInstance(ctx, op, out); });
}

OperationStatus OtherThreadDispatcher::execQuery(const CMPIContext* ctx, const CMPIObjectPath* op,
                                                 const char* query, const char* language,
                                                 ResultSink& out) {
    return elsewhere([&](Dispatcher& d) { return d.execQuery(ctx, op, query, language, out); });
}

OperationStatus OtherThreadDispatcher::associators(const CMPIContext* ctx, const CMPIObjectPath* op,
                                                   const char* assocClass, const char* resultClass,
                                                   const char* role, const char* resultRole,
                                                   const char** properties, ResultSink& out) {
    return elsewhere([&](Dispatcher& d) {
        return d.associators(ctx, op, assocClass, resultClass, role, resultRole, properties, out);
    });
}

OperationStatus OtherThreadDispatcher::associatorNames(const CMPIContext* ctx,
                                                       const CMPIObjectPath* op,
                                                       const char* assocClass,
                                                       const char* resultClass, const char* role,
                                                       const char* resultRole, ResultSink& out) {
    return elsewhere([&](Dispatcher& d) {
        return d.associatorNames(ctx, op, assocClass, resultClass, role, resultRole, out);
    });
}

OperationStatus OtherThreadDispatcher::references(const CMPIContext* ctx, const CMPIObjectPath* op,
                                                  const char* resultClass, const char* role,
                                                  const char** properties, ResultSink& out) {
    return elsewhere(
        [&](Dispatcher& d) { return d.references(ctx, op, resultClass, role, properties, out); });
}

OperationStatus OtherThreadDispatcher::referenceNames(const CMPIContext* ctx,
                                                      const CMPIObjectPath* op,
                                                      const char* resultClass, const char* role,
                                                      ResultSink& out) {
    return elsewhere(
        [&](Dispatcher& d) { return d.referenceNames(ctx, op, resultClass, role, out); });
}

OperationStatus OtherThreadDispatcher::invokeMethod(const CMPIContext* ctx,
                                                    const CMPIObjectPath* op, const char* method,
                                                    const CMPIArgs* in, CMPIArgs* out,
                                                    ResultSink& result) {
    return elsewhere(
        [&](Dispatcher& d) { return d.invokeMethod(ctx, op, method, in, out, result); });
}

} // namespace diaghost
