#include "host/mof/ClassRepository.h"

#include "host/mof/ClassStore.h"
#include "host/mof/MofCompilation.h"

#include <mutex>

namespace diaghost {

MofError::MofError(const std::string& file, int line, const std::string& message)
    : std::runtime_error(file + ":" + std::to_string(line) + ": " + message), file_(file),
      line_(line) {}

struct ClassRepository::Impl {
    ClassStore store;
};

namespace {

std::atomic<std::uint64_t> lastGeneration{0};

std::uint64_t newGeneration() {
    return lastGeneration.fetch_add(1, std::memory_order_relaxed) + 1;
}

// Classes a thread found lately, by the names it asked for, exactly as spelled.
struct FoundClass {
    std::uint64_t generation = 0;
    std::string ns;
    std::string className;
    const CimClass* cls = nullptr;
};
constexpr std::size_t foundClassSlots = 4;

} // namespace

ClassRepository::ClassRepository()
    : impl_(std::make_unique<Impl>()), generation_(newGeneration()) {}

void ClassRepository::changed() {
    generation_.store(newGeneration(), std::memory_order_release);
}

ClassRepository::Change::Change(ClassRepository& repo) : repo_(repo), lock_(repo.mutex_) {
    repo_.changed();
}

ClassRepository::Change::~Change() {
    repo_.changed();
}

ClassRepository::~ClassRepository() = default;

void ClassRepository::loadFile(const std::string& path, const std::string& ns) {
    Change change(*this);
    MofCompilation unit(impl_->store);
    unit.compileFile(path, ns);
    unit.finish();
}

void ClassRepository::loadText(const std::string& text, const std::string& ns,
                               const std::string& sourceName) {
    Change change(*this);
    MofCompilation unit(impl_->store);
    unit.compileText(text, ns, sourceName);
    unit.finish();
}

void ClassRepository::addClass(const std::string& ns, CimClass cls) {
    Change change(*this);
    impl_->store.addResolvedClass(ns, std::move(cls));
}

const CimClass* ClassRepository::findClass(const std::string& ns,
                                           const std::string& className) const {
    thread_local FoundClass found[foundClassSlots];
    thread_local std::size_t nextSlot = 0;
    const std::uint64_t generation = generation_.load(std::memory_order_acquire);
    for (const FoundClass& f : found)
        if (f.generation == generation && f.className == className && f.ns == ns)
            return f.cls;
    const CimClass* cls = nullptr;
    {
        std::shared_lock lock(mutex_);
        cls = impl_->store.findClass(ns, className);
    }
    if (cls != nullptr) {
        FoundClass& slot = found[nextSlot];
        nextSlot = (nextSlot + 1) % foundClassSlots;
        slot.generation = 0; // unusable until it is whole
        slot.ns = ns;
        slot.className = className;
        slot.cls = cls;
        slot.generation = generation;
    }
    return cls;
}

const CimQualifierDecl* ClassRepository::findQualifier(const std::string& ns,
                                                       const std::string& name) const {
    std::shared_lock lock(mutex_);
    return impl_->store.findQualifier(ns, name);
}

bool ClassRepository::isA(const std::string& ns, const std::string& className,
                          const std::string& ancestor) const {
    std::shared_lock lock(mutex_);
    return impl_->store.isA(ns, className, ancestor);
}

std::vector<std::string> ClassRepository::subclassNames(const std::string& ns,
                                                        const std::string& className) const {
    std::shared_lock lock(mutex_);
    return impl_->store.subclassNames(ns, className);
}

std::vector<std::string> ClassRepository::classNames(const std::string& ns) const {
    std::shared_lock lock(mutex_);
    return impl_->store.classNames(ns);
}

std::vector<std::string> ClassRepository::namespaces() const {
    std::shared_lock lock(mutex_);
    return impl_->store.namespaces();
}

std::vector<CimInstanceDecl> ClassRepository::instances(const std::string& ns) const {
    std::shared_lock lock(mutex_);
    return impl_->store.instances(ns);
}

std::size_t ClassRepository::classCount(const std::string& ns) const {
    std::shared_lock lock(mutex_);
    return impl_->store.classCount(ns);
}

} // namespace diaghost
