// The frame of the XML parser benchmark programs. A program hands xmlBenchMain its parser
// variants (a name and a function that parses one request text into a Request); the frame
//  - checks that every variant decodes the three requests back into what they were written from,
//  - registers one benchmark per variant and request (bytes/s, time per request, and the heap
//    the parse needs at its peak and what the decoded request itself keeps, as counters),
//  - with --checks, instead feeds every variant the hostile documents below, each in a child
//    process of its own (2 GiB of address space, 60 s), and prints what happened.
#ifndef DIAGCORE_BENCH_WBEM_XMLBENCH_H
#define DIAGCORE_BENCH_WBEM_XMLBENCH_H

#include "CimXml.h"
#include "PeakHeap.h"

#include <benchmark/benchmark.h>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <string>
#include <vector>

namespace wbembench {

struct XmlParser {
    std::string name;
    // Parses text into out; returns "" when the request was decoded, else why it was refused.
    std::function<std::string(const std::string& text, Request& out)> parse;
    // Only fed the hostile documents, not measured (a setting shown for what it does).
    bool checksOnly = false;
};

struct NamedText {
    std::string name;
    std::string text;
};

inline std::vector<NamedText> benchRequests() {
    return {{"GetInstance", toXml(getInstanceRequest())},
            {"InvokeMethod", toXml(invokeMethodRequest())},
            {"Large1MiB", toXml(largeRequest(1u << 20))}};
}

// A GetInstance whose one parameter's VALUE holds content, after an optional DOCTYPE.
inline std::string probeDocument(const std::string& doctype, const std::string& content) {
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n" + doctype +
           "<CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\"><MESSAGE ID=\"1\" PROTOCOLVERSION=\"1.0\">"
           "<SIMPLEREQ><IMETHODCALL NAME=\"GetInstance\"><LOCALNAMESPACEPATH>"
           "<NAMESPACE NAME=\"root\"/></LOCALNAMESPACEPATH><IPARAMVALUE NAME=\"Probe\"><VALUE>" +
           content + "</VALUE></IPARAMVALUE></IMETHODCALL></SIMPLEREQ></MESSAGE></CIM>";
}

// An instance name whose key is a reference whose key is a reference ..., 100,000 elements deep.
inline std::string deepDocument() {
    const int levels = 33334; // three elements per level
    std::string s = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
                    "<CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\"><MESSAGE ID=\"1\" "
                    "PROTOCOLVERSION=\"1.0\"><SIMPLEREQ><IMETHODCALL NAME=\"GetInstance\">"
                    "<LOCALNAMESPACEPATH><NAMESPACE NAME=\"root\"/></LOCALNAMESPACEPATH>"
                    "<IPARAMVALUE NAME=\"InstanceName\"><INSTANCENAME CLASSNAME=\"C\">"
                    "<KEYBINDING NAME=\"K\">";
    for (int i = 0; i < levels; ++i)
        s += "<VALUE.REFERENCE><INSTANCENAME CLASSNAME=\"C\"><KEYBINDING NAME=\"K\">";
    s += "<KEYVALUE>1</KEYVALUE>";
    for (int i = 0; i < levels; ++i)
        s += "</KEYBINDING></INSTANCENAME></VALUE.REFERENCE>";
    s += "</KEYBINDING></INSTANCENAME></IPARAMVALUE></IMETHODCALL></SIMPLEREQ></MESSAGE></CIM>";
    return s;
}

inline std::string replaced(std::string s, const std::string& from, const std::string& to) {
    std::size_t at = s.find(from);
    return at == std::string::npos ? s : s.replace(at, from.size(), to);
}

inline std::string duplicateAttribute() {
    return replaced(probeDocument("", "plain"), "<IPARAMVALUE NAME=\"Probe\">",
                    "<IPARAMVALUE NAME=\"Probe\" NAME=\"Probe\">");
}

inline std::string ltInAttribute() {
    return replaced(probeDocument("", "plain"), "<NAMESPACE NAME=\"root\"/>",
                    "<NAMESPACE NAME=\"ro<ot\"/>");
}

inline std::vector<NamedText> hostileDocuments() {
    std::string laughs = "<!DOCTYPE CIM [\n<!ENTITY lol0 \"lol\">\n";
    for (int i = 1; i <= 9; ++i) {
        laughs += "<!ENTITY lol" + std::to_string(i) + " \"";
        for (int j = 0; j < 10; ++j)
            laughs += "&lol" + std::to_string(i - 1) + ";";
        laughs += "\">\n";
    }
    laughs += "]>\n";
    return {
        {"plain request (control)", probeDocument("", "plain")},
        {"DOCTYPE, internal subset, nothing used",
         probeDocument("<!DOCTYPE CIM [<!ELEMENT CIM ANY>]>\n", "plain")},
        {"entity bomb, 3e9 bytes (billion laughs)", probeDocument(laughs, "&lol9;")},
        {"external entity file:///etc/passwd",
         probeDocument("<!DOCTYPE CIM [<!ENTITY xxe SYSTEM \"file:///etc/passwd\">]>\n", "&xxe;")},
        {"100,000 elements deep", deepDocument()},
        {"invalid UTF-8: byte FF", probeDocument("", "a\xff"
                                                     "b")},
        {"invalid UTF-8: overlong C0 AF", probeDocument("", "a\xc0\xaf"
                                                            "b")},
        {"invalid UTF-8: surrogate ED A0 80", probeDocument("", "a\xed\xa0\x80"
                                                                "b")},
        {"invalid UTF-8: truncated E2 82", probeDocument("", "a\xe2\x82"
                                                             "b")},
        {"not well-formed: undefined entity &foo;", probeDocument("", "a&foo;b")},
        {"not well-formed: bare & in text", probeDocument("", "a & b")},
        {"not well-formed: control character U+0001", probeDocument("", "a\x01"
                                                                        "b")},
        {"not well-formed: attribute given twice", duplicateAttribute()},
        {"not well-formed: < in an attribute value", ltInAttribute()},
    };
}

inline bool verify(const std::vector<XmlParser>& parsers) {
    std::vector<Request> expected;
    expected.push_back(getInstanceRequest());
    expected.push_back(invokeMethodRequest());
    expected.push_back(largeRequest(1u << 20));
    std::vector<NamedText> texts = benchRequests();
    bool ok = true;
    for (const XmlParser& p : parsers) {
        if (p.checksOnly)
            continue;
        for (std::size_t i = 0; i < texts.size(); ++i) {
            Request got;
            std::string error = p.parse(texts[i].text, got);
            if (!error.empty() || !sameRequest(got, expected[i])) {
                std::fprintf(stderr, "%s does not decode %s: %s\n", p.name.c_str(),
                             texts[i].name.c_str(), error.empty() ? "different" : error.c_str());
                ok = false;
            }
        }
    }
    return ok;
}

// Runs in a child: parses one hostile document and writes a line on what happened. The child
// first parses the control document once (so that first-touch costs of the fresh process are
// not counted), then the hostile one up to three times: the heap is that of the first parse,
// the time the shortest of the three.
inline void probeChild(const XmlParser& p, const std::string& control, const std::string& text,
                       int out) {
    rlimit limit{2ull << 30, 2ull << 30};
    setrlimit(RLIMIT_AS, &limit);
    alarm(60);
    std::string line;
    try {
        {
            Request warm;
            p.parse(control, warm);
        }
        Request req;
        std::string error;
        std::size_t peak = 0;
        double ms = 1e300;
        for (int run = 0; run < 3; ++run) {
            req = Request();
            auto t0 = std::chrono::steady_clock::now();
            if (run == 0)
                peakheap::begin();
            error = p.parse(text, req);
            if (run == 0)
                peak = peakheap::end();
            double took =
                std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0)
                    .count();
            ms = took < ms ? took : ms;
            if (took > 5000)
                break;
        }
        char stats[96];
        std::snprintf(stats, sizeof stats, " | %.3f ms | %.0f KiB", ms, peak / 1024.0);
        for (char& c : error)
            if (c == '\n')
                c = ' ';
        if (!error.empty()) {
            line = "refused: " + error + stats;
        } else {
            std::string value = req.params.empty() ? std::string() : req.params[0].scalar;
            std::string shown;
            for (unsigned char c : value.substr(0, 12))
                if (c >= 0x20 && c < 0x7f) {
                    shown += static_cast<char>(c);
                } else {
                    char hex[8];
                    std::snprintf(hex, sizeof hex, "\\x%02X", c);
                    shown += hex;
                }
            line = "accepted, value " + std::to_string(value.size()) + " bytes \"" + shown +
                   (value.size() > 12 ? "...\"" : "\"") +
                   (value.find("root:") != std::string::npos ? " (CONTAINS /etc/passwd)" : "") +
                   stats;
        }
    } catch (const std::bad_alloc&) {
        peakheap::end();
        line = "out of memory (2 GiB address space) | | ";
    }
    line += '\n';
    ssize_t n = write(out, line.data(), line.size());
    (void)n;
    _exit(0);
}

