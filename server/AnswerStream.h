// Hands a response message to the HTTP layer in the pieces it asks for, producing the XML only as
// it is read: about `pieceSize` bytes or one piece passed to its writer are buffered, however long
// the answer. A large piece passed is read where it lies, not copied. A failure while producing
// ends the stream early and is kept as the CIM status for the message's trailer.
#ifndef DIAGSERVER_ANSWERSTREAM_H
#define DIAGSERVER_ANSWERSTREAM_H

#include "server/CimXmlWriter.h"
#include "server/MarkupPiece.h"
#include "server/PiecePool.h"

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <string>

namespace diagserver {

class AnswerStream {
public:
    // Writes about `bytes` more of the message into the writer and flushes it; false once the
    // message is complete. With `wait`, writes something unless the message is complete, waiting
    // for it if need be; without, may write nothing when nothing is ready. May throw.
    using Producer = std::function<bool(CimXmlWriter& out, std::size_t bytes, bool wait)>;

    enum class State { Data, End, Failed };

    // What a producer throws to end the message early with a CIM status of its own.
    struct Failure {
        unsigned code;
        std::string description;
    };

    // Pieces passed to the writer go back to `pool`, when given, once read.
    AnswerStream(Producer produce, std::size_t pieceSize = std::size_t{64} << 10,
                 std::shared_ptr<PiecePool> pool = nullptr);
    ~AnswerStream();
    AnswerStream(const AnswerStream&) = delete;
    AnswerStream& operator=(const AnswerStream&) = delete;

    // The writer the head of the message goes into before reading starts.
    CimXmlWriter& writer() { return writer_; }

    // Produces until a whole piece is buffered, the message is complete, or nothing more is
    // ready; true when complete, so that a short answer can go out with its length.
    bool fill();
    // What is buffered and not read yet, in one piece of memory.
    std::string_view buffered();

    // Copies up to `max` bytes of the message to `out`; `state` says whether data came, the
    // message ended, or producing it failed (then the bytes given so far are all there is).
    std::size_t read(char* out, std::size_t max, State& state);

    // The CIM status code and description of a failure while producing; 0 before one.
    unsigned failureCode() const { return failureCode_; }
    const std::string& failureDescription() const { return failureDescription_; }

private:
    bool produce(bool wait);
    // The writer's sinks: markup it wrote, copied; a piece passed, kept as it is.
    void append(std::string_view markup);
    void adopt(MarkupPiece& piece);
    void recycle(MarkupPiece piece);

    Producer produce_;
    std::size_t pieceSize_;
    std::shared_ptr<PiecePool> pool_;
    // What is buffered, in order; the first read from `offset_` on.
    std::deque<MarkupPiece> pieces_;
    std::size_t offset_ = 0;
    std::size_t buffered_ = 0;
    CimXmlWriter writer_;
    bool complete_ = false;
    unsigned failureCode_ = 0;
    std::string failureDescription_;
};

} // namespace diagserver

#endif
