#!/usr/bin/env python3
"""Generates the program's string table from the language files in this folder.

Every <langid>.txt holds one language: a header line "language<TAB><langid><TAB><name>", then one text per
line, "<id><TAB><text>". In a text, \\n stands for a line feed and \\\\ for a backslash; nothing else is
escaped. Lines starting with # and blank lines are skipped. 1033.txt (English) is the reference: every
other file must hold exactly its ids.

Usage: gen_string_table.py --output FILE.cpp FOLDER

The output is a C++ source that defines plat::stringTable() (see plat/resources.h): constexpr UTF-16
data sorted by language, then id, so that the loader can search it by halves. Any fault in a file stops
the build with a message naming the file and line; the output is then left as it was.
"""

import argparse
import os
import re
import sys
import tempfile

REFERENCE_LANGUAGE = 1033
MAX_RESOURCE_ID = 0xFFFF


class TableError(Exception):
    pass


def fail(path, line_number, message):
    where = os.path.basename(path) if line_number is None else f"{os.path.basename(path)}:{line_number}"
    raise TableError(f"{where}: {message}")


def unescape(path, line_number, raw):
    out = []
    i = 0
    while i < len(raw):
        ch = raw[i]
        if ch == "\t":
            fail(path, line_number, "a tab in a text (a text is everything after the first tab)")
        if ord(ch) < 0x20 or ord(ch) == 0x7F:
            fail(path, line_number, f"control character U+{ord(ch):04X} in a text")
        if ch != "\\":
            out.append(ch)
            i += 1
            continue
        if i + 1 >= len(raw):
            fail(path, line_number, "bad escape: a lone backslash ends the text (write \\\\ for a backslash)")
        nxt = raw[i + 1]
        if nxt == "n":
            out.append("\n")
        elif nxt == "\\":
            out.append("\\")
        else:
            fail(path, line_number, f"bad escape '\\{nxt}' (only \\n and \\\\ are known)")
        i += 2
    return "".join(out)


def parse_language_file(path):
    """Returns (langid, {id: text}) or raises TableError."""
    stem = os.path.splitext(os.path.basename(path))[0]
    if not re.fullmatch(r"[0-9]+", stem):
        fail(path, None, "a language file is named <langid>.txt, the Windows language id in decimal")
    file_langid = int(stem)
    try:
        with open(path, "r", encoding="utf-8-sig", newline="") as handle:
            content = handle.read()
    except UnicodeDecodeError as error:
        fail(path, None, f"not valid UTF-8 ({error.reason} at byte {error.start})")
    langid = None
    texts = {}
    for line_number, line in enumerate(content.split("\n"), start=1):
        if line.endswith("\r"):
            line = line[:-1]
        if line == "" or line.startswith("#"):
            continue
        key, sep, rest = line.partition("\t")
        if not sep:
            fail(path, line_number, "expected '<id><TAB><text>'")
        if key == "language":
            if langid is not None:
                fail(path, line_number, "a second 'language' line")
            number, sep2, _name = rest.partition("\t")
            if not sep2 or not re.fullmatch(r"[0-9]+", number):
                fail(path, line_number, "expected 'language<TAB><langid><TAB><name>'")
            langid = int(number)
            if langid != file_langid:
                fail(path, line_number, f"language {langid} in a file named {stem}.txt")
            continue
        if not re.fullmatch(r"[0-9]+", key):
            fail(path, line_number, f"'{key}' is not a decimal id")
        string_id = int(key)
        if string_id > MAX_RESOURCE_ID:
            fail(path, line_number, f"id {string_id} does not fit in 16 bits")
        if string_id in texts:
            fail(path, line_number, f"duplicate id {string_id}")
        text = unescape(path, line_number, rest)
        if text == "":
            fail(path, line_number, f"empty text for id {string_id} (a missing text would read the same)")
        texts[string_id] = text
    if langid is None:
        fail(path, None, "no 'language<TAB><langid><TAB><name>' line")
    if langid > 0xFFFF:
        fail(path, None, f"language id {langid} does not fit in 16 bits")
    return langid, texts


def check_same_ids(reference_path, reference, path, texts):
    missing = sorted(set(reference) - set(texts))
    extra = sorted(set(texts) - set(reference))
    if missing or extra:
        parts = []
        if missing:
            parts.append("missing ids " + ", ".join(map(str, missing)))
        if extra:
            parts.append("ids not in " + os.path.basename(reference_path) + ": " + ", ".join(map(str, extra)))
        fail(path, None, "; ".join(parts))


def cxx_literal(text):
    """A u"..." literal that holds `text` exactly, in plain ASCII source."""
    out = ['u"']
    for ch in text:
        code = ord(ch)
        if ch == "\n":
            out.append("\\n")
        elif ch == "\\":
            out.append("\\\\")
        elif ch == '"':
            out.append('\\"')
        elif ch == "?":
            out.append("\\?")  # no trigraph or digraph reading, whatever the compiler's mode
        elif 0x20 <= code < 0x7F:
            out.append(ch)
        elif code <= 0xFFFF:
            out.append(f"\\u{code:04X}")
        else:
            out.append(f"\\U{code:08X}")
    out.append('"')
    return "".join(out)


def render(languages):
    lines = [
        "// Generated by src/ui/strings/gen_string_table.py from src/ui/strings/*.txt. Do not edit.",
        '#include "plat/resources.h"',
        "",
        "namespace plat {",
        "namespace {",
        "using namespace std::string_view_literals;",
        "constexpr StringTableEntry kEntries[] = {",
    ]
    count = 0
    for langid in sorted(languages):
        texts = languages[langid]
        for string_id in sorted(texts):
            lines.append(f"    {{{langid}, {string_id}, {cxx_literal(texts[string_id])}sv}},")
            count += 1
    lines += [
        "};",
        "}  // namespace",
        "",
        "std::span<const StringTableEntry> stringTable() { return kEntries; }",
        "",
        "}  // namespace plat",
        "",
    ]
    return "\n".join(lines), count


def write_atomically(path, content):
    # A build stopped half-way never leaves a half-written table behind.
    folder = os.path.dirname(os.path.abspath(path))
    fd, temp_path = tempfile.mkstemp(dir=folder, prefix=".string_table.", suffix=".tmp")
    with os.fdopen(fd, "w", encoding="ascii", newline="\n") as handle:
        handle.write(content)
    os.replace(temp_path, path)


def main():
    parser = argparse.ArgumentParser(description="Generate the program's string table.")
    parser.add_argument("--output", required=True, help="C++ source to write")
    parser.add_argument("folder", help="folder with the <langid>.txt files")
    args = parser.parse_args()

    paths = sorted(
        os.path.join(args.folder, name) for name in os.listdir(args.folder) if name.endswith(".txt")
    )
    reference_path = os.path.join(args.folder, f"{REFERENCE_LANGUAGE}.txt")
    try:
        if reference_path not in paths:
            raise TableError(f"{REFERENCE_LANGUAGE}.txt, the reference language, is missing")
        languages = {}
        _, reference = parse_language_file(reference_path)
        for path in paths:
            langid, texts = parse_language_file(path)
            check_same_ids(reference_path, reference, path, texts)
            languages[langid] = texts
        content, count = render(languages)
        write_atomically(args.output, content)
    except TableError as error:
        print(f"gen_string_table.py: error: {error}", file=sys.stderr)
        return 1
    print(f"gen_string_table.py: {len(languages)} languages, {count} texts")
    return 0


if __name__ == "__main__":
    sys.exit(main())
