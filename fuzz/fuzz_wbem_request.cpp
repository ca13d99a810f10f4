// The WBEM server's request decoder: any bytes either decode into a request or raise DecodeError;
// nothing else may escape. The same bytes are decoded three ways that must agree: with the
// server's default limits, with small limits (a message within them must decode the same with
// the larger ones) and fed to the reader in three pieces (the split must not change the outcome).
#include "server/CimXmlDecoder.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string_view>

using diagserver::CimRequest;
using diagserver::CimXmlDecoder;
using diagserver::DecodeError;
using diagserver::XmlReader;
using diagserver::XmlRefused;

namespace {

void check(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "%s\n", what);
        std::abort();
    }
}

std::optional<CimRequest> whole(std::string_view text, XmlReader::Limits limits) {
    try {
        return CimXmlDecoder::decode(text, limits);
    } catch (const DecodeError& e) {
        check(e.httpStatus() == 400 || e.httpStatus() == 501, "a refusal without its status");
        return std::nullopt;
    }
}

std::optional<CimRequest> inPieces(std::string_view text) {
    try {
        XmlReader reader;
        const std::size_t third = text.size() / 3;
        reader.feed(text.substr(0, third));
        reader.feed(text.substr(third, third));
        reader.feed(text.substr(2 * third));
        return CimXmlDecoder::decode(*reader.finish());
    } catch (const XmlRefused&) {
    } catch (const DecodeError&) {
    }
    return std::nullopt;
}

bool same(const CimRequest& a, const CimRequest& b) {
    if (a.messageId != b.messageId || a.method != b.method || a.nameSpace != b.nameSpace ||
        a.intrinsic != b.intrinsic || a.classTarget != b.classTarget ||
        a.target.className != b.target.className || a.params.size() != b.params.size())
        return false;
    for (std::size_t i = 0; i < a.params.size(); ++i) {
        const auto& [nameA, valueA] = a.params[i];
        const auto& [nameB, valueB] = b.params[i];
        if (nameA != nameB || valueA.kind != valueB.kind || valueA.text != valueB.text ||
            valueA.texts != valueB.texts || valueA.path.className != valueB.path.className ||
            valueA.paths.size() != valueB.paths.size())
            return false;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(bytes), size);
    const std::optional<CimRequest> large = whole(text, XmlReader::Limits{});
    const std::optional<CimRequest> small = whole(text, XmlReader::Limits{8, 64});
    if (small)
        check(large && same(*small, *large), "a message within small limits reads differently");
    const std::optional<CimRequest> pieces = inPieces(text);
    check(pieces.has_value() == large.has_value(), "splitting the message changed its outcome");
    if (pieces)
        check(same(*pieces, *large), "a message in pieces reads differently");
    return 0;
}
