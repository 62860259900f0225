#!/usr/bin/env python3
"""Fails when the library's source files call each other in a cycle.

Reads the defined and undefined symbols of each object file (or of each
member of a static library) with nm. File A uses
file B when A refers to a symbol that B defines. Weak symbols (inline
functions and templates that every includer carries) are nobody's, so they
make no edge. Prints every cycle with the calls that close it, or the files
in calling order when there is none.
"""
import os
import subprocess
import sys


def members(path):
    """(file name, defined symbols, used symbols) for each object in path."""
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
    return [(n, d, u) for n, (d, u) in found.items()]


def demangle(names):
    try:
        out = subprocess.run(["c++filt"] + names, check=True, capture_output=True, text=True).stdout
        return out.split("\n")[: len(names)]
    except (OSError, subprocess.CalledProcessError):
        return names


def strongly_connected(nodes, edges):
    index, low, stack, on, out = {}, {}, [], set(), []

    def visit(v):
        index[v] = low[v] = len(index)
        stack.append(v)
        on.add(v)
        for w in sorted(edges[v]):
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
    for v in sorted(nodes):
        if v not in index:
            visit(v)
    return out


def main(paths):
    owner, uses = {}, {}
    for path in paths:
        for name, defined, used in members(path):
            for s in defined:
                owner[s] = name
            uses[name] = used
    edges = {n: {} for n in uses}
    for n, used in uses.items():
        for s in used:
            m = owner.get(s)
            if m and m != n:
                edges[n].setdefault(m, []).append(s)
    groups = [g for g in strongly_connected(edges, {n: set(e) for n, e in edges.items()}) if len(g) > 1]
    if not groups:
        # Tarjan's order is callees first: print callers first.
        order = [g[0] for g in strongly_connected(edges, {n: set(e) for n, e in edges.items()})]
        print("no cycle between %d files; from the top: %s" % (len(order), " ".join(reversed(order))))
        return 0
    for g in groups:
        in_group = set(g)
        print("cycle between %d files: %s" % (len(g), " ".join(sorted(g))))
        for a in sorted(g):
            for b, syms in sorted(edges[a].items()):
                if b in in_group:
                    shown = ", ".join(demangle(sorted(syms)[:4])) + (" ..." if len(syms) > 4 else "")
                    print("  %s -> %s: %s" % (a, b, shown))
    return 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
