#include "server/PasswordFile.h"

#include <crypt.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <mutex>
#include <sstream>
#include <thread>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using diagserver::PasswordFile;
using Verdict = PasswordFile::Verdict;
using namespace std::chrono_literals;

// A SHA-512 crypt hash: quick to verify, so that tests counting verifications stay fast.
std::string quickHash(const std::string& password) {
    crypt_data data{};
    return crypt_r(password.c_str(), "$6$rounds=1000$saltsaltsalt$", &data);
}

// Stands in for crypt_r: counts the calls, and holds those whose password starts with "held"
// until opened, so that a test can keep a verification running.
class CryptProbe {
public:
    std::function<const char*(const char*, const char*, crypt_data*)> function() {
        return [this](const char* phrase, const char* setting, crypt_data* data) {
            std::unique_lock<std::mutex> lock(mutex_);
            ++calls_;
            ++inside_;
            if (inside_ > mostInside_)
                mostInside_ = inside_;
            changed_.notify_all();
            if (std::string(phrase).rfind("held", 0) == 0)
                changed_.wait(lock, [this] { return open_; });
            lock.unlock();
            const char* out = crypt_r(phrase, setting, data);
            lock.lock();
            --inside_;
            return out;
        };
    }
    unsigned calls() {
        std::lock_guard<std::mutex> lock(mutex_);
        return calls_;
    }
    unsigned mostInside() {
        std::lock_guard<std::mutex> lock(mutex_);
        return mostInside_;
    }
    void waitUntilInside(unsigned n) {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [&] { return inside_ >= n; });
    }
    void open() {
        std::lock_guard<std::mutex> lock(mutex_);
        open_ = true;
        changed_.notify_all();
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    unsigned calls_ = 0, inside_ = 0, mostInside_ = 0;
    bool open_ = false;
};

class PasswordFileTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "passwordfile.XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        dir_ = pattern;
        path_ = (dir_ / "passwd").string();
    }
    void TearDown() override { fs::remove_all(dir_); }

    void write(const std::string& text) { std::ofstream(path_, std::ios::trunc) << text; }
    // Replaces the file whole, as setPassword does, so that it reads as changed.
    void replace(const std::string& text) {
        const std::string aside = path_ + ".new";
        std::ofstream(aside, std::ios::trunc) << text;
        fs::rename(aside, path_);
    }
    PasswordFile::Options probed(CryptProbe& probe) {
        PasswordFile::Options options;
        options.crypt = probe.function();
        return options;
    }
    std::string read() const {
        std::ifstream in(path_);
        std::ostringstream text;
        text << in.rdbuf();
        return text.str();
    }

    fs::path dir_;
    std::string path_;
};

