// hostdemo: runs the embedded object manager on a MOF file, a registration file and a folder of
// provider libraries, and shows what it answers: an enumeration, one instance, a method call,
// the associators and references of that instance, all printed as MOF instance text.
//
// Without arguments it uses the host test suite's classes and providers from the build tree.
#include "host/Host.h"
#include "host/broker/Broker.h"
#include "host/broker/CallScope.h"
#include "host/broker/CimValueCodec.h"
#include "host/broker/CimValueText.h"
#include "host/broker/ResultSink.h"
#include "host/mof/ClassRepository.h"
#include "host/providers/ProviderManager.h"
#include "host/providers/ProviderRegistration.h"
#include "host/text/LiteralText.h"
#include "host/text/ObjectPathText.h"

#include <cmpift.h>

#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

using namespace diaghost;

namespace {

struct Settings {
    std::string mof;
    std::string registrations;
    std::vector<std::string> providerDirs;
    std::string nameSpace = "root/cimv2";
    std::string className = "Test_Element";
    std::string path = "Test_Element.Name=\"alpha\"";
    std::string method = "Ping";
    std::vector<std::pair<std::string, std::string>> args{{"Count", "41"}};
    PathDialect dialect = PathDialect::Pegasus;
    int echo = 0;
};

void usage(std::ostream& out) {
    out << "usage: hostdemo [options] [MOF [REGISTRATIONS [PROVIDER_DIR...]]]\n"
           "  --dialect pegasus|sfcb   how object paths are rendered (default pegasus)\n"
           "  --namespace NS           namespace of the MOF and the operations (root/cimv2)\n"
           "  --class NAME             class to enumerate (Test_Element)\n"
           "  --path TEXT              object path of the instance to show\n"
           "  --method NAME            method to invoke on it (Ping)\n"
           "  --arg NAME=VALUE         a method argument, typed as the method declares it;\n"
           "                           the first --arg replaces the default Count=41\n"
           "  --log LEVEL              echo log entries up to this severity to stderr\n"
           "  --help                   this text\n";
}

bool parseArguments(int argc, char** argv, Settings& s) {
#ifdef DIAGHOST_DEMO_MOF
    s.mof = DIAGHOST_DEMO_MOF;
    s.registrations = DIAGHOST_DEMO_REGISTRATIONS;
    s.providerDirs = {DIAGHOST_DEMO_PROVIDER_DIR};
#endif
    std::vector<std::string> positional;
    bool argsGiven = false;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        auto value = [&]() -> std::string {
            if (i + 1 >= argc)
                throw std::invalid_argument(a + " needs a value");
            return argv[++i];
        };
        if (a == "--help" || a == "-h") {
            usage(std::cout);
            std::exit(0);
        } else if (a == "--dialect") {
            std::string d = value();
            auto parsed = parseDialect(d);
            if (!parsed)
                throw std::invalid_argument("unknown dialect " + d);
            s.dialect = *parsed;
        } else if (a == "--namespace") {
            s.nameSpace = value();
        } else if (a == "--class") {
            s.className = value();
        } else if (a == "--path") {
            s.path = value();
        } else if (a == "--method") {
            s.method = value();
        } else if (a == "--arg") {
            std::string nv = value();
            std::size_t eq = nv.find('=');
            if (eq == std::string::npos || eq == 0)
                throw std::invalid_argument("--arg wants NAME=VALUE, not " + nv);
            if (!argsGiven)
                s.args.clear();
            argsGiven = true;
            s.args.emplace_back(nv.substr(0, eq), nv.substr(eq + 1));
        } else if (a == "--log") {
            s.echo = std::stoi(value());
        } else if (!a.empty() && a[0] == '-') {
            throw std::invalid_argument("unknown option " + a);
        } else {
            positional.push_back(a);
        }
    }
    if (!positional.empty()) {
        s.mof = positional[0];
        s.registrations = positional.size() > 1 ? positional[1] : "";
        s.providerDirs.assign(positional.begin() + std::min<std::size_t>(2, positional.size()),
                              positional.end());
    }
    return !s.mof.empty();
}

void printStatus(const char* what, const OperationResult& r) {
    std::cout << "-- " << what << ": " << rcName(r.status.rc);
    if (r.status.hasMessage)
        std::cout << " (" << r.status.message << ")";
    std::cout << "\n";
}

