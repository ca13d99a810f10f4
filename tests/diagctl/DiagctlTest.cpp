// diagctl as its users run it: every command through the real program, the shipped MOF,
// registrations and provider libraries, on the scratch machine of the provider tests.
#include "ProviderTestSupport.h"

#include "server/WbemHttpServer.h"
#include "tools/DiagctlOptions.h"
#include "tools/OutputFormatter.h"

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using zorqtest::FakeSystem;
using zorqtest::ScratchFolder;

struct Outcome {
    int exitCode = -1;
    std::string out;
    std::string err;
};

std::string quoted(const std::string& word) {
    std::string out = "'";
    for (char c : word)
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

std::string slurp(const std::string& path) {
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

class DiagctlTest : public testing::Test {
protected:
    static void SetUpTestSuite() { FakeSystem::instance(); }

    Outcome diagctl(const std::vector<std::string>& args) {
        std::string command = quoted(DIAGCTL_PROGRAM);
        for (const std::string& a : args)
            command += " " + quoted(a);
        const std::string out = scratch_.path() + "/out", err = scratch_.path() + "/err";
        command += " >" + quoted(out) + " 2>" + quoted(err) + " </dev/null";
        Outcome o;
        const int status = std::system(command.c_str());
        o.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        o.out = slurp(out);
        o.err = slurp(err);
        return o;
    }

    static std::vector<std::string> lines(const std::string& text) {
        std::vector<std::string> out;
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);)
            out.push_back(line);
        return out;
    }

    static bool has(const std::string& text, const std::string& part) {
        return text.find(part) != std::string::npos;
    }

    std::string portPath(const std::string& device) {
        for (const std::string& line : lines(diagctl({"enum", "ZORQ_NetworkPort", "--names"}).out))
            if (has(line, "DeviceID=\"" + device + "\""))
                return line;
        return {};
    }
    std::string servicePath(const std::string& serviceClass, const std::string& name) {
        for (const std::string& line : lines(diagctl({"enum", serviceClass, "--names"}).out))
            if (has(line, "Name=\"" + name + "\""))
                return line;
        return {};
    }

    ScratchFolder scratch_{"diagctl-test"};
};

TEST_F(DiagctlTest, DemoRunsEveryServiceOnEveryElementAndTablesTheRecords) {
    const Outcome o = diagctl({"demo"});
    ASSERT_EQ(o.exitCode, 0) << o.err;
    EXPECT_TRUE(has(o.out, "FileSystemHealth (File system health): 4 elements")) << o.out;
    EXPECT_TRUE(has(o.out, "NetworkPortLink (Network port link): 6 elements")) << o.out;
    EXPECT_TRUE(has(o.out, "Running 20 diagnostics:")) << o.out;
    EXPECT_TRUE(has(o.out, "[20/20] NetworkPortLink on nostats0: ")) << o.out;

    // After the heading, one table row per run.
    std::vector<std::string> rows;
    bool inTable = false;
    for (const std::string& line : lines(o.out)) {
        if (line.rfind("SERVICE ", 0) == 0)
            inTable = true;
        else if (inTable)
            rows.push_back(line);
    }
    ASSERT_EQ(rows.size(), 20u);
    auto row = [&](const std::string& service, const std::string& element) -> std::string {
        for (const std::string& r : rows)
            if (r.rfind(service + " ", 0) == 0 && has(r, " " + element + " "))
                return r;
        return "";
    };
    EXPECT_TRUE(has(row("NetworkPortLink", "eth0"), "passed"));
    EXPECT_TRUE(has(row("NetworkPortLink", "eth1"), "failed (1)"));
    EXPECT_TRUE(has(row("NetworkPortLink", "eth1"), "NET_LINK_DOWN"));
    EXPECT_TRUE(has(row("NetworkPortLink", "eth1"), "0 passed, 1 failed"));
    EXPECT_TRUE(
        has(row("FileSystemWriteProbe", FakeSystem::instance().mountPoint("rw")), "passed"));
}

TEST_F(DiagctlTest, EnumNamesGetAndJsonDescribeTheSameInstances) {
    const std::string eth0 = portPath("eth0");
    ASSERT_FALSE(eth0.empty());

    const Outcome got = diagctl({"get", eth0});
    ASSERT_EQ(got.exitCode, 0) << got.err;
    EXPECT_EQ(got.out.rfind("instance of ZORQ_NetworkPort {", 0), 0u) << got.out;
    EXPECT_TRUE(has(got.out, "    DeviceID = \"eth0\";"));

    const Outcome json = diagctl({"--json", "enum", "ZORQ_NetworkPort"});
    ASSERT_EQ(json.exitCode, 0) << json.err;
    EXPECT_EQ(json.out.front(), '[');
    EXPECT_TRUE(has(json.out, "\"class\": \"ZORQ_NetworkPort\""));
    EXPECT_TRUE(has(json.out, "\"DeviceID\": \"eth0\""));
    EXPECT_TRUE(has(json.out, "\"Carrier\": true"));
    EXPECT_TRUE(has(json.out, "\"InterfaceIndex\": 2"));

    const Outcome classes = diagctl({"--json", "classes"});
    EXPECT_TRUE(has(classes.out, "\"ZORQ_FSDiagService\""));
}

