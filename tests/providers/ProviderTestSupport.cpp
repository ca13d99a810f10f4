#include "ProviderTestSupport.h"

#include "host/broker/CallScope.h"

#include <cmpift.h>

#include <gtest/gtest.h>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>

namespace zorqtest {

namespace fs = std::filesystem;

namespace {

void writeFile(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::trunc);
    out << text;
    if (!out)
        throw std::runtime_error("cannot write " + path);
}

// Mount-table fields write blanks as octal escapes.
std::string tableField(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c == ' ')
            out += "\\040";
        else if (c == '\t')
            out += "\\011";
        else if (c == '\\')
            out += "\\134";
        else
            out.push_back(c);
    }
    return out;
}

void makeInterface(const std::string& dir, const Properties& attributes,
                   const std::optional<Properties>& statistics) {
    fs::create_directories(dir);
    for (const auto& [name, text] : attributes)
        writeFile(dir + "/" + name, text + "\n");
    if (!statistics)
        return;
    fs::create_directories(dir + "/statistics");
    for (const auto& [name, text] : *statistics)
        writeFile(dir + "/statistics/" + name, text + "\n");
}

Properties counters(const std::string& rxErrors, const std::string& txErrors,
                    const std::string& rxDropped, const std::string& txDropped) {
    return {{"rx_errors", rxErrors},
            {"tx_errors", txErrors},
            {"rx_dropped", rxDropped},
            {"tx_dropped", txDropped}};
}

std::string text(const CMPIString* s) {
    if (s == nullptr || s->ft == nullptr)
        return {};
    const char* p = s->ft->getCharPtr(s, nullptr);
    return p ? p : "";
}

} // namespace

