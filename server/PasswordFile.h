// The users who may call the WBEM server: a file of "USER:HASH" lines, HASH a crypt(3) hash
// (yescrypt when made here), blank lines and lines starting with '#' ignored. verify() reads the
// file again whenever it has changed on disk, so a password set while the server runs is in force
// at the next request; a file that no longer reads lets nobody in until it is mended.
//
// A crypt(3) verification is costly on purpose (yescrypt: tens of milliseconds of CPU and
// megabytes of memory), so check() remembers recent successes, tied to the file's generation (any
// change to the file forgets them all), and lets only a few verifications run at once: the others
// wait a bounded time and are then answered Busy, so a flood of wrong passwords holds a bounded
// number of threads and cores (both as every Authenticator does).
#ifndef DIAGSERVER_PASSWORDFILE_H
#define DIAGSERVER_PASSWORDFILE_H

#include "server/Authenticator.h"

#include <crypt.h>

#include <cstdint>
#include <ctime>
#include <functional>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string>
#include <sys/types.h>

namespace diagserver {

class PasswordFile : public Authenticator {
public:
    // A file that cannot be read or a line that is not USER:HASH; what() names the file and,
    // for a bad line, its number ("FILE:LINE: ...").
    class Error : public std::runtime_error {
    public:
        Error(const std::string& message, unsigned line)
            : std::runtime_error(message), line_(line) {}
        // The 1-based number of the faulty line; 0 when the fault is not one line's.
        unsigned line() const { return line_; }

    private:
        unsigned line_;
    };

    // The limits are on crypt(3) verifications.
    struct Options : Authenticator::Limits {
        // What hashes a password to compare with the stored hash: crypt_r when empty. Tests put
        // one here that counts or holds the calls.
        std::function<const char*(const char* phrase, const char* setting, crypt_data* data)> crypt;
    };

    // Reads the file; throws Error.
    explicit PasswordFile(std::string path);
    PasswordFile(std::string path, Options options);
    PasswordFile(const PasswordFile&) = delete;
    PasswordFile& operator=(const PasswordFile&) = delete;

    using Authenticator::check;
    // Whether the password is the user's: Accepted from the cache when these credentials
    // verified against this version of the file lately, otherwise after a crypt(3)
    // verification, which is remembered when it succeeds. Busy when no verification could be
    // started within Options::verificationWait, or too many were waiting already. An unknown
    // user costs as much time as a known one, and the hash comparison takes the same time
    // wherever the first difference lies. A refusal's why is problem() when the file does not
    // read. Thread-safe.
    Verdict check(const std::string& user, const std::string& password, std::string& why) override;
    // Why the last reading of a changed file failed; empty while the file reads.
    std::string problem() const;
    std::size_t userCount() const;

    // Gives the user a fresh hash of the password in the file, replacing the user's line or
    // adding one and keeping every other line; the file is created if missing and left with mode
    // 0600. The file is replaced whole (written aside, then renamed). Throws Error, also for a
    // user name holding ':' or a blank, and for an empty password.
    static void setPassword(const std::string& path, const std::string& user,
                            const std::string& password);
    // A new yescrypt hash of the password with a random salt; throws Error when none can be made.
    static std::string hash(const std::string& password);

private:
    struct Stamp {
        dev_t device = 0;
        ino_t inode = 0;
        off_t size = -1;
        timespec modified{};
        bool operator==(const Stamp& o) const;
    };
    static std::map<std::string, std::string> parse(const std::string& text,
                                                    const std::string& path);
    // Reads the file again when its stamp has changed; called with mutex_ held.
    void refresh();

    std::string path_;
    Options options_;
    mutable std::mutex mutex_;
    Stamp stamp_;
    // Counts the readings of a changed file: cache entries of an older one are dead.
    std::uint64_t generation_ = 0;
    std::map<std::string, std::string> hashes_;
    std::string problem_;
    unsigned problemLine_ = 0;
    // Verified against when the user is unknown, so the answer takes as long.
    std::string decoy_;
};

} // namespace diagserver

#endif
