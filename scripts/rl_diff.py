#!/usr/bin/env python3
"""Types the same keys, with the same init file, into one readline program
built twice: on GNU readline (the control) and on libquorvel-readline, and
compares the lines the two return and the history list each program holds
at the end. The program starts with the history
"make test", "git commit -m first", "echo one two three", "ls -la /tmp",
"git status" (the newest last) and completes from a fixed list of words.

    scripts/rl_diff.py GNU_PROGRAM QUORVEL_PROGRAM [-v] [-k NAME...]

Each case is typed into a fresh run; the run's end of input is Ctrl-D on an
empty line. Exit status 1 when any case differs, 77 when a program is
missing.
"""
import argparse
import os
import pty
import select
import shutil
import sys
import tempfile
import time

ESC = "\x1b"
UP, DOWN, LEFT, RIGHT = ESC + "[A", ESC + "[B", ESC + "[D", ESC + "[C"


def alt(k):
    return ESC + k


def cx(k):
    return "\x18" + k


# (name, keys, init file). Every case ends its last line with Return.
CASES = [
    # History.
    ("history-search-backward bound to Up", "git" + UP + "\r", '"\\e[A": history-search-backward\n'),
    ("history-search-backward twice", "git" + UP + UP + "\r", '"\\e[A": history-search-backward\n'),
    ("history-search-forward back down", "git" + UP + UP + DOWN + "\r",
     '"\\e[A": history-search-backward\n"\\e[B": history-search-forward\n'),
    ("history-search-forward past the newest", "git" + UP + DOWN + "\r",
     '"\\e[A": history-search-backward\n"\\e[B": history-search-forward\n'),
    ("history-search keeps the cursor after the prefix", "git" + UP + "X\r", '"\\e[A": history-search-backward\n'),
    ("history-substring-search-backward", "one" + UP + "\r", '"\\e[A": history-substring-search-backward\n'),
    ("yank-last-arg", alt(".") + "\r", None),
    ("yank-last-arg repeated walks back", alt(".") + alt(".") + alt(".") + "\r", None),
    ("yank-last-arg with Alt-_", "x " + alt("_") + "\r", None),
    ("yank-nth-arg", alt("\x19") + "\r", None),
    ("operate-and-get-next", UP + UP + UP + "\x0f" + "\r", None),
    ("revert-line", UP + "xyz" + alt("r") + "\r", None),
    ("beginning-of-history", alt("<") + "\r", None),
    ("end-of-history", UP + UP + alt(">") + "typed\r", None),
    ("non-incremental-reverse-search-history", alt("p") + "commit\r\r", None),
    ("non-incremental-forward-search-history", UP + UP + UP + UP + UP + alt("n") + "ls\r\r", None),
    ("history-substring-search-forward", UP + UP + UP + UP + "s -" + DOWN + "\r",
     '"\\e[B": history-substring-search-forward\n'),
    # Words and case.
    ("upcase-word", "hello world" + alt("b") + alt("u") + "\r", None),
    ("downcase-word", "HELLO WORLD\x01" + alt("l") + "\r", None),
    ("capitalize-word", "hello world\x01" + alt("c") + alt("c") + "\r", None),
    ("transpose-words", "one two" + alt("t") + "\r", None),
    ("transpose-words in the middle", "one two three" + alt("b") + alt("b") + alt("t") + "\r", None),
    ("delete-horizontal-space", "a    b" + LEFT + LEFT + alt("\\") + "\r", None),
    ("backward-kill-line", "abc def" + LEFT + LEFT + cx("\x7f") + "\r", None),
    ("kill-whole-line", "abc def" + LEFT + "\x0bX\x19\r",
     '"\\C-k": kill-whole-line\n'),
    # The region.
    ("set-mark and kill-region", "abc def\x01\x00\x06\x06\x06" + "\x17\r", '"\\C-w": kill-region\n'),
    ("exchange-point-and-mark", "abc\x00" + "\x01" + cx("\x18") + "X\r", None),
    ("copy-region-as-kill", "abc def\x00\x01" + alt("w") + "\x05\x19\r", None),
    ("copy-backward-word", "abc def" + "\x1b\x7f" + "\x19\r",
     '"\\e\\C-?": copy-backward-word\n'),
    ("copy-forward-word", "abc def\x01" + cx("w") + "\x05\x19\r", '"\\C-xw": copy-forward-word\n'),
    # Motion.
    ("character-search", "abcabc\x01\x1dcX\r", None),
    ("character-search-backward", "abcabc" + alt("\x1d") + "aX\r", None),
    # Numeric arguments.
    ("digit-argument with a motion", "abcdef" + alt("3") + "\x02X\r", None),
    ("digit-argument with an insert", alt("5") + "x\r", None),
    ("digit-argument with a kill", "one two three" + alt("2") + "\x17\r", None),
    ("negative argument", "one two three\x01" + alt("-") + "\x06X\r", None),
    ("universal-argument", "\x18ux\r", '"\\C-xu": universal-argument\n'),
    # Keyboard macros.
    ("keyboard macro", cx("(") + "ab" + cx(")") + cx("e") + "\r", None),
    # A character and its combining marks are one, as readline takes them.
    ("a word motion over combining marks", "xy cafe\u0301s" + alt("b") + "X\r", None),
    ("word kills over combining marks", "xy cafe\u0301 ba\u0308r" + "\x1b\x7f\x1b\x7f" + "\r", None),
    ("transposing a character with its mark", "abe\u0301\x14\r", None),
    ("transposing in the middle", "ae\u0301b" + LEFT + "\x14\r", None),
    ("Left and Delete over a mark", "ae\u0301b" + LEFT + LEFT + "X" + ESC + "[3~\r", None),
    ("upcase-word over a mark", "cafe\u0301s\x01" + alt("u") + "\r", None),
    ("Backspace and Right over marks", "ae\u0301\u0308b\x01" + RIGHT + RIGHT + "X" + "\x05" + LEFT + "\x7f\r", None),
    ("vi: x, h and r over a mark", "ae\u0301bc" + ESC + "hhx0lrZ\r", 'set editing-mode vi\n'),
    ("vi: a word's end over a mark", "cafe\u0301 x" + ESC + "0eaY\r", 'set editing-mode vi\n'),
    # Others.
    ("insert-comment", "echo hi" + alt("#"), None),
    ("undo on Ctrl-x Ctrl-u", "abc" + cx("\x15") + "\r", None),
    ("tab-insert", "a" + alt("\t") + "b\r", None),
    # Completion.
    ("complete", "pri\t\r", None),
    ("menu-complete", "pri\t\t\r", 'TAB: menu-complete\n'),
    ("menu-complete-backward", "pri" + ESC + "[Z\r", '"\\e[Z": menu-complete-backward\n'),
    ("menu-complete-display-prefix", "pr\t\t\r", 'TAB: menu-complete\nset menu-complete-display-prefix on\n'),
    ("menu-complete-display-prefix, round again", "pri\t\t\t\r", 'TAB: menu-complete\nset menu-complete-display-prefix on\n'),
    ("insert-completions", "pri" + alt("*") + "\r", None),
    ("possible-completions", "pri" + alt("?") + "n\r", None),
    ("completing inside the line appends nothing", "pro x" + LEFT + LEFT + "\t\r", None),
    ("completing inside a word", "prompt" + LEFT + LEFT + LEFT + "\t\r", None),
    ("dump and re-read keep the line", "ab" + cx("d") + cx("f") + cx("m") + cx("r") + alt("\x0c") + "c\r",
     '"\\C-xd": dump-variables\n"\\C-xf": dump-functions\n"\\C-xm": dump-macros\n'
     '"\\C-xr": re-read-init-file\n'),
    # The init file's language.
    ("a string macro", "\x18q\r", '"\\C-xq": "quit()"\n'),
    ("a macro with keys in it", "x" + alt("p") + "\r", '"\\ep": "\\C-aprint(\\C-e)"\n'),
    ("completion-ignore-case", "PRI\t\r", 'set completion-ignore-case on\n'),
    ("any case: what the candidates share replaces the typing", "PRI\t\r", None),
    ("$if for the program", "\x18q\r", '$if rldiff\n"\\C-xq": "in"\n$else\n"\\C-xq": "out"\n$endif\n'),
    ("comment-begin", "echo hi" + alt("#"), 'set comment-begin //\n'),
    ("history-size", UP + UP + UP + "\r", 'set history-size 2\n'),
    ("an edited entry keeps its edit", UP + "x" + DOWN + UP + "\r", None),
    ("an edited entry keeps its edit past the line", UP + "x" + UP + "\r" + UP + UP + "\r", None),
    ("revert-all-at-newline", UP + "x" + UP + "\r" + UP + UP + "\r", 'set revert-all-at-newline on\n'),
    ("history-preserve-point", UP + "\x01" + RIGHT + RIGHT + UP + "X\r", 'set history-preserve-point on\n'),
    # File names, readline's own completion, in a directory with Alpha/,
    # alpine, link (to Alpha), my_file and sub/.only.
    ("files: a directory gets a slash", "Al\t\r", None),
    ("files: mark-directories off", "Al\t\r", 'set mark-directories off\n'),
    ("files: a link to a directory", "li\t\r", None),
    ("files: mark-symlinked-directories", "li\t\r", 'set mark-symlinked-directories on\n'),
    ("files: hidden files match", "sub/\t\r", None),
    ("files: match-hidden-files off", "sub/\t\r", 'set match-hidden-files off\n'),
    ("files: completion-ignore-case shares in any case", "AL\t\r", 'set completion-ignore-case on\n'),
    ("files: completion-ignore-case keeps the typed case", "al\t\r", 'set completion-ignore-case on\n'),
    ("files: completion-ignore-case to one", "ALPI\t\r", 'set completion-ignore-case on\n'),
    ("files: completion-map-case", "MY-F\t\r", 'set completion-ignore-case on\nset completion-map-case on\n'),
    ("files: expand-tilde", "~/files/alpi\t\r", 'set expand-tilde on\n'),
    ("files: a tilde stays", "~/files/alpi\t\r", None),
    ("skip-completed-text", "prompt" + LEFT + LEFT + LEFT + "\t\r", 'set skip-completed-text on\n'),
    ("skip-completed-text, more to put in", "qt" + LEFT + "\t\r", 'set skip-completed-text on\n'),
    ("disable-completion", "pri\t\r", 'set disable-completion on\n'),
    # A program that reads the keys itself.
    ("own key reader: Up recalls", UP + UP + "\r", None),
    ("own key reader: Tab completes", "pri\t" + "n\t\r", None),
    ("own key reader: keys with Escape", "one two" + alt("b") + alt("d") + "X" + LEFT + "\x14\r", None),
    ("own input stream: Up recalls", UP + " x\r", None),
    ("own keys, called back: Up recalls", UP + UP + " x\r", None),
    ("own keys, called back: Tab and words", "pri\tn\t" + alt("b") + "X\r", None),
    ("own input stream: Tab completes", "pri\tn\t\r", None),
    # An edit made to a recalled entry stays with it in the history, unless
    # the line is entered from that entry.
    ("an entry left with an edit keeps it in the list", UP + UP + " -h" + DOWN + "\r", None),
    ("revert-all-at-newline takes edits back", UP + UP + " -h" + DOWN + "\r", "set revert-all-at-newline on\n"),
    # Readline's calls for macros and variables.
    ("calls: rl_macro_bind", cx("m") + "\r", None),
    ("calls: rl_variable_bind", "x" + alt("#"), None),
    ("set lines are accepted", "ok\r",
     "set bell-style none\nset colored-stats on\nset show-all-if-ambiguous on\nset mark-symlinked-directories on\n"
     "set skip-completed-text on\nset visible-stats on\nset history-preserve-point on\n"
     "set menu-complete-display-prefix on\nset keyseq-timeout 200\n"),
]


