// Object-path text: StripObjectPath and ParseObjectPath over arbitrary text, and
// GetObjectPathString over paths whose rendering holds arbitrary bytes, both from a path whose
// toString answers the input itself and from broker-made paths with arbitrary names and keys.
// Well-formed paths must read back: class name and plain key values survive the round trip.
#include "FuzzSupport.h"

#include "builder/InstanceBuilder.h"
#include "host/broker/CallScope.h"
#include "instance/CMPIUtil.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <cmpift.h>

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <strings.h>

using diaghost::CallScope;
using diaghost::PathDialect;
using NQORVA20::ParseInstanceImpl;
namespace util = NQORVA20::CMPIUtil;

namespace {

void check(bool condition) {
    if (!condition)
        std::abort();
}

// A path whose rendering is whatever text the current input chose.
const CMPIBroker* renderingBroker = nullptr;
std::string rendering;

CMPIString* renderRaw(const CMPIObjectPath*, CMPIStatus* rc) {
    if (rc != nullptr)
        *rc = CMPIStatus{CMPI_RC_OK, nullptr};
    return renderingBroker->eft->newString(renderingBroker, rendering.c_str(), nullptr);
}

void parseText(std::string text) {
    const std::string stripped = util::StripObjectPath(text);
    check(stripped.size() <= text.size());
    check(text.compare(text.size() - stripped.size(), std::string::npos, stripped) == 0);
    ParseInstanceImpl scratch;
    util::ParseObjectPath(text, scratch);
    check(scratch.getClassName() == stripped.substr(0, stripped.find('.')));
}

bool plainName(const std::string& s) {
    if (s.empty())
        return false;
    for (unsigned char c : s)
        if (!(std::isalnum(c) || c == '_'))
            return false;
    return !std::isdigit(static_cast<unsigned char>(s[0]));
}

// Printable text without a quote or a backslash: the sfcb dialect renders key values unescaped,
// so a backslash there reads back as an escape.
bool plainValue(const std::string& s) {
    for (unsigned char c : s)
        if (c < 0x20 || c > 0x7e || c == '"' || c == '\\')
            return false;
    return true;
}

void fakeRendering(const CMPIBroker* broker, FuzzedDataProvider& data) {
    CMPIObjectPath* real =
        broker->eft->newObjectPath(broker, "root/cimv2", "Fuzz_Element", nullptr);
    CMPIObjectPathFT table = *real->ft;
    table.toString = renderRaw;
    CMPIObjectPath fake = {real->hdl, &table};
    renderingBroker = broker;
    rendering = data.ConsumeRemainingBytesAsString();
    const std::string text = util::GetObjectPathString(&fake);
    // Undoing escapes and removing a prefix only ever shorten the text.
    check(text.size() <= std::string(rendering.c_str()).size());
    parseText(text);
}

void brokerPath(const CMPIBroker* broker, FuzzedDataProvider& data) {
    static const char* const spaces[] = {"root/cimv2", "root/interop", "", "root"};
    const char* ns = spaces[data.ConsumeIntegralInRange<int>(0, 3)];
    const std::string className = data.ConsumeRandomLengthString(40);
    CMPIObjectPath* path = broker->eft->newObjectPath(broker, ns, className.c_str(), nullptr);
    if (path == nullptr)
        return;
    std::map<std::string, std::string> plainKeys;
    bool plain = plainName(className);
    const int keyCount = data.ConsumeIntegralInRange<int>(0, 6);
    for (int i = 0; i < keyCount && data.remaining_bytes() > 0; ++i) {
        const std::string name = data.ConsumeRandomLengthString(20);
        const std::string value = data.ConsumeRandomLengthString(60);
        CMPIValue v;
        CMPIType type;
        switch (data.ConsumeIntegralInRange<int>(0, 4)) {
        case 0:
            v.uint32 = data.ConsumeIntegral<uint32_t>();
            type = CMPI_uint32;
            plain = false;
            break;
        case 1:
            v.boolean = data.ConsumeBool();
            type = CMPI_boolean;
            plain = false;
            break;
        case 2:
            v.string = broker->eft->newString(broker, value.c_str(), nullptr);
            type = CMPI_string;
            break;
        default:
            // For CMPI_chars the value pointer is the text itself.
            path->ft->addKey(path, name.c_str(), reinterpret_cast<const CMPIValue*>(value.c_str()),
                             CMPI_chars);
            type = CMPI_chars;
            break;
        }
        if (type != CMPI_chars)
            path->ft->addKey(path, name.c_str(), &v, type);
        if (type == CMPI_string || type == CMPI_chars) {
            plain = plain && plainName(name) && plainValue(value.c_str());
            for (auto it = plainKeys.begin(); it != plainKeys.end();)
                it = strcasecmp(it->first.c_str(), name.c_str()) == 0 ? plainKeys.erase(it) : ++it;
            plainKeys[name] = value.c_str();
        }
    }
    const std::string text = util::GetObjectPathString(path);
    const std::string className2 = util::GetClassName(path);
    std::string copy = text;
    ParseInstanceImpl scratch;
    util::ParseObjectPath(copy, scratch);
    if (!plain)
        return;
    bool same = strcasecmp(scratch.getClassName().c_str(), className.c_str()) == 0;
    for (const auto& [name, value] : plainKeys) {
        bool found = false;
        for (auto it = scratch.begin(); it != scratch.end(); ++it)
            if (strcasecmp(it->first.c_str(), name.c_str()) == 0)
                found = found || it->second == value;
        same = same && found;
    }
    if (!same) {
        std::fprintf(stderr, "path text \"%s\" does not read back its class and keys\n",
                     text.c_str());
        for (const auto& [name, value] : plainKeys)
            std::fprintf(stderr, "  expected key \"%s\" = \"%s\"\n", name.c_str(), value.c_str());
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzzsupport::fuzzBroker(PathDialect::Pegasus);
    fuzzsupport::silenceStandardOutput();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    FuzzedDataProvider data(bytes, size);
    const int mode = data.ConsumeIntegralInRange<int>(0, 3);
    const PathDialect dialect = mode & 1 ? PathDialect::Sfcb : PathDialect::Pegasus;
    auto& env = fuzzsupport::fuzzBroker(dialect);
    CallScope scope(*env.broker);
    const CMPIBroker* broker = env.broker->cmpi();
    switch (mode) {
    case 0:
        parseText(data.ConsumeRemainingBytesAsString());
        break;
    case 1:
        fakeRendering(broker, data);
        break;
    default:
        brokerPath(broker, data);
        break;
    }
    env.log.clear();
    return 0;
}
