#include "host/mof/MofCompilation.h"

#include "host/text/LiteralText.h"

#include "host/mof/CimTypeCodes.h"
#include "host/mof/ClassRepository.h"
#include "host/mof/MofParser.h"
#include "host/text/CimNames.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace diaghost {

namespace fs = std::filesystem;

namespace {

// The key under which an include cycle is recognised: the resolved path when the file system can
// tell, the normalised spelling otherwise.
std::string identityOf(const fs::path& p) {
    std::error_code ec;
    fs::path c = fs::weakly_canonical(p, ec);
    return ec ? p.lexically_normal().string() : c.string();
}

// Reads a whole file; false when it cannot be opened or is not a regular file (a directory, or
// a device or pipe that might never end).
bool readFile(const fs::path& p, std::string& text) {
    std::error_code ec;
    if (!fs::is_regular_file(p, ec)) {
        return false;
    }
    std::ifstream in(p, std::ios::binary);
    if (!in) {
        return false;
    }
    std::ostringstream buffer;
    buffer << in.rdbuf();
    text = std::move(buffer).str();
    return !in.bad();
}

// Object path key text escapes the quote and backslash, and control characters so the path stays
// on one line.
std::string escaped(const std::string& text, char quote) {
    std::string out(1, quote);
    LiteralText::appendEscaped(out, text, quote, LiteralText::Controls::Named);
    return out + quote;
}

std::string quoted(const std::string& text) {
    return escaped(text, '"');
}

// A key value as it appears in an object path: strings, date-times and references in double
// quotes, chars in single quotes, booleans TRUE/FALSE, numbers bare.
std::string keyText(const MofValue& v) {
    const std::string& e = v.elements.front();
    switch (v.kind) {
    case MofValue::Kind::Integer:
    case MofValue::Kind::Real:
        return e;
    case MofValue::Kind::Boolean:
        return e == "true" ? "TRUE" : "FALSE";
    case MofValue::Kind::Char:
        return escaped(e, '\'');
    default:
        return quoted(e);
    }
}

std::string defaultKeyText(const CimProperty& p) {
    CimTypeCode t = cimtype::elementType(p.type);
    if (t == cimtype::boolean) {
        return sameName(p.defaultText, "true") ? "TRUE" : "FALSE";
    }
    if (cimtype::isInteger(t) || cimtype::isReal(t)) {
        return p.defaultText;
    }
    return t == cimtype::char16 ? escaped(p.defaultText, '\'') : quoted(p.defaultText);
}

} // namespace

MofCompilation::MofCompilation(ClassStore& store) : store_(store) {}

void MofCompilation::compileFile(const std::string& path, const std::string& ns) {
    std::string text;
    if (!readFile(path, text)) {
        throw MofError(path, 0, "cannot read the file");
    }
    includeStack_.push_back(identityOf(path));
    compileSource(text, path, ns);
}

void MofCompilation::compileText(const std::string& text, const std::string& ns,
                                 const std::string& sourceName) {
    includeStack_.push_back(identityOf(sourceName));
    compileSource(text, sourceName, ns);
}

void MofCompilation::compileSource(const std::string& text, const std::string& file,
                                   const std::string& ns) {
    try {
        MofParser parser(*this, text, file, ns);
        parser.parse();
    } catch (...) {
        includeStack_.pop_back();
        throw;
    }
    includeStack_.pop_back();
}

void MofCompilation::include(const std::string& name, const std::string& ns,
                             const std::string& fromFile, int line) {
    if (includeStack_.size() >= maxIncludeDepth) {
        throw MofError(fromFile, line,
                       "includes nested more than " + std::to_string(maxIncludeDepth) + " deep");
    }
    fs::path target(name);
    if (target.is_relative()) {
        target = fs::path(fromFile).parent_path() / target;
    }
    target = target.lexically_normal();
    std::string id = identityOf(target);
    if (std::find(includeStack_.begin(), includeStack_.end(), id) != includeStack_.end()) {
        throw MofError(fromFile, line,
                       "include cycle: " + target.string() + " is already being read");
    }
    std::string text;
    if (!readFile(target, text)) {
        throw MofError(fromFile, line, "cannot read included file " + target.string());
    }
    includeStack_.push_back(id);
    compileSource(text, target.string(), ns);
}

void MofCompilation::defineQualifier(const std::string& ns, CimQualifierDecl decl) {
    store_.addQualifier(ns, std::move(decl));
}

