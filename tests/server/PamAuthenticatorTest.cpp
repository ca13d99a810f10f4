// Basic credentials checked by PAM, with services of the test's own in a temporary folder: a
// pam_exec script stands in for the password database (it knows alice and held, refuses the
// client 192.0.2.66, counts its runs, and keeps held waiting until told), so that the tests need
// neither root nor real accounts.
// Then the same through the WBEM server: what a client gets for good and for wrong credentials.
#include "server/PamAuthenticator.h"
#include "server/WbemHttpServer.h"

#include "../providers/ProviderTestSupport.h"
#include "ServerTestSupport.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;
using diagserver::PamAuthenticator;
using diagserver::WbemHttpServer;
using Verdict = PamAuthenticator::Verdict;
using namespace std::chrono_literals;

// The folder PAM loads its modules from here, or empty when pam_exec.so is nowhere to be found.
std::string moduleFolder() {
    const std::string arch = DIAGSERVER_TEST_MULTIARCH;
    std::vector<std::string> candidates;
    if (!arch.empty())
        candidates = {"/usr/lib/" + arch + "/security", "/lib/" + arch + "/security"};
    for (const char* folder : {"/usr/lib64/security", "/usr/lib/security", "/lib/security"})
        candidates.emplace_back(folder);
    for (const std::string& folder : candidates)
        if (fs::exists(folder + "/pam_exec.so") && fs::exists(folder + "/pam_permit.so") &&
            fs::exists(folder + "/pam_deny.so") && fs::exists(folder + "/pam_faildelay.so"))
            return folder;
    return {};
}

// A temporary folder of PAM service files. "check" authenticates with the script and permits
// every account; "closed" authenticates the same and denies every account; "delayed" asks for a
// four-second delay after a failure before authenticating the same. No "other" is there to fall
// back to.
class PamServices {
public:
    PamServices() {
        std::string pattern = (fs::temp_directory_path() / "pamservices.XXXXXX").string();
        if (!mkdtemp(pattern.data()))
            throw std::runtime_error("no temporary folder");
        dir_ = pattern;
        modules_ = moduleFolder();
        if (modules_.empty())
            return;
        const std::string script = (dir_ / "check.sh").string();
        // pam_exec hands the password on stdin, ended by a NUL or by the end of the input.
        std::ofstream(script) << "#!/bin/bash\n"
                              << "echo \"$PAM_USER ${PAM_RHOST:--}\" >>'" << path("runs") << "'\n"
                              << "if [ \"$PAM_USER\" = held ]; then\n"
                              << "  : >'" << path("inside") << "'\n"
                              << "  for _ in $(seq 3000); do [ -e '" << path("open")
                              << "' ] && break; sleep 0.01; done\n"
                              << "fi\n"
                              << "IFS= read -r -d '' password\n"
                              << "[ \"$PAM_RHOST\" = 192.0.2.66 ] && exit 1\n"
                              << "case \"$PAM_USER:$password\" in\n"
                              << "  'alice:correct horse:battery' | 'held:held pass') exit 0 ;;\n"
                              << "esac\n"
                              << "exit 1\n";
        fs::permissions(script, fs::perms::owner_all);
        const std::string auth =
            "auth required " + modules_ + "/pam_exec.so expose_authtok quiet " + script + "\n";
        write("check", auth + "account required " + modules_ + "/pam_permit.so\n");
        write("closed", auth + "account required " + modules_ + "/pam_deny.so\n");
        write("delayed", "auth optional " + modules_ + "/pam_faildelay.so delay=4000000\n" + auth +
                             "account required " + modules_ + "/pam_permit.so\n");
    }
    ~PamServices() { fs::remove_all(dir_); }
    PamServices(const PamServices&) = delete;
    PamServices& operator=(const PamServices&) = delete;

    bool usable() const { return !modules_.empty(); }
    std::string folder() const { return dir_.string(); }
    std::string path(const std::string& name) const { return (dir_ / name).string(); }
    // How often the script ran.
    unsigned runs() const {
        std::ifstream in(path("runs"));
        unsigned n = 0;
        for (std::string line; std::getline(in, line);)
            ++n;
        return n;
    }
    // The user and the client's address (or "-") of the script's last run.
    std::string lastRun() const {
        std::ifstream in(path("runs"));
        std::string last;
        for (std::string line; std::getline(in, line);)
            last = line;
        return last;
    }
    // Until the script holding "held" is inside.
    void waitUntilHeld() const {
        for (int i = 0; i < 3000 && !fs::exists(path("inside")); ++i)
            std::this_thread::sleep_for(10ms);
    }
    void release() const { std::ofstream(path("open")).flush(); }

private:
    void write(const std::string& service, const std::string& text) {
        std::ofstream(path(service)) << text;
    }

