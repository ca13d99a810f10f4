#include "providers/common/SmallTextFile.h"

#include "providers/common/SystemErrorText.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>

namespace NQORVA20::providers {

namespace {

class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0)
            ::close(fd_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

void setError(std::string* error, std::string text) {
    if (error != nullptr)
        *error = std::move(text);
}

} // namespace

std::optional<std::string> SmallTextFile::read(const std::string& path, std::string* error,
                                               std::size_t limit) {
    Descriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (fd.get() < 0) {
        setError(error, SystemErrorText::describe(errno));
        return std::nullopt;
    }
    struct stat info;
    if (::fstat(fd.get(), &info) != 0) {
        setError(error, SystemErrorText::describe(errno));
        return std::nullopt;
    }
    if (!S_ISREG(info.st_mode)) {
        setError(error, "not a regular file");
        return std::nullopt;
    }
    std::string text;
    char buffer[4096];
    while (text.size() < limit) {
        const ssize_t got = ::read(fd.get(), buffer, std::min(sizeof buffer, limit - text.size()));
        if (got < 0) {
            if (errno == EINTR)
                continue;
            setError(error, SystemErrorText::describe(errno));
            return std::nullopt;
        }
        if (got == 0)
            break;
        text.append(buffer, static_cast<std::size_t>(got));
    }
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())))
        text.pop_back();
    return text;
}

std::optional<unsigned long long> SmallTextFile::readNumber(const std::string& path,
                                                            std::string* error) {
    const std::optional<std::string> text = read(path, error, 64);
    if (!text)
        return std::nullopt;
    if (text->empty() ||
        !std::all_of(text->begin(), text->end(), [](unsigned char c) { return std::isdigit(c); })) {
        setError(error, "not an unsigned number");
        return std::nullopt;
    }
    errno = 0;
    const unsigned long long value = std::strtoull(text->c_str(), nullptr, 10);
    if (errno == ERANGE) {
        setError(error, "number out of range");
        return std::nullopt;
    }
    return value;
}

} // namespace NQORVA20::providers
