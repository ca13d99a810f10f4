#include "server/PasswordFile.h"

#include <crypt.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using diagserver::PasswordFile;

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

} // namespace
