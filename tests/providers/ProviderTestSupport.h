// What the provider tests share: a scratch machine (a fake mounts table over real scratch
// folders and a fake sysfs network tree), the one embedded object manager per test process that
// serves the real MOF and registrations with the providers started on that scratch machine, and
// a RunDiagnostic helper that finds the record a run produced.
#ifndef ZORQ_TESTS_PROVIDERS_PROVIDERTESTSUPPORT_H
#define ZORQ_TESTS_PROVIDERS_PROVIDERTESTSUPPORT_H

#include "host/Host.h"

#include <cmpidt.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zorqtest {

using diaghost::Host;
using Properties = std::map<std::string, std::string>;

// A folder of its own under the temporary folder, removed with everything in it at exit.
class ScratchFolder {
public:
    explicit ScratchFolder(const std::string& stem);
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

// The scratch machine the shared host starts the providers on. Mount points under
// <root>/mnt: rw, ro (listed read-only), "with space", vanishing (for a test to remove), and
// unlisted (a real folder the table does not name, holding a file "canary"). Interfaces: lo,
// eth0 (up, 7 drops), eth1 (down, 4 errors), eth2 (up, no carrier), gone0 (for a test to
// remove), nostats0 (no statistics folder).
class FakeSystem {
public:
    // Made once per process; sets ZORQ_FS_MOUNTS and ZORQ_NET_SYSFS.
    static FakeSystem& instance();
    std::string root() const { return folder_.path(); }
    std::string mountPoint(const std::string& name) const { return root() + "/mnt/" + name; }
    std::string interfaceDir(const std::string& name) const { return root() + "/net/" + name; }

private:
    FakeSystem();
    ScratchFolder folder_;
};

// Sets an environment variable for the life of the object, then restores it.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const std::string& value);
    ~ScopedEnvironment();
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    std::string name_;
    std::optional<std::string> previous_;
};

// A host with the real MOF and registrations and the build tree's provider folder, serving
// upcalls on another thread and in the broker's strict mode.
std::unique_ptr<Host> makeHost(diaghost::PathDialect dialect = diaghost::PathDialect::Pegasus);
// The process's host, serving the providers started on FakeSystem.
Host& sharedHost();

// This machine's name as the tests work it out themselves (gethostname + canonical name).
std::string expectedSystemName();

// Every property of an instance as the host's plain text.
Properties propertiesOf(Host& host, const CMPIInstance* instance);
// Every instance of a class, as property maps, in the order the object manager returns them.
std::vector<Properties> enumerate(Host& host, const std::string& className);

// A DMTF object-path text with string keys (values escaped as the grammar needs).
std::string pathText(const std::string& className,
                     const std::vector<std::pair<std::string, std::string>>& keys);
std::string fileSystemPath(const std::string& mountPoint);
std::string networkPortPath(const std::string& deviceId);

struct RunOutcome {
    bool ok = false;    // the method call itself succeeded
    std::string status; // its status text when it did not
    unsigned int returnValue = 0xffffffffu;
    std::optional<Properties> record; // the record the run added
};
// Runs RunDiagnostic of the service of serviceClass named serviceName with the element path
// text as "ManagedElement", and finds the record it published.
RunOutcome runDiagnostic(Host& host, const std::string& serviceClass,
                         const std::string& serviceName, const std::string& elementPath,
                         const std::string& recordClass);
// The run was carried out with that return value and published a record with that ErrorCode.
#define EXPECT_RECORD(outcome, expectedReturn, expectedCode)                                       \
    do {                                                                                           \
        ASSERT_TRUE((outcome).ok) << (outcome).status;                                             \
        EXPECT_EQ(expectedReturn, (outcome).returnValue);                                          \
        ASSERT_TRUE((outcome).record) << "no record was published";                                \
        EXPECT_EQ(expectedCode, (*(outcome).record)["ErrorCode"])                                  \
            << (*(outcome).record)["RecordData"];                                                  \
    } while (false)

// Under AddressSanitizer: runs the leak check now, while the registry that keeps every published
// instance for the life of the process still holds them, and turns off the check at exit (which
// would run after the registry is gone). Elsewhere: nothing.
void checkLeaksNow();

// The names in a folder, sorted.
std::vector<std::string> folderListing(const std::string& folder);

} // namespace zorqtest

#endif