# Cases whose history list is not compared, with the reason. GNU readline
# writes the search string of a non-incremental search into the history
# entry the search started from (it saves its line buffer, which held the
# string, as an edit of that entry); Quorvel leaves the entry as it was.
LINES_ONLY = {"non-incremental-forward-search-history"}


def run(program, keys, inputrc, home, own_reader=False):
    out = os.path.join(home, "lines")
    if os.path.exists(out):
        os.unlink(out)
    env = dict(os.environ, TERM="xterm-256color", HOME=home, QV_DIFF_OUT=out, LC_ALL="C.UTF-8",
               INPUTRC=os.path.join(home, "inputrc"))
    if own_reader == "files":
        env["QV_DIFF_FILES"] = os.path.join(home, "files")
    elif own_reader:
        env[{"getc": "QV_DIFF_GETC", "stream": "QV_DIFF_INSTREAM", "calls": "QV_DIFF_CALLS",
             "icase": "QV_DIFF_ICASE", "callback": "QV_DIFF_CALLBACK"}[own_reader]] = "1"
    with open(env["INPUTRC"], "w") as f:
        f.write(inputrc or "")
    pid, fd = pty.fork()
    if pid == 0:
        os.execve(program, [program], env)
    shown = b""

    def settle(wait=0.15, until=None, limit=5.0):
        nonlocal shown
        end = time.time() + limit
        quiet = time.time() + wait
        while time.time() < end:
            r, _, _ = select.select([fd], [], [], 0.02)
            if r:
                try:
                    data = os.read(fd, 65536)
                except OSError:
                    return
                if not data:
                    return
                shown += data
                quiet = time.time() + wait
            elif time.time() > quiet and (until is None or until in shown):
                return

    settle(until=b"> ")
    for ch in keys:
        os.write(fd, ch.encode())
        # A key alone, as typed: an escape sequence in one write.
        if ch != ESC:
            time.sleep(0.004)
    settle()
    os.write(fd, b"\x04")
    settle(wait=0.05, limit=2.0)
    os.write(fd, b"\x04")
    settle(wait=0.05, limit=2.0)
    try:
        _, status = os.waitpid(pid, os.WNOHANG)
        if status == 0 and _ == 0:
            os.kill(pid, 9)
            os.waitpid(pid, 0)
    except ChildProcessError:
        pass
    os.close(fd)
    try:
        with open(out) as f:
            return [bytes.fromhex(l.strip()).decode("utf-8", "replace") for l in f if l.strip() or l == "\n"]
    except OSError:
        return None


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("gnu")
    ap.add_argument("quorvel")
    ap.add_argument("-v", action="store_true")
    ap.add_argument("-k", nargs="*", default=None, help="only the cases whose names contain these")
    a = ap.parse_args()
    for p in (a.gnu, a.quorvel):
        if not shutil.which(p):
            print("not found: " + p)
            return 77
    differ = 0
    home = tempfile.mkdtemp(prefix="rl-diff-")
    files = os.path.join(home, "files")
    for d in ("Alpha", "sub"):
        os.makedirs(os.path.join(files, d))
    for f in ("alpine", "my_file", "sub/.only"):
        open(os.path.join(files, f), "w").close()
    os.symlink("Alpha", os.path.join(files, "link"))
    try:
        for name, keys, inputrc in CASES:
            if a.k and not any(k in name for k in a.k):
                continue
            own = ("getc" if name.startswith("own key reader") else "callback" if name.startswith("own keys, called") else "stream" if name.startswith("own input")
                   else "calls" if name.startswith("calls:") else "icase" if name.startswith("any case")
                   else "files" if name.startswith("files:") else None)
            want = run(a.gnu, keys, inputrc, home, own)
            got = run(a.quorvel, keys, inputrc, home, own)
            if name in LINES_ONLY and want and got:
                want = [l for l in want if not l.startswith("H:")]
                got = [l for l in got if not l.startswith("H:")]
            if want != got:
                differ += 1
                print("DIFFERS %s: GNU readline %r, Quorvel %r" % (name, want, got))
            elif a.v:
                print("same    %s: %r" % (name, want))
    finally:
        shutil.rmtree(home, ignore_errors=True)
    print("%d of %d cases differ" % (differ, len([c for c in CASES if not a.k or any(k in c[0] for k in a.k)])))
    return 1 if differ else 0


if __name__ == "__main__":
    sys.exit(main())
