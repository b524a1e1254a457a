#!/usr/bin/env python3
"""windowless.py SOURCE DEST: DEST is the console program SOURCE marked as a Windows (GUI) program.

Explorer's entries start velq once per selected item; a console program gets a console window each time,
which flashes up on the person's screen. The same program with the PE header's subsystem set to Windows
(2) gets none; its entry point and code stay the same (the C runtime starts main either way), and what it
writes to stderr goes nowhere, which is right for a program that no person started from a prompt.
The installer therefore holds both: velq.exe for prompts and scripts, velqw.exe for the entries.
"""
import struct
import sys

CONSOLE, WINDOWS = 3, 2


def main(argv):
    if len(argv) != 3:
        print(__doc__.splitlines()[0], file=sys.stderr)
        return 2
    with open(argv[1], "rb") as f:
        image = bytearray(f.read())
    if image[:2] != b"MZ":
        print("windowless: %s is no Windows program" % argv[1], file=sys.stderr)
        return 1
    (pe,) = struct.unpack_from("<I", image, 0x3C)
    # The optional header follows the signature (4 bytes) and the file header (20); its subsystem field
    # sits at 68 in both the 32-bit and the 64-bit form.
    field = pe + 4 + 20 + 68
    if image[pe:pe + 4] != b"PE\0\0" or struct.unpack_from("<H", image, field)[0] != CONSOLE:
        print("windowless: %s is no console program" % argv[1], file=sys.stderr)
        return 1
    struct.pack_into("<H", image, field, WINDOWS)
    with open(argv[2], "wb") as f:
        f.write(image)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
