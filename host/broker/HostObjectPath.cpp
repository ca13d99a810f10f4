#include "host/broker/HostObjectPath.h"

#include "host/broker/Broker.h"
#include "host/broker/CmpiCall.h"
#include "host/broker/DataCopy.h"
#include "host/broker/HostString.h"
#include "host/broker/PathRenderer.h"
#include "host/text/CimNames.h"

#include <cctype>
#include <cstring>

namespace diaghost {

namespace {

using Placement = HostObject::Placement;

std::unique_ptr<char[]> copyName(const char* name) {
    std::size_t n = std::strlen(name);
    std::unique_ptr<char[]> out(new char[n + 1]);
    std::memcpy(out.get(), name, n + 1);
    return out;
}

HostObjectPath* checked(const CMPIObjectPath* op, CMPIStatus* rc) {
    HostObjectPath* self = HostObjectPath::from(op);
    CmpiCall::set(rc, self ? CMPI_RC_OK : CMPI_RC_ERR_INVALID_HANDLE);
    return self;
}

CMPIData keyData(const CMPIData& value) {
    CMPIData d = value;
    if (!(d.state & CMPI_nullValue))
        d.state = CMPI_keyValue;
    return d;
}

CMPIString* scopedString(HostObjectPath& self, const std::string& text) {
    return HostString::make(self.broker(), text.c_str(), text.size(), Placement::Scope);
}

CMPIObjectPath* pathClone(const CMPIObjectPath* op, CMPIStatus* rc) {
    return CmpiCall::guard(rc, static_cast<CMPIObjectPath*>(nullptr), [&]() -> CMPIObjectPath* {
        HostObjectPath* self = checked(op, rc);
        return self ? CmpiCall::durableCopy(*self)->cmpi() : nullptr;
    });
}

// A text field's setter and getter in the function table.
template <void (HostObjectPath::*set)(const char*)>
CMPIStatus pathSetText(CMPIObjectPath* op, const char* text) {
    return CmpiCall::guardStatus([&] {
        HostObjectPath* self = HostObjectPath::from(op);
        if (!self)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_HANDLE);
        (self->*set)(text);
        return CmpiCall::status(CMPI_RC_OK);
    });
}

template <const std::string& (HostObjectPath::*get)() const>
CMPIString* pathGetText(const CMPIObjectPath* op, CMPIStatus* rc) {
    return CmpiCall::guard(rc, static_cast<CMPIString*>(nullptr), [&]() -> CMPIString* {
        HostObjectPath* self = checked(op, rc);
        return self ? scopedString(*self, (self->*get)()) : nullptr;
    });
}

CMPIString* pathGetClassName(const CMPIObjectPath* op, CMPIStatus* rc) {
    return CmpiCall::guard(rc, static_cast<CMPIString*>(nullptr), [&]() -> CMPIString* {
        HostObjectPath* self = checked(op, rc);
        return self ? HostString::make(self->broker(), self->className(), Placement::Scope)
                    : nullptr;
    });
}

CMPIStatus pathAddKey(CMPIObjectPath* op, const char* name, const CMPIValue* value, CMPIType type) {
    return CmpiCall::guardStatus([&] {
        HostObjectPath* self = HostObjectPath::from(op);
        if (!self)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_HANDLE);
        if (!name)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_PARAMETER);
        return CmpiCall::status(self->addKey(name, value, type));
    });
}

CMPIData pathGetKey(const CMPIObjectPath* op, const char* name, CMPIStatus* rc) {
    HostObjectPath* self = checked(op, rc);
    if (!self)
        return CmpiCall::notFound();
    if (!name) {
        CmpiCall::set(rc, CMPI_RC_ERR_INVALID_PARAMETER);
        return CmpiCall::notFound();
    }
    const HostObjectPath::Key* key = self->findKey(name);
    if (!key) {
        CmpiCall::set(rc, CMPI_RC_ERR_NOT_FOUND);
        return CmpiCall::notFound();
    }
    return keyData(key->value);
}

CMPIData pathGetKeyAt(const CMPIObjectPath* op, CMPICount index, CMPIString** name,
                      CMPIStatus* rc) {
    return CmpiCall::guard(rc, CmpiCall::notFound(), [&]() -> CMPIData {
        if (name)
            *name = nullptr;
        HostObjectPath* self = checked(op, rc);
        if (!self)
            return CmpiCall::notFound();
        if (index >= self->keys().size()) {
            CmpiCall::set(rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
            return CmpiCall::notFound();
        }
        const HostObjectPath::Key& key = self->keys()[index];
        if (name)
            *name = HostString::make(self->broker(), key.name, Placement::Scope);
        return keyData(key.value);
    });
}

CMPICount pathGetKeyCount(const CMPIObjectPath* op, CMPIStatus* rc) {
    HostObjectPath* self = checked(op, rc);
    return self ? static_cast<CMPICount>(self->keys().size()) : 0;
}

// Copies the namespace, and the host too when withHost, of another path.
template <bool withHost>
CMPIStatus pathSetFromObjectPath(CMPIObjectPath* op, const CMPIObjectPath* src) {
    return CmpiCall::guardStatus([&] {
        HostObjectPath* self = HostObjectPath::from(op);
        if (!self)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_HANDLE);
        if (!src)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_PARAMETER);
        HostObjectPath* from = HostObjectPath::from(src);
        if (!from)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_HANDLE);
        self->setNameSpace(from->nameSpace().c_str());
        if (withHost)
            self->setHost(from->host().c_str());
        return CmpiCall::status(CMPI_RC_OK);
    });
}

