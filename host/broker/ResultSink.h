// A CMPIResult that keeps its own copies of everything returned on it, and the order of the
// calls made on it, or hands the instances and paths on to a stream. What it holds lives until
// the sink is cleared or destroyed.
#ifndef DIAGHOST_BROKER_RESULTSINK_H
#define DIAGHOST_BROKER_RESULTSINK_H

#include <cmpidt.h>

#include <memory>
#include <string>
#include <vector>

namespace diaghost {

class Broker;

class ResultSink {
public:
    enum class Call { Data, Instance, ObjectPath, Done, Error };

    // Takes the instances and paths returned on a sink as they come, instead of the sink keeping
    // them: a long answer then need not lie whole in memory. Called on the thread of the provider
    // call, which it may hold up until there is room, with the object the provider returned: the
    // stream reads what it needs before it returns and keeps nothing of it, as an object manager
    // that serialises what it is handed does. False when no more are wanted: the provider's
    // returnInstance or returnObjectPath then answers CMPI_RC_ERR_FAILED.
    class Stream {
    public:
        virtual ~Stream() = default;
        virtual bool instance(const CMPIInstance* returned) = 0;
        virtual bool path(const CMPIObjectPath* returned) = 0;
    };

    explicit ResultSink(Broker& broker);
    ~ResultSink();
    ResultSink(const ResultSink&) = delete;
    ResultSink& operator=(const ResultSink&) = delete;

    // The CMPIResult to hand to a provider; its calls land in this sink.
    CMPIResult* cmpi();

    const std::vector<Call>& calls() const;
    // Copies (clones owned by the sink) in the order returned.
    const std::vector<CMPIInstance*>& instances() const;
    const std::vector<CMPIObjectPath*>& paths() const;
    // Copies of returned data; strings, arrays and other objects in them are owned by the sink.
    const std::vector<CMPIData>& data() const;
    const std::vector<CMPIError*>& errors() const;
    bool done() const;
    void clear();

    // The property list of the request this sink answers (none: every property). Under a strict
    // broker, returnInstance filters the instance it is given in place to that list before it
    // takes its copy, as an object manager that edits and keeps the instances it is handed
    // does; a provider that hands over an instance it keeps then sees the change.
    void setRequestProperties(const char** properties);
    // The property list and the stream of the sink this one's answers go on to.
    void setRequestProperties(const ResultSink& from);

    // Instances and paths returned from now on go to the stream (null: kept here). The stream
    // must outlive the sink's use.
    void streamTo(Stream* stream);

    // Moves everything `from` received, in the order received and without copying, to the end of
    // this sink (its instances and paths to this sink's stream, when it has one), except its
    // Done; `from` is left empty. False when the stream refused one of them: no more are wanted.
    bool takeFrom(ResultSink& from);

    // Hands over the instance (path) copies: from now on the caller owns each of them and must
    // release it. The sink's list is left empty.
    std::vector<CMPIInstance*> takeInstances();
    std::vector<CMPIObjectPath*> takePaths();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace diaghost

#endif
