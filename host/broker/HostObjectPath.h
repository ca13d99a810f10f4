// The host's CMPIObjectPath: host, namespace, class name and key bindings in the order they
// were added. Key and class names taken from the class repository are pointed at, not copied
// (the repository keeps its classes for its whole life); names given by a provider are copied.
// Copies of a path share its key bindings and its copied class name: a path changes its keys
// only when no other path holds them, and works on a copy of its own otherwise.
#ifndef DIAGHOST_BROKER_HOSTOBJECTPATH_H
#define DIAGHOST_BROKER_HOSTOBJECTPATH_H

#include "host/broker/HostObject.h"

#include <cmpift.h>

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace diaghost {

class HostObjectPath final : public HostObject {
public:
    struct Key {
        const char* name = nullptr;
        std::unique_ptr<char[]> ownedName; // set when the name was copied
        CMPIData value{};                  // a copy owned by the path
    };
    // Key bindings that may be shared by several paths; frees the values it holds.
    struct KeySet {
        std::vector<Key> keys;
        // Past a few keys, their positions by case-folded name, so that adding and finding keys
        // stays linear in the number of keys (a client may send thousands).
        std::unordered_map<std::string, std::size_t> index;
        // The position of the key of that name, ignoring case; npos when absent.
        std::size_t find(std::string_view name) const;
        // To be called after every key appended to `keys`.
        void indexLast();
        KeySet() = default;
        KeySet(const KeySet&) = delete;
        KeySet& operator=(const KeySet&) = delete;
        ~KeySet();
        // Appends a key whose name outlives the set and whose value was copied for it.
        void appendBorrowed(const char* name, const CMPIData& ownedValue);
        // A set of its own with copies of the keys, for a path of broker.
        std::shared_ptr<KeySet> copy(Broker& broker) const;
        // Whether a copy made now must not share this set: the copy is to outlive the call scope
        // (it is made outside scope memory) and some of these values live in scope memory.
        bool unfitForCopy() const;
        // The set a copy made now may share: this one, or when it is unfit, a set of its own.
        static std::shared_ptr<KeySet> forCopy(Broker& broker, const std::shared_ptr<KeySet>& set);
    };

    // Null texts are empty. Owned by nobody.
    static HostObjectPath* create(Broker& broker, const char* ns, const char* className);
    static HostObjectPath* from(const CMPIObjectPath* op);
    static CMPIObjectPathFT* table();

    CMPIObjectPath* cmpi() { return &cmpi_; }
    const std::string& nameSpace() const { return ns_; }
    const std::string& host() const { return host_; }
    const char* className() const { return className_; }
    const std::vector<Key>& keys() const;
    // The key of that name, ignoring case; null when absent.
    const Key* findKey(std::string_view name) const;

    void setNameSpace(const char* ns) { ns_ = ns ? ns : ""; }
    void setHost(const char* host) { host_ = host ? host : ""; }
    void setClassName(const char* name);
    // Points at a name that outlives the path instead of copying it.
    void setClassNameBorrowed(const char* name);

    // Adds a copy of the value under name, replacing a key of the same name (ignoring case) in
    // place. Answers the copy's error (CMPI_RC_ERR_INVALID_HANDLE, ...).
    CMPIrc addKey(const char* name, const CMPIValue* value, CMPIType type);
    // Appends a key whose name outlives the path and whose value was copied for the path.
    void appendBorrowedKey(const char* name, const CMPIData& ownedValue);
    void reserveKeys(std::size_t count) { ownKeys().reserve(count); }
    // Takes these key bindings in place of its own; they are never changed while shared.
    void shareKeys(std::shared_ptr<KeySet> keys) { keys_ = std::move(keys); }

    // The path as text in the broker's dialect.
    std::string toString() const;

    HostObject* copy() const override;
    void* cmpiObject() override { return &cmpi_; }
    ~HostObjectPath() override;

private:
    HostObjectPath(Broker& broker);

    // The keys for a change: its own set, copied first when another path shares it.
    std::vector<Key>& ownKeys();

    CMPIObjectPath cmpi_;
    std::string ns_;
    std::string host_;
    const char* className_ = "";
    std::shared_ptr<const char> ownedClassName_;
    std::shared_ptr<KeySet> keys_; // null while the path has no keys
};

} // namespace diaghost

#endif
