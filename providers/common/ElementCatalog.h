// The managed elements one provider family published, by their key properties. A diagnostic
// test asks the catalog which of them a "ManagedElement" argument names before it acts, so a
// test never reaches a file, folder or interface the family did not list itself. The catalog
// is filled once at start-up and only read afterwards, so concurrent lookups are safe.
#ifndef ZORQ_PROVIDERS_COMMON_ELEMENTCATALOG_H
#define ZORQ_PROVIDERS_COMMON_ELEMENTCATALOG_H

#include "instance/InstanceImpl.h"

#include <cmpidt.h>

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace NQORVA20::providers {

class ElementCatalog {
public:
    using Keys = std::map<std::string, std::string>;

    // What a lookup found: the element's position in the catalog, or why there is none.
    struct Lookup {
        bool found = false;
        std::size_t index = 0;
        std::string reason; // a sentence for the record when nothing was found
    };

    // className: the element class (compared ignoring letter case). keyNames: every key of
    // the class. foldedKeys: the keys whose values are compared ignoring letter case (class
    // and host names); the rest must match byte for byte.
    ElementCatalog(std::string className, std::vector<std::string> keyNames,
                   std::set<std::string> foldedKeys);

    const std::string& className() const { return className_; }
    // Whether an object path can carry every key value of an element: a double quote ends a
    // value, and a backslash is an escape in some object managers' renderings. An element that
    // fails is not to be published (its associations would name another element); one warning
    // naming it and the key is logged.
    bool carriable(const CMPIBroker* broker, const std::string& element, const Keys& keys) const;
    // Adds an element by its key values (every key name must be present); returns its index.
    // Throws std::invalid_argument for a missing key.
    std::size_t add(const Keys& keys);
    std::size_t size() const { return elements_.size(); }
    const Keys& keys(std::size_t index) const { return elements_.at(index); }

    // The published element the parsed path names: the class must be the element class and the
    // key bindings exactly the class's keys, each equal to a published element's value; an
    // element a reference placed on another system or in another namespace is none of them.
    Lookup find(InstanceImpl& element) const;

private:
    bool sameValue(const std::string& key, const std::string& a, const std::string& b) const;

    std::string className_;
    std::vector<std::string> keyNames_;
    std::set<std::string> foldedKeys_;
    std::vector<Keys> elements_;
};

} // namespace NQORVA20::providers

#endif
