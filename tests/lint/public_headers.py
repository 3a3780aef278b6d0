#!/usr/bin/python3
"""Fails when the installed headers promise what the shared library lacks.

Every function, method and variable that a header under INCLUDE_DIR declares
without defining it must be a symbol that LIBRARY exports, so that a client
calling it links; and every macro those headers define carries the
library's prefix (EV_ or EXTRACT_VERIFY_), so that none clashes with a
client's own. The headers are parsed by libclang as a client's compiler
would see them.

Usage: public_headers.py INCLUDE_DIR NM LIBRARY
"""
import pathlib
import subprocess
import sys

import clang.cindex as ci

K = ci.CursorKind
FUNCTIONS = {K.FUNCTION_DECL, K.CXX_METHOD, K.CONSTRUCTOR, K.DESTRUCTOR, K.CONVERSION_FUNCTION}
SCOPES = {K.CLASS_DECL, K.STRUCT_DECL, K.NAMESPACE, K.LINKAGE_SPEC}
PREFIXES = ("EV_", "EXTRACT_VERIFY_")


def exported_symbols(nm, library):
    out = subprocess.run([nm, "-D", "--defined-only", library], check=True,
                         capture_output=True, text=True).stdout
    return {line.split()[-1].split("@")[0] for line in out.splitlines() if line.strip()}


def is_deleted(cursor):
    # libclang 14 has no query for "= delete"; its tokens show it.
    spellings = [token.spelling for token in cursor.get_tokens()]
    return spellings[-2:] == ["=", "delete"]


def needs_symbol(cursor):
    """Declared here, defined elsewhere: the library has to export it."""
    if cursor.kind in FUNCTIONS:
        return not (cursor.is_definition() or cursor.is_pure_virtual_method()
                    or cursor.is_default_method() or is_deleted(cursor))
    return cursor.kind == K.VAR_DECL and not cursor.is_definition()


def manglings(cursor):
    """The names a compiler may emit for the declaration (constructors and
    destructors have several variants, one of which is enough)."""
    name = cursor.mangled_name
    variants = {name}
    for a, b in (("C1E", "C2E"), ("D1E", "D2E")):
        if a in name:
            variants.add(name.replace(a, b))
    return variants


def main(include_dir, nm, library):
    headers = sorted(pathlib.Path(include_dir).rglob("*.h"))
    source = "".join(f'#include "{h.relative_to(include_dir)}"\n' for h in headers)
    tu = ci.Index.create().parse(
        "client.cc", args=["-x", "c++", "-std=c++17", "-I", include_dir],
        unsaved_files=[("client.cc", source)],
        options=ci.TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD)
    problems = [str(d) for d in tu.diagnostics if d.severity >= ci.Diagnostic.Error]
    exported = exported_symbols(nm, library)
    ours = str(pathlib.Path(include_dir).resolve())

    def visit(parent):
        for cursor in parent.get_children():
            where = cursor.location.file
            if where is None or not str(pathlib.Path(where.name).resolve()).startswith(ours):
                continue
            place = f"{where.name}:{cursor.location.line}"
            if cursor.kind == K.MACRO_DEFINITION and not cursor.spelling.startswith(PREFIXES):
                problems.append(f"{place}: macro {cursor.spelling} lacks the library's prefix")
            elif needs_symbol(cursor) and not manglings(cursor) & exported:
                problems.append(f"{place}: {cursor.displayname} is declared but not exported"
                                f" ({cursor.mangled_name})")
            if cursor.kind in SCOPES:
                visit(cursor)

    visit(tu.cursor)
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))
