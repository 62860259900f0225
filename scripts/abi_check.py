#!/usr/bin/env python3
"""Holds a shared library to the ABI recorded for its SONAME.

    abi_check.py LIBRARY BASELINE_DIR [--update] [--plant]

The baseline is BASELINE_DIR/<soname>.abi, as libabigail's abidw writes it
for the library's public headers (include/ and the installed module
headers). abidiff compares the built library with it: added functions and
variables are reported and accepted; a removed or changed one fails, since
a program linked against the SONAME may use it. A new SONAME has no
baseline yet: the check then says to record one (--update writes it).
--plant first removes a data member from a record of the baseline
(term_options), so that the library seems to have changed that record: the
check must fail then, and this run exits 0 only if it did.

Exit status: 0 when compatible, 1 when not, 77 when abidw or abidiff is
missing (the test is skipped).
"""
import os
import re
import shutil
import subprocess
import sys
import tempfile

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def soname(library):
    out = subprocess.run(["objdump", "-p", library], capture_output=True, text=True).stdout
    m = re.search(r"SONAME\s+(\S+)", out)
    return m.group(1) if m else os.path.basename(library)


def dump(library, out):
    subprocess.run(["abidw", "--no-show-locs", "--no-corpus-path", "--no-comp-dir-path", "--drop-private-types",
                    "--headers-dir", os.path.join(ROOT, "include"), "--headers-dir", os.path.join(ROOT, "Source"),
                    library, "--out-file", out], check=True)


def plant(baseline, out):
    """The baseline with term_options' last data member taken out."""
    text = open(baseline).read()
    start = text.index("<class-decl name='term_options'")
    end = text.index("</class-decl>", start)
    members = [m.start() for m in re.finditer(r"<data-member ", text[start:end])]
    if len(members) < 2:
        raise SystemExit("term_options has no member to take out")
    cut = start + members[-1]
    close = text.index("</data-member>", cut) + len("</data-member>")
    open(out, "w").write(text[:cut] + text[close:])


def main():
    args = [a for a in sys.argv[1:] if not a.startswith("--")]
    if len(args) != 2:
        print(__doc__)
        return 2
    library, base_dir = args
    if not shutil.which("abidw") or not shutil.which("abidiff"):
        print("abidw or abidiff is missing (Debian's abigail-tools): skipped")
        return 77
    baseline = os.path.join(base_dir, soname(library) + ".abi")
    if "--update" in sys.argv:
        os.makedirs(base_dir, exist_ok=True)
        dump(library, baseline)
        print("recorded " + baseline)
        return 0
    if not os.path.exists(baseline):
        print("no baseline for %s: a new SONAME; record one with\n  %s %s %s --update"
              % (soname(library), sys.argv[0], library, base_dir))
        return 1
    with tempfile.TemporaryDirectory() as tmp:
        if "--plant" in sys.argv:
            planted = os.path.join(tmp, "planted.abi")
            plant(baseline, planted)
            baseline = planted
        current = os.path.join(tmp, "current.abi")
        dump(library, current)
        run = subprocess.run(["abidiff", "--no-added-syms", baseline, current], capture_output=True, text=True)
        added = subprocess.run(["abidiff", "--no-deleted-fns", "--no-changed-fns", "--no-deleted-vars",
                                "--no-changed-vars", baseline, current], capture_output=True, text=True)
    report = run.stdout
    # "Functions changes summary: 0 Removed, 1 Changed (...), 0 Added", and
    # the same for variables.
    counts = [int(n) for pair in re.findall(r"(\d+) Removed[^,]*, (\d+) Changed", report) for n in pair]
    incompatible = any(counts) or (run.returncode & 8) != 0
    if added.stdout.strip() and "Added" in added.stdout:
        print("added, accepted:\n" + added.stdout)
    if "--plant" in sys.argv:
        if incompatible:
            print("the planted change to term_options was caught")
            return 0
        print("the planted change to term_options went unnoticed:\n" + report)
        return 1
    if incompatible:
        print("the ABI of %s changed against its baseline; raise the SONAME with it:\n%s" % (soname(library), report))
        return 1
    print("%s: compatible with its baseline" % soname(library))
    return 0


if __name__ == "__main__":
    sys.exit(main())
