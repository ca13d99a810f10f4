#include "server/PamAuthenticator.h"

#include <security/pam_appl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <utility>

namespace diagserver {

namespace {

// What the conversation answers the modules' prompts with.
struct Credentials {
    const char* user;
    const char* password;
};

void dropResponses(pam_response* responses, int count) {
    for (int i = 0; i < count; ++i) {
        if (char* text = responses[i].resp) {
            explicit_bzero(text, std::strlen(text));
            std::free(text);
        }
    }
    std::free(responses);
}

// PAM frees what a successful conversation hands back; after a failure the responses are the
// conversation's to wipe and free. Called from C: nothing may be thrown from here.
int converse(int count, const pam_message** messages, pam_response** out, void* data) {
    if (!out || !messages || !data || count <= 0 || count > PAM_MAX_NUM_MSG)
        return PAM_CONV_ERR;
    *out = nullptr;
    const auto* credentials = static_cast<const Credentials*>(data);
    auto* responses = static_cast<pam_response*>(
        std::calloc(static_cast<std::size_t>(count), sizeof(pam_response)));
    if (!responses)
        return PAM_BUF_ERR;
    for (int i = 0; i < count; ++i) {
        const char* answer = nullptr;
        switch (messages[i] ? messages[i]->msg_style : -1) {
        case PAM_PROMPT_ECHO_OFF:
            answer = credentials->password;
            break;
        case PAM_PROMPT_ECHO_ON:
            answer = credentials->user;
            break;
        case PAM_ERROR_MSG:
        case PAM_TEXT_INFO:
            // Meant for a person at a terminal; there is none to show them to.
            continue;
        default:
            dropResponses(responses, count);
            return PAM_CONV_ERR;
        }
        responses[i].resp = strdup(answer);
        if (!responses[i].resp) {
            dropResponses(responses, count);
            return PAM_BUF_ERR;
        }
    }
    *out = responses;
    return PAM_SUCCESS;
}

// Stands in for the sleep a module asks for after a failure.
void noDelay(int, unsigned, void*) {}

bool controlIn(const std::string& text) {
    for (char c : text)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
            return true;
    return false;
}

} // namespace

PamAuthenticator::PamAuthenticator(std::string service)
    : PamAuthenticator(std::move(service), Options()) {}

PamAuthenticator::Options PamAuthenticator::oneAtATime(Options options) {
    options.concurrentVerifications = 1;
    return options;
}

PamAuthenticator::PamAuthenticator(std::string service, Options options)
    : Authenticator(oneAtATime(options)), service_(std::move(service)),
      configDir_(std::move(options.configDir)) {
    // PAM would take the part after a '/' as the name: a name meant as a path is refused.
    if (service_.empty() || service_.find('/') != std::string::npos ||
        service_.find(' ') != std::string::npos || controlIn(service_))
        throw Error("the PAM service name '" + service_ +
                    "' is empty or holds a '/', a blank or a control character");
    if (!configDir_.empty()) {
        struct stat status {};
        if (stat(configDir_.c_str(), &status) != 0)
            throw Error("the PAM configuration folder " + configDir_ +
                        " cannot be used: " + std::strerror(errno));
        if (!S_ISDIR(status.st_mode))
            throw Error("the PAM configuration folder " + configDir_ + " is not a folder");
    }
}

PamAuthenticator::Verdict PamAuthenticator::check(const std::string& user,
                                                  const std::string& password, std::string& why) {
    return check(user, password, std::string(), why);
}

PamAuthenticator::Verdict PamAuthenticator::check(const std::string& user,
                                                  const std::string& password,
                                                  const std::string& remoteHost, std::string& why) {
    try {
        why.clear();
        // Past a NUL or a control character PAM would see other credentials than were given.
        if (user.empty() || controlIn(user)) {
            why = "the user name is empty or holds a control character";
            return Verdict::Refused;
        }
        if (password.empty() || password.find('\0') != std::string::npos) {
            why = "the password is empty or holds a NUL";
            return Verdict::Refused;
        }
        if (controlIn(remoteHost)) {
            why = "the client's address holds a control character";
            return Verdict::Refused;
        }
        // PAM has no generation to tell: successes live their lifetime. A module may decide by
        // the client's address, so a success is remembered for that client only (a user name
        // holds no control character, so the line break keeps the two apart).
        return rememberedOrVerified(user + '\n' + remoteHost, password, 0, true,
                                    [&] { return transaction(user, password, remoteHost, why); });
    } catch (const std::exception& e) {
        why = e.what();
    } catch (...) {
        why = "the verification failed";
    }
    return Verdict::Refused;
}

bool PamAuthenticator::configured() const {
    const auto readable = [](const std::string& path) { return access(path.c_str(), R_OK) == 0; };
    if (!configDir_.empty())
        return readable(configDir_ + "/" + service_) || readable(configDir_ + "/other");
    for (const char* folder : {"/etc/pam.d/", "/usr/lib/pam.d/"})
        if (readable(folder + service_) || readable(std::string(folder) + "other"))
            return true;
    return readable("/etc/pam.conf");
}

bool PamAuthenticator::transaction(const std::string& user, const std::string& password,
                                   const std::string& remoteHost, std::string& why) const {
    // Linux-PAM's pam_start keeps a little memory for good when it finds no configuration for the
    // service, which a client could repeat at will: such a service is refused before PAM is asked.
    if (!configured()) {
        why = "PAM service " + service_ + ": no configuration for it in " +
              (configDir_.empty() ? std::string("/etc/pam.d") : configDir_);
        return false;
    }
    // Also across authenticators: two servers in one process share the audit library.
    static std::mutex oneTransaction;
    std::lock_guard<std::mutex> turn(oneTransaction);
    Credentials credentials{user.c_str(), password.c_str()};
    const pam_conv conversation{&converse, &credentials};
    pam_handle_t* handle = nullptr;
    const char* step = "pam_start";
    int rc = configDir_.empty() ? pam_start(service_.c_str(), user.c_str(), &conversation, &handle)
                                : pam_start_confdir(service_.c_str(), user.c_str(), &conversation,
                                                    configDir_.c_str(), &handle);
    if (rc == PAM_SUCCESS) {
        step = "pam_set_item";
        rc = pam_set_item(handle, PAM_FAIL_DELAY, reinterpret_cast<const void*>(&noDelay));
    }
    if (rc == PAM_SUCCESS && !remoteHost.empty())
        rc = pam_set_item(handle, PAM_RHOST, remoteHost.c_str());
    if (rc == PAM_SUCCESS) {
        step = "pam_authenticate";
        rc = pam_authenticate(handle, PAM_SILENT | PAM_DISALLOW_NULL_AUTHTOK);
    }
    if (rc == PAM_SUCCESS) {
        step = "pam_acct_mgmt";
        rc = pam_acct_mgmt(handle, PAM_SILENT | PAM_DISALLOW_NULL_AUTHTOK);
    }
    // Made before pam_end, which must be reached whatever happens here.
    std::string failure;
    if (rc != PAM_SUCCESS) {
        try {
            failure = "PAM service " + service_ + ": " + step + ": " + pam_strerror(handle, rc);
        } catch (...) {
        }
    }
    // pam_end also wipes the password PAM kept; a failed pam_start leaves no handle.
    if (handle)
        pam_end(handle, rc);
    why = std::move(failure);
    return rc == PAM_SUCCESS;
}

} // namespace diagserver
