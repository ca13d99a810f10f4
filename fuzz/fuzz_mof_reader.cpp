// The host's MOF reader: any text either loads or raises MofError; nothing else may escape, and
// whatever loaded answers the repository's lookups.
#include "host/mof/ClassRepository.h"

#include <cstdint>
#include <string>

using diaghost::ClassRepository;
using diaghost::MofError;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    const std::string text(reinterpret_cast<const char*>(bytes), size);
    ClassRepository repository;
    try {
        // Relative includes resolve below a folder that does not exist.
        repository.loadText(text, "root/cimv2", "/nonexistent-fuzz-folder/input.mof");
    } catch (const MofError&) {
    }
    for (const std::string& ns : repository.namespaces()) {
        for (const std::string& name : repository.classNames(ns)) {
            (void)repository.findClass(ns, name);
            (void)repository.subclassNames(ns, name);
            (void)repository.isA(ns, name, "CIM_ManagedElement");
        }
        (void)repository.instances(ns);
        (void)repository.classCount(ns);
    }
    return 0;
}
