// Turns a CIM-XML request message into a CimRequest: the message envelope (CIM, MESSAGE,
// SIMPLEREQ) checked for the versions served, then one intrinsic or extrinsic method call with its
// namespace, target and parameters. What cannot be decoded raises DecodeError carrying the value
// of the CIMError header that answers it.
#ifndef DIAGSERVER_CIMXMLDECODER_H
#define DIAGSERVER_CIMXMLDECODER_H

#include "server/CimRequest.h"
#include "server/XmlElement.h"
#include "server/XmlReader.h"

#include <stdexcept>
#include <string>
#include <string_view>

namespace diagserver {

class DecodeError : public std::runtime_error {
public:
    // cimError: "request-not-well-formed", "request-not-valid", "unsupported-protocol-version",
    // "unsupported-cim-version", "unsupported-dtd-version" or "multiple-requests-unsupported".
    DecodeError(std::string cimError, const std::string& message)
        : std::runtime_error(message), cimError_(std::move(cimError)) {}
    const std::string& cimError() const { return cimError_; }
    // HTTP status that goes with it: 501 for what is not supported, else 400.
    int httpStatus() const;

private:
    std::string cimError_;
};

class CimXmlDecoder {
public:
    // Throws DecodeError.
    static CimRequest decode(const XmlElement& root);
    // Reads and decodes a whole message. Throws DecodeError.
    static CimRequest decode(std::string_view message, XmlReader::Limits limits);
};

} // namespace diagserver

#endif