inline int runChecks(const std::vector<XmlParser>& parsers) {
    std::vector<NamedText> docs = hostileDocuments();
    std::printf("| parser | document | outcome | time | peak heap |\n|---|---|---|---|---|\n");
    for (const XmlParser& p : parsers) {
        for (const NamedText& d : docs) {
            int fds[2];
            if (pipe(fds) != 0)
                return 1;
            std::fflush(stdout);
            pid_t child = fork();
            if (child == 0) {
                close(fds[0]);
                probeChild(p, docs[0].text, d.text, fds[1]);
            }
            close(fds[1]);
            std::string line;
            char buf[512];
            ssize_t n;
            while ((n = read(fds[0], buf, sizeof buf)) > 0)
                line.append(buf, static_cast<std::size_t>(n));
            close(fds[0]);
            int status = 0;
            waitpid(child, &status, 0);
            if (line.empty()) {
                if (WIFSIGNALED(status))
                    line = WTERMSIG(status) == SIGALRM
                               ? std::string("did not finish within 60 s")
                               : "crashed (signal " + std::to_string(WTERMSIG(status)) + ")";
                else
                    line = "exited " + std::to_string(WEXITSTATUS(status)) + " without a word";
                line += " | | ";
            }
            while (!line.empty() && line.back() == '\n')
                line.pop_back();
            std::printf("| %s | %s | %s |\n", p.name.c_str(), d.name.c_str(), line.c_str());
        }
    }
    return 0;
}

