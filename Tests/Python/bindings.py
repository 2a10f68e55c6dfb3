#!/usr/bin/env python3
# The Python package against the command, the C headers and the documents:
#   bindings.py <folder of the package> <library> <kivcs2> <root of the tree> [argument of unittest...]
# With KIV_CAPTION_CORPUS the files of that folder are compared too.
import ast
import builtins
import copy
import gc
import json
import os
import pickle
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import unittest
import weakref
from pathlib import Path

PACKAGE, LIBRARY, COMMAND, ROOT = (os.path.abspath(argument) for argument in sys.argv[1:5])
os.environ["KIVCS2"] = LIBRARY
sys.path.insert(0, PACKAGE)
sys.dont_write_bytecode = True

import kivcoreservices2 as kiv  # noqa: E402
from kivcoreservices2 import _layout, _library, _records  # noqa: E402

EXAMPLE = Path(ROOT, "Examples/captions.scc")
CORPUS = os.environ.get("KIV_CAPTION_CORPUS")
FILES = [EXAMPLE, *(sorted(path for path in Path(CORPUS).glob("*/*.[sm]cc") if path.stat().st_size) if CORPUS else [])]
SCC, MCC1, MCC2, SRT = kiv.CaptionKind.SCC, kiv.CaptionKind.MCC1, kiv.CaptionKind.MCC2, kiv.CaptionKind.SRT


def command(*arguments):
    """Returns the exit code of the command and what it prints."""
    done = subprocess.run([COMMAND, *map(str, arguments)], capture_output=True, check=False)
    return done.returncode, done.stdout


def scc(*lines):
    return ("Scenarist_SCC V1.0\n\n" + "\n\n".join(lines) + "\n").encode()


class WithFolder(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.folder)

    def path(self, name):
        return os.path.join(self.folder, name)


class Headers(unittest.TestCase):
    """What is written twice, in C and in Python, is equal."""

    def setUp(self):
        self.text = "".join(path.read_text() for path in Path(ROOT, "Headers").glob("*.h"))

    def test_statuses(self):
        rows = re.findall(r"#define (KIVCS2STATUS_\w+)[\s\\]+(0x8\w+)u\s*/\*\*< (.*?) \*/", self.text)
        self.assertGreater(len(rows), 50)
        for name, value, text in rows:
            found = kiv.status.error_class(int(value, 16))
            self.assertEqual((found.name, found.status, found.text), (name, int(value, 16), text))
            self.assertIn(found.__name__, kiv.__all__)
        self.assertEqual(len(rows) + 1, len(kiv.status.__all__))
        self.assertEqual(set(), set(kiv.__all__) & set(dir(builtins)))  # import * hides nothing of Python's

    def test_enumerations(self):
        carriers = {"8BitWithADF": "WORDS_8BIT_ADF", "8Bit": "WORDS_8BIT", "10BitWithADF": "WORDS_10BIT_ADF",
                    "10Bit": "WORDS_10BIT", "10BitLittleWithADF": "WORDS_10BIT_LITTLE_ADF",
                    "10BitLittle": "WORDS_10BIT_LITTLE", "436M": "WRAPPED_436M"}
        for prefix, kind in (("Fault", kiv.CaptionFault), ("FileKind", kiv.CaptionKind), ("Order", kiv.CaptionOrder),
                             ("Reason", kiv.CaptionReason), ("Mode", kiv.CaptionMode), ("Counting", kiv.Counting),
                             ("Style", kiv.CaptionStyle), ("Carrier", kiv.Carrier), ("FrameRate", kiv.FrameRate)):
            stem = "KIVCS2FrameRate_" if prefix == "FrameRate" else f"KIVCS2Caption{prefix}_"
            rows = {name: int(value, 0) for name, value in re.findall(rf"\b{stem}(\w+) = (\w+)", self.text)
                    if name not in ("MAX", "FindOut", "AnyPacket") and not (name == "None" and prefix == "Fault")}
            plain = {carriers.get(name, name).replace("_", "").lower(): value for name, value in rows.items()}
            self.assertEqual(plain, {name.replace("FPS_", "").replace("_", "").lower(): member.value
                                     for name, member in kind.__members__.items()}, prefix)

    def test_every_record_is_checked(self):
        _records.check_layout(_layout.RECORDS)
        for name, (size, members) in _layout.RECORDS.items():
            first = members[0]
            for wrong in ((size + 8, members), (size, ((first[0], first[1] + 1, first[2]), *members[1:]))):
                with self.assertRaisesRegex(ImportError, name):
                    _records.check_layout({**_layout.RECORDS, name: wrong})
            with self.assertRaisesRegex(ImportError, name):
                _records.check_layout({key: row for key, row in _layout.RECORDS.items() if key != name})

    def test_another_library_is_refused(self):
        class Longer(_records.KIVCS2CaptionPacket):
            _fields_ = [("m_more", _records.c_uint64)]
        kept, _records.KIVCS2CaptionPacket = _records.KIVCS2CaptionPacket, Longer
        try:
            with self.assertRaisesRegex(ImportError, "Longer has 632 bytes here and 624 in"):
                _library._check_loaded(LIBRARY)
        finally:
            _records.KIVCS2CaptionPacket = kept
        for path, text in (("/nowhere.so", "KIVCS2 can name"), ("libc.so.6", "has no kivCS2_init")):
            done = subprocess.run([sys.executable, "-c", "import kivcoreservices2"], check=False, capture_output=True,
                                  env={**os.environ, "KIVCS2": path, "PYTHONPATH": PACKAGE})
            self.assertEqual(done.returncode, 1)
            self.assertRegex(done.stderr.decode(), f"ImportError: .*{text}")

    def test_python_3_10_parses_it(self):
        for path in Path(PACKAGE, "kivcoreservices2").glob("*.py"):
            ast.parse(path.read_text(), feature_version=(3, 10))


