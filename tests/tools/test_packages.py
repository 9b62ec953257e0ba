"""What builds the packages is what tools/setup installs to build, and the bill of materials names it."""

import io
import json
import pathlib
import re
import subprocess
import sys
import tarfile
import tempfile
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(SOURCE / "tools"))

import sbom  # noqa: E402

CONTROL = (SOURCE / "packaging/debian/control").read_text()


def archive(folder, files):
    path = pathlib.Path(folder) / "liblum-1.tar.xz"
    with tarfile.open(path, "w:xz") as packed:
        for name, content in files.items():
            member = tarfile.TarInfo("liblum-1/" + name)
            member.size = len(content)
            packed.addfile(member, io.BytesIO(content))
    return str(path)


class Packages(unittest.TestCase):
    def test_both_need_the_same_packages(self):
        setup = (SOURCE / "tools/setup").read_text()
        build = re.search(r"^    build\)((?:.|\n)*?);;", setup, re.MULTILINE).group(1)
        installed = set(build.replace("echo", "").replace("\\", "").split())
        # A compiler is there wherever packages are built, its cache wherever there is one.
        installed -= {"g++", "ccache"}
        self.assertEqual(installed, set(sbom.needed(CONTROL)) - {"debhelper-compat", "dh-sequence-installsysusers"})

    def test_the_licence_is_told_in_the_same_words(self):
        self.assertIn(f" {sbom.NO_LICENCE}\n", (SOURCE / "packaging/debian/copyright").read_text())

    def test_the_bill_has_every_file_and_what_is_needed(self):
        with tempfile.TemporaryDirectory() as folder:
            path = archive(folder, {"b.c": b"int b;\n", "a.c": b"int a;\n"})
            bill = sbom.bill(path, "1", "2026-01-01T00:00:00Z", CONTROL)
        source = bill["packages"][0]
        self.assertEqual([file["fileName"] for file in bill["files"]], ["./a.c", "./b.c"])
        self.assertEqual(bill["files"][0]["checksums"][0]["checksumValue"],
                         "56f54d1636dfec63c3e1586e5e4bdc9a455bb9f6")
        self.assertEqual((source["licenseDeclared"], source["licenseComments"]), ("NONE", "No licence has been chosen."))
        self.assertIn("SPDXRef-Debian-libsqlitecpp-dev", {package["SPDXID"] for package in bill["packages"]})
        named = {package["SPDXID"] for package in bill["packages"]} | {f["SPDXID"] for f in bill["files"]}
        for relation in bill["relationships"]:
            self.assertIn(relation["relatedSpdxElement"], named)

    def test_one_archive_gives_one_bill(self):
        with tempfile.TemporaryDirectory() as folder:
            path = archive(folder, {"a.c": b"int a;\n"})
            bills = [subprocess.run([sys.executable, SOURCE / "tools/sbom.py", "--archive", path, "--version", "1",
                                     "--created", "2026-01-01T00:00:00Z", "--control",
                                     SOURCE / "packaging/debian/control"], capture_output=True, check=True).stdout
                     for _ in range(2)]
        self.assertEqual(bills[0], bills[1])
        self.assertEqual(json.loads(bills[0])["spdxVersion"], "SPDX-2.3")


if __name__ == "__main__":
    unittest.main()
