// Answers handed over from an operation still running: the bounded queue between the provider's
// thread and the writer, and whole responses written while their operation returns, through the
// host's test providers (one of the classes of the enumeration served by a library that is not
// there, so that the operation fails after its first answers).
#include "server/AnswerStream.h"
#include "server/PiecePool.h"
#include "server/ResultQueue.h"
#include "server/WbemOperations.h"

#include "ServerTestSupport.h"

#include "host/Host.h"
#include "host/broker/Broker.h"
#include "host/broker/CallScope.h"

#include <cmpift.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

using diaghost::Host;
using diagserver::AnswerStream;
using diagserver::CimRequest;
using diagserver::CimXmlWriter;
using diagserver::MarkupPiece;
using diagserver::ResultQueue;
using diagserver::WbemOperations;

using servertest::testHost;

class ResultQueueTest : public ::testing::Test {
protected:
    Host& host = testHost();

    // A path made in the caller's scope, as a provider returns it.
    CMPIObjectPath* path(const std::string& name) {
        const CMPIBroker* mb = host.broker().cmpi();
        CMPIObjectPath* made = mb->eft->newObjectPath(mb, "root/cimv2", "Test_Element", nullptr);
        CMPIValue v;
        v.string = mb->eft->newString(mb, name.c_str(), nullptr);
        made->ft->addKey(made, "Name", &v, CMPI_string);
        return made;
    }

    // Writes each path as its key's value and a semicolon.
    // Memory for a queue's pieces of `size` bytes (1: a piece per object).
    static std::shared_ptr<diagserver::PiecePool> pieces(std::size_t size = std::size_t{64} << 10) {
        return std::make_shared<diagserver::PiecePool>(size, 4);
    }

    static ResultQueue::WriteItem names() {
        return [](CimXmlWriter& out, const CMPIInstance*, const CMPIObjectPath* p) {
            CMPIData key = p->ft->getKey(p, "Name", nullptr);
            out.raw(key.value.string->ft->getCharPtr(key.value.string, nullptr));
            out.raw(";");
        };
    }

    // A piece's markup, or that there was none.
    static std::string text(const std::optional<MarkupPiece>& piece) {
        return piece ? std::string(piece->view()) : "(no piece)";
    }

    // Everything the writer's side takes until the end.
    static std::string drain(ResultQueue& queue) {
        std::string all;
        while (std::optional<MarkupPiece> piece = queue.next())
            all += piece->view();
        return all;
    }
};

TEST_F(ResultQueueTest, TheOperationWaitsWhileThePiecesAreNotTakenAndTheyComeInOrder) {
    // A piece per object, two held at most.
    ResultQueue queue(names(), 2, pieces(1));
    std::atomic<int> handed{0};
    std::thread operation([&] {
        diaghost::CallScope threadScope(host.broker());
        for (int i = 0; i < 5; ++i) {
            EXPECT_TRUE(queue.path(path("p" + std::to_string(i))));
            ++handed;
        }
        queue.finish(diaghost::OperationStatus::make(CMPI_RC_OK));
    });
    ASSERT_TRUE(queue.waitForFirst());
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(2, handed.load()); // the third waits for room
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ("p" + std::to_string(i) + ";", text(queue.next()));
    }
    EXPECT_FALSE(queue.next());
    EXPECT_TRUE(queue.status().ok());
    EXPECT_FALSE(queue.failed());
    operation.join();
}

TEST_F(ResultQueueTest, AWaitingWriterGetsWhatIsWrittenBeforeAPieceIsWhole) {
    ResultQueue queue(names(), 4, pieces());
    std::atomic<int> step{0};
    auto waitFor = [&](int s) {
        while (step < s)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    };
    std::thread operation([&] {
        diaghost::CallScope threadScope(host.broker());
        queue.path(path("first"));
        queue.path(path("second"));
        // A slow operation: each answer long after the one before.
        waitFor(1);
        queue.path(path("third"));
        waitFor(2);
        queue.finish(diaghost::OperationStatus::make(CMPI_RC_OK));
    });
    std::string seen;
    while (seen != "first;second;")
        seen += text(queue.next());
    step = 1;
    // Far from a whole piece, and the operation has not finished.
    EXPECT_EQ("third;", text(queue.next()));
    step = 2;
    EXPECT_FALSE(queue.next());
    operation.join();
}