class AgainstTheCommand(WithFolder):
    """The same files, through C++ and through Python."""

    def test_captions(self):
        number = 0
        for path in FILES:
            _, said = command("caption", "show", path, "--captions", "--json", "--keep-going")
            rows = [(row["from"], row["until"], row["channel"], row["mode"], row["text"])
                    for row in json.loads(said) if "text" in row]
            found = [(each.start_timecode, each.end_timecode, each.service, str(each.mode), each.text)
                     for each in kiv.read_captions(path)]
            self.assertEqual(found, rows, path)
            number += len(rows)
        self.assertGreaterEqual(number, 7)

    def test_packets_and_faults(self):
        for path in FILES:
            faults = []
            with kiv.CaptionReader(path, order=kiv.CaptionOrder.FILE, on_fault=faults.append) as reader:
                rate, packets = reader.header.counting, list(reader)
            code, said = command("caption", "show", path, "--json", "--keep-going")
            self.assertEqual(code, 0)
            rows = [row["fault"] for row in json.loads(said) if "fault" in row]
            self.assertEqual(sorted((each.fault.label, each.line, each.column, each.offset, each.frame, each.lost)
                                    for each in faults),
                             sorted((row["name"], row["line"], row["column"], row["offset"], row["frame"], row["lost"])
                                    for row in rows), path)
            rows = [row for row in json.loads(said) if "pairs" in row]  # a row may have the pairs of many frames
            starts = {(packet.line, rate.timecode(packet.frame)) for packet in packets}
            self.assertTrue({(row["line"], row["timecode"]) for row in rows} <= starts, path)
            for field in (1, 2):
                found = [pair.hex() for packet in packets for pair in packet.pairs[field - 1] if pair != b"\x80\x80"]
                wanted = [pair for row in rows if row["field"] == field for pair in row["pairs"] if pair != "8080"]
                self.assertEqual(found, wanted, path)
            found = [packet.dtvcc.bytes.hex() for packet in packets]
            self.assertEqual("".join(found), "".join("".join(row["cea708"]) for row in rows), path)

    def test_conversions(self):
        for path in FILES:
            for kind in ("mcc", "scc", "srt", "vtt"):
                ours, theirs = self.path(f"python.{kind}"), self.path(f"command.{kind}")
                code, _ = command("caption", "convert", path, theirs, "--keep-going")
                if code != 0:  # SCC is written at 29.97 only
                    with self.assertRaises(kiv.StatusError):
                        kiv.convert_captions(path, ours, keep_going=True)
                    continue
                report = kiv.convert_captions(path, ours, keep_going=True)
                self.assertGreater(report.packets, 0)
                own = re.compile(rb"(UUID|Creation \w+)=.*\r?\n")  # made anew in each file
                found, wanted = (own.sub(b"", Path(name).read_bytes()) for name in (ours, theirs))
                if kind == "scc" and path.suffix == ".mcc":  # the words differ in their empty pairs
                    found, wanted = map(str, kiv.read_captions(ours)), map(str, kiv.read_captions(theirs))
                    self.assertEqual(list(found), list(wanted), path)
                else:
                    self.assertEqual(found, wanted, (path, kind))

    def test_timecode(self):
        kiv.set_frame_rate("29.97")
        for text, word, frames in (("00:59:59;29", "add", 1), ("00:10:00;00", "sub", 17983), ("23:59:59;29", "add", 0)):
            row = json.loads(command("tc", word, text, str(frames), "--json")[1])
            found = kiv.Timecode(text) + (frames if word == "add" else -frames)
            self.assertEqual((str(found), found.hours, found.minutes, found.seconds, found.frames, found.frame_count, found.bcd),
                             (row["timecode"], row["hours"], row["minutes"], row["seconds"], row["frames"],
                              row["framesSinceMidnight"], int(row["bcd"], 16)))