ScratchFolder::ScratchFolder(const std::string& stem) {
    std::string pattern = (fs::temp_directory_path() / (stem + "-XXXXXX")).string();
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (::mkdtemp(buffer.data()) == nullptr)
        throw std::runtime_error("mkdtemp failed for " + pattern);
    path_ = buffer.data();
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

FakeSystem& FakeSystem::instance() {
    static FakeSystem system;
    return system;
}

FakeSystem::FakeSystem() : folder_("zorq-providers") {
    for (const char* name : {"rw", "ro", "with space", "vanishing", "proc", "nfs", "unlisted"})
        fs::create_directories(mountPoint(name));
    writeFile(mountPoint("afile"), "a single bind-mounted file\n");
    writeFile(mountPoint("unlisted") + "/canary", "must stay alone\n");
    std::string table;
    auto line = [&](const std::string& device, const std::string& name, const std::string& type,
                    const std::string& options) {
        table += tableField(device) + " " + tableField(mountPoint(name)) + " " + type + " " +
                 options + " 0 0\n";
    };
    line("/dev/zorqa", "rw", "ext4", "rw,relatime");
    line("/dev/zorqb", "ro", "ext4", "ro,relatime");
    line("tmpfs", "with space", "tmpfs", "rw,nosuid,nodev");
    line("/dev/zorqc", "vanishing", "xfs", "rw,noatime");
    line("proc", "proc", "proc", "rw,nosuid");
    line("server:/export", "nfs", "nfs4", "rw,vers=4.2");
    line("/dev/zorqd", "afile", "ext4", "rw");
    table += "a line that is not a mount\n";
    writeFile(root() + "/mounts", table);

    const Properties zero = counters("0", "0", "0", "0");
    makeInterface(interfaceDir("lo"),
                  {{"type", "772"},
                   {"operstate", "unknown"},
                   {"carrier", "1"},
                   {"address", "00:00:00:00:00:00"},
                   {"mtu", "65536"},
                   {"flags", "0x9"},
                   {"ifindex", "1"}},
                  zero);
    makeInterface(interfaceDir("eth0"),
                  {{"type", "1"},
                   {"operstate", "up"},
                   {"carrier", "1"},
                   {"address", "02:fc:00:00:00:01"},
                   {"speed", "1000"},
                   {"mtu", "1500"},
                   {"flags", "0x1003"},
                   {"ifindex", "2"}},
                  counters("0", "0", "7", "0"));
    makeInterface(interfaceDir("eth1"),
                  {{"type", "1"},
                   {"operstate", "down"},
                   {"address", "02:fc:00:00:00:02"},
                   {"speed", "-1"},
                   {"mtu", "1500"},
                   {"flags", "0x1002"},
                   {"ifindex", "3"}},
                  counters("3", "1", "0", "0"));
    makeInterface(interfaceDir("eth2"),
                  {{"type", "1"}, {"operstate", "up"}, {"carrier", "0"}, {"flags", "0x1003"}},
                  zero);
    makeInterface(interfaceDir("gone0"),
                  {{"type", "1"}, {"operstate", "up"}, {"carrier", "1"}, {"flags", "0x1003"}},
                  zero);
    makeInterface(interfaceDir("nostats0"),
                  {{"type", "1"}, {"operstate", "up"}, {"carrier", "1"}, {"flags", "0x1003"}},
                  std::nullopt);
    writeFile(root() + "/net/bonding_masters", "\n");

    ::setenv("ZORQ_FS_MOUNTS", (root() + "/mounts").c_str(), 1);
    ::setenv("ZORQ_NET_SYSFS", (root() + "/net").c_str(), 1);
}

ScopedEnvironment::ScopedEnvironment(const char* name, const std::string& value) : name_(name) {
    if (const char* old = std::getenv(name))
        previous_ = old;
    ::setenv(name, value.c_str(), 1);
}

ScopedEnvironment::~ScopedEnvironment() {
    if (previous_)
        ::setenv(name_.c_str(), previous_->c_str(), 1);
    else
        ::unsetenv(name_.c_str());
}

std::unique_ptr<Host> makeHost(diaghost::PathDialect dialect) {
    Host::Options options;
    options.dialect = dialect;
    // As harsh as the real object managers: upcalls answered on another thread, enumerations
    // that mark instances null, result sinks that edit the instances they are handed.
    options.upcallsOnOtherThread = true;
    options.strict = true;
    options.providerPath.push_back(ZORQ_PROVIDER_DIR);
    auto host = std::make_unique<Host>(options);
    host->loadMof(DIAGCORE_SOURCE_DIR "/mof/diagcore.mof");
    host->loadRegistrations(DIAGCORE_SOURCE_DIR "/mof/registration/diagcore.reg");
    return host;
}

namespace {

std::atomic<Host*> sharedHostMade{nullptr};

// At the end of the run the shared host's providers are cleaned up, as an object manager does
// when it stops: runs of the profile layer still going are stopped and their workers joined.
class SharedHostShutdown : public ::testing::Environment {
public:
    void TearDown() override {
        if (Host* host = sharedHostMade.load())
            host->shutdown();
    }
};

::testing::Environment* const sharedHostShutdown =
    ::testing::AddGlobalTestEnvironment(new SharedHostShutdown);

} // namespace

Host& sharedHost() {
    // One per process: the providers' registry lives as long as the process, and so must the
    // host whose broker made its instances.
    static Host* host = [] {
        FakeSystem::instance();
        Host* made = makeHost().release();
        sharedHostMade.store(made);
        return made;
    }();
    return *host;
}

std::string expectedSystemName() {
    char name[HOST_NAME_MAX + 2] = {0};
    if (::gethostname(name, sizeof name - 1) != 0)
        return "localhost";
    addrinfo hints{};
    hints.ai_flags = AI_CANONNAME;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (::getaddrinfo(name, nullptr, &hints, &found) != 0 || found == nullptr)
        return name;
    std::string canonical = found->ai_canonname ? found->ai_canonname : "";
    ::freeaddrinfo(found);
    return canonical.empty() ? std::string(name) : canonical;
}

Properties propertiesOf(Host& host, const CMPIInstance* instance) {
    Properties properties;
    if (instance == nullptr || instance->ft == nullptr)
        return properties;
    diaghost::CallScope scope(host.broker());
    const CMPICount count = instance->ft->getPropertyCount(instance, nullptr);
    for (CMPICount i = 0; i < count; ++i) {
        CMPIString* name = nullptr;
        instance->ft->getPropertyAt(instance, i, &name, nullptr);
        const std::string key = text(name);
        if (auto value = host.propertyText(instance, key))
            properties[key] = *value;
    }
    return properties;
}

std::vector<Properties> enumerate(Host& host, const std::string& className) {
    std::vector<Properties> all;
    auto result = host.enumerateInstances("root/cimv2", className);
    for (const CMPIInstance* instance : result.instances())
        all.push_back(propertiesOf(host, instance));
    return all;
}

std::string pathText(const std::string& className,
                     const std::vector<std::pair<std::string, std::string>>& keys) {
    std::string out = className;
    char separator = '.';
    for (const auto& [name, value] : keys) {
        out += separator + name + "=\"";
        for (char c : value) {
            if (c == '"' || c == '\\')
                out.push_back('\\');
            out.push_back(c);
        }
        out += "\"";
        separator = ',';
    }
    return out;
}

std::string fileSystemPath(const std::string& mountPoint) {
    return pathText("ZORQ_LocalFileSystem", {{"CSCreationClassName", "ZORQ_ComputerSystem"},
                                             {"CSName", expectedSystemName()},
                                             {"CreationClassName", "ZORQ_LocalFileSystem"},
                                             {"Name", mountPoint}});
}

std::string networkPortPath(const std::string& deviceId) {
    return pathText("ZORQ_NetworkPort", {{"SystemCreationClassName", "ZORQ_ComputerSystem"},
                                         {"SystemName", expectedSystemName()},
                                         {"CreationClassName", "ZORQ_NetworkPort"},
                                         {"DeviceID", deviceId}});
}

RunOutcome runDiagnostic(Host& host, const std::string& serviceClass,
                         const std::string& serviceName, const std::string& elementPath,
                         const std::string& recordClass) {
    RunOutcome outcome;
    std::set<std::string> before;
    for (const Properties& record : enumerate(host, recordClass))
        before.insert(record.count("InstanceID") ? record.at("InstanceID") : "");

    auto services = host.enumerateInstances("root/cimv2", serviceClass);
    const CMPIObjectPath* servicePath = nullptr;
    for (const CMPIInstance* service : services.instances())
        if (host.propertyText(service, "Name") == serviceName)
            servicePath = service->ft->getObjectPath(service, nullptr);
    if (servicePath == nullptr) {
        outcome.status = "no " + serviceClass + " named " + serviceName;
        return outcome;
    }
    diaghost::CallScope scope(host.broker());
    CMPIObjectPath* element = nullptr;
    try {
        element = host.parsePath(elementPath);
    } catch (const std::exception& e) {
        outcome.status = std::string("element path does not parse: ") + e.what();
        return outcome;
    }
    CMPIData argument{};
    argument.type = CMPI_ref;
    argument.state = CMPI_goodValue;
    argument.value.ref = element;
    auto result = host.invokeMethod(servicePath, "RunDiagnostic", {{"ManagedElement", argument}});
    outcome.ok = result.ok();
    outcome.status = result.status.message;
    const CMPIData value = result.returnValue();
    if (value.type == CMPI_uint32 && !(value.state & CMPI_nullValue))
        outcome.returnValue = value.value.uint32;

    for (const Properties& record : enumerate(host, recordClass)) {
        const std::string id = record.count("InstanceID") ? record.at("InstanceID") : "";
        if (!before.count(id))
            outcome.record = record;
    }
    return outcome;
}

void checkLeaksNow() {
#if defined(__SANITIZE_ADDRESS__)
    __lsan_do_leak_check();
#endif
}

namespace {

// The whole run's leak check, made before the process ends.
class LeakCheckEnvironment : public ::testing::Environment {
public:
    void TearDown() override { checkLeaksNow(); }
};

[[maybe_unused]] ::testing::Environment* const leakCheck =
    ::testing::AddGlobalTestEnvironment(new LeakCheckEnvironment);

} // namespace

std::vector<std::string> folderListing(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace zorqtest
