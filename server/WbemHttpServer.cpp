#include "server/WbemHttpServer.h"

#include "host/text/CimNames.h"
#include "server/AnswerStream.h"
#include "server/Authenticator.h"
#include "server/CimXmlDecoder.h"
#include "server/ConnectionWatch.h"
#include "server/PamAuthenticator.h"
#include "server/PasswordFile.h"
#include "server/WbemOperations.h"

#include <arpa/inet.h>
#include <gnutls/gnutls.h>
#include <gnutls/x509.h>
#include <microhttpd.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <list>
#include <mutex>
#include <optional>
#include <sstream>

namespace diagserver {

namespace {

using Clock = std::chrono::steady_clock;

// Each connection's memory in libmicrohttpd: a request's headers, and the buffer a streamed
// answer is sent from, which gets about half of it. The library's 32 KiB sends a long answer
// 16 KiB per system call; 128 KiB sends it 64 KiB at a time.
constexpr std::size_t connectionMemory = std::size_t{128} << 10;
// Connections beyond the limit the library may hold while the watch closes others for them.
constexpr unsigned closingRoom = 8;
// How much of an answer is made ready before it is sent: a short answer within it goes out with
// its length, a longer one chunked.
constexpr std::size_t streamPiece = std::size_t{64} << 10;

// What one request has gathered between the calls libmicrohttpd makes for it.
struct Exchange {
    Clock::time_point started = Clock::now();
    bool http11 = false; // HTTP/1.1 (else 1.0): only then can an answer carry trailers
    std::string body;
    std::size_t received = 0; // body bytes, kept or not
    bool tooLarge = false;
    bool answered = false;
};

struct Listener {
    std::string address;
    MHD_Daemon* daemon = nullptr;
    unsigned short port = 0;
};

// What libmicrohttpd's callbacks for one listener's connections are given.
struct ListenerContext {
    ConnectionWatch* watch;
    int index;
    bool tls;
};

// The watch's record of a connection, kept as the library's socket context.
ConnectionWatch::Connection* watched(MHD_Connection* connection) {
    const MHD_ConnectionInfo* info =
        MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
    return info ? static_cast<ConnectionWatch::Connection*>(info->socket_context) : nullptr;
}

// "ADDRESS:PORT" or "[IPV6]:PORT" as a socket address.
sockaddr_storage parseListen(const std::string& text, bool& ipv6) {
    std::string host;
    std::string port;
    if (!text.empty() && text[0] == '[') {
        std::size_t close = text.find(']');
        if (close == std::string::npos || close + 1 >= text.size() || text[close + 1] != ':')
            throw WbemHttpServer::StartError("listen address " + text + " is not [IPV6]:PORT");
        host = text.substr(1, close - 1);
        port = text.substr(close + 2);
    } else {
        std::size_t colon = text.rfind(':');
        if (colon == std::string::npos)
            throw WbemHttpServer::StartError("listen address " + text + " is not ADDRESS:PORT");
        host = text.substr(0, colon);
        port = text.substr(colon + 1);
    }
    char* end = nullptr;
    unsigned long number = std::strtoul(port.c_str(), &end, 10);
    if (port.empty() || *end != '\0' || number > 65535)
        throw WbemHttpServer::StartError("listen address " + text + " has no valid port");
    sockaddr_storage out{};
    auto* v4 = reinterpret_cast<sockaddr_in*>(&out);
    auto* v6 = reinterpret_cast<sockaddr_in6*>(&out);
    if (inet_pton(AF_INET, host.c_str(), &v4->sin_addr) == 1) {
        v4->sin_family = AF_INET;
        v4->sin_port = htons(static_cast<uint16_t>(number));
        ipv6 = false;
    } else if (inet_pton(AF_INET6, host.c_str(), &v6->sin6_addr) == 1) {
        v6->sin6_family = AF_INET6;
        v6->sin6_port = htons(static_cast<uint16_t>(number));
        ipv6 = true;
    } else {
        throw WbemHttpServer::StartError("listen address " + text +
                                         " is not a numeric IPv4 or IPv6 address");
    }
    return out;
}

bool isLoopback(const sockaddr_storage& address) {
    if (address.ss_family == AF_INET) {
        const auto& v4 = reinterpret_cast<const sockaddr_in&>(address);
        return (ntohl(v4.sin_addr.s_addr) >> 24) == 127;
    }
    const auto& v6 = reinterpret_cast<const sockaddr_in6&>(address);
    return IN6_IS_ADDR_LOOPBACK(&v6.sin6_addr);
}

// A whole file, or a StartError naming it.
std::string fileText(const std::string& path, const std::string& what) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw WbemHttpServer::StartError("cannot read the " + what + " " + path + ": " +
                                         std::strerror(errno));
    std::ostringstream text;
    text << in.rdbuf();
    if (in.bad())
        throw WbemHttpServer::StartError("cannot read the " + what + " " + path);
    return text.str();
}

gnutls_datum_t datumOf(const std::string& text) {
    return {reinterpret_cast<unsigned char*>(const_cast<char*>(text.data())),
            static_cast<unsigned>(text.size())};
}

// Parses the certificate and key as the TLS library will when serving, so that a bad file is
// named at start rather than failing every handshake or the daemon's start without a reason.
void checkTlsPair(const std::string& certificateFile, const std::string& certificate,
                  const std::string& keyFile, const std::string& key) {
    using StartError = WbemHttpServer::StartError;
    const gnutls_datum_t certificateData = datumOf(certificate);
    const gnutls_datum_t keyData = datumOf(key);
    gnutls_x509_crt_t* chain = nullptr;
    unsigned count = 0;
    int rc = gnutls_x509_crt_list_import2(&chain, &count, &certificateData, GNUTLS_X509_FMT_PEM, 0);
    if (rc >= 0) {
        for (unsigned i = 0; i < count; ++i)
            gnutls_x509_crt_deinit(chain[i]);
        gnutls_free(chain);
    }
    if (rc < 0 || count == 0)
        throw StartError("the certificate " + certificateFile + " holds no PEM certificate" +
                         (rc < 0 ? std::string(": ") + gnutls_strerror(rc) : std::string()));
    gnutls_x509_privkey_t parsed = nullptr;
    rc = gnutls_x509_privkey_init(&parsed);
    if (rc >= 0) {
        rc = gnutls_x509_privkey_import2(parsed, &keyData, GNUTLS_X509_FMT_PEM, nullptr, 0);
        gnutls_x509_privkey_deinit(parsed);
    }
    if (rc < 0)
        throw StartError("the key " + keyFile +
                         " is not an unencrypted PEM private key: " + gnutls_strerror(rc));
    gnutls_certificate_credentials_t credentials = nullptr;
    rc = gnutls_certificate_allocate_credentials(&credentials);
    if (rc >= 0) {
        rc = gnutls_certificate_set_x509_key_mem2(credentials, &certificateData, &keyData,
                                                  GNUTLS_X509_FMT_PEM, nullptr, 0);
        gnutls_certificate_free_credentials(credentials);
    }
    if (rc < 0)
        throw StartError("the key " + keyFile + " does not go with the certificate " +
                         certificateFile + ": " + gnutls_strerror(rc));
}

std::string percentDecoded(const std::string& text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() &&
            std::isxdigit(static_cast<unsigned char>(text[i + 1])) &&
            std::isxdigit(static_cast<unsigned char>(text[i + 2]))) {
            out += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            out += text[i];
        }
    }
    return out;
}

