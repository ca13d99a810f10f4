// Property value texts: multiStringTok with any separator, every stringToDataType instance, and
// InstanceBuilder::convert for every type code (supported or not, arrays and references
// included), plus the two builds that take text: from definitions and from object-path text.
#include "FuzzSupport.h"

#include "builder/InstanceBuilder.h"
#include "host/broker/CallScope.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <cmpift.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

using diaghost::CallScope;
using diaghost::PathDialect;
using NQORVA20::InstanceBuilder;
using NQORVA20::multiStringTok;
using NQORVA20::ParseInstanceImpl;
using NQORVA20::stringToDataType;

namespace {

void check(bool condition) {
    if (!condition)
        std::abort();
}

const CMPIType typeCodes[] = {
    CMPI_null,        CMPI_boolean,  CMPI_char16, CMPI_real32,   CMPI_real64,    CMPI_uint8,
    CMPI_uint16,      CMPI_uint32,   CMPI_uint64, CMPI_sint8,    CMPI_sint16,    CMPI_sint32,
    CMPI_sint64,      CMPI_instance, CMPI_ref,    CMPI_args,     CMPI_class,     CMPI_filter,
    CMPI_enumeration, CMPI_string,   CMPI_chars,  CMPI_dateTime, CMPI_ptr,       CMPI_charsptr,
    CMPI_uint16A,     CMPI_stringA,  CMPI_refA,   CMPI_booleanA, CMPI_dateTimeA, CMPI_instanceA};

const char* const typesProperties[] = {
    "Name", "B",  "U8",  "S8",   "U16",  "S16",  "U32", "S32", "U64", "S64",     "R32",    "R64",
    "S",    "DT", "C16", "U16A", "S64A", "R64A", "SA",  "BA",  "DTA", "Element", "Unknown"};

void splitText(std::string text, char separator) {
    const std::vector<std::string> elements = multiStringTok(text, separator);
    std::size_t kept = 0;
    for (const std::string& e : elements) {
        check(!e.empty());
        check(e.find(separator) == std::string::npos);
        kept += e.size();
    }
    check(kept <= text.size());
}

void scalars(const std::string& text) {
    (void)stringToDataType<unsigned char>(text);
    (void)stringToDataType<signed char>(text);
    (void)stringToDataType<unsigned short>(text);
    (void)stringToDataType<short>(text);
    (void)stringToDataType<unsigned int>(text);
    (void)stringToDataType<int>(text);
    (void)stringToDataType<unsigned long>(text);
    (void)stringToDataType<long>(text);
    (void)stringToDataType<float>(text);
    (void)stringToDataType<double>(text);
    const bool b = stringToDataType<bool>(text);
    check(b == true || b == false);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzzsupport::fuzzBroker(PathDialect::Pegasus);
    fuzzsupport::silenceStandardOutput();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    FuzzedDataProvider data(bytes, size);
    const int mode = data.ConsumeIntegralInRange<int>(0, 9);
    auto& env = fuzzsupport::fuzzBroker(mode & 1 ? PathDialect::Sfcb : PathDialect::Pegasus);
    CallScope scope(*env.broker);
    const CMPIBroker* broker = env.broker->cmpi();
    const CMPIContext* ctx = env.broker->newContext("root/cimv2");
    InstanceBuilder builder("root/cimv2");
    switch (mode >> 1) {
    case 0: {
        const char separator = data.ConsumeIntegral<char>();
        splitText(data.ConsumeRemainingBytesAsString(), separator);
        break;
    }
    case 1: {
        CMPIType type = data.ConsumeBool() ? data.PickValueInArray(typeCodes)
                                           : data.ConsumeIntegral<CMPIType>();
        std::string text = data.ConsumeRemainingBytesAsString();
        scalars(text);
        (void)builder.convert(broker, ctx, type, text);
        break;
    }
    case 2: {
        std::string className =
            data.ConsumeBool() ? "Fuzz_Types" : data.ConsumeRandomLengthString(30);
        std::string ns = data.ConsumeBool() ? "root/cimv2" : data.ConsumeRandomLengthString(20);
        std::string definitions = data.ConsumeRemainingBytesAsString();
        (void)builder.build(broker, ctx, className, ns, definitions);
        break;
    }
    case 3: {
        std::string text = data.ConsumeRemainingBytesAsString();
        (void)builder.build(broker, ctx, text);
        break;
    }
    default: {
        ParseInstanceImpl instance;
        while (data.remaining_bytes() > 0) {
            std::string name = data.ConsumeBool() ? data.PickValueInArray(typesProperties)
                                                  : data.ConsumeRandomLengthString(12);
            instance[name] = data.ConsumeRandomLengthString(80);
        }
        (void)builder.build(broker, ctx, "Fuzz_Types", instance);
        break;
    }
    }
    env.log.clear();
    return 0;
}
