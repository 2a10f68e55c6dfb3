#!/usr/bin/env python3
"""Runs the examples of the documents and of the command's help, and compiles the examples in C.

   examples.py [--update] BUILD COMMANDS [PAGE...]

BUILD is a build folder, whose headers are installed for the blocks of C; COMMANDS is the folder of the kivcs2 to run.
Without PAGE: README.md, all pages of Docs/ and Examples/, and the example of each word (kivcs2 generate json). A block
of a page is run if it has a line "$ command". Exit codes are compared everywhere, and output where a page shows it; a
line "..." stands for any lines. --update writes the output into the pages instead, also where a line "?" stands for it.

Comments before a block, which a reader of the page does not see, describe what the block needs:

   <!-- setup: LINE -->      run before the block (examples.sh has the functions)
   <!-- exits: 0 1|3 -->     the exit codes of its commands in their order, if one is not 0
   <!-- varies: REGEX -->    a part of the output that differs from run to run
   <!-- not run: REASON -->
   <!-- declared: CODE -->   before the code of a C block
   <!-- used: NAME -->       a variable of a C block that its text explains
"""
import json
import os
import pathlib
import re
import select
import subprocess
import sys
import tempfile
import time

import own_machine

TREE = pathlib.Path(__file__).resolve().parents[2]
LONGEST = 120  # seconds of a command
END = b'\n\x1e'

# Exit codes other than 0 of the examples in the help: here are no services, no peers and no sensors.
WORD_CODES = {'sensors show': '4|5', 'sensors watch': '4|5', 'services publish': '124', 'services browse': '1',
              'services types': '1', 'services first': '6', 'services monitor': '6', 'net listen': '6',
              'net recv': '6', 'cdp find': '1', 'caption monitor': '1'}


class Fault(Exception):
    pass


class Step:
    def __init__(self, command, place):
        self.command, self.place = command, place
        self.shown = []

    def is_shown(self):
        return any(line.strip() for line in self.shown)

    def wanted(self):
        return trimmed(self.shown)


def trimmed(lines):
    lines = [line.rstrip() for line in lines]
    while lines and not lines[-1]:
        lines.pop()
    return lines


class Block:
    """A fenced block of a page, with the comments before it."""

    def __init__(self, language, place, lines, comments):
        self.language, self.place, self.lines = language, place, lines
        self.comments = comments
        self.before, self.steps = [], []
        for number, line in enumerate(lines, place + 1):
            if line.startswith('$ '):
                self.steps.append(Step(line[2:], number))
            elif self.steps:
                self.steps[-1].shown.append(line)
            else:
                self.before.append(line)

    def all(self, key):
        return [value for name, value in self.comments if name == key]

    def is_run(self):
        return bool(self.steps) and not self.all('not run')

    def codes(self):
        codes = [code.split('|') for value in self.all('exits') for code in value.split()]
        return codes + [['0']] * (len(self.steps) - len(codes))

    def text(self):
        lines = list(self.before)
        for step in self.steps:
            lines += ['$ ' + step.command, *step.shown]
        return lines


class Page:
    COMMENT = re.compile(r'<!-- (setup|exits|varies|not run|declared|used): (.*) -->$')

    def __init__(self, path):
        self.path = path
        self.parts = []  # lines outside blocks, and blocks
        lines, comments = path.read_text().split('\n'), []
        at = 0
        while at < len(lines):
            self.parts.append(lines[at])
            if lines[at].startswith((' ', '>', '\t', '~')) and lines[at].lstrip(' >\t').startswith(('```', '~~~')):
                sys.exit(f'examples: {path}:{at + 1}: a block begins its line, with three backticks')
            if lines[at].startswith('```'):
                end = next(index for index in range(at + 1, len(lines)) if lines[index].startswith('```'))
                self.parts.append(Block(lines[at][3:], at + 1, lines[at + 1:end], comments))
                self.parts.append(lines[end])
                at, comments = end, []
            elif match := self.COMMENT.match(lines[at]):
                comments.append(match.groups())
            else:
                comments = []
            at += 1

    def blocks(self):
        return [part for part in self.parts if isinstance(part, Block)]

    def write(self):
        lines = []
        for part in self.parts:
            lines += part.text() if isinstance(part, Block) else [part]
        self.path.write_text('\n'.join(lines))


