// A response message read by the HTTP layer in pieces: produced only as it is read, with a
// bounded buffer, and a failure while producing kept for the trailer.
#include "server/AnswerStream.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace {

using diagserver::AnswerStream;
using diagserver::CimXmlWriter;
using State = AnswerStream::State;

// A producer of `parts` parts of `partSize` bytes each, throwing instead of part `failAt`.
AnswerStream::Producer parts(int count, std::size_t partSize, int failAt, int* calls) {
    return [=](CimXmlWriter& out, std::size_t, bool) {
        if (++*calls == failAt)
            throw std::runtime_error("disk on fire");
        out.raw(std::string(partSize, static_cast<char>('a' + *calls % 26)));
        out.flush();
        return *calls < count;
    };
}

std::string readAll(AnswerStream& stream, std::size_t max, State& last, std::size_t* peak) {
    std::string out;
    std::string piece(max, '\0');
    for (;;) {
        std::size_t n = stream.read(piece.data(), max, last);
        if (peak)
            *peak = std::max(*peak, stream.buffered().size());
        if (last != State::Data)
            return out;
        out.append(piece, 0, n);
    }
}

TEST(AnswerStreamTest, AShortAnswerIsCompleteAfterTheFirstFill) {
    int calls = 0;
    AnswerStream stream(parts(2, 10, 0, &calls), 64);
    stream.writer().raw("<head>");
    EXPECT_TRUE(stream.fill());
    EXPECT_EQ(2, calls);
    const std::string expected = "<head>" + std::string(10, 'b') + std::string(10, 'c');
    EXPECT_EQ(expected, stream.buffered());
    State last;
    EXPECT_EQ(expected, readAll(stream, 7, last, nullptr));
    EXPECT_EQ(State::End, last);
    EXPECT_EQ(0u, stream.failureCode());
}

TEST(AnswerStreamTest, ALongAnswerIsProducedAsItIsReadWithABoundedBuffer) {
    int calls = 0;
    AnswerStream stream(parts(1000, 100, 0, &calls), 1000);
    EXPECT_FALSE(stream.fill());
    EXPECT_LT(calls, 20);
    State last;
    std::size_t peak = 0;
    const std::string all = readAll(stream, 333, last, &peak);
    EXPECT_EQ(State::End, last);
    EXPECT_EQ(100000u, all.size());
    EXPECT_EQ(1000, calls);
    EXPECT_LE(peak, 1100u);
    // Read past the end stays at the end.
    char c;
    EXPECT_EQ(0u, stream.read(&c, 1, last));
    EXPECT_EQ(State::End, last);
}

TEST(AnswerStreamTest, AnAnswerStillInTheMakingGoesOutWithoutWaitingForAWholePiece) {
    // Two parts ready at once, then one per wait: a slow operation.
    int calls = 0;
    AnswerStream stream(
        [&](CimXmlWriter& out, std::size_t, bool wait) {
            if (calls >= 2 && !wait)
                return true;
            out.raw(std::string(10, static_cast<char>('a' + calls)));
            out.flush();
            return ++calls < 5;
        },
        1000);
    stream.writer().raw("<head>");
    EXPECT_FALSE(stream.fill());
    EXPECT_EQ("<head>" + std::string(10, 'a') + std::string(10, 'b'), stream.buffered());
    char piece[100];
    State last;
    EXPECT_EQ(26u, stream.read(piece, sizeof piece, last));
    // With nothing buffered, reading waits for the next part alone.
    EXPECT_EQ(10u, stream.read(piece, sizeof piece, last));
    EXPECT_EQ(std::string(10, 'c'), std::string(piece, 10));
    EXPECT_EQ(std::string(10, 'd') + std::string(10, 'e'), readAll(stream, 100, last, nullptr));
    EXPECT_EQ(State::End, last);
}

TEST(AnswerStreamTest, AFailureWhileProducingEndsTheStreamWithItsStatus) {
    int calls = 0;
    AnswerStream stream(parts(100, 100, 30, &calls), 500);
    EXPECT_FALSE(stream.fill());
    State last;
    const std::string all = readAll(stream, 64, last, nullptr);
    EXPECT_EQ(State::Failed, last);
    EXPECT_EQ(2900u, all.size()); // everything made before the failure is delivered
    EXPECT_EQ(1u, stream.failureCode());
    EXPECT_NE(std::string::npos, stream.failureDescription().find("disk on fire"));
    char c;
    EXPECT_EQ(0u, stream.read(&c, 1, last));
    EXPECT_EQ(State::Failed, last);
    EXPECT_EQ(30, calls); // nothing more is asked of the producer
}

} // namespace