    fs::path dir_;
    std::string modules_;
};

#define SKIP_WITHOUT_PAM_MODULES()                                                                 \
    if (!services_.usable())                                                                       \
    GTEST_SKIP() << "pam_exec.so, pam_permit.so, pam_deny.so or pam_faildelay.so is not installed"

class PamAuthenticatorTest : public ::testing::Test {
protected:
    PamAuthenticator::Options options() const {
        PamAuthenticator::Options o;
        o.configDir = services_.folder();
        return o;
    }
    // At most `concurrent` transactions at once (0: as many as asked for), one more waiting
    // 200 ms for its turn.
    PamAuthenticator::Options limitedTo(unsigned concurrent) const {
        PamAuthenticator::Options o = options();
        o.concurrentVerifications = concurrent;
        o.waitingVerifications = 1;
        o.verificationWait = 200ms;
        return o;
    }

    PamServices services_;
};

TEST_F(PamAuthenticatorTest, TheRightPasswordIsAcceptedAndAnyOtherRefused) {
    SKIP_WITHOUT_PAM_MODULES();
    PamAuthenticator pam("check", options());
    std::string why;
    EXPECT_EQ(pam.check("alice", "correct horse:battery", why), Verdict::Accepted) << why;
    EXPECT_EQ(why, "");

    EXPECT_EQ(pam.check("alice", "correct horse:batter", why), Verdict::Refused);
    EXPECT_NE(why.find("PAM service check: pam_authenticate: "), std::string::npos) << why;
    EXPECT_EQ(why.find("batter"), std::string::npos) << "the password is in " << why;
    EXPECT_FALSE(pam.verify("bob", "correct horse:battery"));
    EXPECT_FALSE(pam.verify("Alice", "correct horse:battery"));
    EXPECT_EQ(services_.runs(), 4u);

    // Refused before any module runs: what PAM would see cut short or could not take.
    EXPECT_EQ(pam.check("alice", std::string("correct horse:battery\0x", 23), why),
              Verdict::Refused);
    EXPECT_NE(why, "");
    EXPECT_FALSE(pam.verify("alice", ""));
    EXPECT_FALSE(pam.verify("", "correct horse:battery"));
    EXPECT_FALSE(pam.verify("alice\n", "correct horse:battery"));
    EXPECT_EQ(services_.runs(), 4u);
}

TEST_F(PamAuthenticatorTest, AnUnknownServiceAndAClosedAccountAreRefused) {
    SKIP_WITHOUT_PAM_MODULES();
    std::string why;
    PamAuthenticator unknown("nosuch", options());
    EXPECT_EQ(unknown.check("alice", "correct horse:battery", why), Verdict::Refused);
    EXPECT_NE(why.find("PAM service nosuch: "), std::string::npos) << why;
    EXPECT_EQ(services_.runs(), 0u);

    PamAuthenticator closed("closed", options());
    EXPECT_EQ(closed.check("alice", "correct horse:battery", why), Verdict::Refused);
    EXPECT_NE(why.find("pam_acct_mgmt: "), std::string::npos) << why;
    EXPECT_EQ(closed.check("alice", "correct horse:battery", why), Verdict::Refused)
        << "a refused account was remembered";
    EXPECT_EQ(services_.runs(), 2u);
}

TEST_F(PamAuthenticatorTest, BadServiceNamesAndFoldersAreRefusedAtOnce) {
    for (const char* name : {"", "pam.d/check", "two words", "tab\there"})
        EXPECT_THROW(PamAuthenticator(name, options()), PamAuthenticator::Error) << name;
    PamAuthenticator::Options elsewhere = options();
    elsewhere.configDir = services_.path("missing");
    EXPECT_THROW(PamAuthenticator("check", elsewhere), PamAuthenticator::Error);
    elsewhere.configDir = services_.path("check");
    EXPECT_THROW(PamAuthenticator("check", elsewhere), PamAuthenticator::Error);
}

TEST_F(PamAuthenticatorTest, ASuccessIsRememberedAndAFailureNever) {
    SKIP_WITHOUT_PAM_MODULES();
    PamAuthenticator pam("check", options());
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(pam.verify("alice", "correct horse:battery"));
    EXPECT_EQ(services_.runs(), 1u) << "remembered credentials were verified again";
    for (int i = 0; i < 3; ++i)
        EXPECT_FALSE(pam.verify("alice", "wrong"));
    EXPECT_EQ(services_.runs(), 4u) << "a wrong password was not verified every time";
    EXPECT_FALSE(pam.verify("bob", "correct horse:battery")) << "alice's password let bob in";
}

