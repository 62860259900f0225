#!/usr/bin/env python3
"""Plants the faults listed in tests/mutate/faults.txt one at a time, builds,
runs the test suite and reports which faults no test caught.

    scripts/mutate.py [--check] [--only N,N,...] [--build DIR]

--check only verifies that every entry's text occurs exactly once in its
file. The source tree is put back after every fault, also when the run is
interrupted. A fault that does not build is reported apart and left out of
the score. Exit status: 0 when at least 90% of the faults that build are
caught and every survivor is explained (a `survives:` line), 1 otherwise.
"""
import argparse
import os
import re
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
LIST = os.path.join(ROOT, "tests", "mutate", "faults.txt")
# Tests that cannot see a planted behaviour, or take minutes: the export
# lists, the layering, the manual pages, the install and the real programs.
SKIP = "readline_programs|installed_consumer|manual_pages|exported_symbols|module_layers"


def entries():
    text = open(LIST, encoding="utf-8").read()
    out = []
    for block in re.split(r"\n\s*\n", text):
        lines = block.split("\n")
        entry = {"what": [], "survives": None, "file": None, "find": None, "replace": None}
        field = None
        for line in lines:
            if line.startswith("## "):
                continue
            if line.startswith("# ") and field is None:
                entry["what"].append(line[2:])
            elif line.startswith("survives:"):
                entry["survives"] = line[len("survives:"):].strip()
                field = None
            elif line.startswith("file:"):
                entry["file"] = line[len("file:"):].strip()
            elif line.startswith("find:"):
                field = "find"
                entry["find"] = line[len("find: "):]
            elif line.startswith("replace:"):
                field = "replace"
                entry["replace"] = line[len("replace: "):]
            elif field:
                entry[field] += "\n" + line
        if entry["file"]:
            out.append(entry)
    return out


def run(cmd, timeout=None):
    return subprocess.run(cmd, cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          timeout=timeout)


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--check", action="store_true")
    ap.add_argument("--only", default="")
    ap.add_argument("--build", default="build-mutate")
    args = ap.parse_args()
    faults = entries()
    bad = 0
    for i, e in enumerate(faults, 1):
        path = os.path.join(ROOT, e["file"])
        n = open(path, encoding="utf-8").read().count(e["find"]) if os.path.exists(path) else -1
        if n != 1:
            print("fault %d (%s): its text occurs %d times in %s" % (i, " ".join(e["what"]), n, e["file"]))
            bad += 1
    print("%d faults listed" % len(faults))
    if bad or args.check:
        return 1 if bad else 0

    only = {int(x) for x in args.only.split(",") if x}
    build = args.build
    r = run(["cmake", "-S", ".", "-B", build, "-DCMAKE_BUILD_TYPE=Debug", "-DQUORVEL_TESTS=ON",
             "-DCMAKE_CXX_FLAGS=-O1", "-DCMAKE_C_FLAGS=-O1"])
    if r.returncode != 0 or run(["cmake", "--build", build, "-j", str(os.cpu_count() or 2)]).returncode != 0:
        print("the unchanged tree does not build in %s" % build)
        return 1
    killed, survived, unbuilt = [], [], []
    for i, e in enumerate(faults, 1):
        if only and i not in only:
            continue
        path = os.path.join(ROOT, e["file"])
        original = open(path, encoding="utf-8").read()
        start = time.time()
        try:
            with open(path, "w", encoding="utf-8") as f:
                f.write(original.replace(e["find"], e["replace"], 1))
            if run(["cmake", "--build", build, "-j", str(os.cpu_count() or 2)]).returncode != 0:
                unbuilt.append(i)
                verdict = "does not build"
            else:
                try:
                    t = run(["ctest", "--test-dir", build, "-j", str(os.cpu_count() or 2), "--timeout", "120",
                             "--stop-on-failure", "-E", SKIP], timeout=1800)
                    caught = t.returncode != 0
                except subprocess.TimeoutExpired:
                    caught = True
                (killed if caught else survived).append(i)
                verdict = "caught" if caught else "SURVIVED" + (" (%s)" % e["survives"] if e["survives"] else "")
        finally:
            with open(path, "w", encoding="utf-8") as f:
                f.write(original)
        print("%3d %-14s %4.0fs  %s" % (i, verdict, time.time() - start, " ".join(e["what"])), flush=True)
    run(["cmake", "--build", build, "-j", str(os.cpu_count() or 2)])
    total = len(killed) + len(survived)
    score = 100.0 * len(killed) / total if total else 0.0
    unexplained = [i for i in survived if not faults[i - 1]["survives"]]
    print("\n%d of %d faults caught (%.1f%%); %d survived (%d unexplained); %d did not build"
          % (len(killed), total, score, len(survived), len(unexplained), len(unbuilt)))
    return 0 if score >= 90.0 and not unexplained else 1


if __name__ == "__main__":
    sys.exit(main())
