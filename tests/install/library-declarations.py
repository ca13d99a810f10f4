#!/usr/bin/env python3
"""Lists what a set of headers declares and leaves to a library to define.

usage: library-declarations.py HEADER_ROOT [EXCLUDED_DIR ...] < AST.json

Reads clang's JSON dump of a translation unit (-Xclang -ast-dump=json) and prints one line per
function, member function or static data member that a header below HEADER_ROOT (and not below
an EXCLUDED_DIR) declares without defining it anywhere in the headers:
"<mangled name>\t<header>:<line>\t<name>". The compiler did the parsing and the mangling, so the
names compare exactly with a library's dynamic symbol table. Templates are left out: a header
has to define them, and a compile that uses them checks the rest. Pure virtual, deleted,
defaulted, inline and constexpr functions need no definition from the library.
"""

import json
import os
import sys

FUNCTIONS = {
    "FunctionDecl",
    "CXXMethodDecl",
    "CXXConstructorDecl",
    "CXXDestructorDecl",
    "CXXConversionDecl",
}
# Everything below these is either a template or has internal linkage.
SKIPPED_SCOPES = {
    "ClassTemplateDecl",
    "ClassTemplatePartialSpecializationDecl",
    "FunctionTemplateDecl",
    "VarTemplateDecl",
    "TypeAliasTemplateDecl",
}
NEEDS_NOTHING = ("pure", "explicitlyDeleted", "explicitlyDefaulted", "inline", "constexpr")


class Walker:
    def __init__(self, root, excluded):
        self.root = os.path.join(os.path.realpath(root), "")
        self.excluded = [os.path.join(os.path.realpath(d), "") for d in excluded]
        # The dump writes a location's file and line only where they change from the location
        # written before it, so both are followed in document order.
        self.file = ""
        self.line = 0
        self.declared = {}
        self.defined = set()

    def follow(self, location):
        if isinstance(location, dict):
            if "offset" in location:
                self.file = location.get("file", self.file)
                self.line = location.get("line", self.line)
            for key, value in location.items():
                if key != "includedFrom":
                    self.follow(value)

    def ours(self, path):
        path = os.path.realpath(path)
        return path.startswith(self.root) and not any(path.startswith(d) for d in self.excluded)

    def consider(self, node, parent, where):
        kind = node.get("kind")
        name = node.get("mangledName")
        if name is None or node.get("isImplicit"):
            return
        if kind in FUNCTIONS:
            if any(child.get("kind", "").endswith("Stmt") for child in node.get("inner", [])):
                self.defined.add(name)
                return
            if any(node.get(flag) for flag in NEEDS_NOTHING):
                return
            if kind == "FunctionDecl" and node.get("storageClass") == "static":
                return
        elif kind == "VarDecl":
            member = parent == "CXXRecordDecl" and node.get("storageClass") == "static"
            external = parent != "CXXRecordDecl" and node.get("storageClass") == "extern"
            if "init" in node or not (member or external):
                self.defined.add(name)
                return
            if node.get("constexpr") or node.get("inline"):
                return
        else:
            return
        if where is not None and self.ours(where[0]):
            self.declared.setdefault(name, (where, node.get("name", "")))

    def walk(self, tree):
        # Explicit stack: the dump nests deeper than Python's recursion allows.
        stack = [(tree, None, False)]
        while stack:
            node, parent, skipped = stack.pop()
            if isinstance(node, list):
                stack.extend((item, parent, skipped) for item in reversed(node))
                continue
            if not isinstance(node, dict):
                continue
            kind = node.get("kind")
            unnamed = kind == "NamespaceDecl" and not node.get("name")
            inner = skipped or kind in SKIPPED_SCOPES or unnamed
            where = None
            later = []
            for key, value in node.items():
                if key in ("loc", "range"):
                    self.follow(value)
                    if key == "loc" and value:
                        where = (self.file, self.line)
                elif isinstance(value, (dict, list)):
                    later.append(value)
            if not skipped:
                self.consider(node, parent, where)
            stack.extend((value, kind, inner) for value in reversed(later))


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    walker = Walker(sys.argv[1], sys.argv[2:])
    walker.walk(json.load(sys.stdin))
    for name, ((path, line), readable) in sorted(walker.declared.items()):
        if name not in walker.defined:
            print(f"{name}\t{os.path.relpath(path, walker.root)}:{line}\t{readable}")


if __name__ == "__main__":
    main()
