#!/usr/bin/env python3
"""VELQ against the I/O floor and against peer tools, on the same files, in one run.

Usage: bench/peers.py BUILD_DIR [--size-mib N] [--files N] [--runs N] [--big-gib N] [--work DIR]
                      [--only decrypt,encrypt,folder,memory] [--settle-mib N]

BUILD_DIR is a build tree without sanitizers (scripts/bench.sh makes one). Every workload is timed in
--runs rounds; a round runs each of the workload's commands once, in an order that rotates from round to
round (wall clock, page cache warm: each input is written or copied just before its run, untimed), so
that the machine's drift falls on every command alike. Each command is reported as its median, with the
peak resident memory of the timed process tree and the ratio to the floor of the same work. Every round
also times a request of the program over a one-byte file (its fixed cost: the gate, start-up, the key);
the program's own time for the work is the median over the rounds of its request less that round's
fixed cost. The program runs through its automation interface: scripted UI, the
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


FIXED = "fixed cost: VELQ over a one-byte file"


class Command:
    """One timed command of a workload: `prepare` makes its input (untimed), `run` times it and gives a
    Run, `clean` removes what it left (untimed)."""

    def __init__(self, name, run, prepare=None, clean=None):
        self.name = name
        self.run = run
        self.prepare = prepare
        self.clean = clean


def fixed_cost_command(velq, work):
    """A request over a one-byte file: the gate, start-up, the key and one tiny file's work."""
    tiny = os.path.join(work, "tiny.txt")

    def prepare():
        with open(tiny, "w") as f:
            f.write("x")

    return Command(FIXED, lambda: velq.encrypt_file(tiny), prepare, lambda: os.remove(tiny + ".lqvz"))


def rounds(commands, runs):
    """{name: [Run per round]}; round r starts at the r-th command, so no command always follows the
    same one or always comes first."""
    got = {c.name: [] for c in commands}
    for r in range(runs):
        for c in commands[r % len(commands):] + commands[:r % len(commands)]:
            if c.prepare:
                c.prepare()
            got[c.name].append(c.run())
            if c.clean:
                c.clean()
    return got


class Report:
    """Markdown tables; each VELQ row is followed by its own time for the work: per round, its request
    less the same round's request over a one-byte file (the fingerprint gate with its pauses, start-up,
    the key, which a file of any size pays once), and the median of those."""

    def __init__(self):
        self.sections = []

    def section(self, title, results, floor_name):
        floor = median(results[floor_name])[0]
        fixed = [r.seconds for r in results[FIXED]]
        lines = [f"### {title}", "", "| Command | Median s | Ratio to floor | Peak RSS MiB |",
                 "|---|---|---|---|"]
        own = None
        for name, runs in results.items():
            seconds, rss = median(runs)
            lines.append(f"| {name} | {seconds:.3f} | {seconds / floor:.2f} | {rss / 1024:.1f} |")
            if name.startswith("VELQ"):
                own = max(statistics.median(r.seconds - f for r, f in zip(runs, fixed)), 0.0)
                lines.append(f"| ... less the fixed cost of a request | {own:.3f} | {own / floor:.2f} | |")
        others = [name for name in results if name not in (floor_name, FIXED) and not name.startswith("VELQ")]
        if own and others:
            lines += ["", "VELQ less its fixed cost is faster than " + ", ".join(
                f"{name} {median(results[name])[0] / own:.2f}x" for name in others) + "."]
        self.sections.append("\n".join(lines))
        print(self.sections[-1] + "\n", flush=True)


def remove_if_there(*paths):
    for path in paths:
        if os.path.exists(path):
            os.remove(path)


def check_gone(path):
    if os.path.exists(path):
        sys.exit(f"peers: {path} is still there after the run")


def bench_decrypt(velq, peers, work, size, runs, report):
    plain = os.path.join(work, "d.bin")
    master = os.path.join(work, "d.master")
    write_random(plain, size)
    velq.encrypt_file(plain)
    os.replace(plain + ".lqvz", master)
    os.chmod(master, 0o600)
    lqvz = plain + ".lqvz"

    def copy(source, target):
        return lambda: shutil.copyfile(source, target)

    def velq_run():
        run = velq.decrypt_file(lqvz)
        check_gone(lqvz)
        return run

    # Every command leaves the plain file, which the next one must not find (the program would ask
    # before replacing it).
    done = lambda: remove_if_there(plain)  # noqa: E731
    commands = [
        Command("floor: `cp X.lqvz X && rm X.lqvz`",
                lambda: sh(f"cp {q(lqvz)} {q(plain)} && rm -f {q(lqvz)}"), copy(master, lqvz), done),
        Command("VELQ decrypt (context menu, one file)", velq_run, copy(master, lqvz), done),
    ]
    masters = [master]
    if peers.age:
        age_file = os.path.join(work, "d.age")
        subprocess.run(["age", "-r", peers.recipient, "-o", age_file + ".master", master], check=True)
        masters.append(age_file + ".master")
        commands.append(Command(
            "`age -d` then `rm`",
            lambda: sh(f"age -d -i {q(peers.identity)} -o {q(plain)} {q(age_file)} && rm -f {q(age_file)}"),
            copy(age_file + ".master", age_file), done))
    enc = os.path.join(work, "d.enc")
    subprocess.run(peers.openssl("-e", master, enc + ".master"), check=True)
    masters.append(enc + ".master")
    commands.append(Command(
        "`openssl enc -d -aes-256-ctr` then `rm`",
        lambda: sh(" ".join(q(a) for a in peers.openssl("-d", enc, plain)) + f" && rm -f {q(enc)}"),
        copy(enc + ".master", enc), done))
    commands.append(fixed_cost_command(velq, work))
    results = rounds(commands, runs)
    remove_if_there(*masters)
    report.section(f"Decrypt a {size >> 20} MiB file", results, "floor: `cp X.lqvz X && rm X.lqvz`")


