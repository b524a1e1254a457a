#!/usr/bin/env python3
"""VELQ against the I/O floor and against peer tools, on the same files, in one run.

Usage: bench/peers.py BUILD_DIR [--size-mib N] [--files N] [--runs N] [--big-gib N] [--work DIR]
                      [--only decrypt,encrypt,folder,memory] [--settle-mib N]

BUILD_DIR is a build tree without sanitizers (scripts/bench.sh makes one). Every workload is timed
--runs times (wall clock, page cache warm: each input is written or copied just before its run, untimed)
and reported as the median, with the peak resident memory of the timed process tree and the ratio to
the floor of the same work. The program runs through its automation interface: scripted UI, the
simulated sensor touched by the owner's finger, a key created once in a private data home.

Before every timed command a scratch file (--settle-mib) is written and deleted, untimed, so that every
command finds reusable pages for what it writes (see Settle).

Workloads (the floors move the same bytes by the same steps, without cryptography):
  decrypt   a .lqvz of --size-mib into its plain file, the .lqvz deleted
            floor: cp X.lqvz X && rm X.lqvz        peers: age -d, openssl enc -d (each then rm)
  encrypt   a plain file into a .lqvz, proved by a second decryption, the source deleted
            floor: cp S E && cp E T && rm T S      peers: encrypt, decrypt again, rm (age, openssl, gpg)
  folder    --files files of 4 KiB in one request, encrypted with proof
            floor: cp -r D E && cp -r E T && rm -r T D     peer: one age process per file
  memory    peak resident memory of encrypting a file of --big-gib GiB
Prints a Markdown report on stdout.
"""
import argparse
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

PASSWORD = "bench-password-0123"


class Run:
    """One timed command: wall seconds and the peak resident set of its process tree in KiB."""

    def __init__(self, seconds, max_rss_kib):
        self.seconds = seconds
        self.max_rss_kib = max_rss_kib


class Settle:
    """Evens out the page allocator before each timed command. On the virtual machines we measure on, a
    page of memory that the guest has not touched for a while costs a fault in the host at its first
    write, and that made any command that writes 1 GiB into fresh page cache several times slower than
    one that reuses pages just freed (`cp` of 1 GiB: 3.7 s against 0.4 s, measured one after the other).
    Which command got which pages depended on the order of the runs. So before every timed command a
    scratch file of `nbytes` is written and deleted (untimed), and the dirty pages are written out: every
    command then starts with as many reusable pages as it writes, and none pays for another's writes."""
    nbytes = 0
    folder = None

    @classmethod
    def now(cls):
        if cls.nbytes > 0 and cls.folder:
            scratch = os.path.join(cls.folder, "settle.scratch")
            with open(scratch, "wb") as f:
                zeros = bytes(1 << 20)
                for _ in range(cls.nbytes >> 20):
                    f.write(zeros)
            os.remove(scratch)
        os.sync()


