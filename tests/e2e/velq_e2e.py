"""What the end-to-end test drivers share: the private environment of a run (Sandbox), the scripted UI's
answers and transcript, and the case runner.

A driver is started as `DRIVER ARGUMENTS... CASE`, where CASE names one of its cases or is "all". Its exit
status is 0 when the cases pass, 1 when one fails, 2 on a wrong command line and SKIP (77) when the
machine lacks what the case needs (the reason is printed).

A driver puts its own folder first in sys.path before importing this module, so that the module is found
however the driver is started (`python3 -I` or `-P` leave the script's folder out of the path).
"""
import json
import os
import shutil
import subprocess
import sys
import tempfile
import time

SKIP = 77
RUN_HANG_GUARD = 120  # a guard against a hang of one program's run only; no case relies on how long it takes
SANITIZER_OPTIONS = ("ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LSAN_OPTIONS")

# A system bus of a test's own (dbus-daemon --config-file): anyone may own any name and send anything.
SYSTEM_BUS_CONFIG = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path=%s</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
  </policy>
</busconfig>
"""


class Failure(Exception):
    """A check failed: the case fails with this text."""


class Skip(Exception):
    """The case cannot run on this machine: the text says what is missing."""


def expect(condition, text):
    if not condition:
        raise Failure(text)


def expect_equal(what, got, wanted):
    if got != wanted:
        raise Failure("%s: got %r, wanted %r" % (what, got, wanted))


def messagebox(text, caption, flags, answer, default):
    """A message box's transcript line (no owner window)."""
    return {"ui": "messagebox", "text": text, "caption": caption, "flags": flags, "owner": False,
            "answer": answer, "default": default}


# What the gate shows without a sensor backend (VELQ_WINBIO=none): the arrow cursor, then message 1059.
GATE_LINES = [
    {"ui": "cursor", "id": 32512},
    messagebox("Failed to open the sensor.", "Error", 16, 1, True),
]


def read_text(path):
    with open(path, encoding="utf-8", errors="replace") as f:
        return f.read()


def read_transcript(path):
    """The transcript's lines as objects; none when the file is not there."""
    if not os.path.exists(path):
        return []
    with open(path, encoding="utf-8") as f:
        return [json.loads(line) for line in f if line.strip()]


def remove_tree(root):
    """Removes `root` with everything under it, read-only files and folders too."""
    for folder, dirs, files in os.walk(root):
        for name in dirs + files:
            path = os.path.join(folder, name)
            if not os.path.islink(path):
                try:
                    os.chmod(path, 0o700)
                except OSError:
                    pass
    shutil.rmtree(root, ignore_errors=True)


class Native:
    """The programs of this system (POSIX), started as they are: the paths they see are the test's own."""

    is_posix = True

    @staticmethod
    def path(unix):
        return unix

    @staticmethod
    def argv(args):
        return list(args)

    @staticmethod
    def program_env(env):
        return env


