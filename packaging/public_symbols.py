#!/usr/bin/env python3
"""The public C interface of the shared libkqv: the functions and variables
that the installed headers (libs/libkqv/include and src/shared/include)
declare.  The shared library exports these and nothing else, through the
linker version script packaging/kqv.map.

  public_symbols.py write SOURCE_DIR          rewrites packaging/kqv.map
  public_symbols.py check SOURCE_DIR LIBRARY  fails unless LIBRARY exports
                                              exactly what the headers declare
"""
import glob
import os
import re
import subprocess
import sys

KEYWORDS = {"if", "while", "for", "return", "sizeof", "typedef", "defined",
            "GEN_PRINTF_LIKE"}


def declared(source_dir):
    """Names declared by the public headers: functions (not static inline,
    not function-pointer typedefs) and extern variables."""
    names = set()
    headers = glob.glob(os.path.join(source_dir, "libs/libkqv/include/*.h"))
    headers += glob.glob(os.path.join(source_dir, "src/shared/include/*.h"))
    for header in sorted(headers):
        with open(header) as f:
            text = f.read()
        text = re.sub(r"/\*.*?\*/", "", text, flags=re.S)
        text = re.sub(r"//.*", "", text)
        text = re.sub(r"static inline[^{]*\{.*?\n\}", "", text, flags=re.S)
        text = re.sub(r"typedef[^;]*;", "", text, flags=re.S)
        text = re.sub(r"#define[^\n]*(\\\n[^\n]*)*", "", text)
        for match in re.finditer(r"^[A-Za-z_][\w \t\*]*?\b([A-Za-z_]\w*)[ \t]*\(", text, flags=re.M):
            if match.group(1) not in KEYWORDS:
                names.add(match.group(1))
        for match in re.finditer(r"^extern[ \t]+[^;(\n\"]*?\b([A-Za-z_]\w*)[ \t]*(\[[^\]\n]*\])?[ \t]*;",
                                 text, flags=re.M):
            names.add(match.group(1))
    return names


def exported(library):
    out = subprocess.run(["nm", "-D", "--defined-only", library], check=True,
                         capture_output=True, text=True).stdout
    return {line.split()[-1] for line in out.splitlines() if line.split()[1] in "TDBRV"}


def main():
    if len(sys.argv) >= 3 and sys.argv[1] == "write":
        names = sorted(declared(sys.argv[2]))
        with open(os.path.join(sys.argv[2], "packaging/kqv.map"), "w") as f:
            f.write("/* The symbols the shared libkqv exports: what the installed headers\n"
                    " * declare.  Written by packaging/public_symbols.py; a test holds the\n"
                    " * library to it. */\n{\n  global:\n")
            for name in names:
                f.write("    %s;\n" % name)
            f.write("  local:\n    *;\n};\n")
        return 0
    if len(sys.argv) == 4 and sys.argv[1] == "check":
        want = declared(sys.argv[2])
        got = exported(sys.argv[3])
        missing, extra = sorted(want - got), sorted(got - want)
        for name in missing:
            print("declared but not exported: " + name)
        for name in extra:
            print("exported but not declared: " + name)
        return 1 if missing or extra else 0
    print(__doc__)
    return 2


if __name__ == "__main__":
    sys.exit(main())
