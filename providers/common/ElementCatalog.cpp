#include "providers/common/ElementCatalog.h"

#include "diag/DiagUser.h"
#include "instance/SystemIdentity.h"
#include "providers/common/ProviderLog.h"

#include <algorithm>
#include <cctype>
#include <stdexcept>

namespace NQORVA20::providers {

namespace {

bool equalIgnoringCase(const std::string& a, const std::string& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) ==
                      std::tolower(static_cast<unsigned char>(y));
           });
}

// Key values go into record texts; control characters are shown, not reproduced.
std::string printable(const std::string& text) {
    std::string out;
    for (char c : text.substr(0, 200))
        out.push_back(std::isprint(static_cast<unsigned char>(c)) ? c : '?');
    if (text.size() > 200)
        out += "...";
    return out;
}

} // namespace

ElementCatalog::ElementCatalog(std::string className, std::vector<std::string> keyNames,
                               std::set<std::string> foldedKeys)
    : className_(std::move(className)), keyNames_(std::move(keyNames)),
      foldedKeys_(std::move(foldedKeys)) {}

std::size_t ElementCatalog::add(const Keys& keys) {
    Keys own;
    for (const std::string& name : keyNames_) {
        auto it = keys.find(name);
        if (it == keys.end())
            throw std::invalid_argument("element of " + className_ + " lacks key " + name);
        own[name] = it->second;
    }
    elements_.push_back(std::move(own));
    return elements_.size() - 1;
}

bool ElementCatalog::carriable(const CMPIBroker* broker, const std::string& element,
                               const Keys& keys) const {
    for (const auto& [name, value] : keys) {
        if (value.find_first_of("\"\\") == std::string::npos)
            continue;
        ProviderLog::write(broker, ProviderLog::Warning,
                           className_ + " " + element + " is not published: its key " + name +
                               " holds a double quote or a backslash, which an object path "
                               "cannot carry");
        return false;
    }
    return true;
}

bool ElementCatalog::sameValue(const std::string& key, const std::string& a,
                               const std::string& b) const {
    return foldedKeys_.count(key) ? equalIgnoringCase(a, b) : a == b;
}

ElementCatalog::Lookup ElementCatalog::find(InstanceImpl& element) const {
    Lookup result;
    // The object-path text leaves out host and namespace: an element of the same keys on another
    // system, or in another namespace, is not one of ours.
    if (const auto* user = dynamic_cast<const DiagUser*>(&element); user && !user->isLocal()) {
        result.reason = SystemIdentity::IsThisSystem(user->host())
                            ? "the ManagedElement is in namespace " + printable(user->nameSpace()) +
                                  ", not root/cimv2: this provider publishes nothing there"
                            : "the ManagedElement lives on " + printable(user->host()) +
                                  ", not on this system: this service tests only its own";
        return result;
    }
    const std::string elementClass = element.getClassName();
    if (elementClass.empty()) {
        result.reason = "the ManagedElement names no class";
        return result;
    }
    if (!equalIgnoringCase(elementClass, className_)) {
        result.reason = "the ManagedElement is of class " + printable(elementClass) + ", not " +
                        className_ + ": this service tests nothing else";
        return result;
    }
    // The parsed element holds exactly the bindings of the path: every key, nothing more.
    for (auto it = element.begin(); it != element.end(); ++it) {
        if (std::find(keyNames_.begin(), keyNames_.end(), it->first) == keyNames_.end()) {
            result.reason = "the ManagedElement has " + printable(it->first) +
                            ", which is not a key of " + className_;
            return result;
        }
    }
    for (const std::string& name : keyNames_) {
        if (element.find(name) == element.end()) {
            result.reason = "the ManagedElement lacks the key " + name;
            return result;
        }
    }
    for (std::size_t i = 0; i < elements_.size(); ++i) {
        bool same = true;
        for (const std::string& name : keyNames_) {
            if (!sameValue(name, element.find(name)->second, elements_[i].at(name))) {
                same = false;
                break;
            }
        }
        if (same) {
            result.found = true;
            result.index = i;
            return result;
        }
    }
    std::string names;
    for (const std::string& name : keyNames_)
        names += (names.empty() ? "" : ", ") + name + "=\"" +
                 printable(element.find(name)->second) + "\"";
    result.reason = "no " + className_ + " published by this provider has " + names;
    return result;
}

} // namespace NQORVA20::providers