def bench_encrypt(velq, peers, work, size, runs, report):
    master = os.path.join(work, "e.master")
    src = os.path.join(work, "e.bin")
    write_random(master, size)
    e, t = src + ".e", src + ".t"
    prepare = lambda: shutil.copyfile(master, src)  # noqa: E731
    done = lambda: remove_if_there(e, src + ".lqvz")  # noqa: E731

    def proved(encrypt, decrypt):
        return lambda: sh(f"{encrypt} && {decrypt} && rm -f {q(t)} {q(src)}")

    commands = [
        Command("floor: `cp S E && cp E T && rm T S`", proved(f"cp {q(src)} {q(e)}", f"cp {q(e)} {q(t)}"),
                prepare, done),
        Command("VELQ encrypt with proof (context menu, one file)", lambda: velq.encrypt_file(src),
                prepare, done),
    ]
    def line(argv):
        return " ".join(q(a) for a in argv)

    if peers.age:
        age_encrypt = f"age -r {peers.recipient} -o {q(e)} {q(src)}"
        age_decrypt = f"age -d -i {q(peers.identity)} -o {q(t)} {q(e)}"
        commands.append(Command("`age` encrypt, `age -d`, `rm`", proved(age_encrypt, age_decrypt),
                                prepare, done))
    commands.append(Command("`openssl enc -aes-256-ctr` encrypt, decrypt, `rm`",
                            proved(line(peers.openssl("-e", src, e)), line(peers.openssl("-d", e, t))),
                            prepare, done))
    if peers.gpg:
        commands.append(Command("`gpg --symmetric` encrypt, decrypt, `rm`",
                                proved(line(peers.gpg_cmd(src, e)), line(peers.gpg_cmd(e, t, decrypt=True))),
                                prepare, done))
    commands.append(fixed_cost_command(velq, work))
    results = rounds(commands, runs)
    os.remove(master)
    report.section(f"Encrypt a {size >> 20} MiB file with proof and deletion of the source", results,
                   "floor: `cp S E && cp E T && rm T S`")


def make_tree(path, count):
    os.makedirs(path)
    block = os.urandom(4096)
    for i in range(count):
        with open(os.path.join(path, f"f{i:05d}.txt"), "wb") as f:
            f.write(block[i % 64:] + block[:i % 64])


def bench_folder(velq, peers, work, count, runs, report):
    tree = os.path.join(work, "tree")

    def prepare():
        make_tree(tree, count)

    def clean():
        for path in (tree, tree + ".e", tree + ".t"):
            shutil.rmtree(path, ignore_errors=True)

    def velq_folder():
        run = velq.encrypt_folder(tree)
        names = os.listdir(tree)
        if len(names) != count or not all(n.endswith(".lqvz") for n in names):
            sys.exit(f"peers: the folder holds {len(names)} entries, not {count} .lqvz files")
        return run

    commands = [
        Command("floor: `cp -r D E && cp -r E T && rm -r T D`",
                lambda: sh(f"cp -r {q(tree)} {q(tree)}.e && cp -r {q(tree)}.e {q(tree)}.t && "
                           f"rm -r {q(tree)}.t {q(tree)}"), prepare, clean),
        Command("VELQ encrypt with proof (`velq encrypt D`, one request)", velq_folder, prepare, clean),
    ]
    if peers.age:
        commands.append(Command("`age` encrypt, one process per file (no proof, no deletion)", lambda: sh(
            f"for f in {q(tree)}/*; do age -r {peers.recipient} -o \"$f.age\" \"$f\"; done"), prepare, clean))
    commands.append(fixed_cost_command(velq, work))
    report.section(f"A folder of {count} files of 4 KiB", rounds(commands, runs),
                   "floor: `cp -r D E && cp -r E T && rm -r T D`")


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
        report = Report()
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