// Whether a comma-separated header value names the token (any case, parameters ignored).
bool containsToken(std::string_view value, std::string_view token) {
    while (!value.empty()) {
        const std::size_t comma = value.find(',');
        std::string_view item = value.substr(0, comma);
        item = item.substr(0, item.find(';'));
        while (!item.empty() && (item.front() == ' ' || item.front() == '\t'))
            item.remove_prefix(1);
        while (!item.empty() && (item.back() == ' ' || item.back() == '\t'))
            item.remove_suffix(1);
        if (diaghost::sameName(item, token))
            return true;
        if (comma == std::string_view::npos)
            break;
        value.remove_prefix(comma + 1);
    }
    return false;
}

// Text fit for a header value: printable ASCII as it stands, every other byte and '%'
// percent-encoded; for a field of the access log, the blank too, so that a client's text can
// neither start a line of its own nor shift the fields after it.
std::string headerText(std::string_view text, bool logField = false) {
    static const char hex[] = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : text) {
        if (c > (logField ? 0x20 : 0x1f) && c < 0x7f && c != '%') {
            out += static_cast<char>(c);
        } else {
            out += '%';
            out += hex[c >> 4];
            out += hex[c & 15];
        }
    }
    return out;
}

std::string trimmedNamespace(std::string ns) {
    while (!ns.empty() && ns.front() == '/')
        ns.erase(ns.begin());
    while (!ns.empty() && ns.back() == '/')
        ns.pop_back();
    return ns;
}

// Every value a request's header of that name has, in the order sent.
std::vector<std::string> headerValues(MHD_Connection* connection, const char* name) {
    struct Wanted {
        const char* name;
        std::vector<std::string> values;
    } wanted{name, {}};
    MHD_get_connection_values(
        connection, MHD_HEADER_KIND,
        [](void* cls, MHD_ValueKind, const char* key, const char* value) -> MHD_Result {
            auto* w = static_cast<Wanted*>(cls);
            if (key && diaghost::sameName(key, w->name))
                w->values.emplace_back(value ? value : "");
            return MHD_YES;
        },
        &wanted);
    return wanted.values;
}

