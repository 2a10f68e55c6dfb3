#!/usr/bin/env python3
# Compiles and runs the snippet that introduces each public header.
"""
    header_snippets.py generate HEADERS FOLDER    writes header_snippets.c and header_snippets.cpp
    header_snippets.py run HEADERS PROGRAM        runs each snippet in a process and a folder of its own

A snippet is the @code block of a header's first comment: the body of a function that returns 0, C11, or C++17
after @code{.cpp}. Functions in it that begin with "static" at the left become functions of the file. Each
"// prints: text" is a line of standard output; without one the output is not compared. Start-up has run,
unless the snippet does it.
"""
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import textwrap

BLOCK = re.compile(r"^ \* @code(\{\.cpp\})?\n(.*?)^ \* @endcode$", re.MULTILINE | re.DOTALL)
FUNCTION = re.compile(r"^static [^;{}]*\n\{\n.*?^\}\n", re.MULTILINE | re.DOTALL)
PRINTS = re.compile(r"// prints: (.*)$", re.MULTILINE)
OWN_NETWORK = ["unshare", "--map-root-user", "--net"]
PROLOGUE = """#include <KIVCoreServices2/KIVCoreServices2.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <time.h>
"""


class Snippet:
    def __init__(self, header):
        text = header.read_text()
        introduction = text[: text.index("*/")]
        blocks = list(BLOCK.finditer(introduction))
        if len(blocks) != 1:
            raise SystemExit(f"{header}: {len(blocks)} snippets in its introduction, not one")
        block = blocks[0]
        self.header = header
        self.name = header.stem
        self.is_cpp = block[1] is not None
        self.line = introduction.count("\n", 0, block.start(2)) + 1
        self.code = re.sub(r"^ \* ?", "", block[2], flags=re.MULTILINE)
        self.starts = "kivCS2_init" in self.code
        self.prints = [line.rstrip() for line in PRINTS.findall(self.code)]

    def source(self):
        functions, position = [], 0
        for found in FUNCTION.finditer(self.code):
            line = self.line + self.code.count("\n", 0, found.start())
            functions.append(f'#line {line} "{self.header}"\n{found[0]}')
            position = found.end()
        body = textwrap.indent(self.code[position:], "    ")
        line = self.line + self.code.count("\n", 0, position)
        linkage = 'extern "C" ' if self.is_cpp else ""
        return (
            "".join(functions)
            + f'{linkage}int snippet_{self.name}(void);\n{linkage}int snippet_{self.name}(void)\n{{\n'
            + f'#line {line} "{self.header}"\n{body}    return 0;\n}}\n\n'
        )


def snippets(folder):
    headers = sorted(pathlib.Path(folder).glob("*.h"))
    # One header only includes the others.
    return [Snippet(header) for header in headers if header.stem != "KIVCoreServices2"]


def generate(headers, folder):
    folder = pathlib.Path(folder)
    found = snippets(headers)
    cpp = PROLOGUE + "#include <cstdio>\n\n"
    cpp += "".join(snippet.source() for snippet in found if snippet.is_cpp)
    c = PROLOGUE + "\n" + "".join(snippet.source() for snippet in found if not snippet.is_cpp)
    c += "".join(f"int snippet_{snippet.name}(void);\n" for snippet in found if snippet.is_cpp)
    c += "int main(int argc, char **argv)\n{\n    if (argc != 2)\n        return 2;\n"
    for snippet in found:
        start = "" if snippet.starts else "kivCS2_initWithTaskServer(false), "
        c += f'    if (strcmp(argv[1], "{snippet.name}") == 0)\n'
        c += f"        return {start}snippet_{snippet.name}();\n"
    c += "    return 2;\n}\n"
    for name, text in (("header_snippets.c", c), ("header_snippets.cpp", cpp)):
        (folder / name).write_text(text)


def run_one(snippet, program):
    command = [program, snippet.name]
    if snippet.name == "KIVCS2Bonjour":
        if subprocess.run([*OWN_NETWORK, "true"], capture_output=True, check=False).returncode != 0:
            print(f"{snippet.name}: skipped, because no network namespace can be made")
            return None
        command = [*OWN_NETWORK, *command]
    with tempfile.TemporaryDirectory() as folder:
        try:
            done = subprocess.run(
                command, cwd=folder, capture_output=True, text=True, timeout=60, check=False
            )
        except subprocess.TimeoutExpired:
            return "does not end"
        # One snippet writes this file for good.
        left = [path.name for path in pathlib.Path(folder).iterdir() if path.name != "notes.txt"]
    printed = [line.rstrip() for line in done.stdout.splitlines()]
    if done.returncode != 0:
        return f"ends with {done.returncode}\n{done.stdout}{done.stderr}"
    if snippet.prints and printed != snippet.prints:
        return f"prints {printed}, not {snippet.prints}"
    return f"leaves {left}" if left else None


def run(headers, program):
    program = shutil.which(program) or program
    failures = 0
    found = snippets(headers)
    for snippet in found:
        fault = run_one(snippet, program)
        if fault is not None:
            failures += 1
            print(f"{snippet.header}:{snippet.line}: the snippet {fault}", file=sys.stderr)
    print(f"headers: {len(found)} snippets, {failures} failed")
    return 1 if failures else 0


if __name__ == "__main__":
    if len(sys.argv) != 4 or sys.argv[1] not in ("generate", "run"):
        sys.exit(__doc__)
    sys.exit({"generate": generate, "run": run}[sys.argv[1]](sys.argv[2], sys.argv[3]))
