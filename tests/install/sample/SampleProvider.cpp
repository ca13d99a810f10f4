// The smallest diagnostic family: one service whose test always passes.
#include "diag/DiagService.h"
#include "entry/DiagProvider.h"
#include "factory/ServiceFactory.h"
#include "instance/InstanceRegistry.h"

namespace {

class SampleService : public NQORVA20::DiagService {
public:
    SampleService(std::string installDate, std::string systemName)
        : DiagService("Sample_DiagService", "Sample_DiagRecord", "", std::move(installDate),
                      std::move(systemName)) {
        (*this)["Name"] = "AlwaysPasses";
    }
    unsigned int runTest(NQORVA20::InstanceImpl*, NQORVA20::DiagnosticRecord* record) override {
        record->pass(1);
        return 0;
    }
};

class SampleFactory : public NQORVA20::ServiceFactory {
public:
    NQORVA20::DiagService** makeServices(std::string dateTime, std::string systemName,
                                         unsigned int& count) override {
        count = 1;
        auto** table = new NQORVA20::DiagService*[1];
        table[0] = new SampleService(dateTime, systemName);
        return table;
    }
};

void startup(const CMPIBroker* broker, const CMPIContext* ctx) {
    SampleFactory factory;
    unsigned int count = 0;
    NQORVA20::DiagService** services = factory.CreateServices(broker, ctx, count);
    for (unsigned int i = 0; i < count; ++i)
        NQORVA20::InstanceRegistry::Singleton()->RegisterInstance(broker, ctx, services[i]);
    delete[] services;
}

} // namespace

DIAGCORE_PROVIDER(Sample_Provider, startup)
