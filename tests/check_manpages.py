#!/usr/bin/env python3
"""Every call and variable the installed headers export is named in a manual
page under doc/, and every page renders without a warning.
  check_manpages.py DOC_DIR HEADER..."""
import pathlib
import re
import shutil
import subprocess
import sys


def exported(text):
    """The names a header declares with QV_API or QV_RL_API."""
    text = re.sub(r'/\*.*?\*/', ' ', text, flags=re.S)
    text = re.sub(r'__attribute__\s*\(\(.*?\)\)', ' ', text)
    out = []
    for m in re.finditer(r'\bQV_(?:RL_)?API\b(.*?);', text, re.S):
        d = m.group(1)
        if '#define' in d:  # the macro's own definition
            continue
        pointer = re.search(r'\(\s*\*\s*(\w+)\s*\)\s*\(', d)
        function = re.search(r'(\w+)\s*\(', d)
        if pointer or function:
            out.append((pointer or function).group(1))
            continue
        for piece in d.split(','):
            words = re.findall(r'\w+', re.sub(r'\[.*?\]', '', piece))
            if words:
                out.append(words[-1])
    return out


def lint(page):
    """Warnings from the formatter, or an empty string."""
    if shutil.which('mandoc'):
        r = subprocess.run(['mandoc', '-T', 'lint', '-W', 'warning', str(page)],
                           capture_output=True, text=True)
        return (r.stdout + r.stderr).strip() if r.returncode else ''
    r = subprocess.run(['groff', '-mandoc', '-ww', '-z', str(page)], capture_output=True, text=True)
    return (r.stdout + r.stderr).strip()


def main():
    doc = pathlib.Path(sys.argv[1])
    pages = sorted(p for p in doc.iterdir() if re.search(r'\.[1-9]$', p.name))
    text = '\n'.join(p.read_text(encoding='utf-8') for p in pages)
    failed = False
    for header in sys.argv[2:]:
        for name in exported(pathlib.Path(header).read_text(encoding='utf-8')):
            if not re.search(r'(?<![\w])' + re.escape(name) + r'(?![\w])', text):
                print(f'{header}: {name} is in no manual page')
                failed = True
    for page in pages:
        warnings = lint(page)
        if warnings:
            print(warnings)
            failed = True
    print(f'{len(pages)} pages checked')
    return 1 if failed else 0


if __name__ == '__main__':
    sys.exit(main())
