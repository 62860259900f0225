#!/usr/bin/env python3
"""Runs unmodified readline (and libedit) programs in a pseudo-terminal,
first on their own line editor, then with libquorvel-readline preloaded, and
checks what a user would: a calculation answers, Tab completes, UTF-8 comes
back whole, Up recalls, Ctrl-D leaves, the terminal modes come back, and the
history survives a restart.

A check that fails on the program's own editor is not held against the
library. The run fails when a check that passed there fails preloaded, or
when a program dies of a signal. Programs that are not installed are
reported as skipped; when none is, the exit status is 77.

    scripts/rl_programs.py --library build/libquorvel-readline.so [-v] [prog...]
"""
import argparse
import fcntl
import os
import pwd
import re
import select
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import termios
import time

UP = "\x1b[A"
KILL = "\x01\x0b"  # Home, then kill to the end: a line left by a completion
ESCAPES = re.compile(rb"\x1b(\[[0-9;?<=>]*[ -/]*[@-~]|\][^\x07\x1b]*(\x07|\x1b\\)|[()][0-9A-Za-z]|[=>78MDEHc])")

# Each program: how to start it, the prompt it shows (None: it shows none),
# and its checks as steps of (keys, text that must then appear). A step
# without text waits for the output to settle.
PROGRAMS = {
    "python3": dict(
        argv=["/usr/bin/python3", "-q"], prompt=">>> ",
        calc=[("40+2\r", "42")],
        utf8=[("'hé'+'llo'\r", "'héllo'")],
        tab=[("impo\t", "import"), ("os; 6*7\r", "42")],
        up=[(UP + "\r", "\n42")]),
    "gdb": dict(
        argv=["gdb", "-q", "-nx", "-iex", "set history save on", "-iex",
              "set history filename ./gdb_history", "-iex", "set confirm off"],
        prompt="(gdb) ",
        # gdb hangs in its own setlocale() under the sanitizer runtime, this
        # library or not: it runs against an uninstrumented build only.
        sanitizer=False,
        calc=[("print 40+2\r", "= 42")],
        utf8=[('print "hé" "llo"\r', '"héllo"')],
        tab=[("ech\t", "echo"), ("done\\n\r", "\ndone")],
        up=[(UP + "\r", "\ndone")]),
    "rlwrap": dict(
        argv=["rlwrap", "-r", "-S", "cat> ", "cat"], prompt="cat> ",
        calc=[("fortytwo\r", "fortytwo\nfortytwo")],
        utf8=[("héllo\r", "héllo\nhéllo")],
        tab=[("fort\t", "fortytwo"), ("\r", "fortytwo \nfortytwo")],
        up=[(UP + "\r", "fortytwo \nfortytwo")]),
    "units": dict(
        argv=["units"], prompt="You have: ",
        calc=[("2 furlong\r", "You want: "), ("m\r", "* 402.336")],
        utf8=[("3 é\r", "'é'")],
        tab=[("2*furlo\t", "2*furlong"), ("\r", "You want: "), ("ft\r", "* 1320")],
        up=[(UP + UP + "\r", "You want: "), ("\r", "Definition: 402.336 m")],
        history=[(UP + "\r", "You want: "), ("\r", "Definition: 402.336 m")]),
    "gnuplot": dict(
        argv=["gnuplot"], prompt="gnuplot> ", env={"GNUTERM": "dumb"},
        # libedit finds ~ in the password database, not in $HOME.
        home_files=[".gnuplot_history"],
        calc=[("print 40+2\r", "42")],
        utf8=[('print "hé"."llo"\r', "\nhéllo")],
        tab=[('print "zeb\t', "zebra.dat"), (KILL + "print 6*7\r", "\n42")],
        up=[(UP + "\r", "\n42")]),
    "sqlite3": dict(
        argv=["sqlite3"], prompt="sqlite> ",
        calc=[("select 40+2;\r", "42")],
        utf8=[("select 'hé'||'llo';\r", "\nhéllo")],
        tab=[("SEL\t", "SELECT"), (" 6*7;\r", "\n42")],
        up=[(UP + "\r", "\n42")]),
    "bc": dict(
        argv=["bc", "-q"], prompt=None,
        calc=[("40+2\r", "42")],
        utf8=[('print "hé", "llo\\n"\r', "\nhéllo")],
        tab=[("zeb\t", "zebra.dat"), (KILL + "6*7\r", "\n42")],
        up=[(UP + "\r", "\n42")]),
    "lua5.4": dict(
        argv=["lua5.4"], prompt="> ",
        calc=[("40+2\r", "42")],
        utf8=[("'hé'..'llo'\r", "\nhéllo")],
        tab=[('print("zeb\t', "zebra.dat"), (KILL + "6*7\r", "\n42")],
        up=[(UP + "\r", "\n42")]),
}

