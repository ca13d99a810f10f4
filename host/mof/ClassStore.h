// The class repository's contents, without locking: per namespace the classes with their
// inheritance resolved, the qualifier declarations and the static instances. ClassRepository
// guards one with its lock; the MOF reader writes into it while a load holds that lock.
// Pointers handed out stay valid until the class they point into is redefined.
#ifndef DIAGHOST_MOF_CLASSSTORE_H
#define DIAGHOST_MOF_CLASSSTORE_H

#include "host/mof/CimClass.h"

#include <string>
#include <unordered_map>
#include <vector>

namespace diaghost {

class ClassStore {
public:
    // Stores a class as MOF declares it (only the members it declares itself) and merges in what
    // it inherits. Redefining a class with the same superclass replaces it and re-resolves its
    // subclasses. Throws std::invalid_argument, leaving the store unchanged, when the superclass
    // is unknown or differs from the earlier definition's, or an Override names no inherited
    // member.
    void defineClass(const std::string& ns, const CimClass& declared);
    // Stores a class whose inherited members are already in place, as it is.
    void addResolvedClass(const std::string& ns, CimClass cls);
    void addQualifier(const std::string& ns, CimQualifierDecl decl);
    void addInstances(const std::string& ns, std::vector<CimInstanceDecl> instances);

    const CimClass* findClass(const std::string& ns, const std::string& className) const;
    const CimQualifierDecl* findQualifier(const std::string& ns, const std::string& name) const;
    bool isA(const std::string& ns, const std::string& className,
             const std::string& ancestor) const;
    std::vector<std::string> subclassNames(const std::string& ns,
                                           const std::string& className) const;
    std::vector<std::string> classNames(const std::string& ns) const;
    std::vector<std::string> namespaces() const;
    std::vector<CimInstanceDecl> instances(const std::string& ns) const;
    std::size_t classCount(const std::string& ns) const;

private:
    struct ClassEntry {
        CimClass resolved;
        CimClass declared;                 // own members only; empty for a pre-resolved class
        bool preResolved = false;          // added with addResolvedClass: never re-resolved
        std::vector<std::string> children; // lower-cased names, in definition order
    };
    struct Namespace {
        std::string name;
        std::unordered_map<std::string, ClassEntry> classes; // by lower-cased name
        std::vector<std::string> order;                      // lower-cased, definition order
        std::unordered_map<std::string, CimQualifierDecl> qualifiers;
        std::vector<CimInstanceDecl> instances;
        bool hasOrphans = false; // a pre-resolved class names a superclass not yet defined
    };

    Namespace& namespaceFor(const std::string& ns);
    const Namespace* findNamespace(const std::string& ns) const;
    static const ClassEntry* findEntry(const Namespace& space, const std::string& className);
    static void checkNoCycle(const Namespace& space, const std::string& name,
                             const std::string& superclass);
    void link(Namespace& space, const std::string& key);
    void reresolveChildren(Namespace& space, const ClassEntry& parent);

    CimClass resolve(const Namespace& space, const CimClass& declared) const;
    bool propagates(const Namespace& space, const std::string& qualifier) const;
    bool overridable(const Namespace& space, const std::string& qualifier) const;
    CimQualifiers inherited(const Namespace& space, const CimQualifiers& parent) const;
    void merge(const Namespace& space, CimQualifiers& target, const CimQualifiers& own) const;

    std::unordered_map<std::string, Namespace> spaces_; // by normalised lower-cased name
    std::vector<std::string> spaceOrder_;
};

} // namespace diaghost

#endif