def timed(argv, env=None, cwd=None):
    # GNU time reports the peak resident set of the command it waits for (a child of this script would
    # inherit the interpreter's own high-water mark across fork and exec).
    Settle.now()
    with tempfile.NamedTemporaryFile("r", prefix="velq-time-") as report:
        start = time.perf_counter()
        proc = subprocess.run(["/usr/bin/time", "-f", "%M", "-o", report.name] + argv, env=env, cwd=cwd,
                              stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        seconds = time.perf_counter() - start
        if proc.returncode != 0:
            err = proc.stderr.decode(errors="replace")
            raise RuntimeError(f"{' '.join(argv)} failed ({proc.returncode}): {err.strip()[-800:]}")
        max_rss_kib = int(report.read().split()[-1])
    return Run(seconds, max_rss_kib)


def sh(script, env=None):
    return timed(["/bin/sh", "-ec", script], env=env)


def write_random(path, size):
    chunk = os.urandom(1 << 20)
    with open(path, "wb") as f:
        left = size
        while left > 0:
            n = min(left, len(chunk))
            f.write(chunk[:n])
            left -= n


class Velq:
    """The program in a private environment: its own data home, runtime folder and temporary folder."""

    def __init__(self, build, work):
        self.program = os.path.join(build, "src", "app", "VELQFileEncrypt")
        self.velq = os.path.join(build, "tools", "velq")
        for tool in (self.program, self.velq):
            if not os.access(tool, os.X_OK):
                sys.exit(f"peers: {tool} is missing; build {build} first")
        home = os.path.join(work, "velq-env")
        os.makedirs(home, exist_ok=True)
        self.answers = os.path.join(home, "answers")
        sim = os.path.join(home, "sensor")
        with open(sim, "w") as f:
            f.write("enrolled self 2\ntouch self\n")
        self.env = dict(os.environ)
        self.env.update({
            "LANGUAGE": "en", "LC_ALL": "C",
            "VELQ_UI": "script", "VELQ_UI_SCRIPT": self.answers,
            "VELQ_WINBIO": "sim", "VELQ_WINBIO_SIM": sim,
            "VELQ_DATA_HOME": os.path.join(home, "data"),
            "VELQ_RUNTIME_DIR": os.path.join(home, "run"),
            "TMPDIR": home,
        })
        self.backup = os.path.join(home, "key-backup")
        self._answer("")

    def _answer(self, text):
        with open(self.answers, "w") as f:
            f.write(text)

    def create_key(self, work):
        """The first encryption of a user creates the key and asks for its password-protected backup."""
        first = os.path.join(work, "first.txt")
        with open(first, "w") as f:
            f.write("first file of this user\n")
        self._answer(f"no\nok\nexport {self.backup}\t{PASSWORD}\n")
        timed([self.program, f"1::{first}::1"], env=self.env)
        self._answer("")
        if not os.path.exists(first + ".lqvz"):
            sys.exit("peers: the first encryption did not produce a .lqvz; see the program's transcript")

    def encrypt_file(self, path):
        return timed([self.program, f"1::{path}::1"], env=self.env)

    def decrypt_file(self, path):
        return timed([self.program, f"1::{path}::2"], env=self.env)

    def encrypt_folder(self, path):
        return timed([self.velq, "encrypt", path], env=self.env)


class Peers:
    def __init__(self, work):
        self.age = shutil.which("age")
        self.gpg = shutil.which("gpg")
        self.identity = os.path.join(work, "age-identity")
        self.gnupg_home = os.path.join(work, "gnupg")
        os.makedirs(self.gnupg_home, mode=0o700, exist_ok=True)
        if self.age:
            subprocess.run(["age-keygen", "-o", self.identity], check=True, capture_output=True)
            self.recipient = subprocess.run(["age-keygen", "-y", self.identity], check=True,
                                            capture_output=True, text=True).stdout.strip()

    def openssl(self, mode, src, dst):
        return ["openssl", "enc", mode, "-aes-256-ctr", "-pbkdf2", "-pass", f"pass:{PASSWORD}",
                "-in", src, "-out", dst]

    def gpg_cmd(self, src, dst, decrypt=False):
        cmd = [self.gpg, "--homedir", self.gnupg_home, "--batch", "--yes", "--quiet", "--pinentry-mode",
               "loopback", "--passphrase", PASSWORD, "-o", dst]
        if decrypt:
            return cmd + ["-d", src]
        return cmd + ["--symmetric", "--cipher-algo", "AES256", "--compress-algo", "none", src]


def q(path):
    return "'" + path.replace("'", "'\\''") + "'"


def median(runs):
    return statistics.median(r.seconds for r in runs), max(r.max_rss_kib for r in runs)


class Report:
    """Markdown tables; each VELQ row is followed by the same run less the fixed cost of a request (the
    fingerprint gate with its pauses, start-up, the key), which a file of any size pays once."""

    def __init__(self, fixed_seconds):
        self.sections = []
        self.fixed = fixed_seconds

    def section(self, title, rows, floor_name):
        floor = dict(rows)[floor_name][0]
        lines = [f"### {title}", "", "| Command | Median s | Ratio to floor | Peak RSS MiB |", "|---|---|---|---|"]
        for name, (seconds, rss) in rows:
            lines.append(f"| {name} | {seconds:.3f} | {seconds / floor:.2f} | {rss / 1024:.1f} |")
            if name.startswith("VELQ"):
                rest = max(seconds - self.fixed, 0.0)
                lines.append(f"| ... less the fixed cost of a request | {rest:.3f} | {rest / floor:.2f} | |")
        self.sections.append("\n".join(lines))
        print(self.sections[-1] + "\n", flush=True)


def bench_decrypt(velq, peers, work, size, runs, report):
    plain = os.path.join(work, "d.bin")
    master = os.path.join(work, "d.master")
    write_random(plain, size)
    velq.encrypt_file(plain)
    os.replace(plain + ".lqvz", master)
    os.chmod(master, 0o600)
    results = {}

    def measure(name, prepare, command):
        got = []
        for _ in range(runs):
            prepare()
            got.append(command())
        results[name] = median(got)

    lqvz = plain + ".lqvz"

    def fresh_lqvz():
        # The plain file of the run before must go, or the program would ask before replacing it.
        if os.path.exists(plain):
            os.remove(plain)
        shutil.copyfile(master, lqvz)

    measure("floor: `cp X.lqvz X && rm X.lqvz`", lambda: shutil.copyfile(master, lqvz),
            lambda: sh(f"cp {q(lqvz)} {q(plain)} && rm -f {q(lqvz)}"))
    os.remove(plain)
    measure("VELQ decrypt (context menu, one file)", fresh_lqvz,
            lambda: velq.decrypt_file(lqvz))
    check_gone(lqvz)
    os.remove(plain)
    if peers.age:
        age_file = os.path.join(work, "d.age")
        subprocess.run(["age", "-r", peers.recipient, "-o", age_file + ".master", master], check=True)
        measure("`age -d` then `rm`", lambda: shutil.copyfile(age_file + ".master", age_file),
                lambda: sh(f"age -d -i {q(peers.identity)} -o {q(plain)} {q(age_file)} && rm -f {q(age_file)}"))
        os.remove(age_file + ".master")
    enc = os.path.join(work, "d.enc")
    subprocess.run(peers.openssl("-e", master, enc + ".master"), check=True)
    measure("`openssl enc -d -aes-256-ctr` then `rm`", lambda: shutil.copyfile(enc + ".master", enc),
            lambda: sh(" ".join(q(a) for a in peers.openssl("-d", enc, plain)) + f" && rm -f {q(enc)}"))
    os.remove(enc + ".master")
    os.remove(master)
    for leftover in (plain,):
        if os.path.exists(leftover):
            os.remove(leftover)
    report.section(f"Decrypt a {size >> 20} MiB file", list(results.items()),
                   "floor: `cp X.lqvz X && rm X.lqvz`")


def check_gone(path):
    if os.path.exists(path):
        sys.exit(f"peers: {path} is still there after the run")


def bench_encrypt(velq, peers, work, size, runs, report):
    master = os.path.join(work, "e.master")
    src = os.path.join(work, "e.bin")
    write_random(master, size)
    results = {}

    def measure(name, command, leftovers):
        got = []
        for _ in range(runs):
            shutil.copyfile(master, src)
            got.append(command())
            for path in leftovers:
                if os.path.exists(path):
                    os.remove(path)
        results[name] = median(got)

    e, t = src + ".e", src + ".t"
    measure("floor: `cp S E && cp E T && rm T S`",
            lambda: sh(f"cp {q(src)} {q(e)} && cp {q(e)} {q(t)} && rm -f {q(t)} {q(src)}"), [e])
    measure("VELQ encrypt with proof (context menu, one file)", lambda: velq.encrypt_file(src),
            [src + ".lqvz"])
    if peers.age:
        measure("`age` encrypt, `age -d`, `rm`", lambda: sh(
            f"age -r {peers.recipient} -o {q(e)} {q(src)} && age -d -i {q(peers.identity)} -o {q(t)} {q(e)}"
            f" && rm -f {q(t)} {q(src)}"), [e])
    enc = " ".join(q(a) for a in peers.openssl("-e", src, e))
    dec = " ".join(q(a) for a in peers.openssl("-d", e, t))
    measure("`openssl enc -aes-256-ctr` encrypt, decrypt, `rm`",
            lambda: sh(f"{enc} && {dec} && rm -f {q(t)} {q(src)}"), [e])
    if peers.gpg:
        genc = " ".join(q(a) for a in peers.gpg_cmd(src, e))
        gdec = " ".join(q(a) for a in peers.gpg_cmd(e, t, decrypt=True))
        measure("`gpg --symmetric` encrypt, decrypt, `rm`",
                lambda: sh(f"{genc} && {gdec} && rm -f {q(t)} {q(src)}"), [e])
    os.remove(master)
    report.section(f"Encrypt a {size >> 20} MiB file with proof and deletion of the source",
                   list(results.items()), "floor: `cp S E && cp E T && rm T S`")


def make_tree(path, count):
    os.makedirs(path)
    block = os.urandom(4096)
    for i in range(count):
        with open(os.path.join(path, f"f{i:05d}.txt"), "wb") as f:
            f.write(block[i % 64:] + block[:i % 64])


def bench_folder(velq, peers, work, count, runs, report):
    tree = os.path.join(work, "tree")
    results = {}

    def measure(name, command):
        got = []
        for _ in range(runs):
            if os.path.exists(tree):
                shutil.rmtree(tree)
            make_tree(tree, count)
            got.append(command())
        results[name] = median(got)
        shutil.rmtree(tree, ignore_errors=True)
        for extra in (tree + ".e", tree + ".t"):
            shutil.rmtree(extra, ignore_errors=True)

    measure("floor: `cp -r D E && cp -r E T && rm -r T D`",
            lambda: sh(f"cp -r {q(tree)} {q(tree)}.e && cp -r {q(tree)}.e {q(tree)}.t && "
                       f"rm -r {q(tree)}.t {q(tree)}"))

    def velq_folder():
        run = velq.encrypt_folder(tree)
        names = os.listdir(tree)
        if len(names) != count or not all(n.endswith(".lqvz") for n in names):
            sys.exit(f"peers: the folder holds {len(names)} entries, not {count} .lqvz files")
        return run

    measure("VELQ encrypt with proof (`velq encrypt D`, one request)", velq_folder)
    if peers.age:
        measure("`age` encrypt, one process per file (no proof, no deletion)", lambda: sh(
            f"for f in {q(tree)}/*; do age -r {peers.recipient} -o \"$f.age\" \"$f\"; done"))
    report.section(f"A folder of {count} files of 4 KiB", list(results.items()),
                   "floor: `cp -r D E && cp -r E T && rm -r T D`")


def fixed_cost(velq, work, runs):
    """A request over a one-byte file: the gate, start-up, the key and one tiny file's work."""
    tiny = os.path.join(work, "tiny.txt")
    got = []
    for _ in range(runs):
        with open(tiny, "w") as f:
            f.write("x")
        got.append(velq.encrypt_file(tiny))
        os.remove(tiny + ".lqvz")
    return median(got)[0]


def bench_memory(velq, work, gib, report):
    src = os.path.join(work, "big.bin")
    write_random(src, gib << 30)
    run = velq.encrypt_file(src)
    os.remove(src + ".lqvz")
    line = (f"### Peak resident memory\n\nEncrypting a {gib} GiB file with proof: "
            f"{run.max_rss_kib / 1024:.1f} MiB peak resident set ({run.seconds:.2f} s).")
    report.sections.append(line)
    print(line + "\n", flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("build")
    parser.add_argument("--size-mib", type=int, default=1024)
    parser.add_argument("--files", type=int, default=2000)
    parser.add_argument("--runs", type=int, default=3)
    parser.add_argument("--big-gib", type=int, default=4)
    parser.add_argument("--work", default=os.environ.get("TMPDIR", "/var/tmp"))
    parser.add_argument("--only", default="decrypt,encrypt,folder,memory",
                        help="comma-separated workloads to run (default: all)")
    parser.add_argument("--settle-mib", type=int, default=None,
                        help="scratch written and deleted before each timed command (default: twice "
                             "--size-mib; 0: none)")
    args = parser.parse_args()

    work = tempfile.mkdtemp(prefix="velq-bench-", dir=args.work)
    Settle.folder = work
    Settle.nbytes = (2 * args.size_mib if args.settle_mib is None else args.settle_mib) << 20
    try:
        velq = Velq(os.path.abspath(args.build), work)
        velq.create_key(work)
        peers = Peers(work)
        print(f"# VELQ against the floor and its peers\n\nWork folder on `{args.work}`, median of "
              f"{args.runs} runs, page cache warm. age: {'yes' if peers.age else 'not installed'}, "
              f"gpg: {'yes' if peers.gpg else 'not installed'}.\n", flush=True)
        fixed = fixed_cost(velq, work, args.runs)
        print(f"Fixed cost of a request (a one-byte file, through the gate): {fixed:.3f} s\n", flush=True)
        report = Report(fixed)
        only = set(args.only.split(","))
        if "decrypt" in only:
            bench_decrypt(velq, peers, work, args.size_mib << 20, args.runs, report)
        if "encrypt" in only:
            bench_encrypt(velq, peers, work, args.size_mib << 20, args.runs, report)
        if "folder" in only:
            bench_folder(velq, peers, work, args.files, args.runs, report)
        if "memory" in only and args.big_gib > 0:
            bench_memory(velq, work, args.big_gib, report)
    finally:
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main()
