// Test provider library for the host suite: Test_ElementProvider serves Test_Element and
// Test_SpecialElement (instances and the Ping method) from an in-memory list, and
// Test_AssocProvider serves the Test_Assoc links between them. Written against the CMPI headers
// only, as any provider library is. Exported counters and a request log let tests see what the
// host asked for.
#include "ReadOnlyInstances.h"

#include <cmpidt.h>
#include <cmpift.h>
#include <cmpimacs.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

// The stubs store the broker at every factory call, and the host makes this library's four MIs
// lazily while other MIs of it may be running; an atomic holder keeps those stores race-free.
class SharedBroker {
public:
    SharedBroker& operator=(const CMPIBroker* b) {
        broker_.store(b);
        return *this;
    }
    operator const CMPIBroker*() const { return broker_.load(); }
    const CMPIBroker* operator->() const { return broker_.load(); }

private:
    std::atomic<const CMPIBroker*> broker_{nullptr};
};

SharedBroker _broker;

struct Element {
    std::string name;
    std::string className;
    CMPIUint32 size;
    CMPIBoolean enabled;
    CMPISint16 offset;
    CMPIReal64 ratio;
    std::vector<std::string> tags;
    std::string special; // Test_SpecialElement only
};

struct Link {
    std::string left;
    std::string right;
};

std::mutex stateMutex;
std::vector<Element> elements;
std::vector<Link> links;
std::vector<std::string> requests;

void initialState() {
    elements = {
        {"alpha", "Test_Element", 1, 1, -5, 0.5, {"red", "green"}, ""},
        {"beta", "Test_Element", 2, 0, 7, 1.25, {}, ""},
        {"gamma", "Test_SpecialElement", 3, 1, 0, 2.0, {"blue"}, "shiny"},
    };
    links = {{"alpha", "beta"}, {"alpha", "gamma"}};
    requests.clear();
}

struct StateInit {
    StateInit() { initialState(); }
} stateInit;

bool iequals(const std::string& a, const std::string& b) {
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](unsigned char x, unsigned char y) {
               return std::tolower(x) == std::tolower(y);
           });
}

std::string str(const CMPIString* s) {
    const char* p = s ? CMGetCharsPtr(s, nullptr) : nullptr;
    return p ? p : "";
}

void record(const std::string& what) {
    std::lock_guard<std::mutex> lock(stateMutex);
    requests.push_back(what);
}

std::string keyName(const CMPIObjectPath* op) {
    CMPIStatus rc{CMPI_RC_OK, nullptr};
    CMPIData d = CMGetKey(op, "Name", &rc);
    if (rc.rc != CMPI_RC_OK || (d.state & CMPI_nullValue) || d.type != CMPI_string)
        return {};
    return str(d.value.string);
}

CMPIObjectPath* elementPath(const Element& e, const char* ns) {
    CMPIObjectPath* op = CMNewObjectPath(_broker, ns, e.className.c_str(), nullptr);
    CMAddKey(op, "Name", e.name.c_str(), CMPI_chars);
    return op;
}

CMPIInstance* elementInstance(const Element& e, const char* ns) {
    CMPIInstance* inst = CMNewInstance(_broker, elementPath(e, ns), nullptr);
    CMSetProperty(inst, "Name", e.name.c_str(), CMPI_chars);
    CMSetProperty(inst, "Size", &e.size, CMPI_uint32);
    CMSetProperty(inst, "Enabled", &e.enabled, CMPI_boolean);
    CMSetProperty(inst, "Offset", &e.offset, CMPI_sint16);
    CMSetProperty(inst, "Ratio", &e.ratio, CMPI_real64);
    CMPIArray* tags =
        CMNewArray(_broker, static_cast<CMPICount>(e.tags.size()), CMPI_string, nullptr);
    for (std::size_t i = 0; i < e.tags.size(); ++i)
        CMSetArrayElementAt(tags, static_cast<CMPICount>(i), e.tags[i].c_str(), CMPI_chars);
    CMSetProperty(inst, "Tags", &tags, CMPI_stringA);
    if (e.className == "Test_SpecialElement")
        CMSetProperty(inst, "Special", e.special.c_str(), CMPI_chars);
    return inst;
}