TEST_F(PasswordFileTest, AMadeHashVerifiesItsOwnPasswordOnly) {
    PasswordFile::setPassword(path_, "alice", "correct horse:battery");
    struct stat status {};
    ASSERT_EQ(stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    EXPECT_EQ(read().rfind("alice:$y$", 0), 0u) << read();

    PasswordFile file(path_);
    EXPECT_EQ(file.userCount(), 1u);
    EXPECT_TRUE(file.verify("alice", "correct horse:battery"));
    EXPECT_FALSE(file.verify("alice", "correct horse:batter"));
    EXPECT_FALSE(file.verify("alice", "correct horse:battery "));
    EXPECT_FALSE(file.verify("alice", ""));
    EXPECT_FALSE(file.verify("alice", std::string("correct horse:battery\0x", 23)));
    EXPECT_FALSE(file.verify("Alice", "correct horse:battery"));
    EXPECT_FALSE(file.verify("mallory", "correct horse:battery"));
    EXPECT_FALSE(file.verify("", ""));
}

TEST_F(PasswordFileTest, HashesOfOtherCryptMethodsVerifyToo) {
    crypt_data data{};
    const std::string sha512 = crypt_r("s3cret", "$6$saltsaltsalt$", &data);
    write("# made elsewhere\n\nbob:" + sha512 + "\r\n");
    PasswordFile file(path_);
    EXPECT_TRUE(file.verify("bob", "s3cret"));
    EXPECT_FALSE(file.verify("bob", "s3cre"));
}

TEST_F(PasswordFileTest, ReplacingAPasswordKeepsTheOtherUsersAndLines) {
    write("# operators\nbob:" + PasswordFile::hash("bobs") + "\n");
    PasswordFile::setPassword(path_, "alice", "first");
    PasswordFile::setPassword(path_, "alice", "second");
    const std::string text = read();
    EXPECT_EQ(text.rfind("# operators\nbob:$y$", 0), 0u) << text;
    EXPECT_EQ(text.find("alice:"), text.rfind("alice:")) << "one line for alice: " << text;

    PasswordFile file(path_);
    EXPECT_EQ(file.userCount(), 2u);
    EXPECT_TRUE(file.verify("alice", "second"));
    EXPECT_FALSE(file.verify("alice", "first"));
    EXPECT_TRUE(file.verify("bob", "bobs"));
}

TEST_F(PasswordFileTest, AMalformedLineIsReportedWithItsNumber) {
    const std::string good = "ok:" + PasswordFile::hash("x") + "\n";
    const struct {
        std::string text;
        unsigned line;
    } cases[] = {
        {"# users\n" + good + "no colon here\n", 3},
        {":" + PasswordFile::hash("x") + "\n", 1},
        {good + "\nempty:\n", 3},
        {"two words:" + PasswordFile::hash("x") + "\n", 1},
        {good + "locked:*\n", 2},
        {good + "# again\n" + good, 3},
    };
    for (const auto& c : cases) {
        write(c.text);
        try {
            PasswordFile file(path_);
            ADD_FAILURE() << "accepted: " << c.text;
        } catch (const PasswordFile::Error& e) {
            EXPECT_EQ(e.line(), c.line) << e.what();
            EXPECT_NE(std::string(e.what()).find(path_ + ":" + std::to_string(c.line) + ": "),
                      std::string::npos)
                << e.what();
        }
        // A faulty file is not rewritten.
        EXPECT_THROW(PasswordFile::setPassword(path_, "new", "pw"), PasswordFile::Error);
        EXPECT_EQ(read(), c.text);
    }
    EXPECT_THROW(PasswordFile((dir_ / "missing").string()), PasswordFile::Error);
}

TEST_F(PasswordFileTest, BadUserNamesAndPasswordsAreRefusedBeforeWriting) {
    for (const char* user : {"", "a:b", "a b", "tab\there"})
        EXPECT_THROW(PasswordFile::setPassword(path_, user, "pw"), PasswordFile::Error) << user;
    EXPECT_THROW(PasswordFile::setPassword(path_, "alice", ""), PasswordFile::Error);
    EXPECT_THROW(PasswordFile::setPassword(path_, "alice", "two\nlines"), PasswordFile::Error);
    EXPECT_FALSE(fs::exists(path_));
    EXPECT_THROW(PasswordFile::setPassword((dir_ / "no/such/dir").string(), "alice", "pw"),
                 PasswordFile::Error);
}

TEST_F(PasswordFileTest, AChangedFileIsReadAgainAndABrokenOneLetsNobodyIn) {
    PasswordFile::setPassword(path_, "alice", "a");
    PasswordFile file(path_);
    ASSERT_TRUE(file.verify("alice", "a"));

    PasswordFile::setPassword(path_, "bob", "b");
    EXPECT_TRUE(file.verify("bob", "b"));

    const std::string kept = read();
    write(kept + "garbage\n");
    EXPECT_FALSE(file.verify("alice", "a"));
    EXPECT_NE(file.problem().find(":3: "), std::string::npos) << file.problem();

    write(kept);
    EXPECT_TRUE(file.verify("alice", "a"));
    EXPECT_EQ(file.problem(), "");

    fs::remove(path_);
    EXPECT_FALSE(file.verify("alice", "a"));
    EXPECT_NE(file.problem(), "");
}

TEST_F(PasswordFileTest, ASuccessIsRememberedAndAFailureNever) {
    write("alice:" + quickHash("a") + "\nbob:" + quickHash("b") + "\n");
    CryptProbe probe;
    PasswordFile file(path_, probed(probe));

    EXPECT_EQ(file.check("alice", "a"), Verdict::Accepted);
    EXPECT_EQ(probe.calls(), 1u);
    EXPECT_EQ(file.check("alice", "a"), Verdict::Accepted);
    EXPECT_EQ(file.check("alice", "a"), Verdict::Accepted);
    EXPECT_EQ(probe.calls(), 1u) << "remembered credentials were hashed again";

    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(file.check("alice", "wrong"), Verdict::Refused);
    EXPECT_EQ(probe.calls(), 4u) << "a wrong password was not verified every time";
    EXPECT_EQ(file.check("bob", "a"), Verdict::Refused) << "alice's password let bob in";
    EXPECT_EQ(file.check("mallory", "a"), Verdict::Refused);
    EXPECT_EQ(file.check("mallory", "a"), Verdict::Refused);
    EXPECT_EQ(probe.calls(), 7u) << "an unknown user was not verified every time";
    EXPECT_EQ(file.check("alice", std::string("a\0x", 3)), Verdict::Refused);
    EXPECT_EQ(file.check("alice", "a"), Verdict::Accepted);
    EXPECT_EQ(probe.calls(), 8u);
}

TEST_F(PasswordFileTest, AChangedFileForgetsWhatWasRemembered) {
    write("alice:" + quickHash("a") + "\n");
    CryptProbe probe;
    PasswordFile file(path_, probed(probe));
    ASSERT_TRUE(file.verify("alice", "a"));
    ASSERT_EQ(probe.calls(), 1u);

    // The same content again: any change to the file verifies anew.
    replace("alice:" + quickHash("a") + "\n");
    EXPECT_TRUE(file.verify("alice", "a"));
    EXPECT_EQ(probe.calls(), 2u);

    replace("alice:" + quickHash("new") + "\n");
    EXPECT_FALSE(file.verify("alice", "a")) << "the replaced password still lets in";
    EXPECT_TRUE(file.verify("alice", "new"));
    EXPECT_TRUE(file.verify("alice", "new"));
    EXPECT_EQ(probe.calls(), 4u);

    // Removed from the file: out at once, and not let back in by the cache when restored.
    replace("bob:" + quickHash("b") + "\n");
    EXPECT_FALSE(file.verify("alice", "new"));
    fs::remove(path_);
    EXPECT_FALSE(file.verify("bob", "b"));
    write("alice:" + quickHash("new") + "\n");
    const unsigned before = probe.calls();
    EXPECT_TRUE(file.verify("alice", "new"));
    EXPECT_EQ(probe.calls(), before + 1);
}

TEST_F(PasswordFileTest, RememberedCredentialsExpireAndTheCacheKeepsToItsCapacity) {
    write("a:" + quickHash("1") + "\nb:" + quickHash("2") + "\nc:" + quickHash("3") + "\n");
    CryptProbe probe;
    auto now = std::chrono::steady_clock::time_point{};
    PasswordFile::Options options = probed(probe);
    options.cacheCapacity = 2;
    options.cacheLifetime = 60s;
    options.now = [&now] { return now; };
    PasswordFile file(path_, options);

    ASSERT_TRUE(file.verify("a", "1"));
    now += 59s;
    EXPECT_TRUE(file.verify("a", "1"));
    EXPECT_EQ(probe.calls(), 1u);
    now += 1s;
    EXPECT_TRUE(file.verify("a", "1"));
    EXPECT_EQ(probe.calls(), 2u) << "verified from the cache after its lifetime";

    ASSERT_TRUE(file.verify("b", "2"));
    ASSERT_TRUE(file.verify("c", "3")); // a, the oldest, gives way
    EXPECT_EQ(probe.calls(), 4u);
    EXPECT_TRUE(file.verify("c", "3"));
    EXPECT_TRUE(file.verify("b", "2"));
    EXPECT_EQ(probe.calls(), 4u);
    EXPECT_TRUE(file.verify("a", "1"));
    EXPECT_EQ(probe.calls(), 5u) << "the cache held more than its capacity";

    options.cacheCapacity = 0;
    PasswordFile uncached(path_, options);
    EXPECT_TRUE(uncached.verify("a", "1"));
    EXPECT_TRUE(uncached.verify("a", "1"));
    EXPECT_EQ(probe.calls(), 7u);
}

TEST_F(PasswordFileTest, VerificationsPastTheLimitWaitOrAreBusy) {
    write("alice:" + quickHash("held-pass") + "\nbob:" + quickHash("b") + "\n");
    CryptProbe probe;
    PasswordFile::Options options = probed(probe);
    options.concurrentVerifications = 1;
    options.waitingVerifications = 1;
    options.verificationWait = 10min;
    PasswordFile file(path_, options);
    ASSERT_EQ(file.check("bob", "b"), Verdict::Accepted);

    auto running = std::async(std::launch::async, [&] { return file.check("alice", "held-pass"); });
    probe.waitUntilInside(1);
    // Remembered credentials need no verification, so they pass while the only one is taken.
    EXPECT_EQ(file.check("bob", "b"), Verdict::Accepted);
    // Of two more, one may wait and the other is turned away at once; which is which depends on
    // the order they arrive in.
    auto second = std::async(std::launch::async, [&] { return file.check("bob", "wrong"); });
    auto third = std::async(std::launch::async, [&] { return file.check("mallory", "x"); });
    // Whichever was turned away is answered while the verification is still held.
    while (second.wait_for(10ms) != std::future_status::ready &&
           third.wait_for(10ms) != std::future_status::ready) {
    }
    probe.open();
    EXPECT_EQ(running.get(), Verdict::Accepted);
    const Verdict a = second.get(), b = third.get();
    EXPECT_TRUE((a == Verdict::Busy) != (b == Verdict::Busy)) << "exactly one is busy";
    EXPECT_EQ(a == Verdict::Busy ? b : a, Verdict::Refused);
    EXPECT_EQ(probe.mostInside(), 1u) << "verifications ran side by side past the limit";
}

TEST_F(PasswordFileTest, AWaitThatRunsOutIsBusyAndNoLimitLetsAllRun) {
    write("alice:" + quickHash("held-pass") + "\n");
    CryptProbe probe;
    PasswordFile::Options options = probed(probe);
    options.concurrentVerifications = 1;
    options.waitingVerifications = 4;
    options.verificationWait = 20ms;
    PasswordFile file(path_, options);
    auto running = std::async(std::launch::async, [&] { return file.check("alice", "held-pass"); });
    probe.waitUntilInside(1);
    EXPECT_EQ(file.check("alice", "wrong"), Verdict::Busy);
    EXPECT_FALSE(file.verify("alice", "wrong"));
    probe.open();
    EXPECT_EQ(running.get(), Verdict::Accepted);
    EXPECT_EQ(file.check("alice", "wrong"), Verdict::Refused) << "the slot was not given back";

    CryptProbe unlimitedProbe;
    options = probed(unlimitedProbe);
    options.concurrentVerifications = 0;
    options.waitingVerifications = 0;
    PasswordFile unlimited(path_, options);
    auto first = std::async(std::launch::async, [&] { return unlimited.check("alice", "held-1"); });
    auto second =
        std::async(std::launch::async, [&] { return unlimited.check("alice", "held-2"); });
    unlimitedProbe.waitUntilInside(2);
    unlimitedProbe.open();
    EXPECT_EQ(first.get(), Verdict::Refused);
    EXPECT_EQ(second.get(), Verdict::Refused);
    EXPECT_EQ(unlimitedProbe.mostInside(), 2u);
}

} // namespace