class Files(WithFolder):
    def test_a_broken_file(self):
        rows = ((scc("01:00:00;00\t9420 94x0"), kiv.CaptionError, "UNKNOWN_CHARACTER", 3, 20),
                (scc("01:00:00;00\t9420 942"), kiv.CaptionError, "WORD_LENGTH", 3, 18),
                (scc("01:99:00;00\t9420"), kiv.InvalidTimecodeError, "NO_SUCH_TIME", 3, 1),
                (scc("01:00:00;00 9420"), kiv.NotFoundError, "BLANKS", 3, 12),
                (b"GIF89a", kiv.HeaderError, "HEADER_UNKNOWN", 1, 1))
        for data, kind, fault, line, column in rows:
            with kiv.CaptionReader.from_bytes(data, name="b.scc", strict=True) as reader:
                with self.assertRaises(kiv.StatusError) as raised:
                    for _ in reader:
                        pass
                error = raised.exception
                self.assertEqual((type(error), error.fault.name, error.line, error.column),
                                 (kind, fault, line, column), data)
                self.assertRegex(str(error), rf"^b\.scc:{line}:{column}: .*{kind.name}")
                with self.assertRaises(kind):  # a strict reader does not go on
                    reader.read()
        self.assertEqual(str(pickle.loads(pickle.dumps(error))), str(error))

    def test_faults_are_tolerated(self):
        seen = []
        data = scc("01:00:00;00\t94ae 94x0", "01:00:02;00\t9420 942c") + b"junk\n"
        with kiv.CaptionReader.from_bytes(data, on_fault=seen.append) as reader:
            self.assertEqual([packet.pairs.field1 for packet in reader], [(b"\x94\x20",), (b"\x94\x2c",)])
            self.assertEqual([(each.fault.label, each.line, each.lost) for each in seen],
                             [("unknown character", 3, True), ("not a caption", 6, True)])
            self.assertEqual(reader.report.lost_lines, 2)
            self.assertEqual(reader.faults()[kiv.CaptionFault.NOT_A_CAPTION], (1, seen[1]))
            self.assertTrue(reader.seek("01:00:01;00") and reader.read().frame == reader.header.counting.frame("01:00:02;00"))
            self.assertFalse(reader.seek("02:00:00;00"))
            self.assertIsNone(reader.read())

    def test_nothing_is_success(self):
        with self.assertRaises(kiv.NoDataError):
            list(kiv.CaptionReader.from_bytes(scc()))
        for name, reason in (("none.scc", "No such file"), (".", "Is a directory")):
            with self.assertRaisesRegex(kiv.OpenError, reason):
                kiv.CaptionReader(self.path(name))
        Path(self.path("lost.scc")).write_bytes(scc("01:00:00;00\t9420 94x0", "01:00:02;00\t9420"))
        with self.assertRaises(kiv.CaptionError) as raised:
            kiv.convert_captions(self.path("lost.scc"), self.path("out.mcc"))
        self.assertEqual((raised.exception.line, os.listdir(self.folder)), (3, ["lost.scc"]))
        with self.assertRaises(kiv.FrameRateError):
            kiv.CaptionWriter(self.path("a.scc"), counting="25")
        with self.assertRaises(kiv.WriteError):
            with kiv.CaptionWriter("/dev/full", MCC1, counting="25") as writer:
                writer.write_captions(0)

    def test_a_file_appears_whole(self):
        target = self.path("a.mcc")
        Path(target).write_bytes(b"old")
        os.chmod(target, 0o640)
        with self.assertRaises(ZeroDivisionError):
            with kiv.CaptionWriter(target, counting="25") as writer:
                writer.write_captions(0)
                1 / 0
        writer = kiv.CaptionWriter(target, counting="25")
        writer.close()
        writer = kiv.CaptionWriter(target, counting="25")
        del writer
        gc.collect()
        self.assertEqual((os.listdir(self.folder), Path(target).read_bytes()), (["a.mcc"], b"old"))
        os.symlink("a.mcc", self.path("link.mcc"))
        with kiv.CaptionWriter(os.fsencode(self.path("link.mcc")), counting="25") as writer:
            writer.write_captions(25, ([b"\x94\x20"], []))
        self.assertEqual(sorted(os.listdir(self.folder)), ["a.mcc", "link.mcc"])
        self.assertTrue(os.path.islink(self.path("link.mcc")) and os.stat(target).st_mode & 0o777 == 0o640)
        with kiv.CaptionReader(Path(target)) as reader:
            packet = reader.read()
        self.assertEqual((packet.frame, packet.sequence, packet.pairs), (25, 0, ((b"\x94\x20",), (b"\x80\x80",))))
        for name, raised in (("", kiv.OpenError), ("none/", kiv.OpenError), ("none/.", kiv.OpenError),
                             ("b" * 256, kiv.WriteError)):
            with self.assertRaises(raised), kiv.CaptionWriter(name and self.path(name), MCC1, counting="25") as writer:
                writer.write_captions(25)
        self.assertNotIn("\x1b", str(kiv.OpenError("open", "a\x1b[2J\udcff.scc")))
        longest = self.path("b" * 251 + ".mcc")  # as long as a name may be
        os.chmod(target, 0o600)
        if os.geteuid() == 0:
            os.chown(target, 1234, 4321)
        before = os.stat(target)
        with kiv.CaptionWriter(longest, counting="25"), kiv.CaptionWriter(target, counting="25"):
            private = [name for name in os.listdir(self.folder) if os.stat(self.path(name)).st_mode & 0o777 == 0o600]
            self.assertEqual(len(private), 3)  # the old file, the link to it, and the file in the making
        after = os.stat(target)
        self.assertEqual((after.st_uid, after.st_gid, after.st_mode), (before.st_uid, before.st_gid, before.st_mode))
        self.assertEqual(sorted(os.listdir(self.folder)), ["a.mcc", os.path.basename(longest), "link.mcc"])

    def test_what_a_header_says(self):
        header = kiv.CaptionHeader(program="Zürich", uuid="U", date="D", time="T")
        with kiv.CaptionWriter(None, MCC2, counting="23.98", header=header) as writer:
            writer.write(kiv.CaptionPacket.build("23.98", 7, frame=48))
        with kiv.CaptionReader.from_bytes(writer.getvalue()) as reader:
            read = reader.header
            self.assertEqual((read.kind, str(read.counting), read.program, read.uuid, read.reason),
                             (MCC2, "23.98", "Zürich", "U", kiv.CaptionReason.HEADER))
            self.assertEqual([(each.frame, each.sequence) for each in reader], [(48, 7)])

    def test_packets(self):
        entry = kiv.ServiceEntry("S1", "eng", wide=True)
        packet = kiv.CaptionPacket.build("59.94df", 3, ([b"\x94\x2f"], []), kiv.DTVCC(b"\x02\x21", 1), [entry])
        self.assertEqual((packet.services, packet.dtvcc, packet.did, packet.faults), ((entry,), (b"\x02\x21", 1), 0x61, ()))
        again = kiv.CaptionPacket.parse(bytearray(bytes(packet)))
        self.assertEqual((again, hash(again), pickle.loads(pickle.dumps(again)), copy.copy(again)),
                         (packet, hash(packet), packet, packet))
        self.assertNotEqual(packet.at(9), packet)
        self.assertEqual(kiv.describe_pair(b"\x94\x20"), "resume caption loading")
        for carrier in kiv.Carrier:
            room = b"" if "V210" not in carrier.name else bytes(128 * 40)
            data = kiv.wrap_packets(carrier, [packet], rtp=kiv.RTPHeader(sequence=70000), line=room)
            (found, place), = kiv.find_packets(carrier, data)
            self.assertEqual(found, packet, carrier)
            self.assertEqual(list(kiv.find_packets(carrier, b"")), [])
        self.assertEqual(place.rtp.sequence, 70000)
        newer = pickle.loads(pickle.dumps(packet))
        newer._record.m_faults = 1 << 60  # of a library that knows more faults
        self.assertEqual([(int(fault), fault.label) for fault in newer.faults], [(60, "unknown fault")])
        damaged = bytes(packet)[:-1] + bytes([bytes(packet)[-1] ^ 1])
        self.assertEqual(kiv.CaptionPacket.parse(damaged).faults, (kiv.CaptionFault.PACKET_CHECKSUM,))
        for call in (lambda: kiv.CaptionPacket.parse(b""), lambda: kiv.CaptionPacket.parse(bytes(300)),
                     lambda: kiv.CaptionPacket.build("60", 0, ([b"\x94\x20"] * 20, []))):
            with self.assertRaises((kiv.NoDataError, kiv.NoRoomError)):
                call()


