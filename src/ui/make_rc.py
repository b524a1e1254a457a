#!/usr/bin/env python3
"""Writes a Windows program's resource script (.rc) and its manifest from the project's own sources.

Two kinds of script:
  program  VELQFileEncrypt.exe: the string table in every language of src/ui/strings, the error list's
           dialog template 51, the wait window's pictures (type "PNG"), the icon (ids 12 and 13, the ones
           the wait window and the error list load), VERSIONINFO and the manifest (RT_MANIFEST 1).
  tool     velq.exe: the icon, VERSIONINFO and the manifest.

The script is UTF-8 under "#pragma code_page(65001)", which windres turns into UTF-16 for every language.
Texts are read and checked by the string table's own generator (strings/gen_string_table.py), so that
the resources and the table that POSIX builds read can never disagree.

Usage: make_rc.py --kind program|tool --version X.Y.Z --icon FILE.ico --manifest OUT.manifest
                  [--strings FOLDER --pictures FOLDER --picture-ids 504,505,509] --output OUT.rc
"""
import argparse
import importlib.util
import os
import sys
import tempfile

STRINGS_GENERATOR = os.path.join(os.path.dirname(os.path.abspath(__file__)), "strings", "gen_string_table.py")

# Icon ids the program loads: 12 for the wait window, 13 for the error list.
PROGRAM_ICON_IDS = (12, 13)
# The lowest icon id is the one the shell shows for the file.
TOOL_ICON_IDS = (12,)

PROGRAMS = {
    "program": ("VELQFileEncrypt", "VELQ file encryption"),
    "tool": ("velq", "VELQ command line"),
}

# Windows 7, 8, 8.1 and 10/11, as the manifest's compatibility section names them.
SUPPORTED_OS_IDS = (
    "{35138b9a-5d96-4fbd-8e2d-a2440225f93a}",
    "{4a2f28e3-53b9-4441-ba9c-d69d4a4a6e38}",
    "{1f676c76-80e1-4239-95bb-83d0f6d0da78}",
    "{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}",
)

# The error list: template 51 in template order. Sizes are dialog units; windres adds WS_CHILD and
# WS_VISIBLE to every control, and the dialog is left without WS_VISIBLE.
ERROR_LIST_DIALOG = """\
51 DIALOGEX 0, 0, 299, 131
STYLE WS_POPUP | WS_CAPTION | WS_SYSMENU | WS_MINIMIZEBOX | DS_MODALFRAME | DS_SETFONT
CAPTION "Error List"
FONT 8, "Microsoft Sans Serif", 400, 0, 0x0
BEGIN
    DEFPUSHBUTTON "OK", 103, 130, 109, 48, 16, WS_TABSTOP
    PUSHBUTTON "Copy to clipboard", 104, 179, 109, 110, 16, WS_TABSTOP
    CONTROL "Message", 101, "SysListView32", LVS_REPORT | LVS_ALIGNLEFT | WS_BORDER, 10, 12, 279, 90
    CONTROL "", 102, "Static", SS_LEFT | WS_GROUP, 10, 114, 120, 8
END
"""


def load_string_tables(folder):
    """{langid: {id: text}} of every language file, checked as the string table's build checks them."""
    sys.dont_write_bytecode = True  # a build writes nothing into the source tree
    source = importlib.util.spec_from_file_location("gen_string_table", STRINGS_GENERATOR)
    table = importlib.util.module_from_spec(source)
    source.loader.exec_module(table)
    paths = sorted(os.path.join(folder, name) for name in os.listdir(folder) if name.endswith(".txt"))
    reference_path = os.path.join(folder, f"{table.REFERENCE_LANGUAGE}.txt")
    try:
        _, reference = table.parse_language_file(reference_path)
        languages = {}
        for path in paths:
            langid, texts = table.parse_language_file(path)
            table.check_same_ids(reference_path, reference, path, texts)
            languages[langid] = texts
    except table.TableError as error:
        raise SystemExit(f"make_rc.py: error: {error}")
    return languages


def rc_string(text):
    """A quoted resource-script string that windres reads back as `text` exactly."""
    out = ['"']
    for ch in text:
        if ch == '"':
            out.append('""')
        elif ch == "\\":
            out.append("\\\\")
        elif ch == "\n":
            out.append("\\n")
        elif ord(ch) < 0x20 or ord(ch) == 0x7F:
            raise SystemExit(f"make_rc.py: error: control character U+{ord(ch):04X} in a text")
        else:
            out.append(ch)
    out.append('"')
    return "".join(out)


def rc_path(path):
    # Forward slashes need no escaping and windres takes them on every host.
    return rc_string(os.path.abspath(path).replace(os.sep, "/"))


def string_tables(languages):
    blocks = []
    for langid in sorted(languages):
        # A LANGID is the primary language in its low 10 bits and the sublanguage above them.
        blocks.append(f"LANGUAGE {langid & 0x3FF}, {langid >> 10}\nSTRINGTABLE\nBEGIN")
        for string_id, text in sorted(languages[langid].items()):
            blocks.append(f"    {string_id}, {rc_string(text)}")
        blocks.append("END\n")
    return "\n".join(blocks)