inline void registerBenchmarks(const std::vector<XmlParser>& parsers) {
    static std::vector<NamedText> texts = benchRequests();
    for (const XmlParser& p : parsers) {
        if (p.checksOnly)
            continue;
        for (const NamedText& t : texts) {
            benchmark::RegisterBenchmark(
                ("XML/" + p.name + "/" + t.name).c_str(),
                [p, &t](benchmark::State& state) {
                    // One counted parse first: the heap the parse needs at its peak, and what
                    // the decoded request keeps of it.
                    std::size_t peak = 0;
                    std::size_t kept = 0;
                    {
                        Request req;
                        peakheap::begin();
                        std::string error = p.parse(t.text, req);
                        peak = peakheap::end();
                        kept = heldBytes(req);
                        if (!error.empty()) {
                            state.SkipWithError(error.c_str());
                            return;
                        }
                    }
                    for (auto _ : state) {
                        Request req;
                        std::string error = p.parse(t.text, req);
                        benchmark::DoNotOptimize(req.params.data());
                        benchmark::DoNotOptimize(error.data());
                    }
                    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                                            static_cast<std::int64_t>(t.text.size()));
                    state.counters["doc_B"] = static_cast<double>(t.text.size());
                    state.counters["peak_KiB"] = static_cast<double>(peak) / 1024.0;
                    state.counters["result_KiB"] = static_cast<double>(kept) / 1024.0;
                })
                ->Unit(benchmark::kMicrosecond);
        }
    }
}

inline int xmlBenchMain(int argc, char** argv, const std::vector<XmlParser>& parsers) {
    if (!verify(parsers))
        return 1;
    for (int i = 1; i < argc; ++i)
        if (std::strcmp(argv[i], "--checks") == 0)
            return runChecks(parsers);
    registerBenchmarks(parsers);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

} // namespace wbembench

#endif // DIAGCORE_BENCH_WBEM_XMLBENCH_H
