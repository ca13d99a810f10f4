#include "server/AnswerStream.h"

#include <algorithm>
#include <cstring>
#include <exception>

namespace diagserver {

AnswerStream::AnswerStream(Producer produce, std::size_t pieceSize)
    : produce_(std::move(produce)), pieceSize_(pieceSize),
      writer_([this](std::string_view piece) { buffer_.append(piece); }, pieceSize) {}

bool AnswerStream::produce(bool wait) {
    if (complete_ || failureCode_ != 0)
        return false;
    // Read data goes before more is made, so that the buffer does not grow past a piece or two.
    if (offset_ > 0) {
        buffer_.erase(0, offset_);
        offset_ = 0;
    }
    try {
        complete_ = !produce_(writer_, pieceSize_, wait);
        writer_.flush();
    } catch (const Failure& f) {
        failureCode_ = f.code != 0 ? f.code : 1;
        failureDescription_ = f.description;
        // What was written before the failure still goes out, for the trailer to follow.
        try {
            writer_.flush();
        } catch (...) {
        }
    } catch (const std::exception& e) {
        failureCode_ = 1;
        failureDescription_ = std::string("the answer could not be written: ") + e.what();
    } catch (...) {
        failureCode_ = 1;
        failureDescription_ = "the answer could not be written";
    }
    return true;
}

bool AnswerStream::fill() {
    writer_.flush();
    while (!complete_ && failureCode_ == 0 && buffer_.size() - offset_ < pieceSize_) {
        const std::size_t before = buffer_.size() - offset_;
        produce(false);
        if (buffer_.size() - offset_ == before)
            break; // nothing more is ready: the rest streams
    }
    return complete_;
}

std::string_view AnswerStream::buffered() const {
    return std::string_view(buffer_).substr(offset_);
}

std::size_t AnswerStream::read(char* out, std::size_t max, State& state) {
    while (buffer_.size() == offset_) {
        if (failureCode_ != 0) {
            state = State::Failed;
            return 0;
        }
        if (complete_ || !produce(true)) {
            state = failureCode_ != 0 ? State::Failed : State::End;
            return 0;
        }
    }
    const std::size_t n = std::min(max, buffer_.size() - offset_);
    std::memcpy(out, buffer_.data() + offset_, n);
    offset_ += n;
    state = State::Data;
    return n;
}

} // namespace diagserver
