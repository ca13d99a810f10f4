// The memory long answers are written and sent in: kept between answers within a bound, and
// passed from writer to reader without being copied.
#include "server/PiecePool.h"
#include "server/AnswerStream.h"
#include "server/MarkupPiece.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <utility>

namespace {

using diagserver::AnswerStream;
using diagserver::CimXmlWriter;
using diagserver::MarkupPiece;
using diagserver::PiecePool;

MarkupPiece written(PiecePool& pool, const std::string& text) {
    MarkupPiece piece = pool.take();
    std::memcpy(piece.data.get(), text.data(), text.size());
    piece.size = text.size();
    return piece;
}

TEST(PiecePoolTest, KeepsAtMostItsSparesAndNothingOfAnotherSize) {
    PiecePool pool(100, 2);
    MarkupPiece a = pool.take();
    EXPECT_GE(a.capacity, 100u);
    EXPECT_EQ(0u, a.size);
    const char* memory = a.data.get();
    a.size = 3;
    pool.give(std::move(a));
    EXPECT_EQ(1u, pool.spare());
    // What is kept is handed out again, emptied.
    MarkupPiece again = pool.take();
    EXPECT_EQ(memory, again.data.get());
    EXPECT_EQ(0u, again.size);
    EXPECT_EQ(0u, pool.spare());
    // Too small to hold a piece, grown once around one large object, or none at all: not kept.
    const std::size_t size = again.capacity;
    pool.give(MarkupPiece(10));
    pool.give(MarkupPiece(2 * size));
    pool.give(MarkupPiece());
    EXPECT_EQ(0u, pool.spare());
    pool.give(std::move(again));
    pool.give(MarkupPiece(size));
    pool.give(MarkupPiece(size));
    EXPECT_EQ(2u, pool.spare());
}

TEST(PiecePoolTest, AStreamReadsPassedPiecesInPlaceInOrderAndGivesThemBack) {
    auto pool = std::make_shared<PiecePool>(64, 4);
    const char* passedMemory = nullptr;
    int calls = 0;
    AnswerStream stream(
        [&](CimXmlWriter& out, std::size_t, bool) {
            ++calls;
            out.raw("<part" + std::to_string(calls) + ">");
            MarkupPiece piece = written(*pool, std::string(50, static_cast<char>('a' + calls)));
            if (calls == 1)
                passedMemory = piece.data.get();
            out.pass(std::move(piece));
            out.raw("</part>");
            out.flush();
            return calls < 3;
        },
        64, pool);
    stream.writer().raw("<head>");
    // A piece's worth is buffered after the first part: the rest streams.
    EXPECT_FALSE(stream.fill());
    EXPECT_EQ(1, calls);
    std::string all;
    char buffer[37];
    AnswerStream::State state = AnswerStream::State::Data;
    for (;;) {
        const std::size_t n = stream.read(buffer, sizeof buffer, state);
        if (state != AnswerStream::State::Data)
            break;
        all.append(buffer, n);
    }
    EXPECT_EQ(AnswerStream::State::End, state);
    std::string expected = "<head>";
    for (int i = 1; i <= 3; ++i)
        expected += "<part" + std::to_string(i) + ">" +
                    std::string(50, static_cast<char>('a' + i)) + "</part>";
    EXPECT_EQ(expected, all);
    // The pieces read went back, the first part's memory among them.
    bool seen = false;
    for (std::size_t i = pool->spare(); i > 0; --i)
        seen = seen || pool->take().data.get() == passedMemory;
    EXPECT_TRUE(seen);
}

TEST(PiecePoolTest, ASlowOperationsSmallPiecesHoldNoMoreMemoryThanTheirBytes) {
    // Each answer handed on as a piece of its own, as a writer kept waiting gets them: the stream
    // keeps their bytes, not a piece of memory each.
    auto pool = std::make_shared<PiecePool>(64, 4);
    std::set<const char*> held;
    int calls = 0;
    AnswerStream stream(
        [&](CimXmlWriter& out, std::size_t, bool) {
            MarkupPiece piece = written(*pool, "<answer/>");
            held.insert(piece.data.get());
            out.pass(std::move(piece));
            return ++calls < 1000;
        },
        8192, pool);
    EXPECT_FALSE(stream.fill());
    EXPECT_GT(calls, 500); // about 8 KiB of them buffered
    EXPECT_LE(held.size(), 4u);
    std::string all;
    char buffer[4096];
    AnswerStream::State state = AnswerStream::State::Data;
    for (std::size_t n; (n = stream.read(buffer, sizeof buffer, state)) > 0;)
        all.append(buffer, n);
    EXPECT_EQ(AnswerStream::State::End, state);
    EXPECT_EQ(9000u, all.size());
}

} // namespace