// Why a request's body cannot be read for certain where it ends (the HTTP status to answer,
// and what to log); none when its framing is sound: at most one length, or chunked transfer
// coding alone. Guessing at either would read the body or the next request wrongly.
std::optional<std::pair<unsigned, std::string>> framingFault(MHD_Connection* connection) {
    const std::vector<std::string> lengths = headerValues(connection, "Content-Length");
    const std::vector<std::string> codings = headerValues(connection, "Transfer-Encoding");
    for (const std::string& length : lengths)
        if (length != lengths.front())
            return std::make_pair(400u, std::string("Content-Length given twice, differently"));
    if (codings.empty())
        return std::nullopt;
    // As libmicrohttpd reads it: leading blanks dropped, and then "chunked" exactly (a trailing
    // blank makes it a coding the library does not know, and a body it would read to the end).
    std::string_view coding = codings.front();
    while (!coding.empty() && (coding.front() == ' ' || coding.front() == '\t'))
        coding.remove_prefix(1);
    if (codings.size() > 1 || !diaghost::sameName(coding, "chunked"))
        return std::make_pair(501u, std::string("transfer coding other than chunked alone"));
    if (!lengths.empty())
        return std::make_pair(400u, std::string("both Content-Length and Transfer-Encoding"));
    return std::nullopt;
}

// How many bytes the Basic credentials of the Authorization header decode to; none when there
// are none. libmicrohttpd hands user and password over as C strings, so a password holding a NUL
// byte would otherwise be checked as what comes before it.
std::optional<std::size_t> basicCredentialsLength(MHD_Connection* connection) {
    const char* header =
        MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_AUTHORIZATION);
    if (!header || std::strlen(header) < 6 ||
        !diaghost::sameName(std::string_view(header, 5), "Basic"))
        return std::nullopt;
    std::string_view encoded(header + 5);
    while (!encoded.empty() && encoded.front() == ' ')
        encoded.remove_prefix(1);
    while (!encoded.empty() && encoded.back() == ' ')
        encoded.remove_suffix(1);
    std::size_t padding = 0;
    while (padding < encoded.size() && padding < 2 && encoded[encoded.size() - 1 - padding] == '=')
        ++padding;
    return encoded.size() * 3 / 4 - padding;
}

// The client's address; empty when it is not known.
std::string addressOf(MHD_Connection* connection) {
    const MHD_ConnectionInfo* info =
        MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
    if (!info || !info->client_addr)
        return {};
    char text[INET6_ADDRSTRLEN] = "";
    const sockaddr* a = info->client_addr;
    if (a->sa_family == AF_INET)
        inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(a)->sin_addr, text, sizeof text);
    else if (a->sa_family == AF_INET6)
        inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6*>(a)->sin6_addr, text,
                  sizeof text);
    return text;
}

// The client as the access log names it.
std::string clientOf(MHD_Connection* connection) {
    std::string address = addressOf(connection);
    return address.empty() ? "-" : address;
}

// The class a request is about, for the access log.
std::string classOf(const CimRequest& request) {
    if (!request.intrinsic)
        return request.target.className;
    for (const char* name : {"ClassName", "InstanceName", "ObjectName"}) {
        if (const CimRequest::Value* v = request.param(name)) {
            if (v->kind == CimRequest::Value::Kind::InstanceName)
                return v->path.className;
            if (!v->text.empty())
                return v->text;
        }
    }
    return "-";
}

} // namespace

struct WbemHttpServer::Impl {
    Impl(diaghost::Host& h, Options o)
        : host(h), options(std::move(o)), operations(h, localHostName()) {}

    // A reply without a CIM body: an HTTP status and, for CIM faults, the CIMError header.
    MHD_Result plain(MHD_Connection* connection, unsigned status, const std::string& cimError,
                     const char* extraName = nullptr, const char* extraValue = nullptr) {
        MHD_Response* response =
            MHD_create_response_from_buffer(0, nullptr, MHD_RESPMEM_PERSISTENT);
        if (!response)
            return MHD_NO;
        if (!cimError.empty())
            MHD_add_response_header(response, "CIMError", cimError.c_str());
        if (extraName)
            MHD_add_response_header(response, extraName, extraValue);
        MHD_Result queued = MHD_queue_response(connection, status, response);
        MHD_destroy_response(response);
        return queued;
    }

    void log(MHD_Connection* connection, const std::string& operation, const std::string& cls,
             const std::string& status, const Exchange& exchange) {
        if (options.accessLog)
            log(clientOf(connection), operation, cls, status, exchange.started);
    }

