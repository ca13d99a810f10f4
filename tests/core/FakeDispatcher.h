// A stand-in for the object manager's routing in core tests: enumerations of the classes it was
// given answer with its instances; every other operation is not supported. Upcalls reach it on
// another thread, as OpenPegasus serves them.
#ifndef DIAGCORE_TESTS_CORE_FAKEDISPATCHER_H
#define DIAGCORE_TESTS_CORE_FAKEDISPATCHER_H

#include "host/broker/Broker.h"
#include "host/broker/Dispatcher.h"
#include "host/broker/ResultSink.h"
#include "host/providers/OtherThreadDispatcher.h"

#include <cmpift.h>

#include <map>
#include <string>
#include <vector>

namespace coretest {

using diaghost::Dispatcher;
using diaghost::OperationStatus;

class FakeDispatcher : public Dispatcher {
public:
    explicit FakeDispatcher(diaghost::Broker& broker) : broker_(broker), otherThread_(*this) {
        broker_.setDispatcher(&otherThread_);
    }
    ~FakeDispatcher() override {
        broker_.setDispatcher(nullptr);
        for (auto& [cls, list] : served_)
            for (CMPIInstance* i : list)
                i->ft->release(i);
    }
    // Serves a clone of the instance when its class is enumerated.
    void serve(const std::string& cls, const CMPIInstance* inst) {
        served_[cls].push_back(inst->ft->clone(inst, nullptr));
    }
    int enumerations = 0;

    OperationStatus enumerateInstances(const CMPIContext*, const CMPIObjectPath* op, const char**,
                                       diaghost::ResultSink& out) override {
        ++enumerations;
        CMPIString* cls = op->ft->getClassName(op, nullptr);
        auto it = served_.find(cls->ft->getCharPtr(cls, nullptr));
        if (it != served_.end())
            for (CMPIInstance* i : it->second)
                out.cmpi()->ft->returnInstance(out.cmpi(), i);
        out.cmpi()->ft->returnDone(out.cmpi());
        return OperationStatus::make(CMPI_RC_OK);
    }
    OperationStatus enumerateInstanceNames(const CMPIContext*, const CMPIObjectPath*,
                                           diaghost::ResultSink&) override {
        return no();
    }
    OperationStatus getInstance(const CMPIContext*, const CMPIObjectPath*, const char**,
                                diaghost::ResultSink&) override {
        return no();
    }
    OperationStatus createInstance(const CMPIContext*, const CMPIObjectPath*, const CMPIInstance*,
                                   diaghost::ResultSink&) override {
        return no();
    }
    OperationStatus modifyInstance(const CMPIContext*, const CMPIObjectPath*, const CMPIInstance*,
                                   const char**, diaghost::ResultSink&) override {
        return no();
    }
    OperationStatus deleteInstance(const CMPIContext*, const CMPIObjectPath*,
                                   diaghost::ResultSink&) override {
        return no();
    }
    OperationStatus execQuery(const CMPIContext*, const CMPIObjectPath*, const char*, const char*,
                              diaghost::ResultSink&) override {
        return no();
    }
    OperationStatus associators(const CMPIContext*, const CMPIObjectPath*, const char*, const char*,
                                const char*, const char*, const char**,
                                diaghost::ResultSink&) override {
        return no();
    }
    OperationStatus associatorNames(const CMPIContext*, const CMPIObjectPath*, const char*,
                                    const char*, const char*, const char*,
                                    diaghost::ResultSink&) override {
        return no();
    }
    OperationStatus references(const CMPIContext*, const CMPIObjectPath*, const char*, const char*,
                               const char**, diaghost::ResultSink&) override {
        return no();
    }
    OperationStatus referenceNames(const CMPIContext*, const CMPIObjectPath*, const char*,
                                   const char*, diaghost::ResultSink&) override {
        return no();
    }
    OperationStatus invokeMethod(const CMPIContext*, const CMPIObjectPath*, const char*,
                                 const CMPIArgs*, CMPIArgs*, diaghost::ResultSink&) override {
        return no();
    }

private:
    static OperationStatus no() { return OperationStatus::make(CMPI_RC_ERR_NOT_SUPPORTED); }
    diaghost::Broker& broker_;
    diaghost::OtherThreadDispatcher otherThread_;
    std::map<std::string, std::vector<CMPIInstance*>> served_;
};

} // namespace coretest

#endif