void printInstances(Host& host, const OperationResult& r) {
    for (const CMPIInstance* inst : r.instances())
        std::cout << host.mofText(inst) << "\n";
}

void printPaths(Host& host, const OperationResult& r) {
    for (const CMPIObjectPath* op : r.paths())
        std::cout << "   " << host.pathText(op) << "\n";
}

// The method's arguments, typed as the class declares its parameters; text when it does not.
Host::Arguments methodArguments(Host& host, const Settings& s, const std::string& className) {
    const CimClass* cls = host.classes().findClass(s.nameSpace, className);
    const CimMethod* method = cls ? cls->findMethod(s.method) : nullptr;
    Host::Arguments out;
    for (const auto& [name, text] : s.args) {
        CimTypeCode type = CMPI_string;
        if (method)
            for (const CimParameter& p : method->parameters)
                if (p.name.size() == name.size() && strcasecmp(p.name.c_str(), name.c_str()) == 0)
                    type = p.type;
        MofValue::Kind kind = MofValue::Kind::String;
        bool negative = false;
        unsigned long long magnitude = 0;
        double real = 0;
        if (type == CMPI_boolean)
            kind = MofValue::Kind::Boolean;
        else if (LiteralText::parseInteger(text, negative, magnitude))
            kind = type == CMPI_string ? MofValue::Kind::String : MofValue::Kind::Integer;
        else if (LiteralText::parseReal(text, real))
            kind = MofValue::Kind::Real;
        out.emplace_back(name,
                         CimValueCodec::fromLiteral(host.broker(), kind, text, type, s.nameSpace));
    }
    return out;
}

int run(const Settings& s) {
    Host::Options options;
    options.dialect = s.dialect;
    options.providerPath = s.providerDirs;
    options.logEchoLevel = s.echo;
    Host host(options);
    host.loadMof(s.mof, s.nameSpace);
    if (!s.registrations.empty())
        host.loadRegistrations(s.registrations);
    std::cout << "hostdemo: " << host.classes().classCount(s.nameSpace) << " classes in "
              << s.nameSpace << ", " << host.providers().registrations().size()
              << " provider registrations, paths in the " << dialectName(s.dialect)
              << " dialect\n\n";

    OperationResult all = host.enumerateInstances(s.nameSpace, s.className);
    printStatus(("enumerateInstances " + s.className).c_str(), all);
    printInstances(host, all);

    OperationResult one = host.getInstance(s.path);
    printStatus(("getInstance " + s.path).c_str(), one);
    printInstances(host, one);

    {
        CallScope scope(host.broker());
        std::string className = s.className;
        try {
            className = ObjectPathText::parse(s.path).className;
        } catch (const ObjectPathError&) {
        }
        OperationResult call =
            host.invokeMethod(s.path, s.method, methodArguments(host, s, className));
        printStatus(("invokeMethod " + s.method).c_str(), call);
        if (call.ok()) {
            std::cout << "   return value: " << CimValueText::mofText(call.returnValue()) << "\n";
            const CMPIArgs* out = call.outArgs();
            CMPICount n = out ? out->ft->getArgCount(out, nullptr) : 0;
            for (CMPICount i = 0; i < n; ++i) {
                CMPIString* name = nullptr;
                CMPIData d = out->ft->getArgAt(out, i, &name, nullptr);
                std::cout << "   out " << (name ? name->ft->getCharPtr(name, nullptr) : "?")
                          << " = " << CimValueText::mofText(d) << "\n";
            }
        }
    }

    OperationResult names = host.associatorNames(s.path);
    printStatus("associatorNames", names);
    printPaths(host, names);
    OperationResult assoc = host.associators(s.path);
    printStatus("associators", assoc);
    printInstances(host, assoc);
    OperationResult refs = host.references(s.path);
    printStatus("references", refs);
    printInstances(host, refs);

    std::size_t unloaded = host.unloadIdleProviders();
    std::cout << "\nunloaded " << unloaded << " idle provider librar"
              << (unloaded == 1 ? "y" : "ies") << "\n";
    return all.ok() && one.ok() ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    Settings settings;
    try {
        if (!parseArguments(argc, argv, settings)) {
            usage(std::cerr);
            return 2;
        }
        return run(settings);
    } catch (const std::exception& e) {
        std::cerr << "hostdemo: " << e.what() << "\n";
        return 1;
    }
}