TEST_F(DiagctlTest, RunPrintsTheReturnValueAndThePublishedRecord) {
    const std::string service = servicePath("ZORQ_NetDiagService", "NetworkPortLink");
    ASSERT_FALSE(service.empty());

    const Outcome down = diagctl({"run", service, portPath("eth1")});
    ASSERT_EQ(down.exitCode, 0) << down.err;
    EXPECT_EQ(down.out.rfind("ReturnValue = 1;\ninstance of ZORQ_NetDiagRecord {", 0), 0u)
        << down.out;
    EXPECT_TRUE(has(down.out, "ErrorCode = {\"NET_LINK_DOWN\"};"));

    // An element the family never published is refused in the record, not run.
    const Outcome foreign =
        diagctl({"--json", "run", service, "ZORQ_NetworkPort.DeviceID=\"../../etc\""});
    ASSERT_EQ(foreign.exitCode, 0) << foreign.err;
    EXPECT_TRUE(has(foreign.out, "\"ErrorCode\": [\"NET_NOT_PUBLISHED\"]")) << foreign.out;
}

TEST_F(DiagctlTest, RunWithTheProfileFollowsTheJobAndPrintsItsCompletionRecord) {
    const std::string service = servicePath("ZORQ_NetDiagService", "NetworkPortLink");
    ASSERT_FALSE(service.empty());
    const Outcome run = diagctl({"run", "--profile", "--loops", "3", service, portPath("eth0")});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_TRUE(has(run.out, ": Completed 100%\nReturnValue = 4096;\n") ||
                has(run.out, ": Completed 100%\nReturnValue = 0;\n"))
        << run.out;
    EXPECT_TRUE(has(run.out, "instance of ZORQ_NetDiagCompletionRecord {")) << run.out;
    EXPECT_TRUE(has(run.out, "LoopsPassed = 3;")) << run.out;
    EXPECT_TRUE(has(run.out, "CompletionState = 2;")) << run.out;
}

TEST_F(DiagctlTest, AssocFiltersByAssociationClassAndRole) {
    const std::string eth0 = portPath("eth0");
    const Outcome both =
        diagctl({"assoc", eth0, "--assoc-class", "CIM_AvailableDiagnosticService", "--names"});
    ASSERT_EQ(both.exitCode, 0) << both.err;
    EXPECT_EQ(lines(both.out).size(), 2u) << both.out;

    const Outcome wrongRole =
        diagctl({"assoc", eth0, "--assoc-class", "CIM_AvailableDiagnosticService", "--role",
                 "ServiceProvided"});
    EXPECT_EQ(wrongRole.exitCode, 0);
    EXPECT_EQ(wrongRole.out, "");
}

TEST_F(DiagctlTest, FailedOperationsNameTheReturnCodeAndExitNonZero) {
    const Outcome missing = diagctl({"get", "ZORQ_NetworkPort.DeviceID=\"nothing\""});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(missing.err.rfind("diagctl: CMPI_RC_ERR_FAILED: ", 0), 0u) << missing.err;

    const Outcome malformed = diagctl({"get", "ZORQ_NetworkPort.DeviceID=\"open"});
    EXPECT_EQ(malformed.exitCode, 1);
    EXPECT_EQ(malformed.err.rfind("diagctl: CMPI_RC_ERR_INVALID_PARAMETER: ", 0), 0u)
        << malformed.err;

    const Outcome unknown = diagctl({"enum", "No_Such_Class"});
    EXPECT_EQ(unknown.exitCode, 1);
    EXPECT_EQ(unknown.err.rfind("diagctl: CMPI_RC_ERR_INVALID_CLASS: ", 0), 0u) << unknown.err;

    const Outcome method = diagctl({"run", portPath("eth0"), portPath("eth0")});
    EXPECT_EQ(method.exitCode, 1);
    EXPECT_TRUE(has(method.err, "diagctl: CMPI_RC_ERR_")) << method.err;
}

