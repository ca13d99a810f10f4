// Answers decoded CIM operations from the embedded object manager: checks the namespace, the
// class and the parameters, runs the operation on the host and writes the CIM-XML response
// message (the answer, or an ERROR with the CIM status code and its description). CMPI return
// codes become the CIM status codes of the same number. The instances and paths of a long answer
// are written as the reader asks for them, from the operation's result, so that the message never
// lies whole in memory. Safe to call from several threads at once, as the host is.
#ifndef DIAGSERVER_WBEMOPERATIONS_H
#define DIAGSERVER_WBEMOPERATIONS_H

#include "server/CimRequest.h"
#include "server/CimXmlWriter.h"

#include "host/OperationResult.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace diaghost {
class Host;
} // namespace diaghost

namespace diagserver {

class WbemOperations {
public:
    // The host must outlive this object; hostName goes into the paths answered.
    explicit WbemOperations(diaghost::Host& host, std::string hostName = "localhost");

    // The rest of a response message whose operation has run.
    class Reply {
    public:
        // The CIM status code of the answer: 0 when the operation succeeded. Known before the
        // rest is written; a failure while writing is the caller's to report.
        unsigned code() const { return code_; }
        // Writes about `bytes` more of the message and flushes the writer; false once the
        // message is complete. Throws what the writer's sink throws, or for lack of memory.
        bool writeMore(CimXmlWriter& out, std::size_t bytes);

    private:
        friend class WbemOperations;
        enum class Items { None, InstanceNames, NamedInstances, ObjectPaths, ObjectsWithPath };
        explicit Reply(WbemOperations& operations) : operations_(operations) {}
        void writeItem(CimXmlWriter& out, std::size_t index);

        WbemOperations& operations_;
        unsigned code_ = 0;
        bool intrinsic_ = true;
        bool complete_ = false;
        Items items_ = Items::None;
        std::optional<diaghost::OperationResult> result_;
        std::optional<std::vector<std::string>> properties_;
        std::size_t next_ = 0;
    };

    // Runs the operation and writes the head of the response message (all of it for an answer
    // without a list of instances or paths); the reply writes the rest.
    std::unique_ptr<Reply> reply(const CimRequest& request, CimXmlWriter& out);
    // The whole message at once; the CIM status code of the answer.
    unsigned answer(const CimRequest& request, CimXmlWriter& out);

private:
    struct Outcome {
        unsigned code = 0;
        std::string description;
    };

    Outcome intrinsic(const CimRequest& request, CimXmlWriter& out, Reply& reply);
    Outcome extrinsic(const CimRequest& request, CimXmlWriter& out);

    diaghost::Host& host_;
    std::string hostName_;
};

} // namespace diagserver

#endif