class Sandbox:
    """A private folder with the environment of the program's runs: HOME, runtime folder, data home and
    temporary folder inside it, English texts, the scripted UI with its answers file and transcript, the
    sensor backend `winbio`, the sanitizers' options passed through. `env` adds to or replaces variables;
    `answers`, when given, are written to the answers file. Used as a context manager, it is removed
    at the end.

    `system` runs the programs: Native() (the default) or velq_wine.Wine for the Windows programs, which
    see every path in their own form. Cases hand programs program_path(...) and start them with
    start_program, which passes env in the program's form."""

    def __init__(self, prefix, winbio, answers=None, system=None, **env):
        self.system = system or Native()
        self.root = tempfile.mkdtemp(prefix=prefix)
        self.transcript = os.path.join(self.root, "transcript.jsonl")
        self.answers = os.path.join(self.root, "answers")
        self.docs = os.path.join(self.root, "docs")
        self.env = {
            "PATH": os.environ.get("PATH", "/usr/bin:/bin"),
            "HOME": self.root,
            "LANGUAGE": "en",
            "LC_ALL": "C",
            "VELQ_UI": "script",
            "VELQ_UI_SCRIPT": self.answers,
            "VELQ_UI_TRANSCRIPT": self.transcript,
            "VELQ_WINBIO": winbio,
            "VELQ_RUNTIME_DIR": os.path.join(self.root, "run"),
            "VELQ_DATA_HOME": os.path.join(self.root, "data"),
            "TMPDIR": self.root,
        }
        self.env.update(env)
        self._runs = 0
        for name in SANITIZER_OPTIONS:
            if name in os.environ:
                self.env[name] = os.environ[name]
        if answers is not None:
            self.write_answers(answers)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        remove_tree(self.root)

    def write(self, name, data):
        """Writes `data` to the file `name` under docs (making its folders); returns its path."""
        path = os.path.join(self.docs, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as f:
            f.write(data)
        return path

    def program_path(self, path):
        """`path` as the program sees it (and writes it in the transcript)."""
        return self.system.path(path)

    def start_program(self, args, extra_env=None, **popen):
        """Starts `args` (a program of the system and its arguments) in this environment, `extra_env`
        added; `popen` as subprocess.Popen takes it. Returns the process."""
        env = self.system.program_env(dict(self.env, **(extra_env or {})))
        return subprocess.Popen(self.system.argv(args), env=env, **popen)

    def start_quietly(self, args, extra_env=None, cwd=None):
        """start_program with the output and errors going to files of the sandbox (read by ended): a pipe
        would stay open in a Wine server that the run starts and that outlives it, so its end would not mark
        the program's end."""
        self._runs += 1
        files = tuple(os.path.join(self.root, "%s-%d" % (kind, self._runs)) for kind in ("stdout", "stderr"))
        with open(files[0], "wb") as out, open(files[1], "wb") as err:
            process = self.start_program(args, extra_env, cwd=cwd, stdout=out, stderr=err)
        process.output_files = files
        return process

    @staticmethod
    def ended(process, hang_guard=RUN_HANG_GUARD):
        """Waits for a process of start_quietly, killed when it outlives the hang guard (which then fails
        the case): (exit status, output, errors)."""
        try:
            process.wait(timeout=hang_guard)
        finally:
            if process.returncode is None:
                process.kill()
                process.wait()
        out, err = (read_text(path) for path in process.output_files)
        return process.returncode, out, err

    def run_quietly(self, args, extra_env=None, cwd=None, hang_guard=RUN_HANG_GUARD):
        """Runs `args` to its end through start_quietly: (exit status, output, errors)."""
        return self.ended(self.start_quietly(args, extra_env, cwd), hang_guard)

    def write_answers(self, lines):
        """The scripted UI's answers, one a line."""
        with open(self.answers, "w") as f:
            f.write("".join(line + "\n" for line in lines))

    def lines(self):
        return read_transcript(self.transcript)

    def lines_as_on_posix(self):
        """The transcript's lines, a message box's owner taken as POSIX shows it (none) for a Windows
        program: its owner there is the desktop's foreground window, which the program does not choose."""
        lines = self.lines()
        if self.system.is_posix:
            return lines
        return [dict(line, owner=False) if line.get("ui") == "messagebox" else line for line in lines]

    def forget_lines(self):
        """Removes the transcript: the next run's lines stand alone."""
        if os.path.exists(self.transcript):
            os.remove(self.transcript)

    def take_lines(self):
        """The transcript's lines, then forgets them."""
        lines = self.lines()
        self.forget_lines()
        return lines

    def wait_for_line(self, line, count=1, hang_guard=60):
        """Waits until `line` stands `count` times in the transcript (`hang_guard` seconds end a wait that
        never comes: a guard against a hang, not a measure)."""
        end = time.monotonic() + hang_guard
        while self.lines().count(line) < count:
            if time.monotonic() > end:
                raise Failure("never seen: %s" % json.dumps(line))
            time.sleep(0.05)


def run_cases(cases, arguments, run_case, argv=None, optional=()):
    """The driver's main: `argv` (sys.argv by default) holds the values of `arguments` (their names, for
    the usage line), then those of `optional` (all of them or none) and then a case's name or "all".
    run_case(case, *values) runs one case of `cases`, with None for each optional value left out; it fails
    with Failure (or a hang guard's subprocess.TimeoutExpired) and is skipped with Skip.
    Returns the exit status: 1 when a case failed, SKIP when every case run was skipped, else 0."""
    argv = sys.argv if argv is None else argv
    counts = (len(arguments) + 2, len(arguments) + len(optional) + 2)
    if len(argv) not in counts or (argv[-1] not in cases and argv[-1] != "all"):
        usage = list(arguments) + (["[%s]" % " ".join(optional)] if optional else [])
        print("usage: %s %s {%s|all}" % (os.path.basename(argv[0]), " ".join(usage), "|".join(cases)),
              file=sys.stderr)
        return 2
    values = argv[1:-1] + [None] * (len(arguments) + len(optional) - len(argv[1:-1]))
    names = list(cases) if argv[-1] == "all" else [argv[-1]]
    failed = skipped = 0
    for name in names:
        try:
            run_case(cases[name], *values)
            print("%s: passed" % name)
        except Skip as reason:
            print("%s: SKIP: %s" % (name, reason))
            skipped += 1
        except (Failure, subprocess.TimeoutExpired) as failure:
            print("%s: FAILED: %s" % (name, failure))
            failed += 1
    if failed:
        return 1
    return SKIP if skipped == len(names) else 0
