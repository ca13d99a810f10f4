// The exported entry functions when memory runs out at any allocation of a call: no exception
// ever leaves one; the call answers a status, and once memory is back every answer is as before.
#include "RobustnessSupport.h"
#include "ThrowingAllocator.h"

#include "entry/DiagServiceProviderCommon.h"
#include "host/broker/Broker.h"
#include "host/broker/CallScope.h"
#include "host/broker/ResultSink.h"

#include <cmpift.h>
#include <gtest/gtest.h>

#include <functional>
#include <iostream>

namespace {

using namespace robusttest;
using diaghost::CallScope;
using diaghost::ResultSink;

using EntryCall = std::function<CMPIStatus(const CMPIContext*, const CMPIResult*)>;

class MemoryExhaustionTest : public ::testing::Test {
protected:
    void SetUp() override { targets = serviceTargets(host); }

    const CMPIBroker* broker() { return host.broker().cmpi(); }

    // Runs the call with an allocation budget of 0, then 1, 2, ... until the budget suffices;
    // answers that budget. The budgets step by `stride` up to the last one.
    std::size_t underEveryBudget(const std::string& what, const EntryCall& call,
                                 std::size_t stride = 1) {
        for (std::size_t budget = 0; budget < 200000; budget += stride) {
            CallScope scope(host.broker());
            ResultSink sink(host.broker());
            const CMPIContext* ctx = host.broker().newContext("root/cimv2");
            CMPIStatus status = {CMPI_RC_OK, nullptr};
            bool escaped = false;
            ThrowingAllocator::arm(budget);
            try {
                status = call(ctx, sink.cmpi());
            } catch (...) {
                escaped = true;
            }
            const bool refused = ThrowingAllocator::disarm();
            EXPECT_FALSE(escaped) << what << ": an exception left the entry, budget " << budget;
            if (escaped)
                return budget;
            if (!refused) {
                EXPECT_EQ(status.rc, CMPI_RC_OK) << what << " with enough memory";
                return budget;
            }
            EXPECT_TRUE(status.rc == CMPI_RC_OK || status.rc == CMPI_RC_ERR_FAILED ||
                        status.rc == CMPI_RC_ERR_NOT_FOUND)
                << what << ": rc " << status.rc << " at budget " << budget;
        }
        ADD_FAILURE() << what << " never completed";
        return 0;
    }

    // A path made outside any call, alive as long as the broker.
    CMPIObjectPath* path(const std::string& text) { return host.parsePath(text); }

    CMPIArgs* runArguments(const ServiceTarget& target) {
        CMPIArgs* in = broker()->eft->newArgs(broker(), nullptr);
        CMPIValue element;
        element.ref = path(target.elementPath);
        in->ft->addArg(in, "ManagedElement", &element, CMPI_ref);
        return in;
    }

    std::size_t stride() const { return longRun() ? 1 : 3; }

