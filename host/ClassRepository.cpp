#include "host/ClassRepository.h"

#include "host/ClassStore.h"
#include "host/MofCompilation.h"

#include <mutex>

namespace NQORVA20::host {

MofError::MofError(const std::string& file, int line, const std::string& message)
    : std::runtime_error(file + ":" + std::to_string(line) + ": " + message), file_(file),
      line_(line) {}

struct ClassRepository::Impl {
    ClassStore store;
};

ClassRepository::ClassRepository() : impl_(std::make_unique<Impl>()) {}

ClassRepository::~ClassRepository() = default;

void ClassRepository::loadFile(const std::string& path, const std::string& ns) {
    std::unique_lock lock(mutex_);
    MofCompilation unit(impl_->store);
    unit.compileFile(path, ns);
    unit.finish();
}

void ClassRepository::loadText(const std::string& text, const std::string& ns,
                               const std::string& sourceName) {
    std::unique_lock lock(mutex_);
    MofCompilation unit(impl_->store);
    unit.compileText(text, ns, sourceName);
    unit.finish();
}

void ClassRepository::addClass(const std::string& ns, CimClass cls) {
    std::unique_lock lock(mutex_);
    impl_->store.addResolvedClass(ns, std::move(cls));
}

const CimClass* ClassRepository::findClass(const std::string& ns,
                                           const std::string& className) const {
    std::shared_lock lock(mutex_);
    return impl_->store.findClass(ns, className);
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

} // namespace NQORVA20::host