class Ownership(WithFolder):
    def test_closed_is_closed(self):
        reader, writer = kiv.CaptionReader(EXAMPLE), kiv.CaptionWriter(None, MCC1, counting="25")
        decoder, captions = kiv.CaptionDecoder(), reader.captions()
        first, packet = next(captions), reader.read()
        for each in (reader, writer, decoder):
            each.close()
            each.close()
            self.assertTrue(each.closed)
        for call in (reader.read, lambda: reader.header, lambda: reader.report, lambda: reader.seek(0), reader.faults,
                     lambda: next(captions), writer.finish, lambda: writer.write(packet), writer.getvalue,
                     lambda: decoder.feed(packet), lambda: decoder.finish(1), lambda: decoder.report,
                     reader.__enter__):
            with self.assertRaises(ValueError):
                call()
        for each in (reader, writer, decoder):
            for take in (copy.copy, copy.deepcopy, pickle.dumps):
                with self.assertRaisesRegex(TypeError, "cannot be copied"):  # two owners would release it twice
                    take(each)
        self.assertEqual((first.text[:4], packet.line > 0), ("GOOD", True))  # values outlive what they came from
        self.assertEqual((len(first.cells), first.cells[0].text), (37, "G"))

    def test_a_generator_keeps_its_reader(self):
        captions = kiv.CaptionReader(EXAMPLE).captions()
        gc.collect()
        self.assertEqual(len(list(captions)), 7)

    @staticmethod
    def end(_fault):
        raise kiv.EndOfStreamError

    def test_callbacks(self):
        data = scc("01:00:00;00 9420", "01:00:02;00 9420")
        for act, raised in ((lambda reader: reader.close(), RuntimeError), (lambda reader: reader.read(), RuntimeError),
                            (lambda _: 1 / 0, ZeroDivisionError), (lambda _: sys.exit(3), SystemExit),
                            (lambda _: next(iter(())), RuntimeError), (lambda _: kiv.CaptionReader.from_bytes(
                                data).seek("x"), kiv.InvalidTimecodeError), (self.end, RuntimeError)):
            reader = kiv.CaptionReader.from_bytes(data, on_fault=lambda fault: act(reader))
            with self.assertRaises(raised):
                list(reader)
            reader.close()

        class Host:  # its callback references it, and it references its reader
            def __init__(self):
                self.reader = kiv.CaptionReader(EXAMPLE, on_fault=self.take)

            def take(self, fault):
                raise AssertionError(fault)
        gone = weakref.ref(Host())
        gc.collect()
        self.assertIsNone(gone())

    def test_memory_and_descriptors_are_flat(self):
        packet = kiv.CaptionReader(EXAMPLE).read()

        def once(turn):
            reader = kiv.CaptionReader(EXAMPLE, on_fault=lambda fault: None)
            reader.read()
            decoder = kiv.CaptionDecoder("CC1")
            decoder.feed(packet)
            if turn % 2:  # the others are released by their finalizers
                reader.close()
                decoder.close()
            if turn % 10:
                return
            writer = kiv.CaptionWriter(None, MCC1, counting="29.97df")
            writer.write_captions(turn, packet.pairs)
            if turn % 20:
                writer.finish()
            with self.assertRaises(kiv.HeaderError):
                kiv.CaptionReader.from_bytes(b"GIF89a", strict=True).read()

        def measured():
            gc.collect()
            pages = int(Path("/proc/self/statm").read_text().split()[1])
            return pages * os.sysconf("SC_PAGESIZE"), len(os.listdir("/proc/self/fd"))
        for turn in range(1000):
            once(turn)
        memory, descriptors = measured()
        for turn in range(10000):
            once(turn)
        grown, now = measured()
        self.assertEqual(now, descriptors)
        self.assertLess(grown - memory, 1 << 20)  # a leak of 128 bytes a turn would be 1.2 MiB

    def test_threads(self):
        wanted = [str(each) for each in kiv.read_captions(EXAMPLE)]
        shared, results, errors = kiv.CaptionReader(EXAMPLE), [], []

        def work():
            try:
                for _ in range(5):
                    results.append([str(each) for each in kiv.read_captions(EXAMPLE)] == wanted)
                    kiv.set_frame_rate("29.97")
                    results.append(kiv.Timecode("00:00:59:29") + 1 == kiv.Timecode("00:01:00;02"))
                counted.extend(shared)  # each packet goes to one thread
            except BaseException as error:
                errors.append(error)
        counted = []
        threads = [threading.Thread(target=work) for _ in range(6)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join(60)
        self.assertEqual((errors, set(results), len(set(counted)), len(counted)), ([], {True}, 163, 163))

    def test_an_interrupt_leaves_nothing_locked(self):
        data, stopped = EXAMPLE.read_bytes(), []

        def interrupt(_signal, _frame):
            stopped.append(1)
            raise KeyboardInterrupt
        self.addCleanup(signal.signal, signal.SIGALRM, signal.signal(signal.SIGALRM, interrupt))
        for turn in range(400):
            reader = kiv.CaptionReader.from_bytes(data)
            try:
                signal.setitimer(signal.ITIMER_REAL, 0.0002 + 0.00007 * (turn % 17))
                for _ in reader:
                    pass
                signal.setitimer(signal.ITIMER_REAL, 0)
            except KeyboardInterrupt:
                pass
            signal.setitimer(signal.ITIMER_REAL, 0)
            closing = threading.Thread(target=reader.close, daemon=True)
            closing.start()
            closing.join(10)
            self.assertTrue(reader.closed)
        self.assertTrue(stopped)

    def test_an_interrupt_of_a_callback_is_not_lost(self):
        data, lost, came = scc(*["00:00:00:00\t94X0 942c x"] * 20000), [], []

        def interrupt(_signal, _frame):
            came.append(1)
            raise KeyboardInterrupt
        self.addCleanup(signal.signal, signal.SIGALRM, signal.signal(signal.SIGALRM, interrupt))
        self.addCleanup(setattr, sys, "unraisablehook", sys.unraisablehook)
        sys.unraisablehook = lost.append
        for turn in range(20):
            with self.assertRaises(KeyboardInterrupt), kiv.CaptionReader.from_bytes(data) as reader:
                signal.setitimer(signal.ITIMER_REAL, 0.002 + 0.0001 * turn)
                reader.read()
        self.assertEqual((len(came), lost), (20, []))

    def test_a_forked_child_releases_nothing(self):
        target = self.path("a.mcc")
        writer = kiv.CaptionWriter(target, counting="25")
        writer.write_captions(0)
        inside, forked = threading.Event(), threading.Event()

        def wait(_):
            inside.set()
            forked.wait(60)
        reader = kiv.CaptionReader.from_bytes(scc("01:00:00;00 9420"), on_fault=wait)
        thread = threading.Thread(target=reader.read)
        thread.start()
        self.assertTrue(inside.wait(60))
        child = os.fork()
        if child == 0:  # the thread that holds the reader does not exist here
            refused = 0
            for call in (lambda: writer.write_captions(1), writer.finish, lambda: reader.report):
                try:
                    call()
                except RuntimeError:
                    refused += 1
            reader.close()
            writer.close()
            os._exit(refused + 10 * (reader.closed and writer.closed))
        forked.set()
        thread.join(60)
        self.assertEqual(os.waitpid(child, 0)[1] >> 8, 13)
        writer.finish()
        self.assertEqual(os.listdir(self.folder), ["a.mcc"])

    def test_the_interpreter_ends_during_a_call(self):
        rows = [f"{hour:02}:{minute:02}:00;02\t9420 942c" for hour in reversed(range(24)) for minute in range(60)]
        Path(self.path("long.scc")).write_bytes(scc(*rows * 20))
        code = """
import kivcoreservices2 as kiv, sys, threading
started = threading.Barrier(4)
def work():
    while True:
        readers.append(kiv.CaptionReader(sys.argv[1]))
        if len(readers) < 4: started.wait()
        try: readers[-1].seek(0)
        except ValueError: return
readers = []
for _ in range(3): threading.Thread(target=work, daemon=True).start()
started.wait()
"""
        done = subprocess.run([sys.executable, "-c", code, self.path("long.scc")], check=False, timeout=60,
                              env={**os.environ, "PYTHONPATH": PACKAGE}, capture_output=True)
        self.assertEqual(done.returncode, 0)


class Arguments(unittest.TestCase):
    def test_wrong_ones_never_reach_the_library(self):
        packet = kiv.CaptionPacket.build("25")
        decoder, writer = kiv.CaptionDecoder(), kiv.CaptionWriter(None, SRT, counting="25")
        kiv.set_frame_rate("25")
        time = kiv.Timecode(0)
        types = (
            lambda: kiv.CaptionReader(3), lambda: kiv.CaptionReader(EXAMPLE, on_fault=1), lambda: time + 1.5,
            lambda: kiv.CaptionReader(EXAMPLE, kind="scc"), lambda: kiv.CaptionReader(EXAMPLE, order=True),
            lambda: kiv.CaptionReader(EXAMPLE, strict=1), lambda: kiv.CaptionReader(EXAMPLE, counting=25),
            lambda: kiv.CaptionReader.from_bytes("text"), lambda: kiv.CaptionPacket(), lambda: kiv.Caption(),
            lambda: kiv.CaptionPacket.parse("6101"), lambda: kiv.CaptionPacket.build("25", "0"), lambda: time < 5,
            lambda: kiv.CaptionPacket.build("25", 0, (["ab"], [])), lambda: decoder.feed(b""), lambda: decoder.feed(None),
            lambda: writer.write(None), lambda: writer.write_caption("text"), lambda: decoder.finish(1.0),
            lambda: kiv.CaptionWriter(None, SRT, counting="25", header={}), lambda: kiv.Timecode(1.5),
            lambda: kiv.convert_captions(EXAMPLE, "a.mcc", service=5), lambda: time.same_time(5),
            lambda: kiv.convert_captions(EXAMPLE, "a.mcc", on_fault=5),
            lambda: kiv.Timecode(None), lambda: kiv.Timecode(True), lambda: time - "1", lambda: time * 1.5,
            lambda: kiv.set_frame_rate(29.97), lambda: kiv.CaptionDecoder(5), lambda: kiv.describe_pair("ab"),
            lambda: kiv.wrap_packets(kiv.Carrier.RTP, [b""]), lambda: list(kiv.find_packets(kiv.Carrier.RTP, None)))
        values = (
            lambda: kiv.CaptionReader("a\0b"), lambda: kiv.CaptionReader(EXAMPLE, field=3), lambda: decoder.finish(-1),
            lambda: kiv.CaptionReader(EXAMPLE, kind=9), lambda: kiv.CaptionReader(EXAMPLE, counting="26"),
            lambda: kiv.CaptionPacket.build("25", 65536), lambda: kiv.CaptionPacket.build("25", 0, ([b"abc"], [])),
            lambda: kiv.CaptionPacket.build("25", 0, None, (b"a", 0)), lambda: kiv.CaptionWriter("a.txt", counting="25"),
            lambda: kiv.CaptionPacket.build("25", services=[kiv.ServiceEntry("S64")]), lambda: kiv.Timecode(2**32),
            lambda: kiv.CaptionPacket.build("25", services=[kiv.ServiceEntry("S1")] * 16), lambda: kiv.Timecode("1:2"),
            lambda: kiv.Timecode("10:00:00:00 "), lambda: kiv.Timecode("0.1.2026 00:00:00:00"), lambda: time + 2**32,
            *(lambda language=language: kiv.CaptionPacket.build("25", services=[kiv.ServiceEntry("S1", language)])
              for language in ("en", "éng", "e g")),
            lambda: kiv.CaptionPacket.build("25", services=[kiv.ServiceEntry("CC2")]),
            lambda: kiv.convert_captions(EXAMPLE, "a.mcc", service="XX"), lambda: kiv.Timecode.from_seconds(10**400),
            lambda: kiv.Timecode.from_seconds(-1), lambda: kiv.set_frame_rate("26"), lambda: kiv.CaptionDecoder("CC5"),
            lambda: kiv.Timecode.from_seconds(float("nan")), lambda: kiv.Timecode.from_seconds(float("inf")),
            lambda: time.snapped(), lambda: time * -1, lambda: kiv.CaptionHeader(program="a\nb")._record(),
            lambda: kiv.Counting.FPS_25.timecode(-1), lambda: list(kiv.find_packets(kiv.Carrier.WORDS_8BIT, b"", True)))
        for raised, calls in ((TypeError, types), (ValueError, values)):
            for place, call in enumerate(calls):
                with self.assertRaises(raised, msg=f"{raised.__name__} {place}") as found:
                    call()
                self.assertNotIsInstance(found.exception, kiv.StatusError)
        self.assertEqual(packet, kiv.CaptionPacket.build("25"))


class Timecodes(unittest.TestCase):
    def test_arithmetic(self):
        kiv.set_frame_rate("29.97")
        time = kiv.Timecode
        rows = ((time("00:00:59:29") + 1, "00:01:00;02"), (time("00:01:00;02") - 1, "00:00:59;29"),
                (1 + time("00:09:59;29"), "00:10:00;00"), (time("01:00:00;00") + time("00:30:00;00"), "01:30:00;00"),
                (time("00:10:00;00") * 6, "01:00:00;00"), (time("31.12.2026 23:59:59;29") + 1, "1.1.2027 00:00:00;00"),
                (time("1.1.2027 00:00:00;00") - 1, "31.12.2026 23:59:59;29"), (time(0) - 1, "23:59:59;29"),
                (time("01:00:00;00").plus(hours=1, minutes=-30), "01:29:58;06"), (time.from_seconds(0.5), "00:00:00;14"),
                (time("15.3.2024 01:00:00;00").plus(days=-15, months=1), "31.3.2024 01:00:00;00"),
                (time("01:17:33;05").snapped(hours=1), "01:00:00;00"), (time.from_bcd(0x01020304), "01:02:03;04"),
                (time.from_fields(1, 2, 3, 4), "01:02:03;04"), (time("100"), "00:00:03;10"))
        for found, text in rows:
            self.assertEqual(str(found), text)
            self.assertEqual(eval(repr(found), {"Timecode": time}), found)
            self.assertEqual((pickle.loads(pickle.dumps(found)), copy.copy(found)), (found, found))
        first, later = time("1.1.2026 23:59:59;29"), time("2.1.2026 00:00:00;01")
        self.assertEqual((later - first, first - later, first + (later - first)), (2, -2, later))
        self.assertTrue(first < later and later > first and first != later and len({first, later, first + 0}) == 2)
        self.assertEqual(sorted([later, first]), [first, later])
        self.assertEqual(((time(0) - 1) + 1).days, 1)
        fields = time("10:11:12;13")
        self.assertEqual((fields.hours, fields.minutes, fields.seconds, fields.frames, fields.bcd, int(fields)),
                         (10, 11, 12, 13, 0x10111213, fields.frame_count))
        self.assertEqual(time.now().date.year, time.now().value >> 48)
        with self.assertRaises(kiv.InvalidTimecodeError):
            time("00:01:00;00")
        with self.assertRaises(kiv.InvalidTimecodeError):
            time.from_value(0xFFFFFFFF) + 1
        self.assertEqual((time("12:00:00:00") * 3, time("12:00:00:00") * 0), (time("36:00:00:00") + 0, time(0)))
        day, dated = kiv.frames_per_day(), time("1.1.2000 00:00:01;00")
        for call in (lambda: time(day) * 31, lambda: time(30) + (2**32 - 1), lambda: time(0).plus(hours=50000),
                     lambda: time(day * 20) + time(day * 11), lambda: time(0).plus(months=1), lambda: dated * 2,
                     lambda: time(0) + dated, lambda: dated.plus(years=63536), lambda: dated.plus(years=-2000),
                     lambda: dated.plus(days=-800000), lambda: time("31.12.65535 23:59:59;29") + 1,
                     lambda: time(0).snapped(minutes=90), lambda: time.from_bcd(0x00010000), lambda: time.from_bcd(0x3F)):
            with self.assertRaises((ValueError, kiv.InvalidTimecodeError)):
                call()

    def test_without_a_rate(self):
        code = """
import kivcoreservices2 as kiv
calls = (lambda: kiv.Timecode("01:00:00:00"), lambda: kiv.Timecode(5) + 1, lambda: kiv.Timecode(5).hours,
         lambda: kiv.Timecode.from_seconds(1), lambda: str(kiv.Timecode(5)), lambda: kiv.Timecode(5).plus(hours=1))
for call in calls:
    try: call()
    except kiv.FrameRateError: print("refused", repr(kiv.Timecode(5)))
"""
        done = subprocess.run([sys.executable, "-W", "error", "-c", code], env={**os.environ, "PYTHONPATH": PACKAGE},
                              capture_output=True, check=True)
        self.assertEqual(done.stdout.decode(), "refused Timecode.from_value(0x0000000000000005)\n" * 6)

    def test_countings(self):
        rows = (("29.97df", "01:00:00;00", 107892), ("25", "01:00:00:00", 90000), ("59.94df", "00:01:00;04", 3600))
        for label, text, frame in rows:
            rate = kiv.Counting.of(label)
            self.assertEqual((rate.frame(text), rate.timecode(frame)), (frame, text))
            self.assertAlmostEqual(rate.seconds(frame), float(frame / rate.rate))
        df = kiv.Counting.FPS_29_97_DF
        self.assertEqual((df.frame("00:01:00;00"), df.drop, df.numbers, df.frames_per_day), (1800, 2, 30, 2589408))
        for call in (lambda: df.frame("00:01:00;00", exact=True), lambda: df.frame("24:00:00;00"), lambda: df.frame("x\0")):
            with self.assertRaises(kiv.InvalidTimecodeError):
                call()


class Documents(WithFolder):
    def test_every_block_runs(self):
        shutil.copy(EXAMPLE, self.path("programme.scc"))
        for document in ("README.md", "Docs/python.md"):
            blocks = re.findall(r"```python\n(.*?)```", Path(ROOT, document).read_text(), re.DOTALL)
            self.assertTrue(blocks, document)
            for block in blocks:
                done = subprocess.run([sys.executable, "-W", "error", "-c", block], cwd=self.folder, check=False,
                                      env={**os.environ, "PYTHONPATH": PACKAGE}, capture_output=True)
                self.assertEqual((done.returncode, done.stderr.decode()), (0, ""), block)
                for wanted in re.findall(r"# prints (.*)", block):
                    self.assertIn(wanted + "\n", done.stdout.decode(), block)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[5:]])