TEST_F(ResultQueueTest, AWriterThatMayNotWaitTakesOnlyWhatIsReady) {
    diaghost::CallScope scope(host.broker());
    ResultQueue queue(names(), 4, pieces());
    // Nobody has taken anything yet: the first object is handed on at once.
    queue.path(path("first"));
    ASSERT_TRUE(queue.waitForFirst());
    EXPECT_EQ("first;", text(queue.next(ResultQueue::Wait::No)));
    // Written, but far from a whole piece.
    queue.path(path("second"));
    EXPECT_FALSE(queue.next(ResultQueue::Wait::No));
    EXPECT_FALSE(queue.drained());
    EXPECT_EQ("second;", text(queue.next(ResultQueue::Wait::Briefly)));
    queue.finish(diaghost::OperationStatus::make(CMPI_RC_OK));
    EXPECT_FALSE(queue.next(ResultQueue::Wait::No));
    EXPECT_TRUE(queue.drained());
}

TEST_F(ResultQueueTest, APieceIsTheMemoryItWasWrittenInAndItsMemoryIsWrittenInAgain) {
    diaghost::CallScope scope(host.broker());
    auto pool = std::make_shared<diagserver::PiecePool>(1, 4);
    {
        ResultQueue queue(names(), 4, pool);
        queue.path(path("first"));
        std::optional<MarkupPiece> first = queue.next(ResultQueue::Wait::No);
        ASSERT_TRUE(first);
        EXPECT_EQ("first;", first->view());
        const char* memory = first->data.get();
        pool->give(std::move(*first));
        // The writer went on in memory of the pool's; once that is handed over too, it writes in
        // what was given back.
        queue.path(path("second"));
        queue.path(path("third"));
        EXPECT_EQ("second;", text(queue.next(ResultQueue::Wait::No)));
        std::optional<MarkupPiece> third = queue.next(ResultQueue::Wait::No);
        ASSERT_TRUE(third);
        EXPECT_EQ("third;", third->view());
        EXPECT_EQ(memory, third->data.get());
        queue.finish(diaghost::OperationStatus::make(CMPI_RC_OK));
        EXPECT_FALSE(queue.next());
        EXPECT_EQ(0u, pool->spare());
    }
    // The memory the writer held goes back with the queue.
    EXPECT_EQ(1u, pool->spare());
}

TEST_F(ResultQueueTest, CancellingDropsWhatIsHeldAndRefusesTheRest) {
    diaghost::CallScope scope(host.broker());
    ResultQueue queue(names(), 1, pieces(1));
    std::atomic<bool> refused{false};
    std::thread operation([&] {
        diaghost::CallScope threadScope(host.broker());
        queue.path(path("held"));
        // Waits for room until the writer gives up.
        refused = !queue.path(path("waiting"));
        EXPECT_FALSE(queue.path(path("later")));
        queue.finish(diaghost::OperationStatus::make(CMPI_RC_ERR_FAILED, "the client went away"));
    });
    ASSERT_TRUE(queue.waitForFirst());
    queue.cancel();
    operation.join();
    EXPECT_TRUE(refused.load());
    EXPECT_FALSE(queue.next());
    EXPECT_TRUE(queue.failed());
}

TEST_F(ResultQueueTest, AnObjectThatCannotBeWrittenEndsTheOperationWithThatFailure) {
    diaghost::CallScope scope(host.broker());
    ResultQueue queue(
        [](CimXmlWriter& out, const CMPIInstance*, const CMPIObjectPath* p) {
            CMPIData key = p->ft->getKey(p, "Name", nullptr);
            const std::string name = key.value.string->ft->getCharPtr(key.value.string, nullptr);
            if (name == "bad")
                throw std::runtime_error("no room");
            out.raw(name);
        },
        4, pieces(1));
    EXPECT_TRUE(queue.path(path("good")));
    EXPECT_FALSE(queue.path(path("bad")));
    EXPECT_FALSE(queue.path(path("after")));
    queue.finish(diaghost::OperationStatus::make(CMPI_RC_OK));
    EXPECT_EQ("good", drain(queue));
    EXPECT_TRUE(queue.failed());
    EXPECT_NE(std::string::npos, queue.status().message.find("no room"));
}

