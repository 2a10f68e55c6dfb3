#!/usr/bin/env python3
"""Validates the output of kivcs2 under --json against the schemas, word by word.

   json_schemas.py FOLDER SCHEMAS EXAMPLES [RECORDS]

FOLDER has a kivcs2 that records its output (Tests/EndToEnd/Recorder.cpp), EXAMPLES is Examples/ of the tree. RECORDS
has the records of other tests, which are removed. Every word that runs must have a schema, and here at least one valid
success and one valid failure."""
import collections
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile

import own_machine

try:
    import jsonschema
except ImportError:
    own_machine.skip('python3-jsonschema is missing (Scripts/setup --ci)')

# Control characters, line separators and marks that change the writing direction never appear as themselves.
HARMFUL = re.compile('[\x00-\x09\x0b-\x1f\x7f-\x9f\u2028\u2029\u200e\u200f\u061c\u202a-\u202e\u2066-\u2069]')

METER = re.compile(rb'\[[#.]*\] [^\n]*\n')  # lines of the meter of pipe


def unique(pairs):
    keys = [key for key, _ in pairs]
    if len(set(keys)) != len(keys):
        raise ValueError(f'a member comes twice: {keys}')
    return dict(pairs)


WORDS = pathlib.Path(__file__).with_name('json_words.sh')
LONGEST = 700  # seconds of all commands
DECODER = json.JSONDecoder(object_pairs_hook=unique)


class Cut(Exception):
    """A document that the end of the command, or of its reader, cut."""


def documents(raw):
    """The JSON documents that the bytes consist of."""
    text = raw.decode('utf-8')
    if HARMFUL.search(text):
        raise ValueError('a control character is not escaped')
    values, at = [], 0
    while text[at:].strip():
        at += len(text[at:]) - len(text[at:].lstrip())
        try:
            value, at = DECODER.raw_decode(text, at)
        except json.JSONDecodeError as error:
            is_cut = error.pos + len('false') >= len(text) or error.msg.startswith('Unterminated')
            raise (Cut if is_cut else ValueError)(str(error)) from error
        values.append(value)
    return values


class Record:
    """What one command got and wrote."""

    def __init__(self, path):
        raw = path.read_bytes()
        self.streams, self.code = {'0': b'', '1': b'', '2': b''}, None
        while raw:
            head, raw = raw.split(b'\n', 1)
            kind, number = head.decode().split()
            if kind == 'code':
                self.code = int(number)
            else:
                self.streams[kind] += raw[:int(number)]
                raw = raw[int(number):]
        words = self.streams['0'].decode('utf-8', 'backslashreplace').split('\0')
        self.arguments = words[1:-1]

    def written(self, holds_data):
        """The documents: on standard output, or on standard error if standard output may have data."""
        errors, plain = [], METER.sub(b'', self.streams['2'])
        if holds_data and plain.lstrip()[:1] in (b'{', b'['):
            errors = documents(plain)
        try:
            return errors or documents(self.streams['1'])
        except ValueError:
            if holds_data:
                return errors
            raise


class Schemas:
    def __init__(self, folder):
        self.validators, self.kinds = {}, {}
        common = json.loads((folder / 'common.json').read_text())['$defs']
        for path in sorted(folder.glob('*.json')):
            schema = json.loads(path.read_text().replace('"common.json#/', '"#/'))
            jsonschema.Draft202012Validator.check_schema(schema)
            self.require_closed(path.name, schema)
            schema['$defs'] = {**common, **schema.get('$defs', {})}
            self.validators[path.stem] = jsonschema.Draft202012Validator(schema)
            self.kinds[path.stem] = schema.get('x-output')

    def require_closed(self, name, schema):
        """An undocumented member must be a failure."""
        if isinstance(schema, dict):
            if isinstance(schema.get('properties'), dict) and schema.get('additionalProperties') is not False:
                raise ValueError(f'{name}: an object may have members that are not described')
            schema = list(schema.values())
        if isinstance(schema, list):
            for part in schema:
                self.require_closed(name, part)


def documented_kinds(page):
    """The words of each form that the page lists."""
    rows = re.findall(r'^\| `(lines|text|none)` \| .* \| (.*) \|$', page.read_text(), re.MULTILINE)
    return {name.replace(' ', '-'): kind for kind, names in rows for name in re.findall('`([^`]*)`', names)}


def has_error(value):
    return isinstance(value, (dict, list)) and ('error' in value or any(
        has_error(part) for part in (value.values() if isinstance(value, dict) else value)))


