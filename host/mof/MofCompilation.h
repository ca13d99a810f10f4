// One load of MOF into a ClassStore: reads the files (following #pragma include relative to the
// including file, refusing include cycles and runaway nesting), hands each to a MofParser, and
// resolves the aliases of instance declarations. Classes and qualifier declarations are stored as
// they are read; instances are stored by finish(), once every alias they use is known, so a
// failed load stores none of its instances.
#ifndef DIAGHOST_MOF_MOFCOMPILATION_H
#define DIAGHOST_MOF_MOFCOMPILATION_H

#include "host/mof/CimClass.h"
#include "host/mof/ClassStore.h"

#include <string>
#include <unordered_map>
#include <vector>

namespace diaghost {

// Where an instance declaration names an alias ("Prop = $Alias;" or inside an array).
struct MofAliasUse {
    std::size_t value = 0;   // index into CimInstanceDecl::values
    std::size_t element = 0; // index into that value's elements
    std::string alias;
    int line = 0;
};

class MofCompilation {
public:
    static constexpr int maxIncludeDepth = 32;

    explicit MofCompilation(ClassStore& store);

    void compileFile(const std::string& path, const std::string& ns);
    void compileText(const std::string& text, const std::string& ns, const std::string& sourceName);
    // Resolves aliases and stores the instances read so far.
    void finish();

    // Used by MofParser while it reads a file. Errors are thrown as MofError at file:line.
    void include(const std::string& name, const std::string& ns, const std::string& fromFile,
                 int line);
    void defineQualifier(const std::string& ns, CimQualifierDecl decl);
    void defineClass(const std::string& ns, const CimClass& declared, const std::string& file,
                     int line);
    const CimClass* findClass(const std::string& ns, const std::string& className) const;
    void addInstance(const std::string& ns, CimInstanceDecl decl, std::vector<MofAliasUse> uses,
                     const std::string& file, int line);

private:
    struct PendingInstance {
        std::string ns;
        CimInstanceDecl decl;
        std::vector<MofAliasUse> uses;
        std::string file;
        int line = 0;
        enum class State { Open, Resolving, Done } state = State::Open;
        std::string path; // object path text, once computed
    };

    void compileSource(const std::string& text, const std::string& file, const std::string& ns);
    std::size_t aliasTarget(const PendingInstance& from, const MofAliasUse& use) const;
    const std::string& pathOf(std::size_t index, int depth);

    ClassStore& store_;
    std::vector<std::string> includeStack_; // canonical paths of the files being read
    std::vector<PendingInstance> pending_;
    std::unordered_map<std::string, std::size_t> aliases_; // lower-cased alias -> pending_ index
};

} // namespace diaghost

#endif
