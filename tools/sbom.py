#!/usr/bin/env python3
"""Writes the bill of materials of a source archive: SPDX 2.3 as JSON, every file with its checksums, and
what is needed to build it as the Debian packages that packaging/debian/control names.

usage: tools/sbom.py --archive FILE --version VERSION --created TIME --control FILE
"""

import argparse
import hashlib
import json
import re
import sys
import tarfile
import uuid

NO_LICENCE = "No licence has been chosen."
SOURCE = "SPDXRef-liblum"


def checksums(content):
    return [{"algorithm": name.upper(), "checksumValue": hashlib.new(name, content).hexdigest()}
            for name in ("sha1", "sha256")]


def files_in(archive):
    with tarfile.open(archive) as packed:
        for number, member in enumerate(sorted((m for m in packed if m.isfile()), key=lambda m: m.name), 1):
            yield {"SPDXID": f"SPDXRef-File-{number}",
                   "fileName": "./" + member.name.split("/", 1)[1],
                   "checksums": checksums(packed.extractfile(member).read()),
                   "licenseConcluded": "NONE",
                   "copyrightText": "NOASSERTION"}


def verification_code(files):
    """SPDX 2.3, 7.9: of the sorted SHA-1 of all files."""
    together = "".join(sorted(file["checksums"][0]["checksumValue"] for file in files))
    return hashlib.sha1(together.encode()).hexdigest()


def needed(control):
    """The packages behind Build-Depends, without versions."""
    fields = re.search(r"^Build-Depends:((?:\n .*|.)*)", control, re.MULTILINE).group(1)
    return [entry.split()[0] for entry in fields.replace("\n", " ").split(",") if entry.strip()]


def package_of(name):
    return {"SPDXID": f"SPDXRef-Debian-{name}",
            "name": name,
            "downloadLocation": "NOASSERTION",
            "filesAnalyzed": False,
            "licenseConcluded": "NOASSERTION",
            "licenseDeclared": "NOASSERTION",
            "copyrightText": "NOASSERTION",
            "externalRefs": [{"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl",
                              "referenceLocator": f"pkg:deb/debian/{name}"}]}


def relation(name):
    """Development files go into what is built; the rest only builds it."""
    kind = "BUILD_DEPENDENCY_OF" if name.startswith("lib") or name.endswith("-dev") else "BUILD_TOOL_OF"
    return {"spdxElementId": f"SPDXRef-Debian-{name}", "relationshipType": kind, "relatedSpdxElement": SOURCE}


def bill(archive, version, created, control):
    with open(archive, "rb") as packed:
        whole = packed.read()
    files = list(files_in(archive))
    others = needed(control)
    source = {"SPDXID": SOURCE,
              "name": "liblum",
              "versionInfo": version,
              "packageFileName": archive.rsplit("/", 1)[-1],
              "checksums": checksums(whole),
              "downloadLocation": "NOASSERTION",
              "supplier": "Organization: liblum developers (root@localhost)",
              "filesAnalyzed": True,
              "packageVerificationCode": {"packageVerificationCodeValue": verification_code(files)},
              "licenseConcluded": "NONE",
              "licenseDeclared": "NONE",
              "licenseComments": NO_LICENCE,
              "licenseInfoFromFiles": ["NONE"],
              "copyrightText": "NOASSERTION",
              "primaryPackagePurpose": "SOURCE"}
    digest = hashlib.sha256(whole).hexdigest()
    return {"spdxVersion": "SPDX-2.3",
            # What SPDX asks of the document itself; it says nothing of what is described.
            "dataLicense": "CC0-1.0",
            "SPDXID": "SPDXRef-DOCUMENT",
            "name": f"liblum-{version}",
            "documentNamespace": f"urn:uuid:{uuid.uuid5(uuid.NAMESPACE_OID, digest)}",
            "creationInfo": {"created": created, "creators": ["Organization: liblum developers", "Tool: sbom.py"]},
            "packages": [source, *map(package_of, others)],
            "files": files,
            "relationships": [
                {"spdxElementId": "SPDXRef-DOCUMENT", "relationshipType": "DESCRIBES", "relatedSpdxElement": SOURCE},
                *({"spdxElementId": SOURCE, "relationshipType": "CONTAINS", "relatedSpdxElement": file["SPDXID"]}
                  for file in files),
                *map(relation, others)]}


def main():
    parser = argparse.ArgumentParser()
    for option in ("--archive", "--version", "--created", "--control"):
        parser.add_argument(option, required=True)
    options = parser.parse_args()
    with open(options.control, encoding="utf-8") as file:
        control = file.read()
    json.dump(bill(options.archive, options.version, options.created, control), sys.stdout, indent=1)
    print()


if __name__ == "__main__":
    main()
