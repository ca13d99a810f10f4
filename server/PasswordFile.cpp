#include "server/PasswordFile.h"

#include <crypt.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <vector>

namespace diagserver {

namespace {

bool blank(char c) {
    return c == ' ' || c == '\t' || static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
}

bool hasBlank(const std::string& text) {
    for (char c : text)
        if (blank(c))
            return true;
    return false;
}

// The lines of the text without their ends ("\n" or "\r\n"); a last line without an end counts.
std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string::npos)
            end = text.size();
        std::string line = text.substr(start, end - start);
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        lines.push_back(std::move(line));
        start = end + 1;
    }
    return lines;
}

bool ignored(const std::string& line) {
    std::size_t first = line.find_first_not_of(" \t");
    return first == std::string::npos || line[first] == '#';
}

// Time independent of where the texts first differ.
bool sameInConstantTime(const char* a, const std::string& b) {
    const std::size_t length = std::strlen(a);
    unsigned char diff = length != b.size() ? 1 : 0;
    const std::size_t n = length < b.size() ? length : b.size();
    for (std::size_t i = 0; i < n; ++i)
        diff |= static_cast<unsigned char>(a[i] ^ b[i]);
    return diff == 0;
}

std::string readWhole(const std::string& path, bool& missing) {
    missing = false;
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        if (errno == ENOENT) {
            missing = true;
            return {};
        }
        throw PasswordFile::Error(path + ": cannot be read: " + std::strerror(errno), 0);
    }
    std::ostringstream text;
    text << in.rdbuf();
    if (in.bad())
        throw PasswordFile::Error(path + ": cannot be read", 0);
    return text.str();
}

} // namespace

bool PasswordFile::Stamp::operator==(const Stamp& o) const {
    return device == o.device && inode == o.inode && size == o.size &&
           modified.tv_sec == o.modified.tv_sec && modified.tv_nsec == o.modified.tv_nsec;
}

PasswordFile::PasswordFile(std::string path) : PasswordFile(std::move(path), Options()) {}

PasswordFile::PasswordFile(std::string path, Options options) try
    : Authenticator(options), path_(std::move(path)), options_(std::move(options)) {
    if (!options_.crypt)
        options_.crypt = crypt_r;
    std::lock_guard<std::mutex> lock(mutex_);
    refresh();
    if (!problem_.empty())
        throw Error(problem_, problemLine_);
    decoy_ = hash("the decoy of a user who is not in the file");
} catch (const Error&) {
    throw;
} catch (const std::runtime_error& e) {
    // The remembered successes' key could not be drawn.
    throw Error(e.what(), 0);
}

std::map<std::string, std::string> PasswordFile::parse(const std::string& text,
                                                       const std::string& path) {
    std::map<std::string, std::string> hashes;
    std::map<std::string, unsigned> lineOf;
    unsigned number = 0;
    for (const std::string& line : linesOf(text)) {
        ++number;
        if (ignored(line))
            continue;
        const std::string where = path + ":" + std::to_string(number) + ": ";
        const std::size_t colon = line.find(':');
        if (colon == std::string::npos || colon == 0)
            throw Error(where + "not USER:HASH", number);
        const std::string user = line.substr(0, colon);
        const std::string hashed = line.substr(colon + 1);
        if (hasBlank(user))
            throw Error(where + "the user name holds a blank or a control character", number);
        if (hashed.empty() || hasBlank(hashed) ||
            crypt_checksalt(hashed.c_str()) == CRYPT_SALT_INVALID)
            throw Error(where + "the hash of " + user + " is not a crypt(3) hash", number);
        const auto [at, added] = lineOf.emplace(user, number);
        if (!added)
            throw Error(where + user + " appears again (first on line " +
                            std::to_string(at->second) + ")",
                        number);
        hashes.emplace(user, hashed);
    }
    return hashes;
}

