#include "server/WbemOperations.h"

#include "server/AnswerStream.h"
#include "server/CimXmlClassWriter.h"

#include "host/Host.h"
#include "host/broker/Broker.h"
#include "host/broker/CallScope.h"
#include "host/broker/CimValueCodec.h"
#include "host/mof/ClassRepository.h"
#include "host/text/CimNames.h"

#include <cmpift.h>

#include <algorithm>
#include <exception>
#include <optional>
#include <unordered_set>

namespace diagserver {

namespace {

using diaghost::ClassRepository;
using diaghost::Host;
using diaghost::OperationResult;
using Value = CimRequest::Value;

// CIM status codes (the numbers the CMPI return codes share).
constexpr unsigned cimFailed = 1;
constexpr unsigned cimInvalidNamespace = 3;
constexpr unsigned cimInvalidParameter = 4;
constexpr unsigned cimInvalidClass = 5;
constexpr unsigned cimNotFound = 6;
constexpr unsigned cimNotSupported = 7;

// A request that cannot be answered as asked; answered as an ERROR.
struct Refusal {
    unsigned code;
    std::string description;
};

bool sameName(std::string_view a, std::string_view b) {
    return diaghost::sameName(a, b);
}

// A boolean parameter: its value when sent, else the operation's default.
bool flag(const CimRequest& request, std::string_view name, bool otherwise) {
    const Value* v = request.param(name);
    if (!v || v->kind == Value::Kind::Null)
        return otherwise;
    if (v->kind != Value::Kind::Text || (!sameName(v->text, "true") && !sameName(v->text, "false")))
        throw Refusal{cimInvalidParameter, std::string(name) + " must be TRUE or FALSE"};
    return sameName(v->text, "true");
}

// A string or class-name parameter; empty when not sent or NULL.
std::string name(const CimRequest& request, std::string_view parameter) {
    const Value* v = request.param(parameter);
    if (!v || v->kind == Value::Kind::Null)
        return {};
    if (v->kind != Value::Kind::Text && v->kind != Value::Kind::ClassName)
        throw Refusal{cimInvalidParameter, std::string(parameter) + " must be a name"};
    return v->text;
}

// PropertyList: nothing when not sent or NULL (every property), else the names. A long list is
// cut down to the names a class of the namespace has, each once: nothing else can be answered,
// and every instance of the answer is filtered by the list, so that its length must not be the
// client's to choose.
std::optional<std::vector<std::string>>
propertyList(const CimRequest& request, const ClassRepository& classes, const std::string& ns) {
    const Value* v = request.param("PropertyList");
    if (!v || v->kind == Value::Kind::Null)
        return std::nullopt;
    if (v->kind != Value::Kind::TextArray)
        throw Refusal{cimInvalidParameter, "PropertyList must be an array of property names"};
    constexpr std::size_t shortList = 16;
    if (v->texts.size() <= shortList)
        return v->texts;
    std::unordered_set<std::string> asked;
    for (const std::string& name : v->texts)
        asked.insert(diaghost::lowerName(name));
    std::unordered_set<std::string> kept;
    std::vector<std::string> out;
    for (const std::string& className : classes.classNames(ns)) {
        const diaghost::CimClass* cls = classes.findClass(ns, className);
        for (std::size_t i = 0; cls && i < cls->properties.size(); ++i) {
            std::string lower = diaghost::lowerName(cls->properties[i].name);
            if (asked.count(lower) && kept.insert(std::move(lower)).second)
                out.push_back(cls->properties[i].name);
        }
    }
    return out;
}

} // namespace

WbemOperations::WbemOperations(Host& host, std::string hostName, std::size_t queuedPieces,
                               std::size_t pieceSize)
    : host_(host), hostName_(std::move(hostName)), queuedPieces_(queuedPieces),
      pieces_(std::make_shared<PiecePool>(pieceSize, sparePieces)) {}

std::unique_ptr<WbemOperations::Reply> WbemOperations::reply(const CimRequest& request,
                                                             CimXmlWriter& out) {
    std::unique_ptr<Reply> reply(new Reply(*this));
    reply->intrinsic_ = request.intrinsic;
    // Everything the broker makes while the answer is worked out and written (the strings and
    // paths read from the results included) goes when the answer is done; outside a call scope it
    // would stay with the broker for the life of the process. The result's own copies stay.
    diaghost::CallScope scope(host_.broker());
    out.beginMessage(request.messageId);
    if (request.intrinsic)
        out.beginIMethodResponse(request.method);
    else
        out.beginMethodResponse(request.method);
    Outcome outcome;
    try {
        outcome = request.intrinsic ? intrinsic(request, out, *reply) : extrinsic(request, out);
    } catch (const Refusal& refusal) {
        outcome = Outcome{refusal.code, refusal.description};
    } catch (const std::exception& e) {
        outcome = Outcome{cimFailed, std::string("the operation failed: ") + e.what()};
    } catch (...) {
        outcome = Outcome{cimFailed, "the operation failed"};
    }
    if (outcome.code != 0) {
        reply->items_ = Reply::Items::None;
        reply->result_.reset();
        if (reply->queue_)
            reply->queue_->cancel();
        out.error(outcome.code, outcome.description);
    }
    reply->code_ = outcome.code;
    return reply;
}

WbemOperations::Reply::~Reply() {
    if (queue_)
        queue_->cancel();
    if (producer_)
        producer_->wait();
}

bool WbemOperations::Reply::writeItems(CimXmlWriter& out, std::uint64_t until, bool wait) {
    diaghost::CallScope scope(operations_.host_.broker());
    const bool paths = items_ == Items::InstanceNames || items_ == Items::ObjectPaths;
    if (queue_) {
        // Waits for the first piece only: what comes later goes out with the next call, so that
        // a slow operation's answers are not held back until a whole buffer is ready.
        ResultQueue::Wait first = wait ? ResultQueue::Wait::Forever : ResultQueue::Wait::Briefly;
        while (out.written() < until) {
            std::optional<MarkupPiece> piece = queue_->next(first);
            first = ResultQueue::Wait::No;
            if (!piece) {
                if (!queue_->drained())
                    return true;
                const diaghost::OperationStatus status = queue_->status();
                if (!status.ok())
                    throw AnswerStream::Failure{static_cast<unsigned>(status.rc), status.message};
                return false;
            }
            out.pass(std::move(*piece));
        }
        return true;
    }
    const std::size_t count = paths ? result_->paths().size() : result_->instances().size();
    while (next_ < count && out.written() < until) {
        const std::size_t index = next_++;
        writeItem(out, items_, paths ? nullptr : result_->instances()[index],
                  paths ? result_->paths()[index] : nullptr);
    }
    return next_ < count;
}

bool WbemOperations::Reply::writeMore(CimXmlWriter& out, std::size_t bytes, bool wait) {
    if (complete_)
        return false;
    const std::uint64_t until = out.written() + bytes;
    if (items_ != Items::None) {
        if (writeItems(out, until, wait)) {
            out.flush();
            return true;
        }
        out.endIReturnValue();
        items_ = Items::None;
        result_.reset();
    }
    if (intrinsic_)
        out.endIMethodResponse();
    else
        out.endMethodResponse();
    out.endMessage();
    out.flush();
    complete_ = true;
    return false;
}

void WbemOperations::Reply::writeItem(CimXmlWriter& out, Items kind, const CMPIInstance* inst,
                                      const CMPIObjectPath* name) const {
    const std::vector<std::string>* filter = properties_ ? &*properties_ : nullptr;
    const std::string& host = operations_.hostName_;
    switch (kind) {
    case Items::InstanceNames:
        if (name)
            out.instanceName(name);
        return;
    case Items::ObjectPaths:
        if (name)
            out.objectPath(name, host);
        return;
    case Items::NamedInstances:
    case Items::ObjectsWithPath: {
        if (!inst)
            return;
        // The instance's own path, which the writer reads from the instance.
        if (kind == Items::NamedInstances)
            out.namedInstance(nullptr, inst, filter);
        else
            out.objectWithPath(nullptr, host, inst, filter);
        return;
    }
    case Items::None:
        return;
    }
}

unsigned WbemOperations::answer(const CimRequest& request, CimXmlWriter& out) {
    std::unique_ptr<Reply> whole = reply(request, out);
    while (whole->writeMore(out, std::size_t{1} << 20)) {
    }
    return whole->code();
}

namespace {

// The parameters each intrinsic operation served here takes; null for any other operation.
const std::vector<std::string_view>* parametersOf(std::string_view op) {
    static const std::vector<std::pair<std::string_view, std::vector<std::string_view>>> known = {
        {"GetClass",
         {"ClassName", "LocalOnly", "IncludeQualifiers", "IncludeClassOrigin", "PropertyList"}},
        {"EnumerateClasses",
         {"ClassName", "DeepInheritance", "LocalOnly", "IncludeQualifiers", "IncludeClassOrigin"}},
        {"EnumerateClassNames", {"ClassName", "DeepInheritance"}},
        {"GetInstance",
         {"InstanceName", "LocalOnly", "IncludeQualifiers", "IncludeClassOrigin", "PropertyList"}},
        {"EnumerateInstances",
         {"ClassName", "LocalOnly", "DeepInheritance", "IncludeQualifiers", "IncludeClassOrigin",
          "PropertyList"}},
        {"EnumerateInstanceNames", {"ClassName"}},
        {"Associators",
         {"ObjectName", "AssocClass", "ResultClass", "Role", "ResultRole", "IncludeQualifiers",
          "IncludeClassOrigin", "PropertyList"}},
        {"AssociatorNames", {"ObjectName", "AssocClass", "ResultClass", "Role", "ResultRole"}},
        {"References",
         {"ObjectName", "ResultClass", "Role", "IncludeQualifiers", "IncludeClassOrigin",
          "PropertyList"}},
        {"ReferenceNames", {"ObjectName", "ResultClass", "Role"}},
        {"GetQualifier", {"QualifierName"}},
    };
    for (const auto& [name, parameters] : known)
        if (sameName(name, op))
            return &parameters;
    return nullptr;
}

// Refuses a parameter the operation does not take, or one sent twice: either would otherwise
// be answered as if the client had asked for something else.
void checkParameters(const CimRequest& request) {
    const std::vector<std::string_view>* taken = parametersOf(request.method);
    if (!taken)
        return;
    for (std::size_t i = 0; i < request.params.size(); ++i) {
        const std::string& given = request.params[i].first;
        if (std::none_of(taken->begin(), taken->end(),
                         [&](std::string_view name) { return sameName(name, given); }))
            throw Refusal{cimInvalidParameter, request.method + " has no parameter " + given};
        for (std::size_t j = 0; j < i; ++j)
            if (sameName(request.params[j].first, given))
                throw Refusal{cimInvalidParameter, "parameter " + given + " is given twice"};
    }
}

// The checks every operation on a class makes first.
const diaghost::CimClass& knownClass(const ClassRepository& classes, const std::string& ns,
                                     const std::string& className) {
    if (classes.classCount(ns) == 0)
        throw Refusal{cimInvalidNamespace, "namespace " + ns + " is not known"};
    if (className.empty())
        throw Refusal{cimInvalidParameter, "no class name given"};
    const diaghost::CimClass* cls = classes.findClass(ns, className);
    if (!cls)
        throw Refusal{cimInvalidClass, "class " + className + " is not known in namespace " + ns};
    return *cls;
}

// The instance path an operation names, made in the request's namespace within the caller's
// call scope.
CMPIObjectPath* instancePath(Host& host, const CimRequest& request, std::string_view parameter) {
    const Value* v = request.param(parameter);
    if (!v || v->kind != Value::Kind::InstanceName)
        throw Refusal{cimInvalidParameter, std::string(parameter) + " must be an instance name"};
    knownClass(host.classes(), request.nameSpace, v->path.className);
    diaghost::ObjectPathText path = v->path;
    path.nameSpace = request.nameSpace;
    try {
        return diaghost::CimValueCodec::pathFromText(host.broker(), path, request.nameSpace);
    } catch (const std::exception& e) {
        throw Refusal{cimInvalidParameter, e.what()};
    }
}

// Properties an instance of `cls` answers when DeepInheritance is false: those the class itself
// has, intersected with the property list when one is given.
std::vector<std::string> ownProperties(const diaghost::CimClass& cls,
                                       const std::optional<std::vector<std::string>>& list) {
    std::vector<std::string> out;
    for (const diaghost::CimProperty& p : cls.properties) {
        bool wanted = !list;
        for (std::size_t i = 0; list && i < list->size() && !wanted; ++i)
            wanted = sameName((*list)[i], p.name);
        if (wanted)
            out.push_back(p.name);
    }
    return out;
}

// What a class-level Associators, AssociatorNames, References or ReferenceNames answers: the
// classes associated with `source` through the association classes of the namespace, or those
// association classes, each once, as the repository defines them. An association qualifies when
// one of its references (the one named by `role`, when given) points to `source` or to one of
// its superclasses; for associators each other reference of it (named by `resultRole`, when
// given) names an associated class.
std::vector<std::string> associatedClasses(const ClassRepository& classes, const std::string& ns,
                                           const std::string& source, bool references,
                                           const std::string& assocClass,
                                           const std::string& resultClass, const std::string& role,
                                           const std::string& resultRole) {
    std::vector<std::string> out;
    auto add = [&](const std::string& className) {
        if (!resultClass.empty() && !classes.isA(ns, className, resultClass))
            return;
        for (const std::string& known : out)
            if (sameName(known, className))
                return;
        out.push_back(className);
    };
    for (const std::string& candidate : classes.classNames(ns)) {
        const diaghost::CimClass* assoc = classes.findClass(ns, candidate);
        if (!assoc || !assoc->association ||
            (!assocClass.empty() && !classes.isA(ns, assoc->name, assocClass)))
            continue;
        for (const diaghost::CimProperty& from : assoc->properties) {
            if (from.type != CMPI_ref || (!role.empty() && !sameName(from.name, role)) ||
                !classes.isA(ns, source, from.refClass))
                continue;
            if (references) {
                add(assoc->name);
                continue;
            }
            for (const diaghost::CimProperty& to : assoc->properties)
                if (&to != &from && to.type == CMPI_ref &&
                    (resultRole.empty() || sameName(to.name, resultRole)))
                    add(to.refClass);
        }
    }
    return out;
}

} // namespace

WbemOperations::Outcome WbemOperations::items(Reply& reply, Reply::Items kind, Operation operation,
                                              CimXmlWriter& out) {
    // The reply outlives the operation (it stops it and waits for it), and what the writing
    // reads of it is settled before the thread starts.
    const Reply& answering = reply;
    diaghost::Broker& broker = host_.broker();
    auto queue = std::make_shared<ResultQueue>(
        [&answering, &broker, kind](CimXmlWriter& out, const CMPIInstance* instance,
                                    const CMPIObjectPath* path) {
            // Anything the broker makes while an answer is read goes with it, not with the
            // provider's call.
            diaghost::CallScope scope(broker);
            answering.writeItem(out, kind, instance, path);
        },
        queuedPieces_, pieces_);
    reply.producer_ = threads_.run([queue, operation] {
        // The queue is finished whatever happens, even short of memory: the reply waits for it.
        diaghost::OperationStatus status;
        try {
            status = operation(queue.get()).status;
        } catch (const std::exception& e) {
            status = diaghost::OperationStatus::failed("the operation", e.what());
        } catch (...) {
            status = diaghost::OperationStatus::failed("the operation", nullptr);
        }
        queue->finish(std::move(status));
    });
    if (reply.producer_) {
        reply.queue_ = queue;
        queue->waitForFirst();
        if (queue->failed()) {
            const diaghost::OperationStatus status = queue->status();
            return Outcome{static_cast<unsigned>(status.rc), status.message};
        }
    } else {
        OperationResult result = operation(nullptr);
        if (!result.ok())
            return Outcome{static_cast<unsigned>(result.status.rc), result.status.message};
        reply.result_.emplace(std::move(result));
    }
    out.beginIReturnValue();
    reply.items_ = kind;
    return {};
}

WbemOperations::Outcome WbemOperations::intrinsic(const CimRequest& request, CimXmlWriter& out,
                                                  Reply& reply) {
    const std::string& op = request.method;
    const std::string& ns = request.nameSpace;
    const ClassRepository& classes = host_.classes();
    auto failed = [](const OperationResult& result) {
        return Outcome{static_cast<unsigned>(result.status.rc), result.status.message};
    };
    checkParameters(request);

    if (sameName(op, "EnumerateInstances") || sameName(op, "EnumerateInstanceNames")) {
        const std::string className = name(request, "ClassName");
        const diaghost::CimClass& cls = knownClass(classes, ns, className);
        const bool names = sameName(op, "EnumerateInstanceNames");
        std::optional<std::vector<std::string>> list =
            names ? std::nullopt : propertyList(request, classes, ns);
        if (!names && !flag(request, "DeepInheritance", true))
            list = ownProperties(cls, list);
        reply.properties_ = list;
        return items(
            reply, names ? Reply::Items::InstanceNames : Reply::Items::NamedInstances,
            [this, ns, className = cls.name, names, list](diaghost::ResultSink::Stream* stream) {
                return names  ? host_.enumerateInstanceNames(ns, className, stream)
                       : list ? host_.enumerateInstances(ns, className, *list, stream)
                              : host_.enumerateInstances(ns, className, stream);
            },
            out);
    }

    if (sameName(op, "GetInstance")) {
        std::optional<std::vector<std::string>> list = propertyList(request, classes, ns);
        diaghost::CallScope scope(host_.broker());
        CMPIObjectPath* path = instancePath(host_, request, "InstanceName");
        OperationResult result = list ? host_.getInstance(path, *list) : host_.getInstance(path);
        if (!result.ok())
            return failed(result);
        if (!result.instance())
            return Outcome{cimNotFound, "no such instance"};
        out.beginIReturnValue();
        out.instance(result.instance(), list ? &*list : nullptr);
        out.endIReturnValue();
        return {};
    }

    const bool associators = sameName(op, "Associators") || sameName(op, "AssociatorNames");
    const bool references = sameName(op, "References") || sameName(op, "ReferenceNames");
    if (associators || references) {
        const bool names = sameName(op, "AssociatorNames") || sameName(op, "ReferenceNames");
        const Value* object = request.param("ObjectName");
        std::optional<std::vector<std::string>> list =
            names ? std::nullopt : propertyList(request, classes, ns);
        if (object && object->kind == Value::Kind::ClassName) {
            const diaghost::CimClass& source = knownClass(classes, ns, object->text);
            CimXmlClassWriter::Parts parts;
            parts.qualifiers = flag(request, "IncludeQualifiers", false);
            parts.classOrigin = flag(request, "IncludeClassOrigin", false);
            parts.properties = list ? &*list : nullptr;
            const std::vector<std::string> found = associatedClasses(
                classes, ns, source.name, references,
                associators ? name(request, "AssocClass") : "", name(request, "ResultClass"),
                name(request, "Role"), associators ? name(request, "ResultRole") : "");
            out.beginIReturnValue();
            for (const std::string& className : found) {
                const diaghost::CimClass* cls = classes.findClass(ns, className);
                if (!cls)
                    continue;
                out.openTag(names ? "OBJECTPATH" : "VALUE.OBJECTWITHPATH");
                out.classPath(hostName_, ns, cls->name);
                if (!names)
                    CimXmlClassWriter::cimClass(out, *cls, classes, ns, parts);
                out.closeTag(names ? "OBJECTPATH" : "VALUE.OBJECTWITHPATH");
                out.maybeFlush();
            }
            out.endIReturnValue();
            return {};
        }
        {
            // Checked here, so that a bad name is refused before anything runs.
            diaghost::CallScope scope(host_.broker());
            instancePath(host_, request, "ObjectName");
        }
        const std::string resultClass = name(request, "ResultClass");
        const std::string role = name(request, "Role");
        const std::string assocClass = associators ? name(request, "AssocClass") : "";
        const std::string resultRole = associators ? name(request, "ResultRole") : "";
        reply.properties_ = std::move(list);
        return items(
            reply, names ? Reply::Items::ObjectPaths : Reply::Items::ObjectsWithPath,
            [this, request, associators, names, resultClass, role, assocClass,
             resultRole](diaghost::ResultSink::Stream* stream) {
                // The path is made again on the thread that uses it, in a scope of its own.
                diaghost::CallScope scope(host_.broker());
                CMPIObjectPath* path = instancePath(host_, request, "ObjectName");
                return associators ? (names ? host_.associatorNames(path, assocClass, resultClass,
                                                                    role, resultRole, stream)
                                            : host_.associators(path, assocClass, resultClass, role,
                                                                resultRole, stream))
                                   : (names ? host_.referenceNames(path, resultClass, role, stream)
                                            : host_.references(path, resultClass, role, stream));
            },
            out);
    }

    if (sameName(op, "GetClass")) {
        const diaghost::CimClass& cls = knownClass(classes, ns, name(request, "ClassName"));
        std::optional<std::vector<std::string>> list = propertyList(request, classes, ns);
        CimXmlClassWriter::Parts parts;
        parts.localOnly = flag(request, "LocalOnly", true);
        parts.qualifiers = flag(request, "IncludeQualifiers", true);
        parts.classOrigin = flag(request, "IncludeClassOrigin", false);
        parts.properties = list ? &*list : nullptr;
        out.beginIReturnValue();
        CimXmlClassWriter::cimClass(out, cls, classes, ns, parts);
        out.endIReturnValue();
        return {};
    }

    if (sameName(op, "EnumerateClasses") || sameName(op, "EnumerateClassNames")) {
        if (classes.classCount(ns) == 0)
            throw Refusal{cimInvalidNamespace, "namespace " + ns + " is not known"};
        const std::string base = name(request, "ClassName");
        const bool deep = flag(request, "DeepInheritance", false);
        std::vector<std::string> selected;
        if (!base.empty())
            knownClass(classes, ns, base);
        for (const std::string& candidate :
             base.empty() ? classes.classNames(ns) : classes.subclassNames(ns, base)) {
            const diaghost::CimClass* cls = classes.findClass(ns, candidate);
            if (!cls)
                continue;
            // Without DeepInheritance only the direct children (or the root classes).
            if (deep || (base.empty() ? cls->superclass.empty() : sameName(cls->superclass, base)))
                selected.push_back(cls->name);
        }
        const bool names = sameName(op, "EnumerateClassNames");
        CimXmlClassWriter::Parts parts;
        parts.localOnly = flag(request, "LocalOnly", true);
        parts.qualifiers = flag(request, "IncludeQualifiers", true);
        parts.classOrigin = flag(request, "IncludeClassOrigin", false);
        out.beginIReturnValue();
        for (const std::string& className : selected) {
            if (names)
                out.className(className);
            else
                CimXmlClassWriter::cimClass(out, *classes.findClass(ns, className), classes, ns,
                                            parts);
        }
        out.endIReturnValue();
        return {};
    }

    if (sameName(op, "GetQualifier")) {
        if (classes.classCount(ns) == 0)
            throw Refusal{cimInvalidNamespace, "namespace " + ns + " is not known"};
        const std::string qualifier = name(request, "QualifierName");
        if (qualifier.empty())
            throw Refusal{cimInvalidParameter, "no qualifier name given"};
        const diaghost::CimQualifierDecl* decl = classes.findQualifier(ns, qualifier);
        if (!decl)
            return Outcome{cimNotFound, "qualifier " + qualifier + " is not declared in " + ns};
        out.beginIReturnValue();
        CimXmlClassWriter::qualifierDeclaration(out, *decl);
        out.endIReturnValue();
        return {};
    }

    return Outcome{cimNotSupported, op + " is not supported"};
}

WbemOperations::Outcome WbemOperations::extrinsic(const CimRequest& request, CimXmlWriter& out) {
    const ClassRepository& classes = host_.classes();
    const std::string& ns = request.nameSpace;
    const diaghost::CimClass& cls = knownClass(classes, ns, request.target.className);
    const diaghost::CimMethod* method = cls.findMethod(request.method);
    if (!method)
        return Outcome{17, "class " + cls.name + " has no method " + request.method};

    diaghost::CallScope scope(host_.broker());
    diaghost::Broker& broker = host_.broker();
    Host::Arguments args;
    for (const auto& [given, value] : request.params) {
        const diaghost::CimParameter* declared = nullptr;
        for (const diaghost::CimParameter& p : method->parameters)
            if (sameName(p.name, given))
                declared = &p;
        if (!declared)
            throw Refusal{cimInvalidParameter,
                          "method " + method->name + " has no parameter " + given};
        if (!declared->in)
            throw Refusal{cimInvalidParameter, "parameter " + declared->name + " of " +
                                                   method->name + " is an output only"};
        if (std::any_of(args.begin(), args.end(),
                        [&](const auto& arg) { return arg.first == declared->name; }))
            throw Refusal{cimInvalidParameter, "parameter " + declared->name + " is given twice"};
        CMPIData data{};
        try {
            switch (value.kind) {
            case Value::Kind::Null:
                data.type = declared->type;
                data.state = CMPI_nullValue;
                break;
            case Value::Kind::Text:
                data = diaghost::CimValueCodec::fromLiteral(
                    broker, diaghost::CimValueCodec::literalKindFor(declared->type), value.text,
                    declared->type, ns);
                break;
            case Value::Kind::TextArray: {
                diaghost::MofValue array;
                array.kind = diaghost::CimValueCodec::literalKindFor(declared->type);
                array.array = true;
                array.elements = value.texts;
                data = diaghost::CimValueCodec::fromMof(broker, array, declared->type, ns);
                break;
            }
            case Value::Kind::InstanceName: {
                if (declared->type != CMPI_ref)
                    throw Refusal{cimInvalidParameter, given + " is not a reference parameter"};
                diaghost::ObjectPathText path = value.path;
                if (path.nameSpace.empty())
                    path.nameSpace = ns;
                data.type = CMPI_ref;
                data.state = CMPI_goodValue;
                data.value.ref = diaghost::CimValueCodec::pathFromText(broker, path, ns);
                break;
            }
            default:
                throw Refusal{cimInvalidParameter, given + " has a value of a kind not served"};
            }
        } catch (const Refusal&) {
            throw;
        } catch (const std::exception& e) {
            throw Refusal{cimInvalidParameter, given + ": " + e.what()};
        }
        args.emplace_back(declared->name, data);
    }

    diaghost::ObjectPathText target = request.target;
    target.nameSpace = ns;
    CMPIObjectPath* path = nullptr;
    try {
        path = diaghost::CimValueCodec::pathFromText(broker, target, ns);
    } catch (const std::exception& e) {
        throw Refusal{cimInvalidParameter, e.what()};
    }
    OperationResult result = host_.invokeMethod(path, method->name, args);
    if (!result.ok())
        return Outcome{static_cast<unsigned>(result.status.rc), result.status.message};
    out.returnValue(result.returnValue());
    if (const CMPIArgs* outArgs = result.outArgs()) {
        CMPICount n = outArgs->ft->getArgCount(outArgs, nullptr);
        for (CMPICount i = 0; i < n; ++i) {
            CMPIString* argName = nullptr;
            CMPIData value = outArgs->ft->getArgAt(outArgs, i, &argName, nullptr);
            const char* text =
                argName && argName->ft ? argName->ft->getCharPtr(argName, nullptr) : nullptr;
            if (text)
                out.paramValue(text, value);
        }
    }
    return {};
}

} // namespace diagserver
