#include "builder/InstanceBuilder.h"

#include "common/CmpiBoundary.h"
#include "common/CoreLog.h"
#include "instance/CMPIUtil.h"
#include "instance/SystemIdentity.h"

#include <cmpift.h>

#include <cstring>
#include <iostream>
#include <locale>
#include <sstream>

namespace NQORVA20 {

namespace {

template <typename T>
T readValue(std::stringstream& stream) {
    T value{};
    stream >> value;
    return stream.fail() ? T{} : value;
}

// Logs "Setting property <name> to '<text>'"; a line that fits is put together on the stack.
void logSetting(const CMPIBroker* broker, const std::string& name, const std::string& text) {
    static constexpr char prefix[] = "Setting property ";
    static constexpr char middle[] = " to '";
    const std::size_t length =
        (sizeof prefix - 1) + name.size() + (sizeof middle - 1) + text.size() + 1;
    char small[256];
    std::string large;
    char* line = small;
    if (length >= sizeof small) {
        large.resize(length);
        line = large.data();
    }
    char* at = line;
    auto put = [&at](const char* from, std::size_t count) {
        std::memcpy(at, from, count);
        at += count;
    };
    put(prefix, sizeof prefix - 1);
    put(name.data(), name.size());
    put(middle, sizeof middle - 1);
    put(text.data(), text.size());
    *at++ = '\'';
    *at = '\0';
    coreLog(broker, LogDebug, line);
}

// A read-write text stream per thread, in the classic locale, refilled for every reading:
// making a stream costs more than reading a number from it.
std::stringstream& conversionStream() {
    thread_local std::stringstream stream = [] {
        std::stringstream made(std::ios_base::in | std::ios_base::out);
        made.imbue(std::locale::classic());
        return made;
    }();
    return stream;
}

} // namespace

template <typename T>
T stringToDataType(std::string text) {
    std::stringstream& stream = conversionStream();
    const bool longText = text.size() > 256;
    stream.clear();
    stream.str(text);
    T value = readValue<T>(stream);
    // A long text's buffer is not kept for the rest of the thread.
    if (longText)
        stream.str(std::string());
    return value;
}

template DIAGCORE_EXPORT unsigned char stringToDataType<unsigned char>(std::string);
template DIAGCORE_EXPORT signed char stringToDataType<signed char>(std::string);
template DIAGCORE_EXPORT unsigned short stringToDataType<unsigned short>(std::string);
template DIAGCORE_EXPORT short stringToDataType<short>(std::string);
template DIAGCORE_EXPORT unsigned int stringToDataType<unsigned int>(std::string);
template DIAGCORE_EXPORT int stringToDataType<int>(std::string);
template DIAGCORE_EXPORT unsigned long stringToDataType<unsigned long>(std::string);
template DIAGCORE_EXPORT long stringToDataType<long>(std::string);
template DIAGCORE_EXPORT float stringToDataType<float>(std::string);
template DIAGCORE_EXPORT double stringToDataType<double>(std::string);
template DIAGCORE_EXPORT bool stringToDataType<bool>(std::string);

std::vector<std::string> multiStringTok(std::string& text, char separator) {
    std::vector<std::string> elements;
    std::string copy(text);
    copy.push_back(separator);
    std::size_t start = 0;
    for (std::size_t sep = copy.find(separator, start); sep != std::string::npos;
         sep = copy.find(separator, start)) {
        if (sep > start)
            elements.push_back(copy.substr(start, sep - start));
        start = sep + 1;
    }
    return elements;
}

ParseInstanceImpl::ParseInstanceImpl() = default;
ParseInstanceImpl::~ParseInstanceImpl() = default;
void ParseInstanceImpl::init() {}

InstanceBuilder::InstanceBuilder(std::string nameSpace) : nameSpace_(std::move(nameSpace)) {}

InstanceBuilder::~InstanceBuilder() = default;

void InstanceBuilder::printNS() {
    std::cout << nameSpace_ << std::endl;
}

CMPIInstance* InstanceBuilder::build(const CMPIBroker* broker, const CMPIContext* ctx,
                                     std::string className, InstanceImpl& instance) {
    if (!CmpiBoundary::brokerUsable(broker))
        return nullptr;
    CMPIObjectPath* path = CmpiBoundary::newPath(broker, className.c_str(), nameSpace_.c_str());
    if (CmpiBoundary::usable(path))
        path->ft->setHostname(path, SystemIdentity::HostName().c_str());
    if (path == nullptr || path->hdl == nullptr || path->ft == nullptr) {
        coreLog(broker, LogWarning, "InstanceBuilder::build -> Invalid object found");
        coreLog(broker, LogDebug, "Exiting InstanceBuilder::build");
        return nullptr;
    }
    CMPIInstance* result = broker->eft->newInstance(broker, path, nullptr);
    if (!CmpiBoundary::usable(result)) {
        coreLog(broker, LogDebug, "Exiting InstanceBuilder::build");
        return nullptr;
    }
    // The properties are read in place: nothing the build calls changes the instance object.
    if (instance.begin() == instance.end())
        return result;

    for (auto& [name, text] : instance) {
        CMPIData declared = result->ft->getProperty(result, name.c_str(), nullptr);
        CMPIType type = declared.type;
        if (type == 0)
            continue;
        if (type & CMPI_ARRAY) {
            std::vector<std::string> elements = multiStringTok(text, ',');
            CMPIArray* array = broker->eft->newArray(
                broker, static_cast<CMPICount>(elements.size()), type, nullptr);
            if (!CmpiBoundary::usable(array))
                continue;
            CMPIType elementType = type & ~CMPI_ARRAY;
            for (std::size_t i = 0; i < elements.size(); ++i) {
                CMPIValue value = convert(broker, ctx, elementType, elements[i]);
                array->ft->setElementAt(array, static_cast<CMPICount>(i), &value, elementType);
            }
            CMPIValue arrayValue;
            arrayValue.array = array;
            result->ft->setProperty(result, name.c_str(), &arrayValue, type);
        } else {
            logSetting(broker, name, text);
            CMPIValue value = convert(broker, ctx, type, text);
            if (type != 0)
                result->ft->setProperty(result, name.c_str(), &value, type);
        }
    }
    coreLog(broker, LogDebug, "Exiting InstanceBuilder::build");
    return result;
}

CMPIInstance* InstanceBuilder::build(const CMPIBroker* broker, const CMPIContext* ctx,
                                     const std::string& className, std::string& nameSpace,
                                     std::string& definitions) {
    if (!CmpiBoundary::brokerUsable(broker))
        return nullptr;
    CMPIObjectPath* path = CmpiBoundary::newPath(broker, className.c_str(), nameSpace.c_str());
    if (path == nullptr || path->hdl == nullptr || path->ft == nullptr) {
        coreLog(broker, LogDebug, "Null Object Path");
        return nullptr;
    }
    path->ft->setHostname(path, SystemIdentity::HostName().c_str());
    CMPIInstance* result = broker->eft->newInstance(broker, path, nullptr);
    if (!CmpiBoundary::usable(result)) {
        coreLog(broker, LogDebug, "Null Object Path");
        return nullptr;
    }
    std::vector<std::string> items = multiStringTok(definitions, ';');
    std::ostringstream count;
    count << "Number of property definitions to parse? " << items.size();
    coreLog(broker, LogDebug, count.str());
    for (std::string& item : items) {
        coreLog(broker, LogDebug, "Parsing a property Definition");
        std::size_t equals = item.find('=');
        if (equals == std::string::npos)
            continue;
        std::string name = item.substr(0, equals);
        std::string text = item.substr(equals + 1);
        std::cout << name << " " << text << " ";
        CMPIData declared = result->ft->getProperty(result, name.c_str(), nullptr);
        CMPIType type = declared.type;
        CMPIValue value = convert(broker, ctx, type, text);
        result->ft->setProperty(result, name.c_str(), &value, type);
    }
    return result;
}

CMPIInstance* InstanceBuilder::build(const CMPIBroker* broker, const CMPIContext* ctx,
                                     std::string& text) {
    ParseInstanceImpl scratch;
    CMPIUtil::ParseObjectPath(text, scratch);
    return build(broker, ctx, scratch.getClassName(), scratch);
}

CMPIValue InstanceBuilder::convert(const CMPIBroker* broker, const CMPIContext* ctx,
                                   unsigned short& type, std::string& text) {
    CMPIValue value;
    std::memset(&value, 0, sizeof value);
    switch (type) {
    case CMPI_boolean:
        value.boolean = stringToDataType<bool>(text);
        break;
    case CMPI_real32:
        value.real32 = stringToDataType<float>(text);
        break;
    case CMPI_real64:
        value.real64 = stringToDataType<double>(text);
        break;
    case CMPI_uint8:
        value.uint8 = stringToDataType<unsigned char>(text);
        break;
    case CMPI_uint16:
        value.uint16 = stringToDataType<unsigned short>(text);
        break;
    case CMPI_uint32:
        value.uint32 = stringToDataType<unsigned int>(text);
        break;
    case CMPI_uint64:
        value.uint64 = stringToDataType<unsigned long>(text);
        break;
    case CMPI_sint8:
        value.sint8 = stringToDataType<signed char>(text);
        break;
    case CMPI_sint16:
        value.sint16 = stringToDataType<short>(text);
        break;
    case CMPI_sint32:
        value.sint32 = stringToDataType<int>(text);
        break;
    case CMPI_sint64:
        value.sint64 = stringToDataType<long>(text);
        break;
    case CMPI_ref: {
        // The referenced instance is materialised twice; the path taken is the first one's.
        CMPIInstance* first = build(broker, ctx, text);
        CMPIInstance* second = build(broker, ctx, text);
        if (first != nullptr && second != nullptr)
            value.ref = second->ft->getObjectPath(first, nullptr);
        break;
    }
    case CMPI_string:
        value.string = CmpiBoundary::newString(broker, text.c_str());
        break;
    case CMPI_dateTime:
        if (!CmpiBoundary::brokerUsable(broker))
            break;
        value.dateTime = text.empty()
                             ? broker->eft->newDateTime(broker, nullptr)
                             : broker->eft->newDateTimeFromChars(broker, text.c_str(), nullptr);
        break;
    default:
        std::cout << "we didn't handle this case..."
                  << " " << type << " " << text << std::endl;
        break;
    }
    return value;
}

} // namespace NQORVA20