# In a second run, Up brings back the last line of the first.
for spec in PROGRAMS.values():
    spec.setdefault("history", spec["up"])

CHECKS = ["calc", "utf8", "tab", "up", "eof", "modes", "history"]

# The wrapper records the modes before and after the program, in the same
# terminal, and preloads the library into the program alone.
WRAPPER = ('stty -g >modes.before; LD_PRELOAD="$QV_PRELOAD" "$@"; s=$?; '
           'stty -g >modes.after; exit $s')


def plain(data):
    """What the user reads: escape sequences and carriage returns gone."""
    return ESCAPES.sub(b"", data).replace(b"\r", b"").replace(b"\x07", b"").decode("utf-8", "replace")


class Run:
    def __init__(self, argv, workdir, preload, extra_env, verbose):
        self.verbose = verbose
        self.out = b""
        env = {k: v for k, v in os.environ.items() if not k.startswith(("LD_", "ASAN", "UBSAN"))}
        env.update(HOME=workdir, TERM="xterm", LANG="C.UTF-8", LC_ALL="C.UTF-8",
                   QV_PRELOAD=preload, INPUTRC="/dev/null", SQLITE_HISTORY=workdir + "/sqlite_history")
        if preload:
            env["ASAN_OPTIONS"] = "detect_leaks=0"
        env.pop("PYTHONSTARTUP", None)
        env.update(extra_env)
        master, slave = os.openpty()
        fcntl.ioctl(slave, termios.TIOCSWINSZ, struct.pack("HHHH", 24, 80, 0, 0))
        self.pid = os.fork()
        if self.pid == 0:
            os.close(master)
            os.chdir(workdir)
            os.login_tty(slave)
            os.execvpe("sh", ["sh", "-c", WRAPPER, "sh"] + argv, env)
        os.close(slave)
        self.fd = master
        self.status = None

    def read(self, timeout):
        r, _, _ = select.select([self.fd], [], [], timeout)
        if not r:
            return False
        try:
            data = os.read(self.fd, 65536)
        except OSError:
            data = b""
        if not data:
            self.reap(5)
            return None
        self.out += data
        return True

    def wait_for(self, text, since, timeout=10.0):
        end = time.monotonic() + timeout
        while text not in plain(self.out[since:]):
            left = end - time.monotonic()
            if left <= 0 or self.read(left) is None:
                return text in plain(self.out[since:])
        return True

    def settle(self, quiet=0.4, limit=5.0):
        end = time.monotonic() + limit
        while time.monotonic() < end and self.read(quiet):
            pass

    def send(self, keys):
        if self.verbose:
            print("    send %r" % keys)
        os.write(self.fd, keys.encode())

    def steps(self, steps):
        for keys, expect in steps:
            since = len(self.out)
            self.send(keys)
            if expect is None:
                self.settle()
            elif not self.wait_for(expect, since):
                if self.verbose:
                    print("    wanted %r, saw %r" % (expect, plain(self.out[since:])))
                self.settle(0.2, 1)
                return False
            else:
                self.settle(0.15, 1)
        return True

    def program_pid(self):
        try:
            with open("/proc/%d/task/%d/children" % (self.pid, self.pid)) as f:
                kids = f.read().split()
            return int(kids[0]) if kids else None
        except OSError:
            return None

    def maps(self, name):
        pid = self.program_pid()
        try:
            with open("/proc/%d/maps" % pid) as f:
                return name in f.read()
        except (OSError, TypeError):
            return False

    def reap(self, timeout):
        end = time.monotonic() + timeout
        while self.status is None and time.monotonic() < end:
            pid, status = os.waitpid(self.pid, os.WNOHANG)
            if pid:
                self.status = status
            else:
                try:
                    r, _, _ = select.select([self.fd], [], [], 0.05)
                    if r:
                        data = os.read(self.fd, 65536)
                        self.out += data
                except OSError:
                    time.sleep(0.05)
        return self.status

    def kill(self):
        if self.status is None:
            for target in (self.program_pid(), self.pid):
                if target:
                    try:
                        os.kill(target, signal.SIGKILL)
                    except OSError:
                        pass
            self.reap(5)
        os.close(self.fd)


