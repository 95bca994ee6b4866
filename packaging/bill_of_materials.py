"""What the packed programs are made of, as a CycloneDX document."""

import hashlib
import json
import pathlib
import time
from urllib.parse import quote

from identity import EXECUTABLES, identifier_of


def hashes(file):
    return [{"alg": "SHA-256", "content": hashlib.sha256(file.read_bytes()).hexdigest()}]


def library_component(library):
    """Returns the entry of a library that is linked in."""
    return {"type": "library", "bom-ref": f"library:{library['name']}", "name": library["name"],
            "version": library["version"], "licenses": [{"expression": library["license"]}],
            "purl": f"pkg:generic/{library['name'].lower()}@{quote(library['version'])}"}


def file_component(folder, file):
    """Returns the entry of a packed program or DLL."""
    name = file.relative_to(folder).as_posix()
    return {"type": "file", "bom-ref": f"file:{name}", "name": name, "hashes": hashes(file)}


def bill_of_materials(zip_file, folder, version, libraries, seconds):
    """Returns the document, for the ZIP that was unpacked into the folder and is dated so."""
    linked = [library_component(library) for library in libraries]
    program = {"type": "application", "bom-ref": "QNRescue", "name": "QNRescue",
               "version": version, "hashes": hashes(zip_file),
               "components": [file_component(folder, file) for file in sorted(folder.rglob("*"))
                              if file.suffix in EXECUTABLES]}
    serial_number = identifier_of(program["hashes"][0]["content"])
    return {
        "bomFormat": "CycloneDX",
        "specVersion": "1.5",
        "serialNumber": f"urn:uuid:{serial_number}",
        "version": 1,
        "metadata": {"timestamp": time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(seconds)),
                     "component": program},
        "components": linked,
        "dependencies": [{"ref": "QNRescue", "dependsOn": [each["bom-ref"] for each in linked]}],
    }


def write_bill_of_materials(target, *arguments):
    """Writes the document of these arguments of bill_of_materials."""
    text = json.dumps(bill_of_materials(*arguments), indent=2) + "\n"
    pathlib.Path(target).write_text(text, encoding="utf-8")
