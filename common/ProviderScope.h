// Which provider library the calling thread is serving, and which classes a provider's start-up
// on this thread is enumerating through the broker.
//
// A provider library's generated entry functions name themselves at the start of every call
// (an opaque tag, the library's start-up object), so that the registry can tell which library
// filed a class and an association call without an association class answers only for the
// library it was made to. While a start-up enumerates a class through the broker, an object
// manager may answer by calling the same library again on another thread; StartupUpcall tells
// the running start-up which class that call will ask for, so that it is served from what is
// published instead of waiting for the start-up that waits for it.
#ifndef DIAGCORE_COMMON_PROVIDERSCOPE_H
#define DIAGCORE_COMMON_PROVIDERSCOPE_H

#include "common/Export.h"

#include <string>

namespace NQORVA20 {

class DIAGCORE_EXPORT ProviderScope {
public:
    // The library the calling thread now serves; null when no generated entry was called.
    static void enter(const void* provider) noexcept;
    static const void* current() noexcept;
    // The library whose objects the thread is filing: the one whose start-up runs on this
    // thread (a nested call into another library on the same thread does not change it), else
    // current().
    static const void* owner() noexcept;

    // What a running start-up learns of the upcalls it makes.
    class DIAGCORE_EXPORT UpcallListener {
    public:
        virtual void upcallBegins(const std::string& className) noexcept = 0;
        virtual void upcallEnds(const std::string& className) noexcept = 0;

    protected:
        ~UpcallListener() = default;
    };

    // Marks an upcall enumerating className for as long as it lives, when a start-up runs on
    // this thread; elsewhere it does nothing.
    class DIAGCORE_EXPORT StartupUpcall {
    public:
        explicit StartupUpcall(std::string className) noexcept;
        ~StartupUpcall();
        StartupUpcall(const StartupUpcall&) = delete;
        StartupUpcall& operator=(const StartupUpcall&) = delete;

    private:
        UpcallListener* listener_;
        std::string className_;
    };

    // Set by a start-up for the time it runs on the calling thread; the previous one is put
    // back when it ends.
    class DIAGCORE_EXPORT RunningStartup {
    public:
        RunningStartup(UpcallListener& listener, const void* provider) noexcept;
        ~RunningStartup();
        RunningStartup(const RunningStartup&) = delete;
        RunningStartup& operator=(const RunningStartup&) = delete;

    private:
        UpcallListener* previous_;
        const void* previousProvider_;
    };
};

} // namespace NQORVA20

#endif
