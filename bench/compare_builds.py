#!/usr/bin/env python3
"""Two or more builds of the program, alternated on the same workload, to tell a change's effect from the
machine's drift.

Usage: bench/compare_builds.py BUILD_DIR BUILD_DIR... [--workload folder|encrypt|decrypt] [--files N]
                               [--size-mib N] [--settle-mib N] [--rounds N] [--work DIR]

Each round runs every build once, in an order that rotates from round to round: the workload in one
request, then a one-byte file in one request (the fixed cost of a request: the gate, start-up, the key).
The difference of the two is the workload's own time; its median, minimum and maximum over the rounds are
reported per build, as a Markdown table. Workloads: a folder of --files files of 4 KiB encrypted with
proof (`velq encrypt D`), or one file of --size-mib encrypted with proof, or decrypted. Before every timed
request a scratch file of --settle-mib is written and deleted (see peers.Settle; default none for the
folder, 4096 for one big file). The builds share one private environment and key (see peers.py).
"""
import argparse
import os
import shutil
import statistics
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import peers  # noqa: E402  (the program's environment and timed runs)


class Workload:
    """Inputs made once (the big file and its .lqvz) and a timed request per round."""

    def __init__(self, kind, work, velq, count, size):
        self.kind = kind
        self.work = work
        self.count = count
        self.master = os.path.join(work, "master.bin")
        self.target = os.path.join(work, "big.bin")
        if kind != "folder":
            peers.write_random(self.master, size)
            shutil.copyfile(self.master, self.target)
            velq.encrypt_file(self.target)
            os.replace(self.target + ".lqvz", self.master + ".lqvz")

    def run(self, velq):
        if self.kind == "folder":
            tree = os.path.join(self.work, "D")
            peers.make_tree(tree, self.count)
            seconds = velq.encrypt_folder(tree).seconds
            shutil.rmtree(tree)
        elif self.kind == "encrypt":
            shutil.copyfile(self.master, self.target)
            seconds = velq.encrypt_file(self.target).seconds
            os.remove(self.target + ".lqvz")
        else:
            shutil.copyfile(self.master + ".lqvz", self.target + ".lqvz")
            seconds = velq.decrypt_file(self.target + ".lqvz").seconds
            os.remove(self.target)
        return seconds


def fixed_cost(velq, work):
    command = peers.fixed_cost_command(velq, work)
    command.prepare()
    seconds = command.run().seconds
    command.clean()
    return seconds


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("builds", nargs="+", help="build trees without sanitizers")
    parser.add_argument("--workload", choices=("folder", "encrypt", "decrypt"), default="folder")
    parser.add_argument("--files", type=int, default=2000)
    parser.add_argument("--size-mib", type=int, default=1024)
    parser.add_argument("--settle-mib", type=int, default=None)
    parser.add_argument("--rounds", type=int, default=7)
    parser.add_argument("--work", default="/tmp", help="folder on the file system to measure")
    args = parser.parse_args()

    work = os.path.join(args.work, "velq-compare")
    shutil.rmtree(work, ignore_errors=True)
    os.makedirs(work)
    settle = args.settle_mib if args.settle_mib is not None else (0 if args.workload == "folder" else 4096)
    try:
        programs = [peers.Velq(build, work) for build in args.builds]
        programs[0].create_key(work)
        workload = Workload(args.workload, work, programs[0], args.files, args.size_mib << 20)
        peers.Settle.folder, peers.Settle.nbytes = work, settle << 20
        results = [[] for _ in programs]
        for r in range(args.rounds):
            for i in [(r + k) % len(programs) for k in range(len(programs))]:
                results[i].append((workload.run(programs[i]), fixed_cost(programs[i], work)))
    finally:
        shutil.rmtree(work, ignore_errors=True)

    what = f"{args.files} files of 4 KiB" if args.workload == "folder" else f"{args.size_mib} MiB"
    print(f"{args.workload}, {what}, {args.rounds} rounds alternating the builds, on `{args.work}`\n")
    print("| Build | Request, median s | Fixed cost, median s | Work less fixed cost: median (min-max) s |")
    print("|---|---|---|---|")
    for build, runs in zip(args.builds, results):
        own = [request - fixed for request, fixed in runs]
        print(f"| `{build}` | {statistics.median(f for f, _ in runs):.3f} | "
              f"{statistics.median(x for _, x in runs):.3f} | "
              f"{statistics.median(own):.3f} ({min(own):.3f}-{max(own):.3f}) |")


if __name__ == "__main__":
    main()
