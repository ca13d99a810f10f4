#include "host/broker/CimValueMatch.h"

#include "host/broker/CimValueText.h"
#include "host/mof/CimTypeCodes.h"
#include "host/text/CimNames.h"

#include <cmpift.h>

#include <cctype>
#include <cstring>
#include <string>

namespace diaghost {

namespace {

bool isNull(const CMPIData& d) {
    return (d.state & (CMPI_nullValue | CMPI_notFound)) != 0 || d.type == CMPI_null;
}

void integerParts(const CMPIData& d, bool& negative, unsigned long long& mag) {
    negative = false;
    switch (d.type) {
    case CMPI_uint8:
        mag = d.value.uint8;
        return;
    case CMPI_uint16:
        mag = d.value.uint16;
        return;
    case CMPI_uint32:
        mag = d.value.uint32;
        return;
    case CMPI_uint64:
        mag = d.value.uint64;
        return;
    default:
        break;
    }
    long long s = d.type == CMPI_sint8    ? d.value.sint8
                  : d.type == CMPI_sint16 ? d.value.sint16
                  : d.type == CMPI_sint32 ? d.value.sint32
                                          : d.value.sint64;
    negative = s < 0;
    mag = negative ? 0ull - static_cast<unsigned long long>(s) : static_cast<unsigned long long>(s);
}

} // namespace

bool CimValueMatch::equal(const CMPIData& a, const CMPIData& b) {
    bool aNull = isNull(a);
    bool bNull = isNull(b);
    if (aNull || bNull)
        return aNull && bNull;
    if ((a.type & CMPI_ARRAY) || (b.type & CMPI_ARRAY)) {
        if (!(a.type & CMPI_ARRAY) || !(b.type & CMPI_ARRAY))
            return false;
        const CMPIArray* x = a.value.array;
        const CMPIArray* y = b.value.array;
        if (!x || !y || !x->ft || !y->ft)
            return x == y;
        CMPICount n = x->ft->getSize(x, nullptr);
        if (n != y->ft->getSize(y, nullptr))
            return false;
        for (CMPICount i = 0; i < n; ++i)
            if (!equal(x->ft->getElementAt(x, i, nullptr), y->ft->getElementAt(y, i, nullptr)))
                return false;
        return true;
    }
    if (cimtype::isInteger(a.type) && cimtype::isInteger(b.type)) {
        bool an = false;
        bool bn = false;
        unsigned long long am = 0;
        unsigned long long bm = 0;
        integerParts(a, an, am);
        integerParts(b, bn, bm);
        return am == bm && (an == bn || am == 0);
    }
    bool aReal = a.type == CMPI_real32 || a.type == CMPI_real64;
    bool bReal = b.type == CMPI_real32 || b.type == CMPI_real64;
    if (aReal && bReal) {
        double x = a.type == CMPI_real32 ? a.value.real32 : a.value.real64;
        double y = b.type == CMPI_real32 ? b.value.real32 : b.value.real64;
        return x == y;
    }
    bool aText = a.type == CMPI_string || a.type == CMPI_chars;
    bool bText = b.type == CMPI_string || b.type == CMPI_chars;
    if (aText && bText) {
        const char* x = a.type == CMPI_chars ? a.value.chars : CimValueText::chars(a.value.string);
        const char* y = b.type == CMPI_chars ? b.value.chars : CimValueText::chars(b.value.string);
        if (!x || !y)
            return x == y;
        return std::strcmp(x, y) == 0;
    }
    if (a.type != b.type)
        return false;
    switch (a.type) {
    case CMPI_boolean:
        return (a.value.boolean != 0) == (b.value.boolean != 0);
    case CMPI_char16:
        return a.value.char16 == b.value.char16;
    case CMPI_dateTime:
        return CimValueText::dateTimeText(a.value.dateTime) ==
               CimValueText::dateTimeText(b.value.dateTime);
    case CMPI_ref:
        return samePath(a.value.ref, b.value.ref);
    default:
        return false;
    }
}

bool CimValueMatch::samePath(const CMPIObjectPath* a, const CMPIObjectPath* b) {
    if (!a || !b || !a->ft || !b->ft)
        return a == b;
    if (!sameName(CimValueText::text(a->ft->getClassName(a, nullptr)),
                  CimValueText::text(b->ft->getClassName(b, nullptr))))
        return false;
    std::string nsA = lowerName(CimValueText::text(a->ft->getNameSpace(a, nullptr)));
    std::string nsB = lowerName(CimValueText::text(b->ft->getNameSpace(b, nullptr)));
    if (!nsA.empty() && !nsB.empty() && nsA != nsB)
        return false;
    CMPICount n = a->ft->getKeyCount(a, nullptr);
    if (n != b->ft->getKeyCount(b, nullptr))
        return false;
    for (CMPICount i = 0; i < n; ++i) {
        CMPIString* name = nullptr;
        CMPIData ka = a->ft->getKeyAt(a, i, &name, nullptr);
        std::string keyName = CimValueText::text(name);
        CMPIStatus st{CMPI_RC_OK, nullptr};
        CMPIData kb = b->ft->getKey(b, keyName.c_str(), &st);
        if (st.rc != CMPI_RC_OK || !equal(ka, kb))
            return false;
    }
    return true;
}

} // namespace diaghost
