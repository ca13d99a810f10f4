#include "server/XmlText.h"

#include <array>
#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace diagserver {

namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD"; // U+FFFD

// The length of the well-formed UTF-8 sequence at text[i] that XML may carry; 0 when there is
// none (a stray continuation byte, an overlong form, a surrogate, past U+10FFFF, cut short, or a
// character XML 1.0 excludes).
std::size_t sequenceAt(std::string_view text, std::size_t i) {
    const auto b0 = static_cast<unsigned char>(text[i]);
    if (b0 < 0x80)
        return (b0 >= 0x20 || b0 == '\t' || b0 == '\n' || b0 == '\r') ? 1 : 0;
    std::size_t length = 0;
    std::uint32_t cp = 0;
    if (b0 >= 0xC2 && b0 <= 0xDF) {
        length = 2;
        cp = b0 & 0x1Fu;
    } else if (b0 >= 0xE0 && b0 <= 0xEF) {
        length = 3;
        cp = b0 & 0x0Fu;
    } else if (b0 >= 0xF0 && b0 <= 0xF4) {
        length = 4;
        cp = b0 & 0x07u;
    } else {
        return 0;
    }
    if (i + length > text.size())
        return 0;
    for (std::size_t k = 1; k < length; ++k) {
        const auto b = static_cast<unsigned char>(text[i + k]);
        if ((b & 0xC0) != 0x80)
            return 0;
        cp = (cp << 6) | (b & 0x3Fu);
    }
    const bool overlong = (length == 3 && cp < 0x800) || (length == 4 && cp < 0x10000);
    const bool excluded =
        (cp >= 0xD800 && cp <= 0xDFFF) || cp == 0xFFFE || cp == 0xFFFF || cp > 0x10FFFF;
    return overlong || excluded ? 0 : length;
}

// The markup characters, and the white space an XML parser would not hand on as it was: a
// carriage return anywhere (read as a line feed), a tab or line feed in an attribute value (read
// as a space).
const char* entityFor(char c, bool attribute) {
    switch (c) {
    case '\r':
        return "&#13;";
    case '\t':
        return attribute ? "&#9;" : nullptr;
    case '\n':
        return attribute ? "&#10;" : nullptr;
    case '&':
        return "&amp;";
    case '<':
        return "&lt;";
    case '>':
        return "&gt;";
    case '"':
        return "&quot;";
    default:
        return nullptr;
    }
}

// Plain bytes: printable ASCII other than the markup characters; between tags also tab and line
// feed.
constexpr std::array<bool, 256> attributePlain = [] {
    std::array<bool, 256> t{};
    for (int c = 0x20; c < 0x80; ++c)
        t[static_cast<std::size_t>(c)] = c != '&' && c != '<' && c != '>' && c != '"';
    return t;
}();
constexpr std::array<bool, 256> contentPlain = [] {
    std::array<bool, 256> t = attributePlain;
    t['\t'] = t['\n'] = true;
    return t;
}();

const std::array<bool, 256>& plainBytes(bool attribute) {
    return attribute ? attributePlain : contentPlain;
}

} // namespace

std::size_t XmlText::plainPrefix(std::string_view text, bool attribute) {
    const std::array<bool, 256>& plain = plainBytes(attribute);
    const std::size_t size = text.size();
    std::size_t i = 0;
#if defined(__SSE2__)
    // Sixteen bytes at a time: a byte below 0x20 or above 0x7F (both below 0x20 when read as
    // signed) or a markup character stops the run, unless it is plain white space, after which
    // the search goes on.
    const __m128i printable = _mm_set1_epi8(0x20);
    const __m128i amp = _mm_set1_epi8('&');
    const __m128i lt = _mm_set1_epi8('<');
    const __m128i gt = _mm_set1_epi8('>');
    const __m128i quot = _mm_set1_epi8('"');
    while (i + 16 <= size) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text.data() + i));
        const __m128i markup =
            _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(v, amp), _mm_cmpeq_epi8(v, lt)),
                         _mm_or_si128(_mm_cmpeq_epi8(v, gt), _mm_cmpeq_epi8(v, quot)));
        const int stops = _mm_movemask_epi8(_mm_or_si128(_mm_cmplt_epi8(v, printable), markup));
        if (stops == 0) {
            i += 16;
            continue;
        }
        i += static_cast<std::size_t>(__builtin_ctz(static_cast<unsigned>(stops)));
        if (!plain[static_cast<unsigned char>(text[i])])
            return i;
        ++i;
    }
#endif
    while (i < size && plain[static_cast<unsigned char>(text[i])])
        ++i;
    return i;
}

void XmlText::appendEscaped(std::string& out, std::string_view text, bool attribute) {
    // Runs of plain ASCII, the bulk of any CIM text, are found by one table look-up a byte.
    const std::array<bool, 256>& plain = plainBytes(attribute);
    std::size_t from = 0;
    std::size_t i = 0;
    const std::size_t size = text.size();
    while (i < size) {
        if (plain[static_cast<unsigned char>(text[i])]) {
            ++i;
            continue;
        }
        const char* entity = entityFor(text[i], attribute);
        const std::size_t length = entity ? 1 : sequenceAt(text, i);
        if (!entity && length > 0) {
            i += length;
            continue;
        }
        out.append(text.data() + from, i - from);
        out += entity ? std::string_view(entity) : replacement;
        ++i;
        from = i;
    }
    out.append(text.data() + from, size - from);
}

bool XmlText::isClean(std::string_view text) {
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t length = sequenceAt(text, i);
        if (length == 0)
            return false;
        i += length;
    }
    return true;
}

} // namespace diagserver