TEST_F(DiagctlTest, BadArgumentsPrintUsage) {
    for (const std::vector<std::string>& args : {std::vector<std::string>{},
                                                 {"frobnicate"},
                                                 {"get"},
                                                 {"run", "a"},
                                                 {"enum", "X", "--role", "r"},
                                                 {"--dialect", "wbem", "classes"},
                                                 {"classes", "--mof"},
                                                 {"serve", "--cert", "c.pem"},
                                                 {"classes", "--password-file", "f"},
                                                 {"passwd", "f"},
                                                 {"enum", "X", "--profile"},
                                                 {"run", "a", "b", "--loops", "3"},
                                                 {"run", "a", "b", "--profile", "--loops", "0"}}) {
        const Outcome o = diagctl(args);
        EXPECT_EQ(o.exitCode, 2) << testing::PrintToString(args);
        EXPECT_TRUE(has(o.err, "usage: diagctl")) << testing::PrintToString(args);
        EXPECT_EQ(o.out, "");
    }
}

TEST_F(DiagctlTest, VerboseShowsTheProvidersLogLinesOnStderr) {
    const Outcome quiet = diagctl({"enum", "ZORQ_FSDiagService", "--names"});
    EXPECT_FALSE(has(quiet.err, "+++ EnumInstanceNames"));
    const Outcome verbose = diagctl({"--verbose", "enum", "ZORQ_FSDiagService", "--names"});
    EXPECT_TRUE(has(verbose.err, "+++ EnumInstanceNames")) << verbose.err;
    EXPECT_EQ(verbose.out, quiet.out);
}

TEST(DiagctlOptionsTest, VerificationLimitsTakeTheirRangesForServeWithAPasswordFileOnly) {
    using NQORVA20::tools::DiagctlOptions;
    using NQORVA20::tools::UsageError;
    auto parse = [](std::vector<const char*> args) {
        args.insert(args.begin(), "diagctl");
        return DiagctlOptions::parse(static_cast<int>(args.size()), args.data());
    };
    auto refusal = [&](std::vector<const char*> args) -> std::string {
        try {
            parse(std::move(args));
        } catch (const UsageError& e) {
            return e.what();
        }
        return "taken";
    };

    // Left out, they are the server's own defaults.
    const DiagctlOptions plain = parse({"serve", "--password-file", "p"});
    const diagserver::WbemHttpServer::Options server;
    EXPECT_EQ(plain.verifications, server.concurrentVerifications);
    EXPECT_EQ(std::chrono::milliseconds(plain.verificationWaitMilliseconds),
              server.verificationWait);

    const DiagctlOptions low = parse(
        {"serve", "--verifications", "0", "--verification-wait", "0", "--password-file", "p"});
    EXPECT_EQ(low.verifications, 0u);
    EXPECT_EQ(low.verificationWaitMilliseconds, 0u);
    const DiagctlOptions high = parse(
        {"serve", "--password-file", "p", "--verifications", "64", "--verification-wait", "60000"});
    EXPECT_EQ(high.verifications, 64u);
    EXPECT_EQ(high.verificationWaitMilliseconds, 60000u);

    for (const char* bad : {"65", "-1", "", " 2", "+2", "2x", "99999999999999999999"})
        EXPECT_EQ(refusal({"serve", "--password-file", "p", "--verifications", bad}),
                  "--verifications takes a number from 0 (no limit) to 64")
            << bad;
    for (const char* bad : {"60001", "-0", "1.5"})
        EXPECT_EQ(refusal({"serve", "--password-file", "p", "--verification-wait", bad}),
                  "--verification-wait takes a number of milliseconds from 0 to 60000")
            << bad;
    EXPECT_EQ(refusal({"serve", "--connections", "0"}),
              "--connections takes a number from 1 to 1024");
    EXPECT_EQ(refusal({"serve", "--verification-wait", "10"}),
              "--verifications and --verification-wait need --password-file or --pam");
    EXPECT_EQ(refusal({"serve", "--pam", "diagctl", "--password-file", "p"}),
              "--password-file and --pam cannot both be given");
    EXPECT_EQ(refusal({"serve", "--pam-config-dir", "/etc/pam.d"}), "--pam-config-dir needs --pam");
    EXPECT_NE(refusal({"classes", "--verifications", "2"}).find("apply to serve only"),
              std::string::npos);
}

TEST(OutputFormatterTest, JsonStringsEscapeQuotesBackslashesAndControlCharacters) {
    using NQORVA20::tools::OutputFormatter;
    EXPECT_EQ(OutputFormatter::jsonString("a\"b\\c\n\x01"), "\"a\\\"b\\\\c\\n\\u0001\"");
}

} // namespace