// Elements named by a path whose class is the element's class or one of its ancestors.
const Element* findElement(const CMPIObjectPath* op) {
    std::string name = keyName(op);
    for (const Element& e : elements) {
        if (e.name != name)
            continue;
        CMPIObjectPath* own = elementPath(e, nullptr);
        if (CMClassPathIsA(_broker, own, str(CMGetClassName(op, nullptr)).c_str(), nullptr))
            return &e;
    }
    return nullptr;
}

std::string nsOf(const CMPIObjectPath* op) {
    return str(CMGetNameSpace(op, nullptr));
}

} // namespace

extern "C" {
// cleanup(terminating false) and cleanup(terminating true) calls of every MI of this library.
CMPI_EXPORT int TestElements_cleanups = 0;
CMPI_EXPORT int TestElements_terminations = 0;
// MI factory calls.
CMPI_EXPORT int TestElements_initializations = 0;
// What cleanup(terminating false) answers; tests may set CMPI_RC_DO_NOT_UNLOAD.
CMPI_EXPORT int TestElements_idleAnswer = CMPI_RC_OK;

// How many requests "<operation>:<class>" were made so far.
CMPI_EXPORT int TestElements_requestCount(const char* request) {
    std::lock_guard<std::mutex> lock(stateMutex);
    return static_cast<int>(std::count(requests.begin(), requests.end(), std::string(request)));
}

// Back to the initial elements and links; clears the request log and the counters.
CMPI_EXPORT void TestElements_reset(void) {
    std::lock_guard<std::mutex> lock(stateMutex);
    initialState();
    TestElements_cleanups = 0;
    TestElements_terminations = 0;
    TestElements_initializations = 0;
    TestElements_idleAnswer = CMPI_RC_OK;
}
}