def version_info(version, name, description):
    parts = [int(part) for part in version.split(".")]
    numbers = ", ".join(str(part) for part in (parts + [0, 0, 0, 0])[:4])
    return f"""\
LANGUAGE LANG_ENGLISH, SUBLANG_ENGLISH_US
1 VERSIONINFO
FILEVERSION {numbers}
PRODUCTVERSION {numbers}
FILEFLAGSMASK VS_FFI_FILEFLAGSMASK
FILEFLAGS 0
FILEOS VOS_NT_WINDOWS32
FILETYPE VFT_APP
FILESUBTYPE VFT2_UNKNOWN
BEGIN
    BLOCK "StringFileInfo"
    BEGIN
        BLOCK "040904B0"
        BEGIN
            VALUE "CompanyName", "VELQ"
            VALUE "FileDescription", {rc_string(description)}
            VALUE "FileVersion", {rc_string(version)}
            VALUE "InternalName", {rc_string(name)}
            VALUE "OriginalFilename", {rc_string(name + ".exe")}
            VALUE "ProductName", "VELQ"
            VALUE "ProductVersion", {rc_string(version)}
        END
    END
    BLOCK "VarFileInfo"
    BEGIN
        VALUE "Translation", 0x409, 1200
    END
END
"""


def manifest(version, name, description):
    four_part = ".".join((version.split(".") + ["0", "0", "0", "0"])[:4])
    supported = "\n".join(f'      <supportedOS Id="{os_id}"/>' for os_id in SUPPORTED_OS_IDS)
    return f"""\
<?xml version="1.0" encoding="UTF-8" standalone="yes"?>
<assembly xmlns="urn:schemas-microsoft-com:asm.v1" manifestVersion="1.0">
  <assemblyIdentity type="win32" name="VELQ.{name}" version="{four_part}" processorArchitecture="*"/>
  <description>{description}</description>
  <dependency>
    <dependentAssembly>
      <assemblyIdentity type="win32" name="Microsoft.Windows.Common-Controls" version="6.0.0.0"
                        processorArchitecture="*" publicKeyToken="6595b64144ccf1df" language="*"/>
    </dependentAssembly>
  </dependency>
  <trustInfo xmlns="urn:schemas-microsoft-com:asm.v3">
    <security>
      <requestedPrivileges>
        <requestedExecutionLevel level="asInvoker" uiAccess="false"/>
      </requestedPrivileges>
    </security>
  </trustInfo>
  <compatibility xmlns="urn:schemas-microsoft-com:compatibility.v1">
    <application>
{supported}
    </application>
  </compatibility>
  <application xmlns="urn:schemas-microsoft-com:asm.v3">
    <windowsSettings>
      <dpiAware xmlns="http://schemas.microsoft.com/SMI/2005/WindowsSettings">true/pm</dpiAware>
      <dpiAwareness xmlns="http://schemas.microsoft.com/SMI/2016/WindowsSettings">PerMonitorV2, PerMonitor</dpiAwareness>
    </windowsSettings>
  </application>
</assembly>
"""


def resource_script(args):
    name, description = PROGRAMS[args.kind]
    icon_ids = PROGRAM_ICON_IDS if args.kind == "program" else TOOL_ICON_IDS
    parts = [
        f"// Generated by src/ui/make_rc.py for {name}.exe. Do not edit.",
        "#pragma code_page(65001)",
        "#include <windows.h>",
        "#include <commctrl.h>",
        "",
        "LANGUAGE LANG_NEUTRAL, SUBLANG_NEUTRAL",
    ]
    parts += [f"{icon_id} ICON {rc_path(args.icon)}" for icon_id in icon_ids]
    parts.append(f"CREATEPROCESS_MANIFEST_RESOURCE_ID RT_MANIFEST {rc_path(args.manifest)}")
    if args.kind == "program":
        parts += [f'{picture} PNG {rc_path(os.path.join(args.pictures, f"{picture}.png"))}'
                  for picture in args.picture_ids.split(",")]
        parts += ["", "LANGUAGE LANG_ENGLISH, SUBLANG_ENGLISH_US", ERROR_LIST_DIALOG]
        parts.append(string_tables(load_string_tables(args.strings)))
    parts += ["", version_info(args.version, name, description)]
    return "\n".join(parts)


def write_if_changed(path, content):
    # An unchanged file keeps its time, so that nothing is compiled again; a stopped build leaves no half file.
    if os.path.exists(path):
        with open(path, "r", encoding="utf-8", newline="") as handle:
            if handle.read() == content:
                return
    fd, temp_path = tempfile.mkstemp(dir=os.path.dirname(os.path.abspath(path)), suffix=".tmp")
    with os.fdopen(fd, "w", encoding="utf-8", newline="\n") as handle:
        handle.write(content)
    os.chmod(temp_path, 0o644)
    os.replace(temp_path, path)


def main():
    parser = argparse.ArgumentParser(description="Write a Windows program's resource script and manifest.")
    parser.add_argument("--kind", choices=sorted(PROGRAMS), required=True)
    parser.add_argument("--version", required=True, help="the project's version, X.Y.Z")
    parser.add_argument("--icon", required=True)
    parser.add_argument("--manifest", required=True, help="manifest to write beside the script")
    parser.add_argument("--strings", help="folder of the <langid>.txt files (program)")
    parser.add_argument("--pictures", help="folder of the wait window's <id>.png (program)")
    parser.add_argument("--picture-ids", default="504,505,509")
    parser.add_argument("--output", required=True)
    args = parser.parse_args()
    if args.kind == "program" and (args.strings is None or args.pictures is None):
        parser.error("--kind program needs --strings and --pictures")
    name, description = PROGRAMS[args.kind]
    write_if_changed(args.manifest, manifest(args.version, name, description))
    write_if_changed(args.output, resource_script(args))
    return 0


if __name__ == "__main__":
    sys.exit(main())
