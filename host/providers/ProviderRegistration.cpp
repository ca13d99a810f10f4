#include "host/providers/ProviderRegistration.h"
#include "host/text/CimNames.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

namespace diaghost {

namespace {

std::string trim(const std::string& s) {
    std::size_t b = 0;
    std::size_t e = s.size();
    while (b < e && std::isspace(static_cast<unsigned char>(s[b])))
        ++b;
    while (e > b && std::isspace(static_cast<unsigned char>(s[e - 1])))
        --e;
    return s.substr(b, e - b);
}

std::vector<std::string> words(const std::string& s) {
    std::vector<std::string> out;
    std::istringstream in(s);
    std::string w;
    while (in >> w)
        out.push_back(w);
    return out;
}

bool isName(const std::string& s) {
    if (s.empty() || std::isdigit(static_cast<unsigned char>(s[0])))
        return false;
    return std::all_of(s.begin(), s.end(),
                       [](unsigned char c) { return std::isalnum(c) || c == '_'; });
}

// A library base name or namespace: printable, no blanks.
bool isToken(const std::string& s, bool slashAllowed) {
    if (s.empty())
        return false;
    return std::all_of(s.begin(), s.end(), [&](unsigned char c) {
        return std::isalnum(c) || c == '_' || c == '-' || c == '.' || (slashAllowed && c == '/');
    });
}

class SectionReader {
public:
    explicit SectionReader(const std::string& source) : source_(source) {}

    void line(const std::string& raw, int lineNo) {
        std::string text = raw;
        std::size_t hash = text.find('#');
        if (hash != std::string::npos)
            text.erase(hash);
        text = trim(text);
        if (text.empty())
            return;
        if (text.front() == '[') {
            startSection(text, lineNo);
            return;
        }
        std::size_t colon = text.find(':');
        if (colon == std::string::npos)
            fail(lineNo, "expected \"key: value\" or \"[ClassName]\", found \"" + text + "\"");
        std::string key = lowerName(trim(text.substr(0, colon)));
        std::string value = trim(text.substr(colon + 1));
        if (!current_)
            fail(lineNo, "\"" + key + "\" line before the first [ClassName] section");
        if (key == "group" || key == "user")
            return;
        if (value.empty())
            fail(lineNo, "\"" + key + "\" has no value");
        if (key == "provider")
            setProvider(value, lineNo);
        else if (key == "location")
            setLocation(value, lineNo);
        else if (key == "type")
            setTypes(value, lineNo);
        else if (key == "namespace")
            addNamespaces(value, lineNo);
        else if (key == "unload")
            setUnload(value, lineNo);
        else
            fail(lineNo, "unknown key \"" + key + "\"");
    }

    std::vector<ProviderRegistration> finish() {
        closeSection();
        return std::move(out_);
    }

private:
    [[noreturn]] void fail(int lineNo, const std::string& message) const {
        throw RegistrationError(source_, lineNo, message);
    }

    void startSection(const std::string& text, int lineNo) {
        if (text.back() != ']')
            fail(lineNo, "section header \"" + text + "\" lacks its closing ']'");
        std::string name = trim(text.substr(1, text.size() - 2));
        if (!isName(name))
            fail(lineNo, "\"" + name + "\" is not a class name");
        closeSection();
        current_ = true;
        reg_ = ProviderRegistration{};
        reg_.className = name;
        reg_.file = source_;
        reg_.line = lineNo;
        seen_.clear();
    }

    void once(const std::string& key, int lineNo) {
        if (std::find(seen_.begin(), seen_.end(), key) != seen_.end())
            fail(lineNo, "\"" + key + "\" given twice in section [" + reg_.className + "]");
        seen_.push_back(key);
    }

    void setProvider(const std::string& value, int lineNo) {
        once("provider", lineNo);
        if (!isName(value))
            fail(lineNo, "\"" + value + "\" is not a provider name");
        reg_.providerName = value;
    }

    void setLocation(const std::string& value, int lineNo) {
        once("location", lineNo);
        if (!isToken(value, false))
            fail(lineNo, "\"" + value + "\" is not a library base name");
        reg_.location = value;
    }

    void setTypes(const std::string& value, int lineNo) {
        once("type", lineNo);
        for (const std::string& w : words(value)) {
            std::string t = lowerName(w);
            if (t == "instance")
                reg_.types |= ProviderRegistration::Instance;
            else if (t == "method")
                reg_.types |= ProviderRegistration::Method;
            else if (t == "association")
                reg_.types |= ProviderRegistration::Association;
            else if (t == "indication")
                reg_.types |= ProviderRegistration::Indication;
            else if (t == "property")
                reg_.types |= ProviderRegistration::Property;
            else
                fail(lineNo, "unknown provider type \"" + w + "\"");
        }
    }

    void addNamespaces(const std::string& value, int lineNo) {
        for (const std::string& ns : words(value)) {
            if (!isToken(ns, true))
                fail(lineNo, "\"" + ns + "\" is not a namespace name");
            bool known =
                std::any_of(reg_.namespaces.begin(), reg_.namespaces.end(),
                            [&](const std::string& n) { return lowerName(n) == lowerName(ns); });
            if (!known)
                reg_.namespaces.push_back(ns);
        }
    }

    void setUnload(const std::string& value, int lineNo) {
        once("unload", lineNo);
        if (lowerName(value) != "never")
            fail(lineNo, "unload accepts only \"never\", found \"" + value + "\"");
        reg_.unloadNever = true;
    }

    void closeSection() {
        if (!current_)
            return;
        const char* missing = nullptr;
        if (reg_.providerName.empty())
            missing = "provider";
        else if (reg_.location.empty())
            missing = "location";
        else if (reg_.types == 0)
            missing = "type";
        else if (reg_.namespaces.empty())
            missing = "namespace";
        if (missing)
            fail(reg_.line, "section [" + reg_.className + "] has no \"" + missing + "\" line");
        out_.push_back(std::move(reg_));
        current_ = false;
    }

    std::string source_;
    bool current_ = false;
    ProviderRegistration reg_;
    std::vector<std::string> seen_;
    std::vector<ProviderRegistration> out_;
};

} // namespace

RegistrationError::RegistrationError(const std::string& file, int line, const std::string& message)
    : std::runtime_error(file + ":" + std::to_string(line) + ": " + message), file_(file),
      line_(line) {}

std::string ProviderRegistration::typeText() const {
    static const std::pair<Type, const char*> names[] = {{Instance, "instance"},
                                                         {Method, "method"},
                                                         {Association, "association"},
                                                         {Indication, "indication"},
                                                         {Property, "property"}};
    std::string out;
    for (const auto& [bit, name] : names) {
        if (!(types & bit))
            continue;
        if (!out.empty())
            out += ' ';
        out += name;
    }
    return out;
}

std::vector<ProviderRegistration> ProviderRegistration::readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw RegistrationError(path, 0, std::string("cannot open: ") + std::strerror(errno));
    std::ostringstream text;
    text << in.rdbuf();
    if (in.bad())
        throw RegistrationError(path, 0, "cannot read the file");
    return readText(text.str(), path);
}

std::vector<ProviderRegistration> ProviderRegistration::readText(const std::string& text,
                                                                 const std::string& sourceName) {
    SectionReader reader(sourceName);
    std::istringstream in(text);
    std::string raw;
    int lineNo = 0;
    while (std::getline(in, raw)) {
        ++lineNo;
        if (raw.find('\0') != std::string::npos)
            throw RegistrationError(sourceName, lineNo, "binary data in a registration file");
        reader.line(raw, lineNo);
    }
    return reader.finish();
}

} // namespace diaghost