def session(spec, workdir, preload, verbose, checks, first):
    """One run of the program; fills checks, answers whether it died of a
    signal and whether the library was mapped."""
    run = Run(spec["argv"], workdir, preload, spec.get("env", {}), verbose)
    crashed, mapped = False, None
    try:
        if spec["prompt"]:
            run.wait_for(spec["prompt"], 0, 15)
        run.settle(0.5, 3)
        if preload:
            mapped = run.maps("libquorvel-readline")
        if first:
            for name in ("calc", "utf8", "tab", "up"):
                checks[name] = run.steps(spec[name])
        else:
            checks["history"] = run.steps(spec["history"])
        run.send("\x04")
        status = run.reap(10)
        if status is None:
            run.send("\x04")
            status = run.reap(5)
        if first:
            checks["eof"] = status is not None
        if status is not None:
            code = os.waitstatus_to_exitcode(status)
            # The shell reports a program's death by signal as 128 + n.
            crashed = code > 128 and code - 128 in (signal.SIGSEGV, signal.SIGABRT, signal.SIGBUS,
                                                    signal.SIGFPE, signal.SIGILL)
            if first:
                try:
                    with open(workdir + "/modes.before") as a, open(workdir + "/modes.after") as b:
                        checks["modes"] = a.read() == b.read()
                except OSError:
                    checks["modes"] = False
    finally:
        run.kill()
        if verbose:
            print("    output: %r" % plain(run.out)[-600:])
    return crashed, mapped


def try_program(name, spec, preload, verbose):
    workdir = tempfile.mkdtemp(prefix="qv-rl-")
    # Files a program writes in the user's real home are put back as they
    # were, so that a run leaves no trace there.
    kept = {}
    for f in spec.get("home_files", []):
        path = os.path.join(pwd.getpwuid(os.getuid()).pw_dir, f)
        try:
            with open(path, "rb") as fh:
                kept[path] = fh.read()
        except OSError:
            kept[path] = None
    try:
        open(os.path.join(workdir, "zebra.dat"), "w").close()
        checks = {}
        crashed, mapped = session(spec, workdir, preload, verbose, checks, True)
        if not crashed:
            crashed2, _ = session(spec, workdir, preload, verbose, checks, False)
            crashed = crashed or crashed2
        return checks, crashed, mapped
    finally:
        shutil.rmtree(workdir, ignore_errors=True)
        for path, data in kept.items():
            try:
                if data is None:
                    os.unlink(path)
                else:
                    with open(path, "wb") as fh:
                        fh.write(data)
            except OSError:
                pass


def preload_for(library):
    """The library, after the sanitizer runtime it was built with, if any:
    that runtime must come first in the process."""
    library = os.path.abspath(library)
    try:
        ldd = subprocess.run(["ldd", library], capture_output=True, text=True).stdout
    except OSError:
        ldd = ""
    runtimes = [l.split("=>")[1].split()[0] for l in ldd.splitlines()
                if "=>" in l and ("libasan" in l or "libubsan" in l)]
    return ":".join(runtimes[:1] + [library])


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--library", required=True)
    parser.add_argument("-v", "--verbose", action="store_true")
    parser.add_argument("--own", action="store_true", help="run the programs on their own editor only")
    parser.add_argument("--uninstrumented", action="store_true",
                        help="only the programs that cannot run under a sanitizer runtime")
    parser.add_argument("programs", nargs="*")
    args = parser.parse_args()
    preload = preload_for(args.library)
    names = args.programs or [n for n in PROGRAMS
                              if not args.uninstrumented or not PROGRAMS[n].get("sanitizer", True)]
    ran, failed = 0, []
    print("%-9s %-8s %s" % ("program", "editor", "  ".join("%-7s" % c for c in CHECKS)))
    for name in names:
        spec = PROGRAMS[name]
        if not shutil.which(spec["argv"][0]):
            print("%-9s skipped: not installed" % name)
            continue
        if ":" in preload and not spec.get("sanitizer", True):
            print("%-9s skipped: does not run under the sanitizer runtime" % name)
            continue
        ran += 1
        control, ccrash, _ = try_program(name, spec, "", args.verbose)
        ours, crashed, mapped = ({}, False, None) if args.own else try_program(name, spec, preload, args.verbose)
        for label, result, dead in (("own", control, ccrash), ("quorvel", ours, crashed)):
            cells = []
            for c in CHECKS:
                cells.append("%-7s" % ("pass" if result.get(c) else "FAIL" if c in result else "-"))
            note = " (died of a signal)" if dead else ""
            print("%-9s %-8s %s%s" % (name, label, "  ".join(cells), note))
        if mapped is False:
            print("%-9s the library was not mapped into the program" % name)
            failed.append(name)
            continue
        lost = [c for c in CHECKS if control.get(c) and not ours.get(c)]
        if crashed or lost:
            failed.append(name)
            print("%-9s lost on quorvel: %s" % (name, ", ".join(lost) or "none, but it crashed"))
    if ran == 0:
        return 77
    if failed:
        print("failed: " + " ".join(failed))
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
