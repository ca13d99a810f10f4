// Costs of the broker's hot paths: object path text in both dialects, making and filling an
// instance of a 15-property class, reading a property, cloning, an instance's path text, and a
// client path with many keys.
#include "host/broker/Broker.h"
#include "host/broker/CallScope.h"
#include "host/broker/CimValueCodec.h"
#include "host/broker/LogSink.h"
#include "host/mof/ClassRepository.h"
#include "host/text/ObjectPathText.h"

#include <cmpift.h>
#include <cmpimacs.h>

#include <benchmark/benchmark.h>

#include <memory>
#include <string>

using namespace diaghost;

namespace {

CimProperty property(const std::string& name, CimTypeCode type, bool key = false) {
    CimProperty p;
    p.name = name;
    p.type = type;
    p.key = key;
    return p;
}

// A repository with Bench_Sensor: three keys and twelve other properties of mixed types.
struct Setup {
    explicit Setup(PathDialect dialect) {
        CimClass c;
        c.name = "Bench_Sensor";
        c.properties = {property("SystemCreationClassName", CMPI_string, true),
                        property("SystemName", CMPI_string, true),
                        property("DeviceID", CMPI_string, true),
                        property("Caption", CMPI_string),
                        property("Description", CMPI_string),
                        property("ElementName", CMPI_string),
                        property("EnabledState", CMPI_uint16),
                        property("HealthState", CMPI_uint16),
                        property("CurrentReading", CMPI_sint32),
                        property("UnitModifier", CMPI_sint32),
                        property("SensorType", CMPI_uint16),
                        property("Accuracy", CMPI_sint32),
                        property("IsLinear", CMPI_boolean),
                        property("PollingInterval", CMPI_uint64),
                        property("OtherSensorTypeDescription", CMPI_string)};
        repo.addClass("root/cimv2", c);
        broker = std::make_unique<Broker>(repo, log, dialect);
        mb = broker->cmpi();
    }

    CMPIInstance* filledInstance() {
        CMPIObjectPath* op = CMNewObjectPath(mb, "root/cimv2", "Bench_Sensor", nullptr);
        CMPIInstance* inst = CMNewInstance(mb, op, nullptr);
        CMPIUint16 u16 = 2;
        CMPISint32 s32 = -40;
        CMPIUint64 u64 = 5000000;
        CMPIBoolean yes = 1;
        CMSetProperty(inst, "SystemCreationClassName", "Bench_ComputerSystem", CMPI_chars);
        CMSetProperty(inst, "SystemName", "node01.example.com", CMPI_chars);
        CMSetProperty(inst, "DeviceID", "sensor-0042", CMPI_chars);
        CMSetProperty(inst, "Caption", "Temperature sensor", CMPI_chars);
        CMSetProperty(inst, "Description", "CPU package temperature", CMPI_chars);
        CMSetProperty(inst, "ElementName", "cpu0-temp", CMPI_chars);
        CMSetProperty(inst, "EnabledState", &u16, CMPI_uint16);
        CMSetProperty(inst, "HealthState", &u16, CMPI_uint16);
        CMSetProperty(inst, "CurrentReading", &s32, CMPI_sint32);
        CMSetProperty(inst, "UnitModifier", &s32, CMPI_sint32);
        CMSetProperty(inst, "SensorType", &u16, CMPI_uint16);
        CMSetProperty(inst, "Accuracy", &s32, CMPI_sint32);
        CMSetProperty(inst, "IsLinear", &yes, CMPI_boolean);
        CMSetProperty(inst, "PollingInterval", &u64, CMPI_uint64);
        CMSetProperty(inst, "OtherSensorTypeDescription", "none", CMPI_chars);
        return inst;
    }

    ClassRepository repo;
    LogSink log;
    std::unique_ptr<Broker> broker;
    const CMPIBroker* mb = nullptr;
};

PathDialect dialectOf(const benchmark::State& state) {
    return state.range(0) == 0 ? PathDialect::Pegasus : PathDialect::Sfcb;
}

void PathToString(benchmark::State& state) {
    Setup s(dialectOf(state));
    CallScope outer(*s.broker);
    CMPIObjectPath* op = CMGetObjectPath(s.filledInstance(), nullptr);
    CMSetHostname(op, "node01");
    for (auto _ : state) {
        CallScope scope(*s.broker);
        CMPIString* text = CMObjectPathToString(op, nullptr);
        benchmark::DoNotOptimize(CMGetCharPtr(text));
    }
}
BENCHMARK(PathToString)->Arg(0)->Arg(1)->ArgName("sfcb");

void NewInstanceAndSet15Properties(benchmark::State& state) {
    Setup s(PathDialect::Pegasus);
    for (auto _ : state) {
        CallScope scope(*s.broker);
        benchmark::DoNotOptimize(s.filledInstance());
    }
}
BENCHMARK(NewInstanceAndSet15Properties);

void GetProperty(benchmark::State& state) {
    Setup s(PathDialect::Pegasus);
    CallScope scope(*s.broker);
    CMPIInstance* inst = s.filledInstance();
    // The last declared property: the longest name search.
    for (auto _ : state) {
        CMPIData d = CMGetProperty(inst, "OtherSensorTypeDescription", nullptr);
        benchmark::DoNotOptimize(d);
    }
}
BENCHMARK(GetProperty);

void CloneAndRelease(benchmark::State& state) {
    Setup s(PathDialect::Pegasus);
    CallScope scope(*s.broker);
    CMPIInstance* inst = s.filledInstance();
    for (auto _ : state) {
        CMPIInstance* copy = CMClone(inst, nullptr);
        benchmark::DoNotOptimize(copy);
        CMRelease(copy);
    }
}
BENCHMARK(CloneAndRelease);

// What a registry lookup costs the broker: the instance's path, rendered.
void InstancePathText(benchmark::State& state) {
    Setup s(dialectOf(state));
    CallScope outer(*s.broker);
    CMPIInstance* inst = s.filledInstance();
    for (auto _ : state) {
        CallScope scope(*s.broker);
        CMPIObjectPath* op = CMGetObjectPath(inst, nullptr);
        CMPIString* text = CMObjectPathToString(op, nullptr);
        benchmark::DoNotOptimize(CMGetCharPtr(text));
    }
}
BENCHMARK(InstancePathText)->Arg(0)->Arg(1)->ArgName("sfcb");

// A client's path text with N keys, parsed and made into a CMPIObjectPath, as the host does for
// every request: linear in N, however many keys a client sends.
void PathWithManyKeys(benchmark::State& state) {
    Setup s(PathDialect::Sfcb);
    std::string text = "Bench_Sensor.";
    for (long i = 0; i < state.range(0); ++i)
        text += (i ? ",K" : "K") + std::to_string(i) + "=\"v\"";
    for (auto _ : state) {
        CallScope scope(*s.broker);
        benchmark::DoNotOptimize(CimValueCodec::pathFromText(*s.broker, text, "root/cimv2"));
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK(PathWithManyKeys)
    ->RangeMultiplier(4)
    ->Range(256, 65536)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);

} // namespace

BENCHMARK_MAIN();