namespace {

CMPIStatus cleanupAnswer(CMPIBoolean terminating) {
    if (terminating) {
        ++TestElements_terminations;
        CMReturn(CMPI_RC_OK);
    }
    ++TestElements_cleanups;
    CMReturn(TestElements_idleAnswer);
}

// ---- Test_ElementProvider: instances ----------------------------------------------------

CMPIStatus ElementCleanup(CMPIInstanceMI*, const CMPIContext*, CMPIBoolean terminating) {
    return cleanupAnswer(terminating);
}

CMPIStatus ElementEnumInstanceNames(CMPIInstanceMI*, const CMPIContext*, const CMPIResult* rslt,
                                    const CMPIObjectPath* ref) {
    std::string cls = str(CMGetClassName(ref, nullptr));
    std::string ns = nsOf(ref);
    record("enumerateInstanceNames:" + cls);
    std::lock_guard<std::mutex> lock(stateMutex);
    // The host asks once per class of a hierarchy, so only instances of exactly that class.
    for (const Element& e : elements)
        if (iequals(e.className, cls))
            CMReturnObjectPath(rslt, elementPath(e, ns.c_str()));
    CMReturnDone(rslt);
    CMReturn(CMPI_RC_OK);
}

CMPIStatus ElementEnumInstances(CMPIInstanceMI*, const CMPIContext*, const CMPIResult* rslt,
                                const CMPIObjectPath* ref, const char**) {
    std::string cls = str(CMGetClassName(ref, nullptr));
    std::string ns = nsOf(ref);
    record("enumerateInstances:" + cls);
    std::lock_guard<std::mutex> lock(stateMutex);
    for (const Element& e : elements)
        if (iequals(e.className, cls))
            CMReturnInstance(rslt, elementInstance(e, ns.c_str()));
    CMReturnDone(rslt);
    CMReturn(CMPI_RC_OK);
}

CMPIStatus ElementGetInstance(CMPIInstanceMI*, const CMPIContext*, const CMPIResult* rslt,
                              const CMPIObjectPath* cop, const char**) {
    record("getInstance:" + str(CMGetClassName(cop, nullptr)));
    std::lock_guard<std::mutex> lock(stateMutex);
    const Element* e = findElement(cop);
    if (!e) {
        std::string msg = "no element named \"" + keyName(cop) + "\"";
        CMReturnWithChars(_broker, CMPI_RC_ERR_NOT_FOUND, msg.c_str());
    }
    CMReturnInstance(rslt, elementInstance(*e, nsOf(cop).c_str()));
    CMReturnDone(rslt);
    CMReturn(CMPI_RC_OK);
}

CMPIStatus ElementCreateInstance(CMPIInstanceMI*, const CMPIContext*, const CMPIResult* rslt,
                                 const CMPIObjectPath* cop, const CMPIInstance* ci) {
    CMPIData name = CMGetProperty(ci, "Name", nullptr);
    if ((name.state & CMPI_nullValue) || name.type != CMPI_string)
        CMReturnWithChars(_broker, CMPI_RC_ERR_INVALID_PARAMETER, "Name is required");
    Element e{str(name.value.string), str(CMGetClassName(cop, nullptr)), 0, 0, 0, 0, {}, ""};
    CMPIData size = CMGetProperty(ci, "Size", nullptr);
    if (!(size.state & CMPI_nullValue) && size.type == CMPI_uint32)
        e.size = size.value.uint32;
    std::lock_guard<std::mutex> lock(stateMutex);
    for (const Element& existing : elements)
        if (existing.name == e.name)
            CMReturnWithChars(_broker, CMPI_RC_ERR_ALREADY_EXISTS, "element exists");
    elements.push_back(e);
    CMReturnObjectPath(rslt, elementPath(e, nsOf(cop).c_str()));
    CMReturnDone(rslt);
    CMReturn(CMPI_RC_OK);
}

CMPIStatus ElementModifyInstance(CMPIInstanceMI*, const CMPIContext*, const CMPIResult*,
                                 const CMPIObjectPath*, const CMPIInstance*, const char**) {
    CMReturnWithChars(_broker, CMPI_RC_ERR_NOT_SUPPORTED, "elements cannot be modified");
}

CMPIStatus ElementDeleteInstance(CMPIInstanceMI*, const CMPIContext*, const CMPIResult* rslt,
                                 const CMPIObjectPath* cop) {
    std::string name = keyName(cop);
    std::lock_guard<std::mutex> lock(stateMutex);
    auto it = std::find_if(elements.begin(), elements.end(),
                           [&](const Element& e) { return e.name == name; });
    if (it == elements.end()) {
        std::string msg = "no element named \"" + name + "\" to delete";
        CMReturnWithChars(_broker, CMPI_RC_ERR_NOT_FOUND, msg.c_str());
    }
    elements.erase(it);
    CMReturnDone(rslt);
    CMReturn(CMPI_RC_OK);
}

CMPIStatus ElementExecQuery(CMPIInstanceMI*, const CMPIContext*, const CMPIResult*,
                            const CMPIObjectPath*, const char*, const char* lang) {
    std::string msg = std::string("query language ") + (lang ? lang : "?") +
                      " is not supported by Test_ElementProvider";
    CMReturnWithChars(_broker, CMPI_RC_ERR_QUERY_LANGUAGE_NOT_SUPPORTED, msg.c_str());
}

// ---- Test_ElementProvider: methods ------------------------------------------------------

CMPIStatus ElementMethodCleanup(CMPIMethodMI*, const CMPIContext*, CMPIBoolean terminating) {
    return cleanupAnswer(terminating);
}

// Ping(uint32 Count) returns Count + 1 and sets the OUT argument Echo to "<name>:<Count>", after
// DelayMs milliseconds when that is given: an operation as slow as a test can be.
CMPIStatus ElementInvokeMethod(CMPIMethodMI*, const CMPIContext*, const CMPIResult* rslt,
                               const CMPIObjectPath* ref, const char* method, const CMPIArgs* in,
                               CMPIArgs* out) {
    record(std::string("invokeMethod:") + method);
    if (iequals(method, "Fail"))
        CMReturnWithChars(_broker, CMPI_RC_ERR_FAILED, "Fail fails as asked");
    if (!iequals(method, "Ping")) {
        std::string msg = std::string("no method ") + method;
        CMReturnWithChars(_broker, CMPI_RC_ERR_METHOD_NOT_FOUND, msg.c_str());
    }
    CMPIStatus rc{CMPI_RC_OK, nullptr};
    CMPIData count = CMGetArg(in, "Count", &rc);
    if (rc.rc != CMPI_RC_OK || (count.state & CMPI_nullValue) || count.type != CMPI_uint32)
        CMReturnWithChars(_broker, CMPI_RC_ERR_INVALID_PARAMETER, "Count must be a uint32");
    std::string name;
    {
        std::lock_guard<std::mutex> lock(stateMutex);
        const Element* e = findElement(ref);
        if (!e)
            CMReturnWithChars(_broker, CMPI_RC_ERR_NOT_FOUND, "no such element");
        name = e->name;
    }
    CMPIData delay = CMGetArg(in, "DelayMs", nullptr);
    if (delay.type == CMPI_uint32 && !(delay.state & CMPI_nullValue))
        std::this_thread::sleep_for(std::chrono::milliseconds(delay.value.uint32));
    std::string echo = name + ":" + std::to_string(count.value.uint32);
    CMAddArg(out, "Echo", echo.c_str(), CMPI_chars);
    CMPIUint32 answer = count.value.uint32 + 1;
    CMReturnData(rslt, &answer, CMPI_uint32);
    CMReturnDone(rslt);
    CMReturn(CMPI_RC_OK);
}

// ---- Test_AssocProvider: Test_Assoc links, as instances and as an association --------------

CMPIObjectPath* linkPath(const Link& link, const char* ns) {
    CMPIObjectPath* op = CMNewObjectPath(_broker, ns, "Test_Assoc", nullptr);
    for (const Element& e : elements) {
        CMPIObjectPath* end = elementPath(e, ns);
        if (e.name == link.left)
            CMAddKey(op, "Left", &end, CMPI_ref);
        if (e.name == link.right)
            CMAddKey(op, "Right", &end, CMPI_ref);
    }
    return op;
}

CMPIInstance* linkInstance(const Link& link, const char* ns) {
    CMPIObjectPath* op = linkPath(link, ns);
    CMPIInstance* inst = CMNewInstance(_broker, op, nullptr);
    CMPIData left = CMGetKey(op, "Left", nullptr);
    CMPIData right = CMGetKey(op, "Right", nullptr);
    CMSetProperty(inst, "Left", &left.value.ref, CMPI_ref);
    CMSetProperty(inst, "Right", &right.value.ref, CMPI_ref);
    return inst;
}

const Element* byName(const std::string& name) {
    for (const Element& e : elements)
        if (e.name == name)
            return &e;
    return nullptr;
}

bool roleMatches(const char* role, const char* name) {
    return !role || !*role || iequals(role, name);
}

bool assocMatches(const char* assocClass, const char* ns) {
    if (!assocClass || !*assocClass)
        return true;
    CMPIObjectPath* op = CMNewObjectPath(_broker, ns, "Test_Assoc", nullptr);
    return CMClassPathIsA(_broker, op, assocClass, nullptr);
}

// Calls visit(link, far element) for each link of the source element that fits the filters.
template <class Visit>
void eachLink(const CMPIObjectPath* source, const char* role, const char* resultRole,
              const char* resultClass, Visit visit) {
    std::string name = keyName(source);
    std::string ns = nsOf(source);
    for (const Link& link : links) {
        const char* farRole = nullptr;
        std::string far;
        if (link.left == name && roleMatches(role, "Left") && roleMatches(resultRole, "Right")) {
            far = link.right;
            farRole = "Right";
        } else if (link.right == name && roleMatches(role, "Right") &&
                   roleMatches(resultRole, "Left")) {
            far = link.left;
            farRole = "Left";
        }
        const Element* e = farRole ? byName(far) : nullptr;
        if (!e)
            continue;
        if (resultClass && *resultClass &&
            !CMClassPathIsA(_broker, elementPath(*e, ns.c_str()), resultClass, nullptr))
            continue;
        visit(link, *e);
    }
}

CMPIStatus AssocCleanup(CMPIInstanceMI*, const CMPIContext*, CMPIBoolean terminating) {
    return cleanupAnswer(terminating);
}

CMPIStatus AssocEnumInstanceNames(CMPIInstanceMI*, const CMPIContext*, const CMPIResult* rslt,
                                  const CMPIObjectPath* ref) {
    std::string ns = nsOf(ref);
    std::lock_guard<std::mutex> lock(stateMutex);
    for (const Link& link : links)
        CMReturnObjectPath(rslt, linkPath(link, ns.c_str()));
    CMReturnDone(rslt);
    CMReturn(CMPI_RC_OK);
}

CMPIStatus AssocEnumInstances(CMPIInstanceMI*, const CMPIContext*, const CMPIResult* rslt,
                              const CMPIObjectPath* ref, const char**) {
    std::string ns = nsOf(ref);
    std::lock_guard<std::mutex> lock(stateMutex);
    for (const Link& link : links)
        CMReturnInstance(rslt, linkInstance(link, ns.c_str()));
    CMReturnDone(rslt);
    CMReturn(CMPI_RC_OK);
}

CMPIStatus AssocGetInstance(CMPIInstanceMI*, const CMPIContext*, const CMPIResult*,
                            const CMPIObjectPath*, const char**) {
    CMReturn(CMPI_RC_ERR_NOT_SUPPORTED);
}

READ_ONLY_INSTANCES(Assoc)

CMPIStatus AssocAssociationCleanup(CMPIAssociationMI*, const CMPIContext*,
                                   CMPIBoolean terminating) {
    return cleanupAnswer(terminating);
}

CMPIStatus AssocAssociators(CMPIAssociationMI*, const CMPIContext*, const CMPIResult* rslt,
                            const CMPIObjectPath* op, const char* assocClass,
                            const char* resultClass, const char* role, const char* resultRole,
                            const char**) {
    record(std::string("associators:") + (assocClass ? assocClass : "*"));
    std::string ns = nsOf(op);
    std::lock_guard<std::mutex> lock(stateMutex);
    if (assocMatches(assocClass, ns.c_str()))
        eachLink(op, role, resultRole, resultClass, [&](const Link&, const Element& far) {
            CMReturnInstance(rslt, elementInstance(far, ns.c_str()));
        });
    CMReturnDone(rslt);
    CMReturn(CMPI_RC_OK);
}

CMPIStatus AssocAssociatorNames(CMPIAssociationMI*, const CMPIContext*, const CMPIResult* rslt,
                                const CMPIObjectPath* op, const char* assocClass,
                                const char* resultClass, const char* role, const char* resultRole) {
    record(std::string("associatorNames:") + (assocClass ? assocClass : "*"));
    std::string ns = nsOf(op);
    std::lock_guard<std::mutex> lock(stateMutex);
    if (assocMatches(assocClass, ns.c_str()))
        eachLink(op, role, resultRole, resultClass, [&](const Link&, const Element& far) {
            CMReturnObjectPath(rslt, elementPath(far, ns.c_str()));
        });
    CMReturnDone(rslt);
    CMReturn(CMPI_RC_OK);
}

CMPIStatus AssocReferences(CMPIAssociationMI*, const CMPIContext*, const CMPIResult* rslt,
                           const CMPIObjectPath* op, const char* resultClass, const char* role,
                           const char**) {
    std::string ns = nsOf(op);
    std::lock_guard<std::mutex> lock(stateMutex);
    if (assocMatches(resultClass, ns.c_str()))
        eachLink(op, role, nullptr, nullptr, [&](const Link& link, const Element&) {
            CMReturnInstance(rslt, linkInstance(link, ns.c_str()));
        });
    CMReturnDone(rslt);
    CMReturn(CMPI_RC_OK);
}

CMPIStatus AssocReferenceNames(CMPIAssociationMI*, const CMPIContext*, const CMPIResult* rslt,
                               const CMPIObjectPath* op, const char* resultClass,
                               const char* role) {
    std::string ns = nsOf(op);
    std::lock_guard<std::mutex> lock(stateMutex);
    if (assocMatches(resultClass, ns.c_str()))
        eachLink(op, role, nullptr, nullptr, [&](const Link& link, const Element&) {
            CMReturnObjectPath(rslt, linkPath(link, ns.c_str()));
        });
    CMReturnDone(rslt);
    CMReturn(CMPI_RC_OK);
}

} // namespace

CMInstanceMIStub(Element, Test_ElementProvider, _broker, ++TestElements_initializations)
    CMMethodMIStub(Element, Test_ElementProvider, _broker, ++TestElements_initializations)
        CMInstanceMIStub(Assoc, Test_AssocProvider, _broker, ++TestElements_initializations)
            CMAssociationMIStub(Assoc, Test_AssocProvider, _broker, ++TestElements_initializations)