class Shell:
    """A bash that runs the commands of a block one by one, in the folder of the page."""

    def __init__(self, folder, commands):
        environment = dict(os.environ, PATH=f'{folder}/bin:{commands}:{os.environ["PATH"]}', LC_ALL='C.UTF-8',
                           TZ='UTC', kivcs2_folder=str(commands))
        for name in ('BASH_ENV', 'KIV_LOG_STDERR', 'KIV_JSON_RECORDS'):
            environment.pop(name, None)
        script, self.input = os.pipe()
        self.bash = subprocess.Popen(['bash', '--norc', f'/dev/fd/{script}'], cwd=folder, env=environment,
                                     pass_fds=[script], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                     stderr=subprocess.STDOUT)
        os.close(script)
        self.raw = b''
        self.run(f'source {TREE}/Tests/Documents/examples.sh')

    def read_until(self, is_enough, limit):
        end = time.monotonic() + limit
        while not is_enough():
            left = end - time.monotonic()
            if left <= 0 or not select.select([self.bash.stdout], [], [], left)[0]:
                return False
            piece = os.read(self.bash.stdout.fileno(), 65536)
            if not piece:
                return False
            self.raw += piece
        return True

    def run(self, command, background_lines=0):
        """Returns the exit code and the output's lines; waits for the first lines of a command in the background."""
        os.write(self.input, f'{command}\nprintf "\\n\\036%d\\n" $?\n'.encode())
        ends = re.compile(END + rb'(\d+)\n')
        if not self.read_until(lambda: ends.search(self.raw), LONGEST):
            raise Fault(f'does not end: {self.raw.decode(errors="replace")}')
        match = ends.search(self.raw)
        code = int(match.group(1))
        self.raw = self.raw[:match.start()] + self.raw[match.end():]
        self.read_until(lambda: self.raw.count(b'\n') >= background_lines, 20)
        text, self.raw = self.raw.decode(errors='replace'), b''
        return code, trimmed(text.split('\n'))

    def close(self):
        """Interrupts the commands in the background, which is a success for each of them."""
        _, codes = self.run('end_jobs')
        os.close(self.input)
        self.bash.wait(LONGEST)
        return [code for code in codes if code.isdigit() and code != '0']


def plain(line, varying):
    for pattern in varying:
        line, number = re.subn(pattern, '~', line)
        if number:
            line = re.sub(' +', ' ', line)
    return line


def is_same(wanted, got, varying):
    """Lines that vary as a whole may also be missing."""
    wanted, got = ([line for line in (plain(line, varying) for line in lines) if line != '~'] for lines in (wanted, got))
    if '...' not in wanted:
        return wanted == got
    at = wanted.index('...')
    after = len(wanted) - at - 1
    return len(got) >= at + after and wanted[:at] == got[:at] and wanted[at + 1:] == got[len(got) - after:]


def renewed(shown, got):
    """The new lines of a page: abridged where the old ones were, and with the blank lines that followed."""
    wanted = trimmed(shown)
    blank = shown[len(wanted):]
    if '...' in wanted:
        at = wanted.index('...')
        after = len(wanted) - at - 1
        got = [*got[:at], '...', *got[len(got) - after:]]
    return got + blank


def run_block(block, folder, commands, update):
    shell = Shell(folder, commands)
    try:
        run_steps(block, shell, update)
        if codes := shell.close():
            raise Fault(f'{block.place}: commands in the background end with {codes}')
    finally:
        shell.bash.kill()


def run_steps(block, shell, update):
    for line in block.all('setup'):
        code, said = shell.run(line)
        if code != 0:
            raise Fault(f'{block.place}: "{line}" is exit code {code}: {said}')
    for step, wanted_codes in zip(block.steps, block.codes()):
        background = len(step.wanted()) if step.command.endswith('&') and step.is_shown() else 0
        try:
            code, got = shell.run(step.command, background)
        except Fault as fault:
            raise Fault(f'{step.place}: {fault}') from fault
        if str(code) not in wanted_codes:
            raise Fault(f'{step.place}: exit code {code}, not {" or ".join(wanted_codes)}: {got}')
        if not step.is_shown() or is_same(step.wanted(), got, block.all('varies')):
            continue
        if not update:
            raise Fault(f'{step.place}: the output of "{step.command}" is\n' + '\n'.join(got))
        step.shown = renewed(step.shown, got)


