// Which provider library the calling thread is serving, and whether a provider's start-up on
// this thread is waiting for the object manager to answer an upcall.
//
// A provider library's generated entry functions name themselves at the start of every call
// (an opaque tag, the library's start-up object), so that the registry can tell which library
// filed a class and an association call without an association class answers only for the
// library it was made to. While a start-up enumerates through the broker, an object manager may
// call the same library again on another thread; StartupUpcall lets that call see the upcall in
// flight and be served from what is published instead of waiting for the start-up.
#ifndef DIAGCORE_COMMON_PROVIDERSCOPE_H
#define DIAGCORE_COMMON_PROVIDERSCOPE_H

#include "common/Export.h"

#include <atomic>

namespace NQORVA20 {

class DIAGCORE_EXPORT ProviderScope {
public:
    // The library the calling thread now serves; null when no generated entry was called.
    static void enter(const void* provider) noexcept;
    static const void* current() noexcept;

    // While one is alive on a thread that runs a start-up, the start-up's counter of upcalls in
    // flight is raised by one. Elsewhere it does nothing.
    class DIAGCORE_EXPORT StartupUpcall {
    public:
        StartupUpcall() noexcept;
        ~StartupUpcall();
        StartupUpcall(const StartupUpcall&) = delete;
        StartupUpcall& operator=(const StartupUpcall&) = delete;

    private:
        std::atomic<int>* counter_;
    };

    // Set by a start-up for the time it runs on the calling thread; the previous one is put
    // back when it ends.
    class DIAGCORE_EXPORT RunningStartup {
    public:
        explicit RunningStartup(std::atomic<int>& upcalls) noexcept;
        ~RunningStartup();
        RunningStartup(const RunningStartup&) = delete;
        RunningStartup& operator=(const RunningStartup&) = delete;

    private:
        std::atomic<int>* previous_;
    };
};

} // namespace NQORVA20

#endif
