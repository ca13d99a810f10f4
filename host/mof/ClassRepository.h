// The host's class repository: every class, qualifier declaration and static instance loaded from
// MOF, per namespace. Loading happens before serving; lookups are safe from any thread.
#ifndef DIAGHOST_MOF_CLASSREPOSITORY_H
#define DIAGHOST_MOF_CLASSREPOSITORY_H

#include "host/mof/CimClass.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace diaghost {

// A MOF text the reader cannot accept; what() reads "file:line: message".
class MofError : public std::runtime_error {
public:
    MofError(const std::string& file, int line, const std::string& message);
    const std::string& file() const { return file_; }
    int line() const { return line_; }

private:
    std::string file_;
    int line_;
};

class ClassRepository {
public:
    ClassRepository();
    ~ClassRepository();
    ClassRepository(const ClassRepository&) = delete;
    ClassRepository& operator=(const ClassRepository&) = delete;

    // Reads a MOF file into namespace ns; "#pragma include" names files relative to the including
    // file's folder. A class must follow its superclass. Throws MofError; classes read before
    // the error stay loaded.
    void loadFile(const std::string& path, const std::string& ns = "root/cimv2");
    void loadText(const std::string& text, const std::string& ns = "root/cimv2",
                  const std::string& sourceName = "<text>");

    // Adds a class whose inherited members are already resolved (used by tests and tools).
    void addClass(const std::string& ns, CimClass cls);

    // Namespace and class names compare without regard to case. Null when absent. The last few
    // classes a thread found are remembered until the repository next changes.
    const CimClass* findClass(const std::string& ns, const std::string& className) const;
    const CimQualifierDecl* findQualifier(const std::string& ns, const std::string& name) const;
    // True when className is ancestor or one of its subclasses.
    bool isA(const std::string& ns, const std::string& className,
             const std::string& ancestor) const;
    // The names of every class derived from className, directly or not, parents before children.
    std::vector<std::string> subclassNames(const std::string& ns,
                                           const std::string& className) const;
    std::vector<std::string> classNames(const std::string& ns) const;
    std::vector<std::string> namespaces() const;
    std::vector<CimInstanceDecl> instances(const std::string& ns) const;
    std::size_t classCount(const std::string& ns) const;

private:
    struct Impl;
    // Marks a change: answers remembered before it are not used again.
    void changed();
    // Holds the repository's lock for a change, marked as begun and as ended however it ends.
    class Change {
    public:
        explicit Change(ClassRepository& repo);
        ~Change();

    private:
        ClassRepository& repo_;
        std::unique_lock<std::shared_mutex> lock_;
    };

    std::unique_ptr<Impl> impl_;
    mutable std::shared_mutex mutex_;
    // Unique across every repository of the process, renewed by each change.
    std::atomic<std::uint64_t> generation_;
};

} // namespace diaghost

#endif
