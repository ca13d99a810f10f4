// A piece of written markup in memory of its own, handed whole from the writer that made it to
// the thread that sends it, so that an answer's markup is not copied on its way. Move-only; a
// moved-from piece is empty and holds no memory.
#ifndef DIAGSERVER_MARKUPPIECE_H
#define DIAGSERVER_MARKUPPIECE_H

#include <cstddef>
#include <memory>
#include <string_view>

namespace diagserver {

struct MarkupPiece {
    MarkupPiece() = default;
    // Room for `capacity` bytes, none written.
    explicit MarkupPiece(std::size_t capacity) : data(new char[capacity]), capacity(capacity) {}
    MarkupPiece(std::unique_ptr<char[]> memory, std::size_t written, std::size_t room)
        : data(std::move(memory)), size(written), capacity(room) {}
    MarkupPiece(MarkupPiece&& other) noexcept { *this = std::move(other); }
    MarkupPiece& operator=(MarkupPiece&& other) noexcept {
        data = std::move(other.data);
        size = other.size;
        capacity = other.capacity;
        other.size = 0;
        other.capacity = 0;
        return *this;
    }

    std::string_view view() const { return std::string_view(data.get(), size); }
    std::size_t room() const { return capacity - size; }

    std::unique_ptr<char[]> data;
    std::size_t size = 0;
    std::size_t capacity = 0;
};

} // namespace diagserver

#endif