CMPIData notSupportedQualifier(const CMPIObjectPath* op, CMPIStatus* rc) {
    if (checked(op, rc))
        CmpiCall::set(rc, CMPI_RC_ERR_NOT_SUPPORTED);
    return CmpiCall::notFound();
}

CMPIData pathGetClassQualifier(const CMPIObjectPath* op, const char*, CMPIStatus* rc) {
    return notSupportedQualifier(op, rc);
}

CMPIData pathGetPropertyQualifier(const CMPIObjectPath* op, const char*, const char*,
                                  CMPIStatus* rc) {
    return notSupportedQualifier(op, rc);
}

CMPIData pathGetMethodQualifier(const CMPIObjectPath* op, const char*, const char*,
                                CMPIStatus* rc) {
    return notSupportedQualifier(op, rc);
}

CMPIData pathGetParameterQualifier(const CMPIObjectPath* op, const char*, const char*, const char*,
                                   CMPIStatus* rc) {
    return notSupportedQualifier(op, rc);
}

CMPIString* pathToString(const CMPIObjectPath* op, CMPIStatus* rc) {
    return CmpiCall::guard(rc, static_cast<CMPIString*>(nullptr), [&]() -> CMPIString* {
        HostObjectPath* self = checked(op, rc);
        return self ? scopedString(*self, self->toString()) : nullptr;
    });
}

CMPIObjectPathFT pathTable = {CMPIVersion200,
                              CmpiCall::release<HostObjectPath, CMPIObjectPath>,
                              pathClone,
                              pathSetText<&HostObjectPath::setNameSpace>,
                              pathGetText<&HostObjectPath::nameSpace>,
                              pathSetText<&HostObjectPath::setHost>,
                              pathGetText<&HostObjectPath::host>,
                              pathSetText<&HostObjectPath::setClassName>,
                              pathGetClassName,
                              pathAddKey,
                              pathGetKey,
                              pathGetKeyAt,
                              pathGetKeyCount,
                              pathSetFromObjectPath<false>,
                              pathSetFromObjectPath<true>,
                              pathGetClassQualifier,
                              pathGetPropertyQualifier,
                              pathGetMethodQualifier,
                              pathGetParameterQualifier,
                              pathToString};

} // namespace

HostObjectPath::HostObjectPath(Broker& broker)
    : HostObject(Kind::ObjectPath, broker), cmpi_{this, &pathTable} {}

HostObjectPath::~HostObjectPath() = default;

HostObjectPath::KeySet::~KeySet() {
    for (Key& k : keys)
        DataCopy::destroy(k.value);
}

