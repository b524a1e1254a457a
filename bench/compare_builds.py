#!/usr/bin/env python3
"""Two or more builds of the program, alternated on the same folder workload, to tell a change's effect
from the machine's drift.

Usage: bench/compare_builds.py BUILD_DIR BUILD_DIR... [--files N] [--rounds N] [--work DIR]

Each round runs every build once, in an order that rotates from round to round: a folder of --files files
of 4 KiB encrypted with proof in one request (`velq encrypt D`), then a one-byte file in one request (the
fixed cost of a request: the gate, start-up, the key). The difference of the two is the folder's own
time; its median, minimum and maximum over the rounds are reported per build, as a Markdown table.
The builds share one private environment and key (see peers.py).
"""
import argparse
import os
import shutil
import statistics
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import peers  # noqa: E402  (the program's environment and timed runs)


def one_round(velq, work, count):
    """The folder's seconds and the fixed cost's seconds of one build."""
    tree = os.path.join(work, "D")
    peers.make_tree(tree, count)
    folder = velq.encrypt_folder(tree).seconds
    shutil.rmtree(tree)
    one = os.path.join(work, "one.bin")
    with open(one, "wb") as f:
        f.write(b"x")
    fixed = velq.encrypt_file(one).seconds
    os.remove(one + ".lqvz")
    return folder, fixed


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("builds", nargs="+", help="build trees without sanitizers")
    parser.add_argument("--files", type=int, default=2000)
    parser.add_argument("--rounds", type=int, default=7)
    parser.add_argument("--work", default="/tmp", help="folder on the file system to measure")
    args = parser.parse_args()

    work = os.path.join(args.work, "velq-compare")
    shutil.rmtree(work, ignore_errors=True)
    os.makedirs(work)
    try:
        programs = [peers.Velq(build, work) for build in args.builds]
        programs[0].create_key(work)
        results = [[] for _ in programs]
        for r in range(args.rounds):
            for i in [(r + k) % len(programs) for k in range(len(programs))]:
                results[i].append(one_round(programs[i], work, args.files))
    finally:
        shutil.rmtree(work, ignore_errors=True)

    print(f"{args.files} files of 4 KiB, {args.rounds} rounds alternating the builds, on `{args.work}`\n")
    print("| Build | Request, median s | Fixed cost, median s | Folder less fixed cost: median (min-max) s |")
    print("|---|---|---|---|")
    for build, runs in zip(args.builds, results):
        own = [folder - fixed for folder, fixed in runs]
        print(f"| `{build}` | {statistics.median(f for f, _ in runs):.3f} | "
              f"{statistics.median(x for _, x in runs):.3f} | "
              f"{statistics.median(own):.3f} ({min(own):.3f}-{max(own):.3f}) |")


if __name__ == "__main__":
    main()