    void log(const std::string& client, const std::string& operation, const std::string& cls,
             const std::string& status, Clock::time_point started) {
        if (!options.accessLog)
            return;
        const auto micros =
            std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - started).count();
        const std::string op = operation.empty() ? "-" : headerText(operation, true);
        const std::string className = cls.empty() ? "-" : headerText(cls, true);
        std::lock_guard<std::mutex> lock(logMutex);
        *options.accessLog << client << ' ' << op << ' ' << className << ' ' << status << ' '
                           << micros << "us\n";
        options.accessLog->flush();
    }

    // An answer longer than one piece, streamed with chunked transfer coding as libmicrohttpd
    // reads it; freed with the response.
    struct Streamed {
        Streamed(Impl& i, std::unique_ptr<WbemOperations::Reply> r)
            : impl(i), reply(std::move(r)),
              stream([this](CimXmlWriter& out, std::size_t bytes,
                            bool wait) { return reply->writeMore(out, bytes, wait); },
                     streamPiece, i.operations.pieces()) {}
        Impl& impl;
        std::unique_ptr<WbemOperations::Reply> reply;
        AnswerStream stream;
        MHD_Response* response = nullptr;
        // The client takes trailers: a failure after the first piece went out is told there.
        bool trailers = false;
        std::string client, operation, cls;
        Clock::time_point started;
        std::string status = "aborted";
    };

    static ssize_t readStreamed(void* context, uint64_t, char* out, size_t max) {
        auto* s = static_cast<Streamed*>(context);
        AnswerStream::State state = AnswerStream::State::Failed;
        std::size_t n = 0;
        try {
            n = s->stream.read(out, max, state);
        } catch (...) {
            return MHD_CONTENT_READER_END_WITH_ERROR;
        }
        if (state == AnswerStream::State::Data)
            return static_cast<ssize_t>(n);
        if (state == AnswerStream::State::End) {
            s->status = std::to_string(s->reply->code());
            if (s->trailers)
                MHD_add_response_footer(s->response, "CIMStatusCode", "0");
            return MHD_CONTENT_READER_END_OF_STREAM;
        }
        s->status = std::to_string(s->stream.failureCode()) + " while streaming";
        if (!s->trailers)
            return MHD_CONTENT_READER_END_WITH_ERROR;
        const std::string code = std::to_string(s->stream.failureCode());
        MHD_add_response_footer(s->response, "CIMStatusCode", code.c_str());
        MHD_add_response_footer(s->response, "CIMStatusCodeDescription",
                                headerText(s->stream.failureDescription()).c_str());
        return MHD_CONTENT_READER_END_OF_STREAM;
    }

    static void freeStreamed(void* context) {
        auto* s = static_cast<Streamed*>(context);
        s->impl.log(s->client, s->operation, s->cls, s->status, s->started);
        delete s;
    }

    MHD_Result serve(MHD_Connection* connection, const char* url, const char* method,
                     Exchange& exchange) {
        const bool mpost = std::strcmp(method, "M-POST") == 0;
        if (!mpost && std::strcmp(method, "POST") != 0) {
            log(connection, method, "-", "405", exchange);
            return plain(connection, MHD_HTTP_METHOD_NOT_ALLOWED, "", "Allow", "POST, M-POST");
        }
        if (std::strcmp(url, "/cimom") != 0) {
            log(connection, method, "-", "404", exchange);
            return plain(connection, MHD_HTTP_NOT_FOUND, "");
        }
        // M-POST names the extension's header prefix in its Man header.
        std::string prefix;
        if (mpost) {
            const char* man = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, "Man");
            const char* ns = man ? std::strstr(man, "ns=") : nullptr;
            // A mandatory request whose extension is not understood is answered 510, the sign
            // for clients to send it again as POST.
            if (!man || !std::strstr(man, "http://www.dmtf.org/cim/mapping/http/v1.0"))
                return refuse(connection, exchange, MHD_HTTP_NOT_EXTENDED, "",
                              "M-POST without the CIM mapping in its Man header");
            for (const char* p = ns ? ns + 3 : ""; std::isdigit(static_cast<unsigned char>(*p));
                 ++p)
                prefix += *p;
            if (prefix.empty())
                return refuse(connection, exchange, 400, "request-not-valid",
                              "the Man header names no header prefix");
            prefix += '-';
        }
        auto header = [&](const char* name) -> const char* {
            return MHD_lookup_connection_value(connection, MHD_HEADER_KIND,
                                               (prefix + name).c_str());
        };
        if (exchange.tooLarge)
            return refuse(connection, exchange, MHD_HTTP_CONTENT_TOO_LARGE, "",
                          "the request body is larger than the server accepts");
        const char* operation = header("CIMOperation");
        if (!operation || !diaghost::sameName(operation, "MethodCall"))
            return refuse(connection, exchange, 400, "unsupported-operation",
                          "CIMOperation is not MethodCall");
        if (const char* version = header("CIMProtocolVersion"))
            if (version[0] != '1' || (version[1] != '\0' && version[1] != '.'))
                return refuse(connection, exchange, 501, "unsupported-protocol-version",
                              "CIMProtocolVersion 1.x is served");

        CimRequest request;
        try {
            request = CimXmlDecoder::decode(exchange.body, options.xml);
        } catch (const DecodeError& e) {
            return refuse(connection, exchange, static_cast<unsigned>(e.httpStatus()), e.cimError(),
                          e.what());
        }
        const char* cimMethod = header("CIMMethod");
        const char* cimObject = header("CIMObject");
        if (!cimMethod || !diaghost::sameName(percentDecoded(cimMethod), request.method))
            return refuse(connection, exchange, 400, "header-mismatch",
                          "CIMMethod does not name the body's method");
        if (!cimObject || !objectMatches(percentDecoded(cimObject), request))
            return refuse(connection, exchange, 400, "header-mismatch",
                          "CIMObject does not name the body's object");

        // Freed before the answer is written: a long answer needs the memory more.
        std::string().swap(exchange.body);
        auto streamed = std::make_unique<Streamed>(*this, nullptr);
        streamed->reply = operations.reply(request, streamed->stream.writer());
        const unsigned code = streamed->reply->code();
        MHD_Response* response = nullptr;
        if (streamed->stream.fill()) {
            // The whole answer is one piece: it goes with its length.
            log(connection, request.method, classOf(request), std::to_string(code), exchange);
            const std::string_view whole = streamed->stream.buffered();
            response = MHD_create_response_from_buffer(
                whole.size(), const_cast<char*>(whole.data()), MHD_RESPMEM_MUST_COPY);
        } else {
            const char* te = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, "TE");
            streamed->trailers = exchange.http11 && te && containsToken(te, "trailers");
            streamed->client = clientOf(connection);
            streamed->operation = request.method;
            streamed->cls = classOf(request);
            streamed->started = exchange.started;
            response = MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, streamPiece,
                                                         &Impl::readStreamed, streamed.get(),
                                                         &Impl::freeStreamed);
            if (response) {
                streamed->response = response;
                if (streamed->trailers)
                    MHD_add_response_header(response, "Trailer",
                                            "CIMStatusCode, CIMStatusCodeDescription");
                streamed.release(); // the response's now
            }
        }
        if (!response)
            return MHD_NO;
        MHD_add_response_header(response, "Content-Type", "application/xml; charset=\"utf-8\"");
        MHD_add_response_header(response, (prefix + "CIMOperation").c_str(), "MethodResponse");
        // Ext has no value; libmicrohttpd takes no empty one, and a blank reads as none.
        if (mpost)
            MHD_add_response_header(response, "Ext", " ");
        MHD_Result queued = MHD_queue_response(connection, MHD_HTTP_OK, response);
        MHD_destroy_response(response);
        return queued;
    }

    MHD_Result refuse(MHD_Connection* connection, Exchange& exchange, unsigned status,
                      const std::string& cimError, const std::string& why) {
        log(connection, "-", "-", std::to_string(status) + " " + headerText(why), exchange);
        return plain(connection, status, cimError);
    }

    // Whether the request holds Basic credentials the authenticator takes (Busy: they could not
    // be verified in time); a refusal is logged with its reason and the user name given, never
    // the password.
    Authenticator::Verdict authenticated(MHD_Connection* connection, Exchange& exchange) {
        char* password = nullptr;
        char* user = MHD_basic_auth_get_username_password(connection, &password);
        if (!user) {
            log(connection, "-", "-", "401 no Basic credentials", exchange);
            return Authenticator::Verdict::Refused;
        }
        Authenticator::Verdict verdict = Authenticator::Verdict::Refused;
        std::string given;
        std::string why;
        try {
            const std::optional<std::size_t> sent = basicCredentialsLength(connection);
            if (password && sent != std::strlen(user) + 1 + std::strlen(password)) {
                why = "the credentials hold a NUL byte";
            } else if (password) {
                given = password;
                verdict = authenticator->check(user, given, addressOf(connection), why);
            }
        } catch (...) {
            verdict = Authenticator::Verdict::Refused;
        }
        explicit_bzero(given.data(), given.size());
        if (verdict == Authenticator::Verdict::Busy) {
            log(connection, "-", "-",
                "503 no password verification free in time for user " + headerText(user), exchange);
        } else if (verdict != Authenticator::Verdict::Accepted) {
            log(connection, "-", "-",
                "401 wrong credentials for user " + headerText(user) +
                    (why.empty() ? "" : " (" + why + ")"),
                exchange);
        }
        if (password) {
            explicit_bzero(password, std::strlen(password));
            MHD_free(password);
        }
        MHD_free(user);
        return verdict;
    }

    MHD_Result unauthorized(MHD_Connection* connection) {
        MHD_Response* response =
            MHD_create_response_from_buffer(0, nullptr, MHD_RESPMEM_PERSISTENT);
        if (!response)
            return MHD_NO;
        MHD_Result queued =
            MHD_queue_basic_auth_fail_response(connection, options.realm.c_str(), response);
        MHD_destroy_response(response);
        return queued;
    }

    // CIMObject names the namespace of an intrinsic call, the object of an extrinsic one.
    static bool objectMatches(const std::string& object, const CimRequest& request) {
        if (request.intrinsic)
            return diaghost::sameName(trimmedNamespace(object),
                                      trimmedNamespace(request.nameSpace));
        const std::size_t colon = object.find(':');
        if (colon == std::string::npos)
            return false;
        std::string cls = object.substr(colon + 1);
        cls = cls.substr(0, cls.find('.'));
        return diaghost::sameName(trimmedNamespace(object.substr(0, colon)),
                                  trimmedNamespace(request.nameSpace)) &&
               diaghost::sameName(cls, request.target.className);
    }

    static MHD_Result access(void* self, MHD_Connection* connection, const char* url,
                             const char* method, const char* version, const char* upload,
                             size_t* uploadSize, void** context) {
        auto* impl = static_cast<Impl*>(self);
        const auto* before = static_cast<Exchange*>(*context);
        const bool wasAnswered = before && before->answered;
        const MHD_Result result =
            receive(impl, connection, url, method, version, upload, uploadSize, context);
        // Once an answer is on its way the request is no longer waited for, and nothing may be
        // written into the connection beside it.
        const auto* exchange = static_cast<Exchange*>(*context);
        if (!wasAnswered && exchange && exchange->answered && impl->watch)
            impl->watch->requestRead(watched(connection));
        return result;
    }

    static MHD_Result receive(Impl* impl, MHD_Connection* connection, const char* url,
                              const char* method, const char* version, const char* upload,
                              size_t* uploadSize, void** context) {
        try {
            auto* exchange = static_cast<Exchange*>(*context);
            if (!exchange) {
                exchange = new Exchange;
                *context = exchange;
                exchange->http11 = version && std::strcmp(version, "HTTP/1.1") == 0;
                // Nothing of a request without valid credentials is read or acted on.
                if (impl->authenticator) {
                    const Authenticator::Verdict verdict =
                        impl->authenticated(connection, *exchange);
                    if (verdict == Authenticator::Verdict::Busy) {
                        // Not 401: the credentials may well be right, and clients take 401 as
                        // a wrong password. Retry-After asks for another try after the wait.
                        exchange->answered = true;
                        return impl->plain(connection, MHD_HTTP_SERVICE_UNAVAILABLE, "",
                                           "Retry-After", impl->retryAfter.c_str());
                    }
                    if (verdict != Authenticator::Verdict::Accepted) {
                        exchange->answered = true;
                        return impl->unauthorized(connection);
                    }
                }
                if (const auto fault = framingFault(connection)) {
                    exchange->answered = true;
                    return impl->refuse(connection, *exchange, fault->first, "", fault->second);
                }
                // A body announced past the limit is refused before it is read.
                const char* length =
                    MHD_lookup_connection_value(connection, MHD_HEADER_KIND, "Content-Length");
                if (length && std::strtoull(length, nullptr, 10) > impl->options.maxBody) {
                    exchange->answered = true;
                    return impl->refuse(connection, *exchange, MHD_HTTP_CONTENT_TOO_LARGE, "",
                                        "the request body is larger than the server accepts");
                }
                return MHD_YES;
            }
            if (exchange->answered) {
                *uploadSize = 0;
                return MHD_YES;
            }
            if (*uploadSize > 0) {
                exchange->received += *uploadSize;
                if (exchange->received > impl->options.maxBody) {
                    // A body sent without its length grew past the limit. No answer can be
                    // given before the body ends, so the rest is read and dropped and the 413
                    // comes at its end; a client still sending at twice the limit is cut off.
                    if (!exchange->tooLarge) {
                        exchange->tooLarge = true;
                        exchange->body.clear();
                        exchange->body.shrink_to_fit();
                    }
                    *uploadSize = 0;
                    return exchange->received / 2 > impl->options.maxBody ? MHD_NO : MHD_YES;
                }
                exchange->body.append(upload, *uploadSize);
                *uploadSize = 0;
                return MHD_YES;
            }
            exchange->answered = true;
            // The request is here whole: however long the operation runs, it is no longer a
            // request being waited for.
            if (impl->watch)
                impl->watch->requestRead(watched(connection));
            return impl->serve(connection, url, method, *exchange);
        } catch (...) {
            return MHD_NO;
        }
    }

    static void completed(void* self, MHD_Connection* connection, void** context,
                          MHD_RequestTerminationCode) {
        delete static_cast<Exchange*>(*context);
        *context = nullptr;
        auto* impl = static_cast<Impl*>(self);
        if (impl->watch)
            impl->watch->answered(watched(connection));
    }

    static MHD_Result admit(void* context, const sockaddr*, socklen_t) {
        auto* listener = static_cast<ListenerContext*>(context);
        return listener->watch->admit(listener->index) ? MHD_YES : MHD_NO;
    }

    static void connectionNotice(void* context, MHD_Connection* connection, void** socketContext,
                                 MHD_ConnectionNotificationCode code) {
        auto* listener = static_cast<ListenerContext*>(context);
        if (code == MHD_CONNECTION_NOTIFY_STARTED) {
            const MHD_ConnectionInfo* info =
                MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
            *socketContext =
                info ? listener->watch->opened(listener->index, info->connect_fd, !listener->tls)
                     : nullptr;
        } else if (code == MHD_CONNECTION_NOTIFY_CLOSED) {
            listener->watch->closed(static_cast<ConnectionWatch::Connection*>(*socketContext));
            *socketContext = nullptr;
        }
    }

    static void* requestLine(void* context, const char*, MHD_Connection* connection) {
        static_cast<ListenerContext*>(context)->watch->requestBegun(watched(connection));
        return nullptr;
    }

    diaghost::Host& host;
    Options options;
    WbemOperations operations;
    std::vector<Listener> listeners;
    std::unique_ptr<ConnectionWatch> watch;
    std::list<ListenerContext> listenerContexts;
    std::mutex logMutex;
    // A PasswordFile or a PamAuthenticator; null when requests are not authenticated.
    std::unique_ptr<Authenticator> authenticator;
    // Seconds, for the Retry-After of a 503 when no verification was free in time.
    std::string retryAfter = "1";
    // Kept while serving: the TLS library is handed them by address.
    std::string certificatePem;
    std::string keyPem;
};