def run_words(folder, commands):
    """Runs the example of every word of the command, in the order of the help. Returns their number."""
    shell = Shell(folder, commands)
    try:
        shell.run('words_files')
        described = subprocess.run([commands / 'kivcs2', 'generate', 'json'], check=True,
                                   stdout=subprocess.PIPE)
        words = [word for word in json.loads(described.stdout)['words'] if word['runs']]
        for word in words:
            name = word['word'].removeprefix('kivcs2 ')
            if not word['examples']:
                raise Fault(f'{name}: no example')
            for example in word['examples']:
                code, got = shell.run(example)
                if str(code) not in WORD_CODES.get(name, '0').split('|') or word['word'] not in example:
                    raise Fault(f'{name}: "{example}" is exit code {code}: {got}')
        return len(words)
    finally:
        shell.bash.kill()


def compile_block(block, page, folder, flags):
    code = '\n'.join(block.lines)
    line = f'#line {block.place + 1} "{page}"\n'
    if 'int main(' not in code:
        includes = ['KIVCoreServices2/KIVCoreServices2.h', 'stdio.h', 'stdlib.h', 'string.h']
        used = ''.join(f'(void){name};\n' for name in block.all('used'))
        code = '\n'.join([*(f'#include <{header}>' for header in includes), 'void example(void);', 'void example(void)',
                          '{', *block.all('declared'), line + code, used + '}', ''])
    else:
        code = line + code
    compiler = [os.environ.get('CC', 'cc'), '-std=c11', '-Wall', '-Wextra', '-Werror', *flags]
    done = subprocess.run([*compiler, '-c', '-x', 'c', '-', '-o', os.devnull], input=code.encode(),
                          stderr=subprocess.PIPE, check=False, cwd=folder)
    if done.returncode != 0:
        raise Fault(f'{block.place}: does not compile:\n{done.stderr.decode()}')


def installed_flags(build, folder):
    """The flags of a host of the installed headers."""
    prefix = folder / 'installed'
    subprocess.run(['cmake', '--install', build, '--prefix', prefix], check=True, stdout=subprocess.DEVNULL)
    files = next(prefix.rglob('KIVCoreServices2.pc')).parent
    flags = subprocess.run(['pkg-config', '--cflags', 'KIVCoreServices2'], check=True, stdout=subprocess.PIPE,
                           text=True, env=dict(os.environ, PKG_CONFIG_PATH=str(files)))
    return flags.stdout.split()


def main():
    arguments = [text for text in sys.argv[1:] if text != '--update']
    update = len(arguments) < len(sys.argv) - 1
    build, commands = (pathlib.Path(text).resolve() for text in arguments[:2])
    paths = [pathlib.Path(text).resolve() for text in arguments[2:]] or [
        TREE / 'README.md', *sorted(TREE.glob('Docs/**/*.md')), *sorted(TREE.glob('Examples/*.md'))]
    own_machine.enter()
    faults, ran, compiled = [], 0, 0
    with tempfile.TemporaryDirectory() as name:
        flags = installed_flags(build, pathlib.Path(name))
        for number, path in enumerate(paths):
            folder = pathlib.Path(name, str(number))
            folder.mkdir()
            (folder / 'Examples').symlink_to(TREE / 'Examples')
            page = Page(path)
            for block in page.blocks():
                try:
                    if block.is_run():
                        run_block(block, folder, commands, update)
                        ran += len(block.steps)
                    elif block.language == 'c':
                        compile_block(block, path.name, folder, flags)
                        compiled += 1
                except Fault as fault:
                    faults.append(f'{path.relative_to(TREE)}:{fault}')
            if update:
                page.write()
        if not arguments[2:]:
            folder = pathlib.Path(name, 'words')
            folder.mkdir()
            (folder / 'Examples').symlink_to(TREE / 'Examples')
            try:
                ran += run_words(folder, commands)
            except Fault as fault:
                faults.append(f'kivcs2 {fault}')
    if not (arguments[2:] or ran and compiled):
        faults.append('no commands or no blocks of C')
    for fault in faults:
        print(f'examples: {fault}', file=sys.stderr)
    print(f'examples: {ran} commands run, {compiled} blocks of C compiled, {len(paths)} pages')
    sys.exit(1 if faults else 0)


if __name__ == '__main__':
    main()