TEST_F(ResultQueueTest, AnOperationEndingWithoutObjectsIsSeenAtOnce) {
    ResultQueue queue(names(), 4, pieces());
    queue.finish(diaghost::OperationStatus::make(CMPI_RC_ERR_NOT_FOUND, "none"));
    EXPECT_FALSE(queue.waitForFirst());
    EXPECT_TRUE(queue.failed());
    EXPECT_EQ(CMPI_RC_ERR_NOT_FOUND, queue.status().rc);
    EXPECT_EQ("none", queue.status().message);
}

class StreamedAnswerTest : public ::testing::Test {
protected:
    static CimRequest enumerate(const std::string& className) {
        CimRequest r;
        r.messageId = "7";
        r.method = "EnumerateInstances";
        r.nameSpace = "root/cimv2";
        CimRequest::Value v;
        v.kind = CimRequest::Value::Kind::ClassName;
        v.text = className;
        r.params.emplace_back("ClassName", v);
        return r;
    }

    // The message as an HTTP client reads it, piece by piece, and how it ended.
    struct Read {
        std::string text;
        AnswerStream::State end = AnswerStream::State::Data;
        unsigned code = 0;
        std::string description;
    };
    Read read(WbemOperations& operations, const CimRequest& request) {
        std::unique_ptr<WbemOperations::Reply> reply;
        AnswerStream stream([&](CimXmlWriter& out, std::size_t bytes, bool wait) {
            return reply->writeMore(out, bytes, wait);
        });
        reply = operations.reply(request, stream.writer());
        // As the server does: a first piece, then what is read.
        stream.fill();
        Read r;
        char piece[256];
        for (;;) {
            const std::size_t n = stream.read(piece, sizeof piece, r.end);
            if (r.end != AnswerStream::State::Data)
                break;
            r.text.append(piece, n);
        }
        r.code = stream.failureCode();
        r.description = stream.failureDescription();
        return r;
    }

    Host& host = testHost();
};

TEST_F(StreamedAnswerTest, AFailureAfterTheFirstAnswersEndsTheMessageWithItsStatus) {
    // One answer in each piece and one piece held: the operation is still running when writing
    // begins.
    WbemOperations operations(host, "localhost", 1, 1);
    {
        const Read r = read(operations, enumerate("Test_Element"));
        EXPECT_EQ(AnswerStream::State::Failed, r.end) << r.text;
        EXPECT_EQ(static_cast<unsigned>(CMPI_RC_ERR_FAILED), r.code);
        EXPECT_NE(std::string::npos, r.description.find("diaghosttest_nonexistent"))
            << r.description;
        EXPECT_NE(std::string::npos, r.text.find("<IRETURNVALUE>"));
        EXPECT_NE(std::string::npos, r.text.find("alpha"));
        EXPECT_EQ(std::string::npos, r.text.find("<ERROR"));
    }
}

TEST_F(StreamedAnswerTest, AFailureKnownBeforeAnythingIsWrittenIsAnError) {
    WbemOperations operations(host);
    const Read r = read(operations, enumerate("Test_DerivedElement"));
    EXPECT_EQ(AnswerStream::State::End, r.end);
    EXPECT_NE(std::string::npos, r.text.find("<ERROR CODE=\"1\""));
    EXPECT_EQ(std::string::npos, r.text.find("<IRETURNVALUE>"));
}

TEST_F(StreamedAnswerTest, AnAnswerReadOnlyInPartLeavesNothingRunning) {
    WbemOperations operations(host, "localhost", 1, 1);
    for (int i = 0; i < 20; ++i) {
        std::unique_ptr<WbemOperations::Reply> reply;
        std::string head;
        CimXmlWriter writer([&](std::string_view piece) { head.append(piece); }, 1);
        // The operation waits with its second answer: the queue holds one piece.
        reply = operations.reply(enumerate("Test_Element"), writer);
        EXPECT_EQ(0u, reply->code());
        // The client goes away here: the reply stops its operation and waits for it.
    }
    // Nothing is left waiting: the same operation still runs to its end.
    const Read r = read(operations, enumerate("Test_Element"));
    EXPECT_EQ(AnswerStream::State::Failed, r.end);
    EXPECT_NE(std::string::npos, r.text.find("beta"));
}

} // namespace