WbemHttpServer::WbemHttpServer(diaghost::Host& host, Options options)
    : impl_(std::make_unique<Impl>(host, std::move(options))) {}

WbemHttpServer::~WbemHttpServer() {
    stop();
}

void WbemHttpServer::start() {
    if (!impl_->listeners.empty())
        return;
    const Options& o = impl_->options;
    try {
        const bool tls = !o.certificateFile.empty() || !o.keyFile.empty();
        std::vector<MHD_OptionItem> tlsOptions;
        if (tls) {
            if (o.certificateFile.empty() || o.keyFile.empty())
                throw StartError("HTTPS needs both a certificate file and its key file");
            if (MHD_is_feature_supported(MHD_FEATURE_TLS) != MHD_YES)
                throw StartError("this libmicrohttpd is built without TLS");
            impl_->certificatePem = fileText(o.certificateFile, "certificate");
            impl_->keyPem = fileText(o.keyFile, "key");
            checkTlsPair(o.certificateFile, impl_->certificatePem, o.keyFile, impl_->keyPem);
            tlsOptions.push_back(
                {MHD_OPTION_HTTPS_MEM_CERT, 0, const_cast<char*>(impl_->certificatePem.c_str())});
            tlsOptions.push_back(
                {MHD_OPTION_HTTPS_MEM_KEY, 0, const_cast<char*>(impl_->keyPem.c_str())});
            // TLS 1.2 and 1.3 only: the library's defaults still take 1.0 and 1.1.
            static const char priorities[] = "NORMAL:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2";
            tlsOptions.push_back({MHD_OPTION_HTTPS_PRIORITIES, 0, const_cast<char*>(priorities)});
        }
        tlsOptions.push_back({MHD_OPTION_END, 0, nullptr});
        impl_->authenticator.reset();
        if (!o.passwordFile.empty() && !o.pamService.empty())
            throw StartError("a password file and a PAM service were both given: requests are "
                             "authenticated by one of them");
        if (!o.pamConfigDir.empty() && o.pamService.empty())
            throw StartError("a PAM configuration folder was given without a PAM service");
        if (!o.passwordFile.empty() || !o.pamService.empty()) {
            if (MHD_is_feature_supported(MHD_FEATURE_BASIC_AUTH) != MHD_YES)
                throw StartError("this libmicrohttpd is built without Basic authentication");
            Authenticator::Limits limits;
            limits.concurrentVerifications = o.concurrentVerifications;
            limits.verificationWait = o.verificationWait;
            limits.waitingVerifications = o.waitingVerifications;
            const auto waited = std::chrono::ceil<std::chrono::seconds>(o.verificationWait);
            impl_->retryAfter = std::to_string(waited.count() > 0 ? waited.count() : 1);
            if (!o.passwordFile.empty()) {
                PasswordFile::Options po;
                static_cast<Authenticator::Limits&>(po) = limits;
                try {
                    impl_->authenticator = std::make_unique<PasswordFile>(o.passwordFile, po);
                } catch (const PasswordFile::Error& e) {
                    throw StartError(std::string("the password file ") + e.what());
                }
            } else {
                PamAuthenticator::Options pamOptions;
                static_cast<Authenticator::Limits&>(pamOptions) = limits;
                pamOptions.configDir = o.pamConfigDir;
                try {
                    impl_->authenticator =
                        std::make_unique<PamAuthenticator>(o.pamService, pamOptions);
                } catch (const std::runtime_error& e) {
                    throw StartError(e.what());
                }
            }
        }
        ConnectionWatch::Options watching;
        watching.idle = std::chrono::seconds(o.idleTimeoutSeconds);
        watching.request = std::chrono::seconds(o.requestTimeoutSeconds);
        watching.capacity = o.maxConnections;
        impl_->watch = std::make_unique<ConnectionWatch>(watching);
        for (const std::string& address : o.listen) {
            bool ipv6 = false;
            sockaddr_storage socketAddress = parseListen(address, ipv6);
            if (!impl_->authenticator && !o.unauthenticatedRemote && !isLoopback(socketAddress))
                throw StartError("refusing to serve " + address +
                                 " without authentication to clients elsewhere: only loopback "
                                 "addresses are served without a password file or PAM service, "
                                 "unless unauthenticated remote clients are allowed");
            // A thread per connection: what one request waits for (a password check, a test
            // that runs for minutes, a provider slow to answer) holds up no other client.
            unsigned flags =
                MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_THREAD_PER_CONNECTION | MHD_USE_POLL;
            if (ipv6)
                flags |= MHD_USE_IPv6;
            if (tls)
                flags |= MHD_USE_TLS;
            ListenerContext& context = impl_->listenerContexts.emplace_back(ListenerContext{
                impl_->watch.get(), static_cast<int>(impl_->listenerContexts.size()), tls});
            // The library's own limit leaves room for the connections the watch is closing to
            // make way for new ones; the watch holds to maxConnections.
            MHD_Daemon* daemon = MHD_start_daemon(
                flags, 0, &Impl::admit, &context, &Impl::access, impl_.get(), MHD_OPTION_SOCK_ADDR,
                reinterpret_cast<sockaddr*>(&socketAddress), MHD_OPTION_CONNECTION_LIMIT,
                impl_->options.maxConnections + closingRoom, MHD_OPTION_NOTIFY_CONNECTION,
                &Impl::connectionNotice, &context, MHD_OPTION_URI_LOG_CALLBACK, &Impl::requestLine,
                &context, MHD_OPTION_PER_IP_CONNECTION_LIMIT, impl_->options.connectionsPerAddress,
                MHD_OPTION_CONNECTION_TIMEOUT, impl_->options.idleTimeoutSeconds,
                MHD_OPTION_CONNECTION_MEMORY_LIMIT, connectionMemory, MHD_OPTION_NOTIFY_COMPLETED,
                &Impl::completed, impl_.get(), MHD_OPTION_ARRAY, tlsOptions.data(), MHD_OPTION_END);
            if (!daemon)
                throw StartError("cannot listen on " + address + ": " + std::strerror(errno));
            Listener listener{address, daemon, 0};
            if (const MHD_DaemonInfo* info = MHD_get_daemon_info(daemon, MHD_DAEMON_INFO_BIND_PORT))
                listener.port = info->port;
            impl_->listeners.push_back(listener);
        }
    } catch (...) {
        stop();
        throw;
    }
}

void WbemHttpServer::stop() {
    for (Listener& l : impl_->listeners)
        MHD_quiesce_daemon(l.daemon);
    for (Listener& l : impl_->listeners)
        MHD_stop_daemon(l.daemon);
    impl_->listeners.clear();
    impl_->listenerContexts.clear();
    impl_->watch.reset();
}

std::vector<unsigned short> WbemHttpServer::ports() const {
    std::vector<unsigned short> out;
    for (const Listener& l : impl_->listeners)
        out.push_back(l.port);
    return out;
}

std::string WbemHttpServer::localHostName() {
    char name[256] = {};
    if (gethostname(name, sizeof name - 1) != 0 || name[0] == '\0')
        return "localhost";
    return name;
}

} // namespace diagserver
