// Answers decoded CIM operations from the embedded object manager: checks the namespace, the
// class and the parameters, runs the operation on the host and writes the CIM-XML response
// message (the answer, or an ERROR with the CIM status code and its description). CMPI return
// codes become the CIM status codes of the same number. The instances and paths of a long answer
// are written as the reader asks for them, from the operation's result, so that the message never
// lies whole in memory. Safe to call from several threads at once, as the host is.
#ifndef DIAGSERVER_WBEMOPERATIONS_H
#define DIAGSERVER_WBEMOPERATIONS_H

#include "server/CimRequest.h"
#include "server/CimXmlWriter.h"
#include "server/OperationThreads.h"
#include "server/PiecePool.h"
#include "server/ResultQueue.h"

#include "host/OperationResult.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace diaghost {
class Host;
} // namespace diaghost

namespace diagserver {

class WbemOperations {
public:
    // The host must outlive this object; hostName goes into the paths answered. An operation
    // still running holds at most `queuedPieces` pieces of its answer's markup (of about
    // `pieceSize` bytes) not yet taken by the reply.
    explicit WbemOperations(diaghost::Host& host, std::string hostName = "localhost",
                            std::size_t queuedPieces = 1,
                            std::size_t pieceSize = std::size_t{256} << 10);

    // The rest of a response message whose operation has run.
    class Reply {
    public:
        // Stops an operation still returning answers nobody will read, and waits for it.
        ~Reply();
        Reply(const Reply&) = delete;
        Reply& operator=(const Reply&) = delete;

        // The CIM status code of the answer: 0 when the operation succeeded. Known before the
        // rest is written; a failure while writing is the caller's to report.
        unsigned code() const { return code_; }
        // Writes about `bytes` more of the message and flushes the writer; false once the
        // message is complete. An operation still running is waited for until it has answered
        // something more (or ended), and without `wait` only a moment: then nothing may be
        // written. Throws what the writer's sink throws, or for lack of memory; an operation
        // that fails after its first answers were written throws AnswerStream::Failure with its
        // status.
        bool writeMore(CimXmlWriter& out, std::size_t bytes, bool wait = true);

    private:
        friend class WbemOperations;
        enum class Items { None, InstanceNames, NamedInstances, ObjectPaths, ObjectsWithPath };
        explicit Reply(WbemOperations& operations) : operations_(operations) {}
        // Writes one answer as `kind` lists them; called on the operation's thread too.
        void writeItem(CimXmlWriter& out, Items kind, const CMPIInstance* instance,
                       const CMPIObjectPath* path) const;
        // Writes items until about `until` bytes are written, or (from a running operation)
        // until none is ready; false once there are no more.
        bool writeItems(CimXmlWriter& out, std::uint64_t until, bool wait);

        WbemOperations& operations_;
        unsigned code_ = 0;
        bool intrinsic_ = true;
        bool complete_ = false;
        Items items_ = Items::None;
        // The answers of an operation that ran to its end before the reply was written...
        std::optional<diaghost::OperationResult> result_;
        std::size_t next_ = 0;
        // ...or of one still running on a thread of its own, written there as they come.
        std::shared_ptr<ResultQueue> queue_;
        std::shared_ptr<OperationThreads::Done> producer_;
        std::optional<std::vector<std::string>> properties_;
    };

    // Runs the operation and writes the head of the response message (all of it for an answer
    // without a list of instances or paths); the reply writes the rest.
    std::unique_ptr<Reply> reply(const CimRequest& request, CimXmlWriter& out);
    // Memory for the pieces answers are written in; they go back there once sent.
    const std::shared_ptr<PiecePool>& pieces() const { return pieces_; }
    // The whole message at once; the CIM status code of the answer.
    unsigned answer(const CimRequest& request, CimXmlWriter& out);

private:
    struct Outcome {
        unsigned code = 0;
        std::string description;
    };

    Outcome intrinsic(const CimRequest& request, CimXmlWriter& out, Reply& reply);
    Outcome extrinsic(const CimRequest& request, CimXmlWriter& out);

    // An operation answering a list of instances or paths. It runs on a thread of `threads_`, where
    // its answers are written as they are returned and handed over through a bounded queue as
    // the reply asks for them, so that a long answer never lies whole in memory. A failure known
    // before the first answer is written is answered as an ERROR; a later one ends the message.
    // Beyond maxProducers at once, or when no thread can be had, it runs here and its answers are
    // held whole.
    using Operation = std::function<diaghost::OperationResult(diaghost::ResultSink::Stream*)>;
    Outcome items(Reply& reply, Reply::Items kind, Operation operation, CimXmlWriter& out);

    static constexpr unsigned maxProducers = 64;
    // Spare pieces kept between answers: enough for a few answers at once.
    static constexpr std::size_t sparePieces = 8;

    diaghost::Host& host_;
    std::string hostName_;
    std::size_t queuedPieces_;
    std::shared_ptr<PiecePool> pieces_;
    // Declared last, so that its threads end before anything they use goes.
    OperationThreads threads_{maxProducers};
};

} // namespace diagserver

#endif
