// The operators' copy of the core's log lines: it goes only to stderr or a regular file, opening
// it never waits, and each line the core logs stays one line of the copy.
#include "common/LogMirror.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <string>
#include <thread>

using NQORVA20::LogMirror;
using namespace std::chrono_literals;

namespace {

class LogMirrorTest : public ::testing::Test {
protected:
    LogMirrorTest() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "diagcore-mirror-XXXXXX").string();
        if (::mkdtemp(pattern.data()) != nullptr)
            folder = pattern;
    }
    ~LogMirrorTest() override {
        LogMirror::open("");
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }
    static std::string contents(const std::string& path) {
        std::ifstream in(path);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }

    std::string folder;
};

TEST_F(LogMirrorTest, AFifoWithoutAReaderIsRefusedAtOnce) {
    ASSERT_FALSE(folder.empty());
    const std::string fifo = folder + "/fifo";
    ASSERT_EQ(0, ::mkfifo(fifo.c_str(), 0600));
    auto opened = std::async(std::launch::async, [&] { return LogMirror::open(fifo); });
    const bool returned = opened.wait_for(5s) == std::future_status::ready;
    if (!returned) {
        // Give the blocked open the reader it waits for, so the test can end.
        const int reader = ::open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
        opened.wait();
        ::close(reader);
    }
    EXPECT_TRUE(returned) << "opening the mirror waited for a reader";
    EXPECT_FALSE(opened.get());
    LogMirror::write(1, "diagcore", "goes nowhere");
}

TEST_F(LogMirrorTest, OnlyStderrAndRegularFilesAreMirrors) {
    ASSERT_FALSE(folder.empty());
    const std::string fifo = folder + "/fifo";
    ASSERT_EQ(0, ::mkfifo(fifo.c_str(), 0600));
    const int reader = ::open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_LE(0, reader);
    EXPECT_FALSE(LogMirror::open(fifo)) << "a FIFO with a reader";
    LogMirror::write(1, "diagcore", "not for the reader");
    char byte = 0;
    EXPECT_GE(0, ::read(reader, &byte, 1)) << "nothing reached the FIFO's reader";
    ::close(reader);
    EXPECT_FALSE(LogMirror::open(folder)) << "a folder";
    EXPECT_FALSE(LogMirror::open("/dev/null")) << "a device";

    EXPECT_TRUE(LogMirror::open("stderr"));
    const std::string file = folder + "/core.log";
    EXPECT_TRUE(LogMirror::open(file, 3));
    LogMirror::write(3, "diagcore", "kept");
    LogMirror::write(4, "diagcore", "above the level");
    EXPECT_TRUE(LogMirror::open(file)) << "an existing file is appended to";
    LogMirror::write(1, "diagcore", "appended");
    EXPECT_EQ("diagcore[3]: kept\ndiagcore[1]: appended\n", contents(file));
}

TEST_F(LogMirrorTest, ControlCharactersAreEscapedSoALineCannotBeForged) {
    ASSERT_FALSE(folder.empty());
    const std::string file = folder + "/core.log";
    ASSERT_TRUE(LogMirror::open(file));
    LogMirror::write(
        3, "diagcore",
        "Didn't find X.DeviceID=\"a\ndiagcore[1]: forged\r\t\x01\x1b[2J\x7f\" caf\xc3\xa9");
    LogMirror::write(3, "dia\ngcore", "id");
    EXPECT_EQ(
        "diagcore[3]: Didn't find X.DeviceID=\"a\\ndiagcore[1]: forged\\r\\t\\x01\\x1b[2J\\x7f\" "
        "caf\xc3\xa9\n"
        "dia\\ngcore[3]: id\n",
        contents(file));
}

} // namespace
