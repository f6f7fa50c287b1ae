#!/usr/bin/env python3
"""Lists the imports of Mach-O files that no .tbd stub under the given directories exports.

Usage: ios-floor-imports.py NM STUB_DIRS(colon-separated) FILE...
Prints one line per missing import and exits 1 when there is any. Used by build-ios.sh with the
stubs of the oldest SDK the package supports: an import missing there fails to bind on a phone
with that firmware, which no link against a newer SDK shows."""
import pathlib
import re
import subprocess
import sys

LISTS = re.compile(r"(symbols|weak-symbols|thread-local-symbols|objc-classes|objc-eh-types|objc-ivars)"
                   r"\s*:\s*\[([^\]]*)\]")


def exported(directories):
    names = set()
    for directory in directories:
        for stub in pathlib.Path(directory).rglob("*.tbd"):
            for kind, items in LISTS.findall(stub.read_text(errors="ignore")):
                for item in (i.strip().strip("'\"") for i in items.replace("\n", " ").split(",")):
                    if not item:
                        continue
                    # Objective-C lists name a class once; the symbol table names it several ways.
                    if kind == "objc-classes":
                        name = item.lstrip("_")
                        names.update({"_OBJC_CLASS_$_" + name, "_OBJC_METACLASS_$_" + name})
                    elif kind == "objc-eh-types":
                        names.add("_OBJC_EHTYPE_$_" + item.lstrip("_"))
                    elif kind == "objc-ivars":
                        names.add("_OBJC_IVAR_$_" + item.lstrip("_"))
                    else:
                        names.add(item)
    return names


def main():
    if len(sys.argv) < 4:
        sys.exit(__doc__)
    nm, directories, files = sys.argv[1], sys.argv[2].split(":"), sys.argv[3:]
    names = exported(directories)
    if not names:
        sys.exit(f"no .tbd stubs under {sys.argv[2]}")
    missing = 0
    for path in files:
        imports = subprocess.run([nm, "-u", "-j", path], check=True, capture_output=True, text=True).stdout.split()
        for symbol in sorted(set(imports) - names):
            print(f"{path}: {symbol}")
            missing += 1
    sys.exit(1 if missing else 0)


if __name__ == "__main__":
    main()
