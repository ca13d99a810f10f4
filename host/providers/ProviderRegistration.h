// One provider registration: which provider, in which library, serves which class for which
// kinds of operation in which namespaces, as read from a registration file. The reader accepts
// the section format object managers use ("[Class]" followed by "key: value" lines) and rejects
// anything else with the file and line of the fault.
#ifndef DIAGHOST_PROVIDERS_PROVIDERREGISTRATION_H
#define DIAGHOST_PROVIDERS_PROVIDERREGISTRATION_H

#include <stdexcept>
#include <string>
#include <vector>

namespace diaghost {

// A registration text the reader cannot accept; what() reads "file:line: message".
class RegistrationError : public std::runtime_error {
public:
    RegistrationError(const std::string& file, int line, const std::string& message);
    const std::string& file() const { return file_; }
    int line() const { return line_; }

private:
    std::string file_;
    int line_;
};

struct ProviderRegistration {
    // The kinds of MI a registration names on its "type:" line, as a bit set.
    enum Type : unsigned {
        Instance = 1u << 0,
        Method = 1u << 1,
        Association = 1u << 2,
        Indication = 1u << 3,
        Property = 1u << 4,
    };

    std::string className;
    std::string providerName;
    std::string location; // the library's base name: lib<location>.so
    unsigned types = 0;
    std::vector<std::string> namespaces;
    bool unloadNever = false; // "unload: never": the provider is never offered an idle unload
    std::string file;         // where the section starts, for messages
    int line = 0;

    bool serves(Type type) const { return (types & type) != 0; }
    // "instance method association", in that order, for messages.
    std::string typeText() const;
    // "file:line" of the section, for messages.
    std::string where() const { return file + ":" + std::to_string(line); }

    // Every section of the file, in file order. Throws RegistrationError (also when the file
    // cannot be read).
    static std::vector<ProviderRegistration> readFile(const std::string& path);
    static std::vector<ProviderRegistration> readText(const std::string& text,
                                                      const std::string& sourceName = "<text>");
};

} // namespace diaghost

#endif
