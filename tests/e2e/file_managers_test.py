#!/usr/bin/env python3
"""End-to-end tests of the file managers' menu entries: scripts/install.sh installs VELQ for a user of a
private home (which runs `cmake --install`), and each installed entry's command line runs as its file
manager runs it, with the selection a person makes: a file whose name holds a blank, a folder, a .lqvz
file. VELQ_PROGRAM is a stand-in that records the hand-off text that velq wrote into the named mapping
(docs/NAMED_OBJECTS.md), so that the test sees exactly which lists each entry handed over.

Usage: file_managers_test.py SOURCE_DIR BUILD_DIR
Exit status 0 when every check passes, 1 when one fails, 77 when the machine lacks what it needs.
"""
import json
import os
import shlex
import shutil
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ET

SKIP = 77
RECORDER = r'''#!/usr/bin/env python3
import json, os, sys
line = sys.argv[1]
with open(os.path.join(os.environ["VELQ_RUNTIME_DIR"], line.split(":")[0]), "rb") as f:
    f.seek(4096)
    data = f.read()
units = [data[i:i + 2] for i in range(0, len(data) - 1, 2)]
text = b"".join(units[:units.index(b"\0\0")]).decode("utf-16-le")
with open(os.environ["RECORD"], "a") as out:
    out.write(json.dumps({"type": line.rsplit(":", 1)[1], "text": text}) + "\n")
'''


class Failure(Exception):
    pass


def expect(condition, text):
    if not condition:
        raise Failure(text)


def text_of(encrypt=(), decrypt=(), folders=(), media=()):
    return "".join(mark + "".join(p + ";" for p in items) for mark, items in (
        ("DropEncryptFilePath::", encrypt), ("DropDecryptFilePath::", decrypt),
        ("DropFolderPath::", folders), ("DropLegalMedia::", media)))


class Home:
    def __init__(self, source, build):
        self.root = tempfile.mkdtemp(prefix="velq-fm-")
        self.prefix = os.path.join(self.root, "prefix")
        self.data = os.path.join(self.root, "data")
        self.config = os.path.join(self.root, "config")
        self.record = os.path.join(self.root, "record.jsonl")
        self.docs = os.path.join(self.root, "docs")
        os.makedirs(os.path.join(self.docs, "sub"))
        self.file = os.path.join(self.docs, "a b.txt")
        self.lqvz = os.path.join(self.docs, "c.lqvz")
        self.folder = os.path.join(self.docs, "sub")
        for path in (self.file, self.lqvz):
            with open(path, "w") as f:
                f.write("x")
        recorder = os.path.join(self.root, "recorder")
        with open(recorder, "w") as f:
            f.write(RECORDER)
        os.chmod(recorder, 0o700)
        self.env = {
            "PATH": os.path.join(self.prefix, "bin") + ":" + os.environ.get("PATH", "/usr/bin:/bin"),
            "HOME": self.root, "XDG_DATA_HOME": self.data, "XDG_CONFIG_HOME": self.config,
            "VELQ_RUNTIME_DIR": os.path.join(self.root, "run"), "VELQ_PROGRAM": recorder,
            "RECORD": self.record, "LC_ALL": "C",
        }
        for name in ("ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS"):
            if name in os.environ:
                self.env[name] = os.environ[name]
        os.makedirs(os.path.join(self.config, "Thunar"))
        with open(os.path.join(self.config, "Thunar", "uca.xml"), "w") as f:
            f.write("<?xml version='1.0'?><actions><action><name>Mine</name><unique-id>1-1</unique-id>"
                    "<command>true %f</command></action></actions>")
        for _ in range(2):  # installing again replaces what the first run installed
            done = subprocess.run([os.path.join(source, "scripts", "install.sh"), "--prefix", self.prefix,
                                   "--build", build], env=self.env, capture_output=True, text=True, timeout=600)
            expect(done.returncode == 0, "install.sh failed: %s%s" % (done.stdout, done.stderr))

    def close(self):
        shutil.rmtree(self.root, ignore_errors=True)

    def run(self, argv, cwd=None, extra=None):
        """Runs one entry's command; returns what velq handed over."""
        if os.path.exists(self.record):
            os.remove(self.record)
        done = subprocess.run(argv, env=dict(self.env, **(extra or {})), cwd=cwd or self.root,
                              capture_output=True, text=True, timeout=120)
        expect(done.returncode == 0, "%r: status %d: %s" % (argv, done.returncode, done.stderr))
        with open(self.record) as f:
            records = [json.loads(line) for line in f]
        expect(len(records) == 1, "%r: %d hand-offs" % (argv, len(records)))
        return records[0]

    def cases(self):
        """(menu entry, selection, type and text that must arrive)."""
        return (
            ("Encrypt", [self.file, self.folder], "1", text_of(encrypt=[self.file], folders=[self.folder])),
            ("Decrypt", [self.lqvz, self.folder], "2", text_of(decrypt=[self.lqvz], folders=[self.folder])),
            ("Search for encrypted files", [self.folder], "4", text_of(folders=[self.folder])),
        )


