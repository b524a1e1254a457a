#!/usr/bin/env python3
"""End-to-end tests of the hand-off: `velq` hands real paths (or raw texts) to the built VELQFileEncrypt
through named objects of a private runtime folder, as the file managers' menu entries do.

Usage: handoff_test.py VELQ PROGRAM [WINE_RUN WINE64 PREFIX] CASE     (CASE: one of the names in CASES, or
  "all"; with the Wine runner's values VELQ and PROGRAM are the Windows programs, run under wine64)

A hand-off that fails shows nothing and ends with status 5; one that succeeds goes on to the fingerprint
gate (no sensor here: message 1059, status 5) or, for a search, straight to the search without the gate.
Exit status 0 when the case passes, 1 when it fails.
"""
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from velq_e2e import GATE_LINES, Sandbox, Skip, expect, run_cases  # noqa: E402
from velq_wine import WINE_ARGUMENTS, system_of  # noqa: E402

TEXT = "DropEncryptFilePath::{file};DropDecryptFilePath::DropFolderPath::DropLegalMedia::"


class HandoffSandbox(Sandbox):
    """No sensor backend, velq handing over to `program`, and two files of the request in docs."""

    def __init__(self, velq, program, system):
        super().__init__("velq-handoff-", "none", ["yes"] * 4, system=system, VELQ_PROGRAM=program)
        self.velq = velq
        self.files = {}
        for name, content in (("a b.txt", b"first file\n"), ("sub/c.txt", b"second\n")):
            self.files[self.write(name, content)] = content

    def velq_run(self, args, **extra_env):
        """velq with `args` in the sandbox's folder; (exit status, standard error)."""
        self.forget_lines()
        status, _, err = self.run_quietly([self.velq] + args, extra_env, cwd=self.root)
        return status, err

    def check_clean(self):
        """The files are as they were, and no object of the hand-off is left in the runtime folder."""
        for path, content in self.files.items():
            with open(path, "rb") as f:
                expect(f.read() == content, "%s was changed" % path)
        if not self.system.is_posix:
            return  # Windows' named objects go with their last handle; there is no folder of them to look at
        run = self.env["VELQ_RUNTIME_DIR"]
        left = [n for n in os.listdir(run) if n.startswith("velq-handoff-")] if os.path.isdir(run) else []
        expect(left == [], "hand-off objects left behind: %r" % left)

    def raw(self, text, type_="1", byte_count=None):
        path = os.path.join(self.root, "text")
        with open(path, "w", encoding="utf-8") as f:
            f.write(text)
        args = ["handoff", "--text", path, "--type", type_]
        if byte_count is not None:
            args += ["--bytes", str(byte_count)]
        return self.velq_run(args)


def case_paths_reach_the_gate(sandbox):
    # Files and a folder, relative and absolute: the program takes the hand-off and stops at the gate.
    status, err = sandbox.velq_run(["encrypt", sandbox.program_path("docs/a b.txt"),
                                    sandbox.program_path(sandbox.docs)])
    expect(status == 5, "encrypt: status %d, expected 5 (%s)" % (status, err))
    expect(sandbox.lines_as_on_posix() == GATE_LINES, "encrypt: transcript %r" % sandbox.lines())
    expect("without taking the hand-off" not in err, "the program did not signal: " + err)
    sandbox.check_clean()


def case_search_without_the_gate(sandbox):
    status, err = sandbox.velq_run(["search", sandbox.program_path(sandbox.docs)])
    lines = sandbox.lines()
    expect(all(line not in lines for line in GATE_LINES), "a search ran the gate: %r" % lines)
    expect(status in (0, 5), "search: status %d (%s)" % (status, err))
    for line in lines:
        if line.get("ui") == "search":
            expect("location:" + escaped(sandbox.program_path(sandbox.docs)) in line["query"],
                   "search query %r" % line["query"])
    sandbox.check_clean()


def case_malformed_texts_fail_quietly(sandbox):
    text = TEXT.format(file=sandbox.program_path(os.path.join(sandbox.docs, "a b.txt")))
    utf16_bytes = 2 * len(text)
    for label, args in (
        ("a mark missing", (text.replace("DropFolderPath::", ""),)),
        ("no NUL inside the bytes", (text, "1", utf16_bytes)),
        ("bytes beyond the mapping", (text, "1", 1 << 20)),
    ):
        status, err = sandbox.raw(*args)
        expect(status == 5, "%s: status %d, expected 5 (%s)" % (label, status, err))
        expect(sandbox.lines() == [], "%s: showed %r" % (label, sandbox.lines()))
        expect("without taking the hand-off" not in err, "%s: the event was never signalled" % label)
        sandbox.check_clean()
    # The same text whole is taken: the program goes on to the gate.
    status, _ = sandbox.raw(text, "1")
    expect(status == 5 and sandbox.lines_as_on_posix() == GATE_LINES, "the whole text: %d %r" % (status, sandbox.lines()))


