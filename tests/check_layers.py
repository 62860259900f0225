#!/usr/bin/env python3
"""Keeps the library's module graph pointing one way.

    check_layers.py SOURCE_DIR ARCHIVE_OR_OBJECT... [--extra FILE...]

Two kinds of arrow join the source files: an include (file A names B's
header) and a call (A's object refers to a symbol that B's object defines,
as nm lists them). Each file belongs to the folder it lies in under
SOURCE_DIR, and the folders stand in the order of LAYERS, from the bottom.
The check fails when

  - an arrow runs from a folder up to one above it (each is printed, with
    the include line or the symbols called), or
  - two files call each other, directly or round a longer loop. The
    readline-compatible library counts as one file here: readline's API is
    a set of global variables that each of its files reads and sets.

Weak symbols (inline functions and templates every includer carries) are
nobody's, so they make no call arrow. --extra names more source files to
read as if they lay in the folder of the library file with the same name:
the test that plants a violation uses it.
"""
import os
import re
import subprocess
import sys

# From the bottom up; a folder may use the folders before it, never one
# after. The README's table of folders keeps this order.
LAYERS = [
    "base",      # text and UTF-8, SGR parsing, assertions, file helpers, the option store
    "terminal",  # capabilities and motion, modes and signals, cells and rows, the print channel
    "services",  # logger (its mirror prints through the print channel), configuration, threads
    "data",      # the console record, edit buffer, history and its file, kill ring, undo, hints, pre-buffer
    "keys",      # key maps and the decoder
    "screen",    # model, layout, view, painter, render, highlighting, the row calls
    "edit",      # actions, editing keys, completion, search, paste, vi, default and named bindings
    "engine",    # the engine, the edit loop, the console's set-up, the exported term_* calls
    "readline",  # the readline-compatible library, on the exported calls
]
RANK = {name: i for i, name in enumerate(LAYERS)}
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.M)


def source_files(root):
    """{base name without extension: folder} and the list of file paths."""
    folder_of, paths = {}, []
    for folder in LAYERS:
        d = os.path.join(root, folder)
        if not os.path.isdir(d):
            continue
        for name in sorted(os.listdir(d)):
            if name.endswith((".c", ".cpp", ".h")):
                paths.append(os.path.join(d, name))
                folder_of.setdefault(os.path.splitext(name)[0], folder)
                folder_of[name] = folder
    stray = [n for n in os.listdir(root) if os.path.isfile(os.path.join(root, n))
             and n.endswith((".c", ".cpp", ".h"))]
    return folder_of, paths, stray


def members(path):
    """(member name, defined symbols, used symbols) for each object in path."""
    out = subprocess.run(["nm", path], check=True, capture_output=True, text=True).stdout
    name = os.path.basename(path).split(".")[0]
    found = {}
    for line in out.splitlines():
        if not line:
            continue
        if line.endswith(".o:"):
            name = os.path.basename(line[:-1]).split(".")[0]
            continue
        defined, used = found.setdefault(name, (set(), set()))
        parts = line.split(None, 2)
        if len(parts) == 2 and parts[0] == "U":
            used.add(parts[1])
        elif len(parts) == 3 and parts[1] in "TDBRC":
            defined.add(parts[2])
    return found


def demangle(names):
    try:
        out = subprocess.run(["c++filt"] + names, check=True, capture_output=True, text=True).stdout
        return out.split("\n")[: len(names)]
    except (OSError, subprocess.CalledProcessError):
        return names


def strongly_connected(edges):
    index, low, stack, on, out = {}, {}, [], set(), []

    def visit(v):
        index[v] = low[v] = len(index)
        stack.append(v)
        on.add(v)
        for w in sorted(edges.get(v, ())):
            if w not in index:
                visit(w)
                low[v] = min(low[v], low[w])
            elif w in on:
                low[v] = min(low[v], index[w])
        if low[v] == index[v]:
            group = []
            while True:
                w = stack.pop()
                on.discard(w)
                group.append(w)
                if w == v:
                    break
            out.append(group)

    sys.setrecursionlimit(10000)
    for v in sorted(edges):
        if v not in index:
            visit(v)
    return out


def main(argv):
    extra = []
    if "--extra" in argv:
        at = argv.index("--extra")
        argv, extra = argv[:at], argv[at + 1:]
    root, objects = argv[0], argv[1:]
    folder_of, paths, stray = source_files(root)
    failures = 0
    for name in stray:
        print("not in a layer folder: %s" % name)
        failures += 1

    # Includes, by file.
    includes = 0
    up_includes = []
    for path in paths + extra:
        base = os.path.basename(path)
        mine = folder_of.get(os.path.splitext(base)[0]) if path in extra else folder_of.get(base)
        if mine is None:
            print("%s: no library file of that name to place it by" % path)
            failures += 1
            continue
        with open(path, encoding="utf-8") as f:
            text = f.read()
        for m in INCLUDE.finditer(text):
            target = folder_of.get(os.path.basename(m.group(1)))
            if target is None:
                continue  # the public headers and the system's
            includes += 1
            if RANK[target] > RANK[mine]:
                line = text.count("\n", 0, m.start()) + 1
                up_includes.append("%s:%d (%s) includes %s (%s)" % (
                    os.path.relpath(path), line, mine, m.group(1), target))

    # Calls, by object.
    found = {}
    for path in objects:
        for name, (d, u) in members(path).items():
            od, ou = found.setdefault(name, (set(), set()))
            od |= d
            ou |= u
    owner = {}
    for name, (defined, _) in found.items():
        for s in defined:
            owner.setdefault(s, name)
    edges = {n: {} for n in found}
    for n, (_, used) in found.items():
        for s in used:
            m = owner.get(s)
            if m and m != n:
                edges[n].setdefault(m, []).append(s)
    calls = sum(len(e) for e in edges.values())
    up_calls = []
    for a in sorted(edges):
        fa = folder_of.get(a)
        for b, syms in sorted(edges[a].items()):
            fb = folder_of.get(b)
            if fa is None or fb is None:
                continue
            if RANK[fb] > RANK[fa]:
                shown = ", ".join(demangle(sorted(syms)[:4])) + (" ..." if len(syms) > 4 else "")
                up_calls.append("%s (%s) calls %s (%s): %s" % (a, fa, b, fb, shown))

    for line in up_includes:
        print("upward include: " + line)
    for line in up_calls:
        print("upward call: " + line)

    def node(n):
        return "readline" if folder_of.get(n) == "readline" else n
    graph = {}
    for a, targets in edges.items():
        graph.setdefault(node(a), set()).update(node(b) for b in targets if node(b) != node(a))
    groups = [g for g in strongly_connected(graph) if len(g) > 1]
    for g in groups:
        in_group = set(g)
        print("cycle between %d files: %s" % (len(g), " ".join(sorted(g))))
        for a in sorted(edges):
            for b, syms in sorted(edges[a].items()):
                if node(a) in in_group and node(b) in in_group and node(a) != node(b):
                    shown = ", ".join(demangle(sorted(syms)[:4])) + (" ..." if len(syms) > 4 else "")
                    print("  %s -> %s: %s" % (a, b, shown))

    print("%d upward includes of %d, %d upward calls of %d, %d cycles; layers from the bottom: %s"
          % (len(up_includes), includes, len(up_calls), calls, len(groups), " ".join(LAYERS)))
    return 1 if failures or up_includes or up_calls or groups else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