def expand_field_codes(command, paths, quote):
    """A %F command as a file manager expands it: Nemo and Thunar put the quoted paths into the text and
    split it as a shell would; desktop entries (Dolphin) give each path as an argument of its own."""
    if quote:
        return shlex.split(command.replace("%F", " ".join(shlex.quote(p) for p in paths)))
    argv = []
    for word in shlex.split(command):
        argv += paths if word == "%F" else [word]
    return argv


def keyfile(path):
    groups, group = {}, None
    with open(path, encoding="utf-8") as f:
        for line in f:
            line = line.strip()
            if line.startswith("[") and line.endswith("]"):
                group = groups.setdefault(line[1:-1], {})
            elif "=" in line and group is not None:
                key, value = line.split("=", 1)
                group[key] = value
    return groups


def check_nautilus(home):
    scripts = os.path.join(home.data, "nautilus", "scripts")
    for name, paths, type_, text in home.cases():
        script = os.path.join(scripts, name)
        expect(os.access(script, os.X_OK), "no Nautilus script " + name)
        selected = "".join(p + "\n" for p in paths)
        got = home.run([script] + [os.path.basename(p) for p in paths], cwd=home.docs,
                       extra={"NAUTILUS_SCRIPT_SELECTED_FILE_PATHS": selected})
        expect(got == {"type": type_, "text": text}, "Nautilus %s: %r" % (name, got))
    # A search with nothing selected covers the open folder.
    got = home.run([os.path.join(scripts, "Search for encrypted files")], cwd=home.folder)
    expect(got["text"] == text_of(folders=[home.folder]), "Nautilus search of the open folder: %r" % got)


def check_nemo(home):
    actions = os.path.join(home.data, "nemo", "actions")
    by_name = {}
    for file_name in os.listdir(actions):
        entry = keyfile(os.path.join(actions, file_name))["Nemo Action"]
        expect(entry.get("Selection") == "notnone" and entry.get("Quote") == "double", file_name)
        by_name[entry["Name"]] = entry
    for name, paths, type_, text in home.cases():
        entry = by_name[name]
        extensions = entry["Extensions"].rstrip(";").split(";")
        for path in paths:
            kind = "dir" if os.path.isdir(path) else path.rsplit(".", 1)[-1]
            expect("any" in extensions or kind in extensions, "Nemo %s is not offered for %s" % (name, path))
        got = home.run(expand_field_codes(entry["Exec"], paths, True))
        expect(got == {"type": type_, "text": text}, "Nemo %s: %r" % (name, got))


def check_dolphin(home):
    for folder in ("kio/servicemenus", "kservices5/ServiceMenus"):
        expect(os.path.exists(os.path.join(home.prefix, "share", folder, "velq.desktop")), "not installed in " + folder)
    path = os.path.join(home.data, "kio", "servicemenus", "velq.desktop")
    validator = shutil.which("desktop-file-validate")
    if validator is not None:
        # A service menu is a desktop file of KDE's own type: the only complaints allowed are about the
        # keys that the freedesktop rules keep for applications.
        done = subprocess.run([validator, path], capture_output=True, text=True)
        complaints = [c for c in done.stdout.splitlines() if 'the type is "Service"' not in c]
        expect(complaints == [], "desktop-file-validate: %r" % complaints)
    groups = keyfile(path)
    actions = groups["Desktop Entry"]["Actions"].rstrip(";").split(";")
    by_name = {groups["Desktop Action " + a]["Name"]: groups["Desktop Action " + a] for a in actions}
    for name, paths, type_, text in home.cases():
        got = home.run(expand_field_codes(by_name[name]["Exec"], paths, False))
        expect(got == {"type": type_, "text": text}, "Dolphin %s: %r" % (name, got))
    return validator is not None


def check_thunar(home):
    root = ET.parse(os.path.join(home.config, "Thunar", "uca.xml")).getroot()
    ids = [a.findtext("unique-id") for a in root]
    expect(ids.count("1-1") == 1, "the user's own action was lost: %r" % ids)
    expect(sorted(i for i in ids if i.startswith("velq-")) == ["velq-decrypt", "velq-encrypt", "velq-search"],
           "our actions, once each: %r" % ids)
    by_name = {a.findtext("name"): a for a in root}
    for name, paths, type_, text in home.cases():
        action = by_name[name]
        got = home.run(expand_field_codes(action.findtext("command"), paths, True))
        expect(got == {"type": type_, "text": text}, "Thunar %s: %r" % (name, got))
    expect(by_name["Decrypt"].find("directories") is not None, "Decrypt is not offered for folders")


def main():
    if len(sys.argv) != 3:
        print(__doc__.strip().splitlines()[-2], file=sys.stderr)
        return 2
    source, build = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
    home = None
    try:
        home = Home(source, build)
        check_nautilus(home)
        check_nemo(home)
        validated = check_dolphin(home)
        check_thunar(home)
    except Failure as failure:
        print("FAILED: %s" % failure)
        return 1
    finally:
        if home is not None:
            home.close()
    if not validated:
        print("SKIP: desktop-file-validate is missing (scripts/setup.sh installs desktop-file-utils)")
        return SKIP
    print("passed")
    return 0


if __name__ == "__main__":
    sys.exit(main())
