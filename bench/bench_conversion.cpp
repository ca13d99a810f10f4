// The per-call helpers on their own: object-path text of a record and of an association (two
// references), class name, stripping and parsing of a path text, the property value text
// conversion for each kind of type, and one build of a record from its instance object.
#include "BenchSupport.h"

#include "builder/InstanceBuilder.h"
#include "instance/CMPIUtil.h"

using namespace diagbench;
using NQORVA20::InstanceBuilder;
namespace CMPIUtil = NQORVA20::CMPIUtil;

namespace {

CMPIObjectPath* recordPath() {
    BenchHost& h = benchHost();
    CMPIObjectPath* op = CMNewObjectPath(h.mb(), "root/cimv2", recordClass, nullptr);
    CMAddKey(op, "InstanceID", "ZORQ_FSDiagService:fs-check:20260101000000.000000+000", CMPI_chars);
    return op;
}

// An association's path: two keys that are references.
CMPIObjectPath* associationPath() {
    BenchHost& h = benchHost();
    static CMPIObjectPath* op = nullptr;
    if (op == nullptr) {
        CallScope scope(*h.broker);
        EmptyTestService& s = service("conversion");
        NQORVA20::AvailableDiagnosticService* a = newAssociation(
            associationClass, s.getObjectPath(), elementPathText(elementClass, 1), true, 1);
        registry().RegisterInstance(h.mb(), h.ctx, a);
        std::vector<CMPIInstance*> all;
        registry().GetCMPIInstances(h.mb(), associationClass, all);
        op = CMClone(CMGetObjectPath(all.front(), nullptr), nullptr);
    }
    return op;
}

CMPIObjectPath* pathOf(const benchmark::State& state) {
    return state.range(0) == 0 ? recordPath() : associationPath();
}

void ObjectPathString(benchmark::State& state) {
    BenchHost& h = benchHost();
    CMPIObjectPath* op = pathOf(state);
    for (auto _ : state) {
        CallScope scope(*h.broker);
        benchmark::DoNotOptimize(CMPIUtil::GetObjectPathString(op));
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(ObjectPathString)->Arg(0)->Arg(1)->ArgName("association");

void ClassName(benchmark::State& state) {
    BenchHost& h = benchHost();
    CMPIObjectPath* op = recordPath();
    for (auto _ : state) {
        CallScope scope(*h.broker);
        benchmark::DoNotOptimize(CMPIUtil::GetClassName(op));
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(ClassName);

void StripObjectPath(benchmark::State& state) {
    const std::string text = "//localhost/root/cimv2:" + elementPathText(elementClass, 42);
    for (auto _ : state)
        benchmark::DoNotOptimize(CMPIUtil::StripObjectPath(text));
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(StripObjectPath);

void ParseObjectPath(benchmark::State& state) {
    std::string text = elementPathText(elementClass, 42);
    for (auto _ : state) {
        NQORVA20::ParseInstanceImpl scratch;
        CMPIUtil::ParseObjectPath(text, scratch);
        benchmark::DoNotOptimize(scratch.getClassName());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(ParseObjectPath);

// Property value text conversion, one type per run.
struct ConversionCase {
    const char* name;
    CMPIType type;
    std::string text;
};
const ConversionCase conversionCases[] = {
    {"boolean", CMPI_boolean, "1"},
    {"uint16", CMPI_uint16, "2"},
    {"uint32", CMPI_uint32, "4000000000"},
    {"sint64", CMPI_sint64, "-1234567890123"},
    {"real64", CMPI_real64, "3.25"},
    {"string", CMPI_string, "Result for File system check"},
    {"datetime", CMPI_dateTime, "20260101000000.000000+000"},
    {"reference", CMPI_ref, elementPathText(elementClass, 42)},
};

void Convert(benchmark::State& state) {
    BenchHost& h = benchHost();
    const ConversionCase& c = conversionCases[state.range(0)];
    InstanceBuilder builder("root/cimv2");
    CMPIType type = c.type;
    std::string text = c.text;
    for (auto _ : state) {
        CallScope scope(*h.broker);
        CMPIValue v = builder.convert(h.mb(), h.ctx, type, text);
        benchmark::DoNotOptimize(v);
    }
    state.SetLabel(c.name);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(Convert)->DenseRange(0, sizeof conversionCases / sizeof conversionCases[0] - 1);

// One build of a diagnostic record (14 property texts) into a typed instance.
void BuildRecord(benchmark::State& state) {
    BenchHost& h = benchHost();
    std::unique_ptr<NQORVA20::DiagnosticRecord> record(newRecord(0));
    InstanceBuilder builder("root/cimv2");
    for (auto _ : state) {
        CallScope scope(*h.broker);
        benchmark::DoNotOptimize(builder.build(h.mb(), h.ctx, recordClass, *record));
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BuildRecord);

// One build of an association: two references, each materialised from its path text.
void BuildAssociation(benchmark::State& state) {
    BenchHost& h = benchHost();
    std::unique_ptr<NQORVA20::AvailableDiagnosticService> association(
        newAssociation(associationClass, service("conversion").getObjectPath(),
                       elementPathText(elementClass, 1), true, 1));
    InstanceBuilder builder("root/cimv2");
    for (auto _ : state) {
        CallScope scope(*h.broker);
        benchmark::DoNotOptimize(builder.build(h.mb(), h.ctx, associationClass, *association));
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BuildAssociation);

} // namespace

BENCHMARK_MAIN();
