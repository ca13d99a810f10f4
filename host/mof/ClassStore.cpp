#include "host/mof/ClassStore.h"

#include "host/mof/CimTypeCodes.h"
#include "host/text/CimNames.h"

#include <algorithm>
#include <stdexcept>

namespace diaghost {

namespace {

// "root/cimv2", "/root/cimv2/" and "ROOT/CIMV2" name the same namespace.
std::string trimSlashes(const std::string& ns) {
    std::size_t b = ns.find_first_not_of('/');
    if (b == std::string::npos) {
        return std::string();
    }
    std::size_t e = ns.find_last_not_of('/');
    return ns.substr(b, e - b + 1);
}

bool isTrue(const CimQualifiers& q, const char* name) {
    auto it = q.find(name);
    return it != q.end() && !sameName(it->second, "false");
}

bool hasFlavor(const CimQualifierDecl& decl, const char* flavor) {
    return std::find(decl.flavor.begin(), decl.flavor.end(), flavor) != decl.flavor.end();
}

// Flavors of the standard qualifiers, used when a namespace has no declaration for them (MOF
// loaded without its qualifier file). Everything else propagates and may be overridden.
bool restrictedByDefault(const std::string& q) {
    static const char* const names[] = {"abstract", "deprecated", "experimental", "override",
                                        "version"};
    return std::any_of(std::begin(names), std::end(names), [&](const char* n) { return q == n; });
}

bool fixedByDefault(const std::string& q) {
    static const char* const names[] = {"aggregate",      "aggregation",   "arraytype",
                                        "association",    "composition",   "dn",
                                        "embeddedobject", "exception",     "in",
                                        "indication",     "key",           "nullvalue",
                                        "octetstring",    "out",           "propagated",
                                        "required",       "schema",        "static",
                                        "weak",           "unknownvalues", "unsupportedvalues"};
    return std::any_of(std::begin(names), std::end(names), [&](const char* n) { return q == n; });
}

// The keys of a class in sfcb's order (see CimClass::sfcbKeyOrder): sfcb's MOF compiler starts
// the property list with the class's own declarations and puts every inherited property the class
// does not declare again in front of them, one at a time in the superclass's order, so those end
// up reversed. `ownAt` holds where each own declaration sits in cls.properties; inherited
// properties keep their superclass positions there.
std::vector<std::uint32_t> sfcbKeyOrder(const CimClass* base, const CimClass& cls,
                                        const std::vector<std::uint32_t>& ownAt) {
    std::vector<std::uint32_t> order;
    if (base != nullptr) {
        for (auto it = base->sfcbKeyOrder.rbegin(); it != base->sfcbKeyOrder.rend(); ++it) {
            if (std::find(ownAt.begin(), ownAt.end(), *it) == ownAt.end()) {
                order.push_back(*it);
            }
        }
    }
    for (std::uint32_t at : ownAt) {
        if (cls.properties[at].key) {
            order.push_back(at);
        }
    }
    return order;
}

// The initializer of a property given only as text (a class built by hand), parsed the way the
// MOF reader leaves it: the kind of the declared type, array elements split at ",".
MofValue defaultFromText(const CimProperty& p) {
    using Kind = MofValue::Kind;
    MofValue v;
    const CimTypeCode base = cimtype::elementType(p.type);
    v.kind = base == cimtype::boolean   ? Kind::Boolean
             : base == cimtype::char16  ? Kind::Char
             : cimtype::isInteger(base) ? Kind::Integer
             : cimtype::isReal(base)    ? Kind::Real
             : base == cimtype::ref     ? Kind::Reference
                                        : Kind::String;
    v.array = cimtype::isArray(p.type);
    if (!v.array) {
        v.elements.push_back(p.defaultText);
        return v;
    }
    for (std::size_t from = 0; from < p.defaultText.size();) {
        std::size_t comma = p.defaultText.find(',', from);
        if (comma == std::string::npos) {
            comma = p.defaultText.size();
        }
        v.elements.push_back(p.defaultText.substr(from, comma - from));
        from = comma + 1;
    }
    return v;
}

// A class given resolved lists its keys for sfcb in its own property order.
std::vector<std::uint32_t> keysInPropertyOrder(const CimClass& cls) {
    std::vector<std::uint32_t> order;
    for (std::size_t i = 0; i < cls.properties.size(); ++i) {
        if (cls.properties[i].key) {
            order.push_back(static_cast<std::uint32_t>(i));
        }
    }
    return order;
}

} // namespace

ClassStore::Namespace& ClassStore::namespaceFor(const std::string& ns) {
    std::string name = trimSlashes(ns);
    std::string key = lowerName(name);
    auto it = spaces_.find(key);
    if (it == spaces_.end()) {
        it = spaces_.emplace(key, Namespace{}).first;
        it->second.name = name;
        spaceOrder_.push_back(key);
    }
    return it->second;
}

const ClassStore::Namespace* ClassStore::findNamespace(const std::string& ns) const {
    auto it = spaces_.find(lowerName(trimSlashes(ns)));
    return it == spaces_.end() ? nullptr : &it->second;
}

const ClassStore::ClassEntry* ClassStore::findEntry(const Namespace& space,
                                                    const std::string& className) {
    auto it = space.classes.find(lowerName(className));
    return it == space.classes.end() ? nullptr : &it->second;
}

bool ClassStore::propagates(const Namespace& space, const std::string& qualifier) const {
    auto it = space.qualifiers.find(qualifier);
    if (it != space.qualifiers.end()) {
        return !hasFlavor(it->second, "restricted");
    }
    return !restrictedByDefault(qualifier);
}

bool ClassStore::overridable(const Namespace& space, const std::string& qualifier) const {
    auto it = space.qualifiers.find(qualifier);
    if (it != space.qualifiers.end()) {
        return !hasFlavor(it->second, "disableoverride");
    }
    return !fixedByDefault(qualifier);
}

CimQualifiers ClassStore::inherited(const Namespace& space, const CimQualifiers& parent) const {
    CimQualifiers out;
    for (const auto& [name, value] : parent) {
        if (propagates(space, name)) {
            out.emplace_hint(out.end(), name, value);
        }
    }
    return out;
}

void ClassStore::merge(const Namespace& space, CimQualifiers& target,
                       const CimQualifiers& own) const {
    for (const auto& [name, value] : own) {
        auto it = target.find(name);
        if (it == target.end()) {
            target.emplace(name, value);
        } else if (overridable(space, name)) {
            it->second = value;
        }
    }
}

CimClass ClassStore::resolve(const Namespace& space, const CimClass& declared) const {
    CimClass out;
    out.name = declared.name;
    const CimClass* base = nullptr;
    if (!declared.superclass.empty()) {
        const ClassEntry* parent = findEntry(space, declared.superclass);
        if (parent == nullptr) {
            throw std::invalid_argument("superclass " + declared.superclass + " of class " +
                                        declared.name + " is not defined");
        }
        base = &parent->resolved;
        out.superclass = base->name;
        out.qualifiers = inherited(space, base->qualifiers);
        out.properties = base->properties;
        for (CimProperty& p : out.properties) {
            p.qualifiers = inherited(space, p.qualifiers);
        }
        out.methods = base->methods;
        for (CimMethod& m : out.methods) {
            m.qualifiers = inherited(space, m.qualifiers);
        }
    }
    merge(space, out.qualifiers, declared.qualifiers);
    out.association = isTrue(out.qualifiers, "association");
    out.indication = isTrue(out.qualifiers, "indication");
    out.abstract = isTrue(declared.qualifiers, "abstract");

    auto checkOverride = [&](const CimQualifiers& q, const std::string& member) {
        auto it = q.find("override");
        if (it != q.end() && !declared.superclass.empty()) {
            throw std::invalid_argument("class " + declared.name + ": " + member + " overrides " +
                                        it->second + ", which " + out.superclass +
                                        " does not have");
        }
    };

    // Where each of the class's own declarations landed in `properties`.
    std::vector<std::uint32_t> ownAt;
    ownAt.reserve(declared.properties.size());
    for (const CimProperty& own : declared.properties) {
        auto it = std::find_if(out.properties.begin(), out.properties.end(),
                               [&](const CimProperty& p) { return sameName(p.name, own.name); });
        ownAt.push_back(static_cast<std::uint32_t>(it - out.properties.begin()));
        if (it == out.properties.end()) {
            checkOverride(own.qualifiers, own.name);
            CimProperty p = own;
            p.originClass = declared.name;
            p.declaredIn = declared.name;
            p.key = isTrue(p.qualifiers, "key");
            out.properties.push_back(std::move(p));
            continue;
        }
        it->name = own.name;
        it->declaredIn = declared.name;
        it->type = own.type;
        it->refClass = own.refClass;
        if (own.hasDefault) {
            it->hasDefault = true;
            it->defaultText = own.defaultText;
            it->defaultValue = own.defaultValue;
        }
        merge(space, it->qualifiers, own.qualifiers);
        it->key = isTrue(it->qualifiers, "key");
    }
    out.sfcbKeyOrder = sfcbKeyOrder(base, out, ownAt);

    for (const CimMethod& own : declared.methods) {
        auto it = std::find_if(out.methods.begin(), out.methods.end(),
                               [&](const CimMethod& m) { return sameName(m.name, own.name); });
        if (it == out.methods.end()) {
            checkOverride(own.qualifiers, own.name + "()");
            CimMethod m = own;
            m.originClass = declared.name;
            m.declaredIn = declared.name;
            out.methods.push_back(std::move(m));
            continue;
        }
        it->name = own.name;
        it->declaredIn = declared.name;
        it->returnType = own.returnType;
        it->parameters = own.parameters;
        merge(space, it->qualifiers, own.qualifiers);
    }
    out.indexProperties();
    return out;
}

void ClassStore::link(Namespace& space, const std::string& key) {
    ClassEntry& entry = space.classes.at(key);
    const std::string& super = entry.resolved.superclass;
    if (!super.empty()) {
        auto parent = space.classes.find(lowerName(super));
        if (parent != space.classes.end()) {
            parent->second.children.push_back(key);
        } else {
            space.hasOrphans = true;
        }
    }
    if (space.hasOrphans) {
        // Pre-resolved classes may have arrived before their superclass.
        for (const std::string& other : space.order) {
            const ClassEntry& o = space.classes.at(other);
            if (other != key && sameName(o.resolved.superclass, entry.resolved.name) &&
                std::find(entry.children.begin(), entry.children.end(), other) ==
                    entry.children.end()) {
                entry.children.push_back(other);
            }
        }
    }
}

void ClassStore::reresolveChildren(Namespace& space, const ClassEntry& parent) {
    // Collect the descendants parents first, keeping their current state, so a failure part
    // way leaves every class as it was.
    std::vector<ClassEntry*> descendants;
    std::vector<const ClassEntry*> queue{&parent};
    for (std::size_t i = 0; i < queue.size() && queue.size() <= space.classes.size(); ++i) {
        for (const std::string& childKey : queue[i]->children) {
            ClassEntry& child = space.classes.at(childKey);
            descendants.push_back(&child);
            queue.push_back(&child);
        }
    }
    std::vector<CimClass> before;
    before.reserve(descendants.size());
    for (ClassEntry* d : descendants) {
        before.push_back(d->resolved);
    }
    std::size_t done = 0;
    try {
        for (; done < descendants.size(); ++done) {
            if (!descendants[done]->preResolved) {
                descendants[done]->resolved = resolve(space, descendants[done]->declared);
            }
        }
    } catch (...) {
        for (std::size_t i = 0; i < done; ++i) {
            descendants[i]->resolved = std::move(before[i]);
        }
        throw;
    }
}

void ClassStore::checkNoCycle(const Namespace& space, const std::string& name,
                              const std::string& superclass) {
    if (sameName(superclass, name)) {
        throw std::invalid_argument("class " + name + " cannot be its own superclass");
    }
    // Stored classes form no cycle, and only a pre-resolved class can name a superclass that is
    // not stored yet, so without such orphans no new cycle can close.
    if (!space.hasOrphans) {
        return;
    }
    for (const ClassEntry* up = findEntry(space, superclass); up != nullptr;
         up = findEntry(space, up->resolved.superclass)) {
        if (sameName(up->resolved.superclass, name)) {
            throw std::invalid_argument("class " + name + " would be its own ancestor");
        }
        if (up->resolved.superclass.empty()) {
            break;
        }
    }
}

void ClassStore::defineClass(const std::string& ns, const CimClass& declared) {
    Namespace& space = namespaceFor(ns);
    std::string key = lowerName(declared.name);
    checkNoCycle(space, declared.name, declared.superclass);
    auto existing = space.classes.find(key);
    if (existing != space.classes.end()) {
        const std::string& before = existing->second.resolved.superclass;
        if (!sameName(before, declared.superclass)) {
            throw std::invalid_argument("class " + declared.name + " is already defined " +
                                        (before.empty() ? std::string("without a superclass")
                                                        : "with superclass " + before) +
                                        "; a redefinition cannot change it");
        }
    }
    CimClass resolved = resolve(space, declared);
    if (existing == space.classes.end()) {
        ClassEntry entry;
        entry.resolved = std::move(resolved);
        entry.declared = declared;
        space.classes.emplace(key, std::move(entry));
        space.order.push_back(key);
        link(space, key);
        return;
    }
    ClassEntry& entry = existing->second;
    ClassEntry previous = entry;
    entry.resolved = std::move(resolved);
    entry.declared = declared;
    entry.preResolved = false;
    try {
        reresolveChildren(space, entry);
    } catch (...) {
        entry = std::move(previous);
        throw;
    }
}

void ClassStore::addResolvedClass(const std::string& ns, CimClass cls) {
    Namespace& space = namespaceFor(ns);
    std::string key = lowerName(cls.name);
    for (CimProperty& p : cls.properties) {
        if (p.originClass.empty()) {
            p.originClass = cls.name;
        }
        if (p.declaredIn.empty()) {
            p.declaredIn = p.originClass;
        }
        if (p.hasDefault && p.defaultValue.kind == MofValue::Kind::Null && !p.defaultValue.array) {
            p.defaultValue = defaultFromText(p);
        }
    }
    for (CimMethod& m : cls.methods) {
        if (m.originClass.empty()) {
            m.originClass = cls.name;
        }
        if (m.declaredIn.empty()) {
            m.declaredIn = m.originClass;
        }
    }
    cls.sfcbKeyOrder = keysInPropertyOrder(cls);
    cls.indexProperties();
    checkNoCycle(space, cls.name, cls.superclass);
    auto existing = space.classes.find(key);
    if (existing != space.classes.end()) {
        if (!sameName(existing->second.resolved.superclass, cls.superclass)) {
            throw std::invalid_argument("class " + cls.name +
                                        " is already defined with another superclass");
        }
        existing->second.resolved = std::move(cls);
        existing->second.declared = CimClass();
        existing->second.preResolved = true;
        reresolveChildren(space, existing->second);
        return;
    }
    ClassEntry entry;
    entry.resolved = std::move(cls);
    entry.preResolved = true;
    space.classes.emplace(key, std::move(entry));
    space.order.push_back(key);
    link(space, key);
}

void ClassStore::addQualifier(const std::string& ns, CimQualifierDecl decl) {
    Namespace& space = namespaceFor(ns);
    std::string key = lowerName(decl.name);
    space.qualifiers[key] = std::move(decl);
}

void ClassStore::addInstances(const std::string& ns, std::vector<CimInstanceDecl> instances) {
    Namespace& space = namespaceFor(ns);
    for (CimInstanceDecl& inst : instances) {
        space.instances.push_back(std::move(inst));
    }
}

const CimClass* ClassStore::findClass(const std::string& ns, const std::string& className) const {
    const Namespace* space = findNamespace(ns);
    const ClassEntry* entry = space ? findEntry(*space, className) : nullptr;
    return entry ? &entry->resolved : nullptr;
}

const CimQualifierDecl* ClassStore::findQualifier(const std::string& ns,
                                                  const std::string& name) const {
    const Namespace* space = findNamespace(ns);
    if (space == nullptr) {
        return nullptr;
    }
    auto it = space->qualifiers.find(lowerName(name));
    return it == space->qualifiers.end() ? nullptr : &it->second;
}

bool ClassStore::isA(const std::string& ns, const std::string& className,
                     const std::string& ancestor) const {
    const Namespace* space = findNamespace(ns);
    if (space == nullptr) {
        return false;
    }
    const ClassEntry* entry = findEntry(*space, className);
    // Stored classes form no cycle; the bound guards the walk all the same.
    for (std::size_t steps = 0; entry != nullptr && steps <= space->classes.size(); ++steps) {
        if (sameName(entry->resolved.name, ancestor)) {
            return true;
        }
        if (entry->resolved.superclass.empty()) {
            return false;
        }
        entry = findEntry(*space, entry->resolved.superclass);
    }
    return false;
}

std::vector<std::string> ClassStore::subclassNames(const std::string& ns,
                                                   const std::string& className) const {
    std::vector<std::string> out;
    const Namespace* space = findNamespace(ns);
    const ClassEntry* root = space ? findEntry(*space, className) : nullptr;
    if (root == nullptr) {
        return out;
    }
    // Breadth first, so every class comes after its superclass.
    std::vector<const ClassEntry*> queue{root};
    for (std::size_t i = 0; i < queue.size() && queue.size() <= space->classes.size(); ++i) {
        for (const std::string& childKey : queue[i]->children) {
            const ClassEntry& child = space->classes.at(childKey);
            out.push_back(child.resolved.name);
            queue.push_back(&child);
        }
    }
    return out;
}

std::vector<std::string> ClassStore::classNames(const std::string& ns) const {
    std::vector<std::string> out;
    if (const Namespace* space = findNamespace(ns)) {
        out.reserve(space->order.size());
        for (const std::string& key : space->order) {
            out.push_back(space->classes.at(key).resolved.name);
        }
    }
    return out;
}

std::vector<std::string> ClassStore::namespaces() const {
    std::vector<std::string> out;
    for (const std::string& key : spaceOrder_) {
        out.push_back(spaces_.at(key).name);
    }
    return out;
}

std::vector<CimInstanceDecl> ClassStore::instances(const std::string& ns) const {
    const Namespace* space = findNamespace(ns);
    return space ? space->instances : std::vector<CimInstanceDecl>();
}

std::size_t ClassStore::classCount(const std::string& ns) const {
    const Namespace* space = findNamespace(ns);
    return space ? space->classes.size() : 0;
}

} // namespace diaghost