def case_menu_type_read_whole(sandbox):
    text = TEXT.format(file=sandbox.program_path(os.path.join(sandbox.docs, "a b.txt")))
    # "14" is no search, though it ends in 4: the gate runs. "004" is a search: it does not.
    status, _ = sandbox.raw(text, "14")
    expect(status == 5 and sandbox.lines_as_on_posix() == GATE_LINES, "type 14: %d %r" % (status, sandbox.lines()))
    sandbox.raw(text, "004")
    lines = sandbox.lines()
    expect(all(line not in lines for line in GATE_LINES), "type 004 ran the gate: %r" % lines)
    sandbox.check_clean()


def case_program_that_never_signals(sandbox):
    # A program that dies at once and one that outlives the time limit: velq gives up the objects and
    # exits with the program's own status either way. The stand-in (handoff_stand_in) is built for each
    # system and named by ctest.
    stand_in = os.environ.get("VELQ_HANDOFF_STAND_IN")
    if not stand_in:
        raise Skip("VELQ_HANDOFF_STAND_IN names no stand-in program (ctest gives the built one)")
    stand_in = os.path.abspath(stand_in)  # VELQ_PROGRAM reaches a Windows program in its own form
    status, err = sandbox.velq_run(["encrypt", sandbox.program_path(sandbox.docs)], VELQ_PROGRAM=stand_in)
    expect(status == 3, "dying program: status %d (%s)" % (status, err))
    expect("without taking the hand-off" in err, "no word of the missing signal: %r" % err)
    status, err = sandbox.velq_run(["search", sandbox.program_path(sandbox.docs)], VELQ_PROGRAM=stand_in,
                                   VELQ_HANDOFF_TIMEOUT="1")
    expect(status == 7, "slow program: status %d (%s)" % (status, err))
    expect("no signal from VELQFileEncrypt" in err, "no word of the time limit: %r" % err)
    sandbox.check_clean()


def case_wrong_use(sandbox):
    for args, expected in (
        ([], 2), (["frobnicate"], 2), (["encrypt"], 2), (["handoff", "--type", "1"], 2),
        (["handoff", "--text", "x", "--type", "one"], 2), (["handoff", "--text"], 2),
        (["encrypt", sandbox.program_path(os.path.join(sandbox.root, "no such file"))], 1),
        (["decrypt", sandbox.program_path(os.path.join(sandbox.docs, "a b.txt"))], 1),
        (["search", sandbox.program_path(os.path.join(sandbox.docs, "a b.txt"))], 1),
    ):
        status, err = sandbox.velq_run(args)
        expect(status == expected, "%r: status %d, expected %d" % (args, status, expected))
        expect(err.startswith("velq: ") or err.startswith("usage: "), "%r: no message: %r" % (args, err))
        expect(sandbox.lines() == [], "%r: the program was started" % args)
    semi = os.path.join(sandbox.docs, "x;y.txt")
    open(semi, "w").close()
    status, err = sandbox.velq_run(["encrypt", sandbox.program_path(semi)])
    expect(status == 1 and '";"' in err, "a path with ';': %d %r" % (status, err))
    status, text, _ = sandbox.run_quietly([sandbox.velq, "--help"])
    expect(status == 0 and "velq encrypt PATH" in text, "--help: %r" % text)


CASES = {
    "paths_reach_the_gate": case_paths_reach_the_gate,
    "search_without_the_gate": case_search_without_the_gate,
    "malformed_texts_fail_quietly": case_malformed_texts_fail_quietly,
    "menu_type_read_whole": case_menu_type_read_whole,
    "program_that_never_signals": case_program_that_never_signals,
    "wrong_use": case_wrong_use,
}


def escaped(path):
    """`path` as the search's query carries it: the shell's URL escaping leaves a POSIX path's letters as
    they are and turns a Windows path's "\\" into "%5C"."""
    return path.replace("\\", "%5C")


def run_case(case, velq, program, runner, wine64, prefix):
    system = system_of(runner, wine64, prefix)
    with HandoffSandbox(os.path.abspath(velq), os.path.abspath(program), system) as sandbox:
        case(sandbox)


if __name__ == "__main__":
    sys.exit(run_cases(CASES, ("VELQ", "PROGRAM"), run_case, optional=WINE_ARGUMENTS))
