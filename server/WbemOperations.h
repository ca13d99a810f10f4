// Answers decoded CIM operations from the embedded object manager: checks the namespace, the
// class and the parameters, runs the operation on the host and writes the whole CIM-XML response
// message (the answer, or an ERROR with the CIM status code and its description). CMPI return
// codes become the CIM status codes of the same number. Safe to call from several threads at
// once, as the host is.
#ifndef DIAGSERVER_WBEMOPERATIONS_H
#define DIAGSERVER_WBEMOPERATIONS_H

#include "server/CimRequest.h"
#include "server/CimXmlWriter.h"

#include <string>

namespace diaghost {
class Host;
} // namespace diaghost

namespace diagserver {

class WbemOperations {
public:
    // The host must outlive this object; hostName goes into the paths answered.
    explicit WbemOperations(diaghost::Host& host, std::string hostName = "localhost");

    // The CIM status code of the answer: 0 when the operation succeeded.
    unsigned answer(const CimRequest& request, CimXmlWriter& out);

private:
    struct Outcome {
        unsigned code = 0;
        std::string description;
    };

    Outcome intrinsic(const CimRequest& request, CimXmlWriter& out);
    Outcome extrinsic(const CimRequest& request, CimXmlWriter& out);

    diaghost::Host& host_;
    std::string hostName_;
};

} // namespace diagserver

#endif
