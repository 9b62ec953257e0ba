#!/usr/bin/env python3
"""Writes the page's files as a C++ source, each with its type.

usage: embed.py TARGET FILE...
"""

import pathlib
import sys

TYPES = {
    ".html": "text/html; charset=utf-8",
    ".css": "text/css; charset=utf-8",
    ".js": "text/javascript; charset=utf-8",
    ".svg": "image/svg+xml",
}
LINE = 4096  # bytes of a file in a line of the source


def literal(content):
    """The bytes as a string: three octal digits for whatever is not plain."""
    lines = []
    for start in range(0, len(content), LINE):
        text = "".join(
            chr(byte) if 0x20 <= byte < 0x7F and byte not in b'"\\?' else f"\\{byte:03o}"
            for byte in content[start:start + LINE])
        lines.append(f'"{text}"')
    return "\n".join(lines) or '""'


def entry(file):
    content = file.read_bytes()
    return (f'    {{"{file.name}", "{TYPES[file.suffix]}",\n'
            f"std::string_view({literal(content)}, {len(content)})}},\n")


def main():
    target, *files = [pathlib.Path(name) for name in sys.argv[1:]]
    entries = "".join(entry(file) for file in sorted(files, key=lambda one: one.name))
    target.write_text(
        '#include "panel/files.h"\n\n'
        '#pragma GCC diagnostic ignored "-Woverlength-strings"\n\n'
        "namespace lum_panel {\nnamespace {\n\n"
        f"constexpr file all[] = {{\n{entries}}};\n\n"
        "}  // namespace\n\n"
        "std::span<const file> files() { return all; }\n\n"
        "}  // namespace lum_panel\n")


if __name__ == "__main__":
    main()