    Host& host = zorqtest::sharedHost();
    std::vector<ServiceTarget> targets;
};

TEST_F(MemoryExhaustionTest, ReadingEntriesNeverLetAnExceptionOut) {
    for (const ServiceTarget& t : targets) {
        CMPIObjectPath* serviceClass = path(t.serviceClass);
        CMPIObjectPath* service = path(t.servicePath);
        CMPIObjectPath* unknown = path(unknownServicePath(t));
        const CMPIBroker* mb = broker();
        underEveryBudget(t.serviceName + " EnumInstances", [&](auto ctx, auto rslt) {
            return DiagServiceProviderCommonEnumInstances(mb, nullptr, ctx, rslt, serviceClass,
                                                          nullptr);
        });
        underEveryBudget(t.serviceName + " EnumInstanceNames", [&](auto ctx, auto rslt) {
            return DiagServiceProviderCommonEnumInstanceNames(mb, nullptr, ctx, rslt, serviceClass);
        });
        underEveryBudget(t.serviceName + " GetInstance", [&](auto ctx, auto rslt) {
            return DiagServiceProviderCommonGetInstance(mb, nullptr, ctx, rslt, service, nullptr);
        });
        const std::string assoc = t.availableClass;
        underEveryBudget(t.serviceName + " Associators", [&](auto ctx, auto rslt) {
            return DiagServiceProviderCommonAssociators(
                mb, nullptr, ctx, rslt, service, assoc.c_str(), nullptr, nullptr, nullptr, nullptr);
        });
        underEveryBudget(t.serviceName + " AssociatorNames", [&](auto ctx, auto rslt) {
            return DiagServiceProviderCommonAssociatorNames(
                mb, nullptr, ctx, rslt, service, assoc.c_str(), nullptr, nullptr, nullptr);
        });
        // A miss answers CMPI_RC_ERR_FAILED whatever the budget.
        for (std::size_t budget = 0; budget < 64; ++budget) {
            CallScope scope(host.broker());
            ResultSink sink(host.broker());
            CMPIStatus status = {CMPI_RC_OK, nullptr};
            {
                ArmedAllocator armed(budget);
                status = DiagServiceProviderCommonGetInstance(mb, nullptr, nullptr, sink.cmpi(),
                                                              unknown, nullptr);
            }
            EXPECT_EQ(status.rc, CMPI_RC_ERR_FAILED) << "budget " << budget;
        }
    }
}

TEST_F(MemoryExhaustionTest, RunDiagnosticNeverLetsAnExceptionOutAndRecoversAfterwards) {
    for (const ServiceTarget& t : targets) {
        CMPIObjectPath* service = path(t.servicePath);
        CMPIArgs* in = runArguments(t);
        const CMPIBroker* mb = broker();
        const std::size_t needed = underEveryBudget(
            t.serviceName + " RunDiagnostic",
            [&](auto ctx, auto rslt) {
                CMPIArgs* out = mb->eft->newArgs(mb, nullptr);
                return DiagServiceProviderCommonInvokeMethod(mb, nullptr, ctx, rslt, service,
                                                             "RunDiagnostic", in, out);
            },
            stride());
        EXPECT_GT(needed, 0u);
        std::cout << t.serviceName << ": RunDiagnostic needs " << needed << " allocations\n";

        // With memory back, a run publishes exactly one record again.
        const std::size_t before = servedCount(t.recordClass);
        OperationResult result = runOnce(host, t);
        EXPECT_TRUE(result.ok()) << result.status.message;
        EXPECT_EQ(servedCount(t.recordClass), before + 1) << t.serviceName;
    }
}

TEST_F(MemoryExhaustionTest, UnknownMethodsAndMissingArgumentsStayRefusedWithoutMemory) {
    const ServiceTarget& t = targets.front();
    CMPIObjectPath* service = path(t.servicePath);
    CMPIArgs* empty = broker()->eft->newArgs(broker(), nullptr);
    const CMPIBroker* mb = broker();
    for (std::size_t budget = 0; budget < 64; ++budget) {
        CallScope scope(host.broker());
        ResultSink sink(host.broker());
        CMPIStatus unknown = {CMPI_RC_OK, nullptr};
        CMPIStatus missing = {CMPI_RC_OK, nullptr};
        {
            ArmedAllocator armed(budget);
            unknown = DiagServiceProviderCommonInvokeMethod(
                mb, nullptr, nullptr, sink.cmpi(), service, "runDiagnostic", empty, nullptr);
            missing = DiagServiceProviderCommonInvokeMethod(
                mb, nullptr, nullptr, sink.cmpi(), service, "RunDiagnostic", empty, nullptr);
        }
        // Without memory for the method name's copy the call fails instead.
        EXPECT_TRUE(unknown.rc == CMPI_RC_ERR_METHOD_NOT_FOUND || unknown.rc == CMPI_RC_ERR_FAILED)
            << "budget " << budget << " rc " << unknown.rc;
        EXPECT_TRUE(missing.rc == CMPI_RC_ERR_INVALID_PARAMETER || missing.rc == CMPI_RC_ERR_FAILED)
            << "budget " << budget << " rc " << missing.rc;
    }
}

} // namespace