TEST_F(PamAuthenticatorTest, TheModulesSeeTheClientsAddressAndASuccessHoldsForThatClientOnly) {
    SKIP_WITHOUT_PAM_MODULES();
    PamAuthenticator pam("check", options());
    std::string why;
    EXPECT_EQ(Verdict::Accepted, pam.check("alice", "correct horse:battery", "192.0.2.7", why));
    EXPECT_EQ("alice 192.0.2.7", services_.lastRun());
    EXPECT_EQ(Verdict::Accepted, pam.check("alice", "correct horse:battery", "192.0.2.7", why));
    EXPECT_EQ(1u, services_.runs());
    // A client the modules refuse is asked about, not let in on another client's success.
    EXPECT_EQ(Verdict::Refused, pam.check("alice", "correct horse:battery", "192.0.2.66", why));
    EXPECT_EQ(2u, services_.runs());
    EXPECT_TRUE(pam.verify("alice", "correct horse:battery"));
    EXPECT_EQ("alice -", services_.lastRun());
    EXPECT_EQ(Verdict::Refused, pam.check("alice", "correct horse:battery", "192.0.2.7\n", why));
    EXPECT_EQ(3u, services_.runs());
}

TEST_F(PamAuthenticatorTest, AModulesDelayAfterAFailureIsNotSleptThrough) {
    SKIP_WITHOUT_PAM_MODULES();
    PamAuthenticator pam("delayed", options());
    const auto started = std::chrono::steady_clock::now();
    EXPECT_FALSE(pam.verify("alice", "wrong"));
    EXPECT_LT(std::chrono::steady_clock::now() - started, 2s);
    EXPECT_TRUE(pam.verify("alice", "correct horse:battery"));
}

TEST_F(PamAuthenticatorTest, TransactionsRunOneAtATimeWhateverTheLimitsAllow) {
    SKIP_WITHOUT_PAM_MODULES();
    PamAuthenticator pam("check", limitedTo(0));
    auto held = std::async(std::launch::async, [&] { return pam.check("held", "held pass"); });
    services_.waitUntilHeld();
    EXPECT_EQ(pam.check("bob", "x"), Verdict::Busy);
    services_.release();
    EXPECT_EQ(held.get(), Verdict::Accepted);
    EXPECT_EQ(services_.runs(), 1u);
}

TEST_F(PamAuthenticatorTest, AVerificationFindingTheLimitTakenIsBusyWhenItsWaitRunsOut) {
    SKIP_WITHOUT_PAM_MODULES();
    PamAuthenticator pam("check", limitedTo(1));
    ASSERT_TRUE(pam.verify("alice", "correct horse:battery"));

    auto held = std::async(std::launch::async, [&] { return pam.check("held", "held pass"); });
    services_.waitUntilHeld();
    // Remembered credentials need no verification, so they pass while the only one is taken.
    EXPECT_EQ(pam.check("alice", "correct horse:battery"), Verdict::Accepted);
    EXPECT_EQ(pam.check("bob", "x"), Verdict::Busy);
    EXPECT_EQ(pam.check("alice", "wrong"), Verdict::Busy);
    EXPECT_EQ(services_.runs(), 2u) << "a module ran past the limit";
    services_.release();
    EXPECT_EQ(held.get(), Verdict::Accepted);
    EXPECT_EQ(pam.check("bob", "x"), Verdict::Refused) << "the turn was not given back";
    EXPECT_EQ(services_.runs(), 3u);
}

// The WBEM server with a PAM service, asked over raw HTTP on loopback.
class PamServingTest : public ::testing::Test {
protected:
    // The whole answer to EnumerateClassNames with these Basic credentials (base64).
    static std::string exchange(unsigned short port, const std::string& credentials) {
        const std::string body =
            "<?xml version=\"1.0\"?><CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\">"
            "<MESSAGE ID=\"1\" PROTOCOLVERSION=\"1.0\"><SIMPLEREQ>"
            "<IMETHODCALL NAME=\"EnumerateClassNames\"><LOCALNAMESPACEPATH>"
            "<NAMESPACE NAME=\"root\"/><NAMESPACE NAME=\"cimv2\"/>"
            "</LOCALNAMESPACEPATH></IMETHODCALL></SIMPLEREQ></MESSAGE></CIM>";
        return servertest::httpExchange(
            port, servertest::cimRequest("EnumerateClassNames", "root%2Fcimv2", body,
                                         "Authorization: Basic " + credentials + "\r\n"));
    }

    WbemHttpServer::Options options() {
        WbemHttpServer::Options o;
        o.listen = {"127.0.0.1:0"};
        o.pamService = "check";
        o.pamConfigDir = services_.folder();
        o.accessLog = &log_;
        return o;
    }

    PamServices services_;
    std::ostringstream log_;
};

