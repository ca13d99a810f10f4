#include "host/broker/HostString.h"

#include "host/broker/CmpiCall.h"

#include <cstring>
#include <new>

namespace diaghost {

namespace {

CMPIString* stringClone(const CMPIString* s, CMPIStatus* rc) {
    return CmpiCall::guard(rc, static_cast<CMPIString*>(nullptr), [&]() -> CMPIString* {
        HostString* self = HostString::from(s);
        if (!self) {
            CmpiCall::set(rc, CMPI_RC_ERR_INVALID_HANDLE);
            return nullptr;
        }
        CmpiCall::set(rc, CMPI_RC_OK);
        return CmpiCall::durableCopy(*self)->cmpi();
    });
}

// getCharPtr answers char* in some header sets and const char* in others.
using CharPtr = decltype(CMPIStringFT{}.getCharPtr(nullptr, nullptr));

CharPtr stringGetCharPtr(const CMPIString* s, CMPIStatus* rc) {
    HostString* self = HostString::from(s);
    if (!self) {
        CmpiCall::set(rc, CMPI_RC_ERR_INVALID_HANDLE);
        return nullptr;
    }
    CmpiCall::set(rc, CMPI_RC_OK);
    return const_cast<CharPtr>(self->text());
}

CMPIStringFT stringTable = {CMPIVersion200, CmpiCall::release<HostString, CMPIString>, stringClone,
                            stringGetCharPtr};

} // namespace

HostString::HostString(Broker& broker, char* text, std::size_t length)
    : HostObject(Kind::String, broker), face_{{text, &stringTable}, this}, length_(length) {}

HostString* HostString::create(Broker& broker, const char* text, std::size_t length) {
    std::size_t extra = text ? length + 1 : 0;
    void* raw = ObjectPool::allocateBlock(sizeof(HostString) + extra);
    char* chars = nullptr;
    if (text) {
        chars = static_cast<char*>(raw) + sizeof(HostString);
        std::memcpy(chars, text, length);
        chars[length] = '\0';
    }
    return new (raw) HostString(broker, chars, text ? length : 0);
}

CMPIString* HostString::make(Broker& broker, const char* text, std::size_t length,
                             Placement where) {
    HostString* s = create(broker, text, length);
    if (where != Placement::Nobody) {
        try {
            s->place(where);
        } catch (...) {
            delete s;
            throw;
        }
    }
    return s->cmpi();
}

CMPIString* HostString::make(Broker& broker, const char* text, Placement where) {
    return make(broker, text, text ? std::strlen(text) : 0, where);
}

HostString* HostString::from(const CMPIString* s) {
    if (!s || s->ft != &stringTable)
        return nullptr;
    return reinterpret_cast<const Face*>(s)->self;
}

CMPIStringFT* HostString::table() {
    return &stringTable;
}

const char* HostString::textOf(const CMPIString* s) {
    if (!s)
        return nullptr;
    if (s->ft == &stringTable)
        return static_cast<const char*>(s->hdl);
    if (!s->ft || !s->ft->getCharPtr)
        return nullptr;
    return s->ft->getCharPtr(s, nullptr);
}

HostObject* HostString::copy() const {
    return create(broker(), text(), length_);
}

} // namespace diaghost