void PasswordFile::refresh() {
    struct stat status {};
    if (stat(path_.c_str(), &status) != 0) {
        problem_ = path_ + ": cannot be read: " + std::strerror(errno);
        problemLine_ = 0;
        hashes_.clear();
        if (!(stamp_ == Stamp{})) {
            ++generation_;
            forgetSuccesses();
        }
        stamp_ = Stamp{};
        return;
    }
    Stamp now{status.st_dev, status.st_ino, status.st_size, status.st_mtim};
    if (now == stamp_)
        return;
    // The stamp is taken before the reading: a change made meanwhile is read at the next call.
    stamp_ = now;
    ++generation_;
    forgetSuccesses();
    try {
        bool missing = false;
        std::string text = readWhole(path_, missing);
        if (missing)
            throw Error(path_ + ": cannot be read: " + std::strerror(ENOENT), 0);
        hashes_ = parse(text, path_);
        problem_.clear();
        problemLine_ = 0;
    } catch (const Error& e) {
        hashes_.clear();
        problem_ = e.what();
        problemLine_ = e.line();
    }
}

PasswordFile::Verdict PasswordFile::check(const std::string& user, const std::string& password,
                                          std::string& why) {
    why.clear();
    std::string stored;
    std::string problem;
    bool known = false;
    std::uint64_t generation = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        refresh();
        auto found = hashes_.find(user);
        known = found != hashes_.end();
        stored = known ? found->second : decoy_;
        generation = generation_;
        problem = problem_;
    }
    const bool whole = password.find('\0') == std::string::npos;
    const Verdict verdict = rememberedOrVerified(user, password, generation, known && whole, [&] {
        // crypt_data is large: on the heap, one per call, so calls run side by side.
        auto data = std::make_unique<crypt_data>();
        const char* computed = options_.crypt(password.c_str(), stored.c_str(), data.get());
        const bool same = computed && sameInConstantTime(computed, stored);
        explicit_bzero(data.get(), sizeof(crypt_data));
        return known && same && whole;
    });
    if (verdict == Verdict::Refused)
        why = problem;
    return verdict;
}

std::string PasswordFile::problem() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return problem_;
}

std::size_t PasswordFile::userCount() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return hashes_.size();
}

std::string PasswordFile::hash(const std::string& password) {
    char setting[CRYPT_GENSALT_OUTPUT_SIZE];
    if (!crypt_gensalt_rn("$y$", 0, nullptr, 0, setting, sizeof setting))
        throw Error(std::string("no salt could be made: ") + std::strerror(errno), 0);
    auto data = std::make_unique<crypt_data>();
    const char* hashed = crypt_r(password.c_str(), setting, data.get());
    if (!hashed || hashed[0] == '*')
        throw Error("the password could not be hashed", 0);
    return hashed;
}

void PasswordFile::setPassword(const std::string& path, const std::string& user,
                               const std::string& password) {
    if (user.empty() || user.find(':') != std::string::npos || hasBlank(user))
        throw Error("the user name must be non-empty, without ':', blanks or control characters",
                    0);
    if (password.empty())
        throw Error("the password is empty", 0);
    if (password.find('\0') != std::string::npos || password.find('\n') != std::string::npos)
        throw Error("the password holds a NUL or a line end", 0);
    bool missing = false;
    const std::string old = readWhole(path, missing);
    parse(old, path); // a faulty file is mended by hand, not rewritten
    const std::string line = user + ":" + hash(password);
    std::string text;
    bool replaced = false;
    for (const std::string& l : linesOf(old)) {
        if (!ignored(l) && l.compare(0, user.size() + 1, user + ":") == 0) {
            text += line + "\n";
            replaced = true;
        } else {
            text += l + "\n";
        }
    }
    if (!replaced)
        text += line + "\n";

    std::string aside = path + ".XXXXXX";
    const int fd = mkstemp(aside.data()); // mode 0600
    if (fd < 0)
        throw Error(path + ": cannot write beside it: " + std::strerror(errno), 0);
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t n = write(fd, text.data() + written, text.size() - written);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        written += static_cast<std::size_t>(n);
    }
    bool ok = written == text.size();
    int cause = ok ? 0 : (errno ? errno : EIO);
    if (ok && (fchmod(fd, 0600) != 0 || fsync(fd) != 0))
        ok = false, cause = errno;
    close(fd);
    if (ok && rename(aside.c_str(), path.c_str()) != 0)
        ok = false, cause = errno;
    if (!ok) {
        unlink(aside.c_str());
        throw Error(path + ": cannot be written: " + std::strerror(cause), 0);
    }
}

} // namespace diagserver