TEST_F(PamServingTest, GoodCredentialsAreServedAndWrongOnesGet401) {
    SKIP_WITHOUT_PAM_MODULES();
    WbemHttpServer server(zorqtest::sharedHost(), options());
    server.start();
    const unsigned short port = server.ports().at(0);

    // alice:correct horse:battery
    const std::string good = exchange(port, "YWxpY2U6Y29ycmVjdCBob3JzZTpiYXR0ZXJ5");
    EXPECT_EQ(good.rfind("HTTP/1.1 200 ", 0), 0u) << good;
    EXPECT_NE(good.find("<CLASSNAME NAME=\"CIM_ManagedElement\"/>"), std::string::npos) << good;

    // alice:correct horse, mallory:correct horse:battery, and the right password with a NUL
    // byte and more after it
    for (const char* wrong :
         {"YWxpY2U6Y29ycmVjdCBob3JzZQ==", "bWFsbG9yeTpjb3JyZWN0IGhvcnNlOmJhdHRlcnk=",
          "YWxpY2U6Y29ycmVjdCBob3JzZTpiYXR0ZXJ5AHg="}) {
        const std::string refused = exchange(port, wrong);
        EXPECT_EQ(refused.rfind("HTTP/1.1 401 ", 0), 0u) << refused;
        EXPECT_NE(refused.find("WWW-Authenticate: Basic realm=\"CIM\""), std::string::npos)
            << refused;
    }
    server.stop();
    EXPECT_NE(log_.str().find("401 wrong credentials for user alice (PAM service check: "
                              "pam_authenticate: "),
              std::string::npos)
        << log_.str();
    EXPECT_EQ(log_.str().find("correct horse"), std::string::npos) << "a password is logged";
    EXPECT_EQ(services_.lastRun().rfind(" 127.0.0.1"), services_.lastRun().size() - 10)
        << "the modules were not told the client's address: " << services_.lastRun();
}

TEST_F(PamServingTest, PasswordChecksThatTakeLongHoldUpNoOtherClient) {
    // Six clients whose checks do not end until released (one running, five waiting for their
    // turn), more than a pool of threads would have: a client already verified is still served
    // meanwhile.
    SKIP_WITHOUT_PAM_MODULES();
    WbemHttpServer::Options o = options();
    o.waitingVerifications = 6;
    o.verificationWait = 20s;
    WbemHttpServer server(zorqtest::sharedHost(), o);
    server.start();
    const unsigned short port = server.ports().at(0);
    // alice:correct horse:battery
    ASSERT_EQ(exchange(port, "YWxpY2U6Y29ycmVjdCBob3JzZTpiYXR0ZXJ5").rfind("HTTP/1.1 200 ", 0), 0u);
    std::vector<std::future<std::string>> held;
    for (int i = 0; i < 6; ++i) // held:held pass
        held.push_back(std::async(std::launch::async,
                                  [port] { return exchange(port, "aGVsZDpoZWxkIHBhc3M="); }));
    services_.waitUntilHeld();
    std::this_thread::sleep_for(300ms);
    auto other = std::async(std::launch::async, [port] {
        return exchange(port, "YWxpY2U6Y29ycmVjdCBob3JzZTpiYXR0ZXJ5");
    });
    const bool answered = other.wait_for(5s) == std::future_status::ready;
    services_.release();
    EXPECT_TRUE(answered) << "a client waited for other clients' password checks";
    const std::string answer = other.get();
    EXPECT_EQ(answer.rfind("HTTP/1.1 200 ", 0), 0u) << answer;
    for (auto& h : held) {
        const std::string heldAnswer = h.get();
        EXPECT_EQ(heldAnswer.rfind("HTTP/1.1 200 ", 0), 0u) << heldAnswer;
    }
    server.stop();
}

TEST_F(PamServingTest, PamStandsInsteadOfAPasswordFileAndLetsRemoteClientsBeServed) {
    auto startRefused = [](WbemHttpServer::Options o) {
        try {
            WbemHttpServer(zorqtest::sharedHost(), std::move(o)).start();
        } catch (const WbemHttpServer::StartError&) {
            return true;
        }
        return false;
    };
    WbemHttpServer::Options o = options();
    o.passwordFile = services_.path("passwd");
    EXPECT_TRUE(startRefused(o)) << "a password file and PAM together";
    o = options();
    o.pamService.clear();
    EXPECT_TRUE(startRefused(o)) << "a PAM folder without a service";
    o = options();
    o.pamService = "../check";
    EXPECT_TRUE(startRefused(o)) << "a service name with a '/'";
    o = options();
    o.listen = {"0.0.0.0:0"};
    EXPECT_FALSE(startRefused(o)) << "PAM did not count as authentication";
}

} // namespace
