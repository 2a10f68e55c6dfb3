#!/usr/bin/env python3
# Turns Doxygen's manual pages into ones that can be installed.
"""
    man_pages.py FOLDER DATE VERSION

Doxygen also writes a page for each member, for folders and for nameless enumerations: their names would hide
other manuals (buffer, tick), so only the library's own names stay. A link is a symbolic link. In the text, a
backslash of a snippet and a quote at the start of a line are characters, not requests, and there are no empty
paragraphs.
"""
import pathlib
import re
import sys
import textwrap

OWN = re.compile(r"_?(kiv|KIV)")
LINK = re.compile(r"\.so man3/(\S+)\n")
INCLUDES = re.compile(r"(?:\\fC#include .*\\fP\n\.br\n)+")
BROKEN_ARGUMENT = re.compile(r'^(\.RI "[^"\n]*)\n([^"\n]*")', re.MULTILINE)
OWN_INCLUDE = re.compile(r"#include <(KIV[A-Za-z0-9]+\\&\.h)>")
# Requests after which, and before which, a paragraph is empty.
OPENING = (".SH", ".SS", ".PP", ".TP", ".IP", ".RS", ".br", ".in", ".ti", ".nh")
CLOSING = (".SH", ".SS", ".PP", ".RE", ".in", ".TP")


def text_lines(line):
    """A line of text, folded; a first character that would make it a request is protected."""
    folded = textwrap.wrap(line, 76, break_long_words=False, break_on_hyphens=False)
    return [r"\&" + part if part[0] in ".'" else part for part in folded]


def page(text, date, version):
    text = re.sub(r"[^\x00-\x7f]", lambda found: rf"\[u{ord(found[0]):04X}]", text)
    title, _, rest = text.partition("\n")
    name = re.match(r'\.TH "([^"]+)"', title)[1]
    if name.endswith(".h"):
        rest = INCLUDES.sub(rf"\\fB#include <KIVCoreServices2/{name}>\\fP\n", rest, count=1)
    rest = OWN_INCLUDE.sub(r"#include <KIVCoreServices2/\1>", rest)
    rest = BROKEN_ARGUMENT.sub(r"\1 \2", rest)
    lines = [f'.TH {name.upper()} 3 "{date}" "KIVCoreServices2 {version}" "KIVCoreServices2"']
    is_code = False
    for line in rest.split("\n"):
        if line in (".nf", ".fi"):
            is_code = line == ".nf"
        elif is_code:
            line = re.sub(r"\\(?!&\.|\[u)", r"\\e", line)
            line = r"\&" + line if line[:1] in (".", "'") else line
            lines.append(line)
            continue
        line = line.replace(r"\fC", r"\fI").rstrip() or ".PP"
        lines.extend([line] if line[0] == "." else text_lines(line))
    return without_empty_paragraphs(lines)


def without_empty_paragraphs(lines):
    kept = []
    for line in lines:
        if line.startswith(CLOSING):
            while kept and kept[-1] in (".PP", ".br"):
                kept.pop()
        if line in (".PP", ".br") and kept[-1].startswith(OPENING):
            continue
        kept.append(line)
    while kept[-1] in (".PP", ".br"):
        kept.pop()
    return "\n".join(kept) + "\n"


def main(folder, date, version):
    for path in sorted(pathlib.Path(folder).iterdir()):
        text = path.read_text()
        link = LINK.match(text)
        if not OWN.match(path.name):
            path.unlink()
        elif link is None:
            path.write_text(page(text, date, version))
        else:
            path.unlink()
            path.symlink_to(link[1])


if __name__ == "__main__":
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    main(*sys.argv[1:])
