#include "ServerTestSupport.h"

#include "host/providers/ProviderManager.h"
#include "host/providers/ProviderRegistration.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace servertest {

diaghost::Host& testHost() {
    static diaghost::Host* host = [] {
        diaghost::Host::Options options;
        options.providerPath = {DIAGHOST_TEST_PROVIDER_DIR};
        auto* made = new diaghost::Host(options);
        made->loadMof(std::string(DIAGHOST_TEST_DATA_DIR) + "/TestHost.mof");
        made->providers().addRegistrations(diaghost::ProviderRegistration::readText(
            "[Test_Element]\nprovider: Test_ElementProvider\nlocation: diaghosttest_elements\n"
            "type: instance method\nnamespace: root/cimv2\n\n"
            "[Test_SpecialElement]\nprovider: Test_ElementProvider\n"
            "location: diaghosttest_elements\ntype: instance\nnamespace: root/cimv2\n\n"
            "[Test_DerivedElement]\nprovider: Test_GoneProvider\n"
            "location: diaghosttest_nonexistent\ntype: instance\nnamespace: root/cimv2\n"));
        return made;
    }();
    return *host;
}

std::string httpExchange(unsigned short port, const std::string& request) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::string answer;
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
        send(fd, request.data(), request.size(), MSG_NOSIGNAL) ==
            static_cast<ssize_t>(request.size())) {
        char buffer[4096];
        for (ssize_t n; (n = recv(fd, buffer, sizeof buffer, 0)) > 0;)
            answer.append(buffer, static_cast<std::size_t>(n));
    }
    close(fd);
    return answer;
}

std::string cimRequest(const std::string& method, const std::string& object,
                       const std::string& body, const std::string& extraHeaders) {
    return "POST /cimom HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n" + extraHeaders +
           "CIMOperation: MethodCall\r\nCIMMethod: " + method + "\r\nCIMObject: " + object +
           "\r\nContent-Type: application/xml; charset=\"utf-8\"\r\nContent-Length: " +
           std::to_string(body.size()) + "\r\n\r\n" + body;
}

} // namespace servertest
