#include "instance/SystemIdentity.h"

#include <mutex>

namespace NQORVA20 {

namespace {

// Never destroyed: a provider thread may build paths while the process runs its exit handlers.
struct Recorded {
    std::mutex mutex;
    std::string name;
};

Recorded& recorded() {
    static Recorded* kept = new Recorded;
    return *kept;
}

} // namespace

void SystemIdentity::Record(const std::string& name) {
    if (name.empty())
        return;
    Recorded& r = recorded();
    std::lock_guard<std::mutex> lock(r.mutex);
    r.name = name;
}

void SystemIdentity::Clear() {
    Recorded& r = recorded();
    std::lock_guard<std::mutex> lock(r.mutex);
    r.name.clear();
}

std::string SystemIdentity::Name() {
    Recorded& r = recorded();
    std::lock_guard<std::mutex> lock(r.mutex);
    return r.name;
}

std::string SystemIdentity::HostName() {
    std::string name = Name();
    return name.empty() ? std::string("localhost") : name;
}

} // namespace NQORVA20