class Check:
    def __init__(self, schemas, words):
        self.schemas, self.words = schemas, words
        self.faults = []
        self.has_reader = True  # other tests close standard output, so that a document is lost
        self.valid = collections.Counter()
        self.succeeded, self.failed, self.cut = set(), set(), 0

    def word_of(self, arguments):
        rest = [word for word in arguments if word != '--json']
        for length in (2, 1):
            if '-'.join(rest[:length]) in self.words:
                return '-'.join(rest[:length])
        return None

    def take(self, record):
        word = self.word_of(record.arguments)
        kind = self.schemas.kinds[word] if word else 'text'
        holds_data = (kind == 'text' or word == 'pipe'
                      or not {'-', '--data', '-o', '--output'}.isdisjoint(record.arguments))
        try:
            is_text = kind == 'text' and b'{"error"' not in (record.streams['1'][:8], record.streams['2'][:8])
            values = [] if is_text else record.written(holds_data)
        except (Cut, ValueError) as error:
            if isinstance(error, Cut) and record.code in (None, 0):
                self.cut += 1
                return
            self.fail(record, word, str(error))
            return
        if kind != 'lines' and len(values) > 1:
            self.fail(record, word, f'{len(values)} documents')
        for value in values:
            self.validate(record, word, value)
        self.compare_code(record, word, values, holds_data)
        failed = any(has_error(value) for value in values)
        if values or kind == 'text' and record.code == 0:
            (self.failed if failed else self.succeeded).add(word)

    def compare_code(self, record, word, values, holds_data):
        """The failure at the end has the exit code of the command, and a command without a document has a reason."""
        if record.code is None:
            return
        last = values[-1] if values else None
        last = last[-1] if isinstance(last, list) and last else last
        if isinstance(last, dict) and isinstance(last.get('error'), dict) and last['error'].get('exitCode') != record.code:
            self.fail(record, word, f'the exit code is {record.code}')
        is_document = word and self.schemas.kinds[word] == 'document'
        if is_document and not values and self.has_reader and not (holds_data and record.code == 0):
            self.fail(record, word, f'no document, exit code {record.code}')

    def validate(self, record, word, value):
        validator = self.schemas.validators[word or 'help']
        errors = list(validator.iter_errors(value))
        self.valid[word] += not errors
        if errors:
            error = errors[0]
            while error.context:  # the alternative with the fewest errors
                alternatives = collections.defaultdict(list)
                for one in error.context:
                    alternatives[one.schema_path[0]].append(one)
                error = min(alternatives.values(), key=len)[0]
            self.fail(record, word, f'at {"/".join(map(str, error.absolute_path))}: {error.message[:400]}')

    def fail(self, record, word, why):
        out = (record.streams['1'] or record.streams['2'])[:600].decode('utf-8', 'backslashreplace')
        self.faults.append(f'{word}: {why}\n  {record.arguments}\n  {out}')


def main():
    commands, schema_folder, examples = (pathlib.Path(text).resolve() for text in sys.argv[1:4])
    own_machine.enter()
    described = subprocess.run([commands / 'kivcs2', 'generate', 'json'], check=True, stdout=subprocess.PIPE)
    words = {'-'.join(word['word'].split()[1:]) for word in json.loads(described.stdout)['words'] if word['runs']}
    schemas = Schemas(schema_folder)
    check = Check(schemas, words)
    for name in sorted(words ^ (set(schemas.validators) - {'common'})):
        sys.exit(f'json_schemas: {name}: {"no schema" if name in words else "a schema without a word"}')
    listed = documented_kinds(schema_folder.parents[2] / 'Docs' / 'command.md')
    for name in sorted(words):
        if listed.get(name, 'document') != schemas.kinds.get(name):
            check.faults.append(f'{name}: Docs/command.md lists it as {listed.get(name)}')
    records = [pathlib.Path(text) for text in sys.argv[4:]]
    with tempfile.TemporaryDirectory() as folder:
        own = pathlib.Path(folder, 'records')
        work = pathlib.Path(folder, 'work')
        own.mkdir()
        work.mkdir()
        environment = dict(os.environ, KIV_JSON_RECORDS=str(own), commands=str(commands), examples=str(examples))
        try:
            subprocess.run(['bash', str(WORDS)], cwd=work, env=environment, stdin=subprocess.DEVNULL, timeout=LONGEST,
                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False)
        except subprocess.TimeoutExpired:
            check.faults.append(f'{WORDS.name} does not end')
        for path in sorted(own.iterdir()):
            check.take(Record(path))
    for name in sorted(words):
        for kind, seen in (('success', check.succeeded), ('failure', check.failed)):
            if name not in seen and (kind, schemas.kinds.get(name)) != ('success', 'none'):
                check.faults.append(f'{name}: no {kind} was validated')
    here = sum(check.valid.values())
    check.has_reader = False
    for folder in records:
        for path in sorted(folder.iterdir()):
            try:
                record = Record(path)
            except ValueError:  # its process was killed
                check.cut += 1
            else:
                check.take(record)
            path.unlink()
    for fault in check.faults:
        print(f'json_schemas: {fault}', file=sys.stderr)
    print(f'json_schemas: {len(words)} words; valid documents and lines: {here} here, '
          f'{sum(check.valid.values()) - here} in other tests; {check.cut} cut by an end')
    sys.exit(1 if check.faults else 0)


if __name__ == '__main__':
    main()
