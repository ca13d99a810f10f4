// Client operations through the embedded object manager into the real provider libraries:
// random sequences of enumerate, get, associators, associator names, references, reference
// names and method calls, with class names, paths, roles, method names and arguments drawn from
// what the providers publish and from the input. The providers run on a scratch machine (a mounts
// table over scratch folders and a fake sysfs network tree), never on the real one.
#include "host/Host.h"
#include "host/broker/Broker.h"
#include "host/broker/CallScope.h"
#include "host/broker/LogSink.h"
#include "host/text/ObjectPathText.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <cmpift.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

using diaghost::CallScope;
using diaghost::Host;
using diaghost::ObjectPathError;

namespace fs = std::filesystem;

namespace {

const char* const classNames[] = {"ZORQ_ComputerSystem",
                                  "ZORQ_FSDiagService",
                                  "ZORQ_FSDiagRecord",
                                  "ZORQ_FSDiagSettingData",
                                  "ZORQ_FSDiagCapabilities",
                                  "ZORQ_FSDiagLog",
                                  "ZORQ_LocalFileSystem",
                                  "ZORQ_FSAvailableDiagService",
                                  "ZORQ_FSUseOfLog",
                                  "ZORQ_NetDiagService",
                                  "ZORQ_NetDiagRecord",
                                  "ZORQ_NetDiagSettingData",
                                  "ZORQ_NetDiagCapabilities",
                                  "ZORQ_NetDiagLog",
                                  "ZORQ_NetworkPort",
                                  "ZORQ_NetAvailableDiagService",
                                  "ZORQ_NetUseOfLog",
                                  "CIM_ManagedElement",
                                  "CIM_DiagnosticService",
                                  "CIM_AvailableDiagnosticService",
                                  "CIM_ComputerSystem",
                                  "zorq_fsdiagservice",
                                  ""};

const char* const roleNames[] = {
    "ServiceProvided", "UserOfService", "Antecedent", "Dependent",       "ManagedElement",
    "SettingData",     "Log",           "Record",     "serviceprovided", ""};

const char* const methodNames[] = {"RunDiagnostic", "runDiagnostic", "RunDiagnosticService",
                                   "RequestStateChange", ""};

const char* const argumentNames[] = {
    "ManagedElement", "managedelement", "DiagSetting", "JobSettings", "Job", ""};

Host* host = nullptr;
std::vector<std::string> knownPaths;
std::string scratchRoot;

void removeScratchMachine() {
    std::error_code ignored;
    fs::remove_all(scratchRoot, ignored);
}

void writeFile(const fs::path& path, const std::string& text) {
    std::ofstream out(path, std::ios::trunc);
    out << text;
}

void makeInterface(const fs::path& dir,
                   const std::vector<std::pair<std::string, std::string>>& attrs, bool statistics) {
    fs::create_directories(dir);
    for (const auto& [name, text] : attrs)
        writeFile(dir / name, text + "\n");
    if (!statistics)
        return;
    fs::create_directories(dir / "statistics");
    for (const char* counter : {"rx_errors", "tx_errors", "rx_dropped", "tx_dropped"})
        writeFile(dir / "statistics" / counter, "3\n");
}

// A machine of scratch folders the providers read instead of the real mounts and sysfs.
void makeScratchMachine() {
    char pattern[] = "/tmp/diagcore-fuzz-XXXXXX";
    if (::mkdtemp(pattern) == nullptr) {
        std::perror("mkdtemp");
        std::abort();
    }
    const fs::path root = pattern;
    scratchRoot = root.string();
    std::atexit(removeScratchMachine);
    std::string table;
    for (const char* name : {"rw", "ro", "with space"}) {
        fs::create_directories(root / "mnt" / name);
        std::string point = (root / "mnt" / name).string();
        std::string field;
        for (char c : point)
            field += c == ' ' ? std::string("\\040") : std::string(1, c);
        table += std::string("/dev/fuzz ") + field + " ext4 " +
                 (std::string(name) == "ro" ? "ro" : "rw") + ",relatime 0 0\n";
    }
    table += "proc " + (root / "mnt" / "proc").string() + " proc rw 0 0\n";
    table += "not a mount line\n";
    writeFile(root / "mounts", table);
    makeInterface(root / "net" / "lo",
                  {{"type", "772"}, {"operstate", "unknown"}, {"carrier", "1"}, {"flags", "0x9"}},
                  true);
    makeInterface(root / "net" / "eth0",
                  {{"type", "1"},
                   {"operstate", "up"},
                   {"carrier", "1"},
                   {"speed", "1000"},
                   {"flags", "0x1003"}},
                  true);
    makeInterface(root / "net" / "eth1", {{"type", "1"}, {"operstate", "down"}}, false);
    ::setenv("ZORQ_FS_MOUNTS", (root / "mounts").c_str(), 1);
    ::setenv("ZORQ_NET_SYSFS", (root / "net").c_str(), 1);
}

std::string pickOrMake(FuzzedDataProvider& data, const char* const* names, std::size_t count) {
    if (data.ConsumeBool())
        return names[data.ConsumeIntegralInRange<std::size_t>(0, count - 1)];
    return data.ConsumeRandomLengthString(40);
}

template <std::size_t N>
std::string pick(FuzzedDataProvider& data, const char* const (&names)[N]) {
    return pickOrMake(data, names, N);
}

// A path text: one the providers published, one of those with input spliced in, or input alone.
std::string pathText(FuzzedDataProvider& data) {
    switch (data.ConsumeIntegralInRange<int>(0, 3)) {
    case 0:
    case 1:
        return knownPaths[data.ConsumeIntegralInRange<std::size_t>(0, knownPaths.size() - 1)];
    case 2: {
        std::string text =
            knownPaths[data.ConsumeIntegralInRange<std::size_t>(0, knownPaths.size() - 1)];
        const std::size_t at = data.ConsumeIntegralInRange<std::size_t>(0, text.size());
        const std::size_t cut = data.ConsumeIntegralInRange<std::size_t>(0, text.size() - at);
        return text.substr(0, at) + data.ConsumeRandomLengthString(30) + text.substr(at + cut);
    }
    default:
        return data.ConsumeRandomLengthString(120);
    }
}

// A path the broker makes directly, so that any bytes reach the providers as key values.
CMPIObjectPath* madePath(FuzzedDataProvider& data) {
    const CMPIBroker* broker = host->broker().cmpi();
    const std::string cls = pick(data, classNames);
    CMPIObjectPath* path = broker->eft->newObjectPath(
        broker, data.ConsumeBool() ? "root/cimv2" : "root/other", cls.c_str(), nullptr);
    if (path == nullptr)
        return nullptr;
    const int keys = data.ConsumeIntegralInRange<int>(0, 5);
    for (int i = 0; i < keys; ++i) {
        const std::string name = data.ConsumeRandomLengthString(24);
        const std::string value = data.ConsumeRandomLengthString(80);
        CMPIValue v;
        if (data.ConsumeBool()) {
            // For CMPI_chars the value pointer is the text itself.
            path->ft->addKey(path, name.c_str(), reinterpret_cast<const CMPIValue*>(value.c_str()),
                             CMPI_chars);
        } else {
            v.uint16 = data.ConsumeIntegral<uint16_t>();
            path->ft->addKey(path, name.c_str(), &v, CMPI_uint16);
        }
    }
    return path;
}

CMPIObjectPath* anyPath(FuzzedDataProvider& data) {
    if (data.ConsumeIntegralInRange<int>(0, 3) == 0)
        return madePath(data);
    try {
        return host->parsePath(pathText(data));
    } catch (const ObjectPathError&) {
        return nullptr;
    }
}

Host::Arguments arguments(FuzzedDataProvider& data) {
    Host::Arguments args;
    const int count = data.ConsumeIntegralInRange<int>(0, 4);
    const CMPIBroker* broker = host->broker().cmpi();
    for (int i = 0; i < count; ++i) {
        const std::string name = pick(data, argumentNames);
        CMPIData value{};
        value.state = CMPI_goodValue;
        switch (data.ConsumeIntegralInRange<int>(0, 4)) {
        case 0:
        case 1:
            value.type = CMPI_ref;
            value.value.ref = anyPath(data);
            break;
        case 2: {
            const std::string text = data.ConsumeRandomLengthString(120);
            value.type = CMPI_string;
            value.value.string = broker->eft->newString(broker, text.c_str(), nullptr);
            break;
        }
        case 3:
            value.type = CMPI_uint32;
            value.value.uint32 = data.ConsumeIntegral<uint32_t>();
            break;
        default:
            value.type = data.ConsumeBool() ? CMPI_ref : CMPI_string;
            value.state = CMPI_nullValue;
            break;
        }
        if ((value.type == CMPI_ref || value.type == CMPI_string) && value.value.ref == nullptr)
            value.state = CMPI_nullValue;
        args.emplace_back(name, value);
    }
    return args;
}

void oneOperation(FuzzedDataProvider& data) {
    CallScope scope(host->broker());
    const int op = data.ConsumeIntegralInRange<int>(0, 7);
    const bool byText = data.ConsumeBool();
    switch (op) {
    case 0:
        (void)host->enumerateInstances(data.ConsumeBool() ? "root/cimv2" : "root/other",
                                       pick(data, classNames));
        break;
    case 1:
        (void)host->enumerateInstanceNames("root/cimv2", pick(data, classNames));
        break;
    case 2:
        if (byText)
            (void)host->getInstance(pathText(data));
        else if (CMPIObjectPath* path = anyPath(data))
            (void)host->getInstance(path);
        break;
    case 3:
    case 4: {
        const std::string assoc = pick(data, classNames);
        const std::string result = pick(data, classNames);
        const std::string role = pick(data, roleNames);
        const std::string resultRole = pick(data, roleNames);
        if (byText)
            (void)(op == 3
                       ? host->associators(pathText(data), assoc, result, role, resultRole)
                       : host->associatorNames(pathText(data), assoc, result, role, resultRole));
        else if (CMPIObjectPath* path = anyPath(data))
            (void)(op == 3 ? host->associators(path, assoc, result, role, resultRole)
                           : host->associatorNames(path, assoc, result, role, resultRole));
        break;
    }
    case 5:
    case 6: {
        const std::string result = pick(data, classNames);
        const std::string role = pick(data, roleNames);
        if (byText)
            (void)(op == 5 ? host->references(pathText(data), result, role)
                           : host->referenceNames(pathText(data), result, role));
        else if (CMPIObjectPath* path = anyPath(data))
            (void)(op == 5 ? host->references(path, result, role)
                           : host->referenceNames(path, result, role));
        break;
    }
    default: {
        const std::string method = pick(data, methodNames);
        if (byText) {
            const std::string text = pathText(data);
            (void)host->invokeMethod(text, method, arguments(data));
        } else if (CMPIObjectPath* path = anyPath(data)) {
            (void)host->invokeMethod(path, method, arguments(data));
        }
        break;
    }
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    makeScratchMachine();
    if (std::freopen("/dev/null", "w", stdout) == nullptr)
        std::perror("freopen /dev/null");
    Host::Options options;
    options.providerPath.push_back(ZORQ_PROVIDER_DIR);
    host = new Host(options);
    host->loadMof(DIAGCORE_SOURCE_DIR "/mof/diagcore.mof");
    host->loadRegistrations(DIAGCORE_SOURCE_DIR "/mof/registration/diagcore.reg");
    for (const char* cls : classNames) {
        auto names = host->enumerateInstanceNames("root/cimv2", cls);
        for (const CMPIObjectPath* path : names.paths())
            knownPaths.push_back(host->pathText(path));
    }
    knownPaths.push_back("ZORQ_LocalFileSystem.Name=\"/nowhere\"");
    std::fprintf(stderr, "fuzz_operations: %zu published paths to start from\n", knownPaths.size());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    FuzzedDataProvider data(bytes, size);
    for (int i = 0; i < 8 && data.remaining_bytes() > 0; ++i)
        oneOperation(data);
    host->log().clear();
    return 0;
}