void MofCompilation::defineClass(const std::string& ns, const CimClass& declared,
                                 const std::string& file, int line) {
    try {
        store_.defineClass(ns, declared);
    } catch (const std::invalid_argument& e) {
        throw MofError(file, line, e.what());
    }
}

const CimClass* MofCompilation::findClass(const std::string& ns,
                                          const std::string& className) const {
    return store_.findClass(ns, className);
}

void MofCompilation::addInstance(const std::string& ns, CimInstanceDecl decl,
                                 std::vector<MofAliasUse> uses, const std::string& file, int line) {
    if (!decl.alias.empty()) {
        auto [it, inserted] = aliases_.emplace(lowerName(decl.alias), pending_.size());
        if (!inserted) {
            const PendingInstance& first = pending_[it->second];
            throw MofError(file, line,
                           "alias $" + decl.alias + " is already given to the instance at " +
                               first.file + ":" + std::to_string(first.line));
        }
    }
    PendingInstance p;
    p.ns = ns;
    p.decl = std::move(decl);
    p.uses = std::move(uses);
    p.file = file;
    p.line = line;
    pending_.push_back(std::move(p));
}

std::size_t MofCompilation::aliasTarget(const PendingInstance& from, const MofAliasUse& use) const {
    auto it = aliases_.find(lowerName(use.alias));
    if (it == aliases_.end()) {
        throw MofError(from.file, use.line, "undefined alias $" + use.alias);
    }
    return it->second;
}

const std::string& MofCompilation::pathOf(std::size_t index, int depth) {
    PendingInstance& inst = pending_[index];
    if (inst.state == PendingInstance::State::Done) {
        return inst.path;
    }
    std::string who = "instance of " + inst.decl.className +
                      (inst.decl.alias.empty() ? std::string() : " ($" + inst.decl.alias + ")");
    if (inst.state == PendingInstance::State::Resolving) {
        throw MofError(inst.file, inst.line, who + ": its keys refer back to it through aliases");
    }
    if (depth > 64) {
        throw MofError(inst.file, inst.line, who + ": aliases in keys nest too deeply");
    }
    const CimClass* cls = store_.findClass(inst.ns, inst.decl.className);
    if (cls == nullptr) {
        throw MofError(inst.file, inst.line, who + ": the class is no longer defined");
    }
    inst.state = PendingInstance::State::Resolving;

    auto valueOf = [&inst](const std::string& name) -> MofValue* {
        for (auto& [n, v] : inst.decl.values) {
            if (sameName(n, name)) {
                return &v;
            }
        }
        return nullptr;
    };
    // A key that refers to another instance needs that instance's path first.
    for (const MofAliasUse& use : inst.uses) {
        const CimProperty* prop = cls->findProperty(inst.decl.values[use.value].first);
        if (prop != nullptr && prop->key) {
            const std::string& target = pathOf(aliasTarget(inst, use), depth + 1);
            inst.decl.values[use.value].second.elements[use.element] = target;
        }
    }

    std::string path = cls->name;
    bool first = true;
    for (const CimProperty& prop : cls->properties) {
        if (!prop.key) {
            continue;
        }
        const MofValue* v = valueOf(prop.name);
        std::string text;
        if (v != nullptr && !v->elements.empty() && !v->array) {
            text = keyText(*v);
        } else if (v == nullptr && prop.hasDefault) {
            text = defaultKeyText(prop);
        } else {
            throw MofError(inst.file, inst.line,
                           who + " has no single value for key property " + prop.name +
                               ", so no alias can refer to it");
        }
        path += first ? '.' : ',';
        path += prop.name + "=" + text;
        first = false;
    }
    if (first) {
        path += "=@"; // a class without keys has one instance
    }
    inst.path = std::move(path);
    inst.state = PendingInstance::State::Done;
    return inst.path;
}

void MofCompilation::finish() {
    for (std::size_t i = 0; i < pending_.size(); ++i) {
        for (const MofAliasUse& use : pending_[i].uses) {
            std::size_t target = aliasTarget(pending_[i], use);
            const std::string& path = pathOf(target, 0);
            pending_[i].decl.values[use.value].second.elements[use.element] = path;
        }
    }
    for (PendingInstance& p : pending_) {
        store_.addInstances(p.ns, {std::move(p.decl)});
    }
    pending_.clear();
    aliases_.clear();
}

} // namespace diaghost