namespace {

constexpr std::size_t scannedKeys = 16;

std::string folded(std::string_view name) {
    std::string out(name);
    for (char& c : out)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

} // namespace

std::size_t HostObjectPath::KeySet::find(std::string_view name) const {
    if (keys.size() <= scannedKeys) {
        for (std::size_t i = 0; i < keys.size(); ++i)
            if (sameName(keys[i].name, name))
                return i;
        return std::string::npos;
    }
    auto it = index.find(folded(name));
    return it == index.end() ? std::string::npos : it->second;
}

void HostObjectPath::KeySet::indexLast() {
    if (keys.size() <= scannedKeys)
        return;
    const bool building = index.empty();
    try {
        if (building)
            for (std::size_t i = 0; i < keys.size(); ++i)
                index.emplace(folded(keys[i].name), i);
        else
            index.emplace(folded(keys.back().name), keys.size() - 1);
    } catch (...) {
        // Not findable by name, the key would be half-added: take it back. A failed emplace
        // leaves an existing index as it was; one half built is dropped (the keys are then
        // few enough to be scanned).
        DataCopy::destroy(keys.back().value);
        keys.pop_back();
        if (building)
            index.clear();
        throw;
    }
}

void HostObjectPath::KeySet::appendBorrowed(const char* name, const CMPIData& ownedValue) {
    Key key;
    key.name = name;
    key.value = ownedValue;
    try {
        keys.push_back(std::move(key));
    } catch (...) {
        DataCopy::destroy(key.value);
        throw;
    }
    indexLast();
}

HostObjectPath* HostObjectPath::create(Broker& broker, const char* ns, const char* className) {
    std::unique_ptr<HostObjectPath> p(new HostObjectPath(broker));
    p->setNameSpace(ns);
    p->setClassName(className);
    return p.release();
}

HostObjectPath* HostObjectPath::from(const CMPIObjectPath* op) {
    if (!op || op->ft != &pathTable)
        return nullptr;
    return static_cast<HostObjectPath*>(op->hdl);
}

CMPIObjectPathFT* HostObjectPath::table() {
    return &pathTable;
}

const std::vector<HostObjectPath::Key>& HostObjectPath::keys() const {
    static const std::vector<Key> none;
    return keys_ ? keys_->keys : none;
}

std::shared_ptr<HostObjectPath::KeySet> HostObjectPath::KeySet::copy(Broker& broker) const {
    auto own = std::make_shared<KeySet>();
    own->keys.reserve(keys.size());
    for (const Key& k : keys) {
        Key key;
        if (k.ownedName) {
            key.ownedName = copyName(k.name);
            key.name = key.ownedName.get();
        } else {
            key.name = k.name;
        }
        own->keys.push_back(std::move(key));
        CMPIrc rc = DataCopy::copy(broker, k.value, Placement::Parent, own->keys.back().value);
        (void)rc; // the values are the host's own objects
    }
    own->index = index;
    return own;
}

bool HostObjectPath::KeySet::unfitForCopy() const {
    if (ScopeMemory::active())
        return false;
    for (const Key& k : keys) {
        if (DataCopy::inScopeMemory(k.value))
            return true;
    }
    return false;
}

std::shared_ptr<HostObjectPath::KeySet>
HostObjectPath::KeySet::forCopy(Broker& broker, const std::shared_ptr<KeySet>& set) {
    return set && set->unfitForCopy() ? set->copy(broker) : set;
}

std::vector<HostObjectPath::Key>& HostObjectPath::ownKeys() {
    if (!keys_) {
        keys_ = std::make_shared<KeySet>();
    } else if (keys_.use_count() > 1) {
        ScopeMemory::PartsOf parts(this);
        keys_ = keys_->copy(broker());
    }
    return keys_->keys;
}

const HostObjectPath::Key* HostObjectPath::findKey(std::string_view name) const {
    if (!keys_)
        return nullptr;
    const std::size_t at = keys_->find(name);
    return at == std::string::npos ? nullptr : &keys_->keys[at];
}

void HostObjectPath::setClassName(const char* name) {
    if (!name || !*name) {
        ownedClassName_.reset();
        className_ = "";
        return;
    }
    std::unique_ptr<char[]> copy = copyName(name);
    className_ = copy.get();
    ownedClassName_ = std::shared_ptr<const char>(copy.release(), std::default_delete<char[]>());
}

void HostObjectPath::setClassNameBorrowed(const char* name) {
    className_ = name ? name : "";
    ownedClassName_.reset();
}

CMPIrc HostObjectPath::addKey(const char* name, const CMPIValue* value, CMPIType type) {
    ScopeMemory::PartsOf parts(this);
    CMPIData copy{};
    CMPIrc rc = DataCopy::copy(broker(), value, type, Placement::Parent, copy);
    if (rc != CMPI_RC_OK)
        return rc;
    std::vector<Key>* keys = nullptr;
    try {
        keys = &ownKeys();
    } catch (...) {
        DataCopy::destroy(copy);
        throw;
    }
    const std::size_t at = keys_->find(name);
    if (at != std::string::npos) {
        Key& k = (*keys)[at];
        DataCopy::destroy(k.value);
        k.value = copy;
        return CMPI_RC_OK;
    }
    try {
        Key key;
        key.ownedName = copyName(name);
        key.name = key.ownedName.get();
        key.value = copy;
        keys->push_back(std::move(key));
    } catch (...) {
        DataCopy::destroy(copy);
        throw;
    }
    keys_->indexLast();
    return CMPI_RC_OK;
}

void HostObjectPath::appendBorrowedKey(const char* name, const CMPIData& ownedValue) {
    std::vector<Key>* keys = nullptr;
    try {
        keys = &ownKeys();
    } catch (...) {
        CMPIData value = ownedValue;
        DataCopy::destroy(value);
        throw;
    }
    Key key;
    key.name = name;
    key.value = ownedValue;
    try {
        keys->push_back(std::move(key));
    } catch (...) {
        DataCopy::destroy(key.value);
        throw;
    }
    keys_->indexLast();
}

std::string HostObjectPath::toString() const {
    return PathRenderer::render(*this, broker().dialect());
}

HostObject* HostObjectPath::copy() const {
    std::unique_ptr<HostObjectPath> p(new HostObjectPath(broker()));
    p->ns_ = ns_;
    p->host_ = host_;
    p->className_ = className_;
    p->ownedClassName_ = ownedClassName_;
    p->keys_ = KeySet::forCopy(broker(), keys_);
    return p.release();
}

} // namespace diaghost
