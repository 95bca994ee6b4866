"""What is asked of a Windows program or DLL about its form: a reader of the PE format."""

import struct
from dataclasses import dataclass

HIGH_ENTROPY_VA = 0x0020
DYNAMIC_BASE = 0x0040
NX_COMPAT = 0x0100
RELOCATIONS_STRIPPED = 0x0001

EXPORTS, IMPORTS, RESOURCES, SECURITY, RELOCATIONS, DEBUG, DELAYED_IMPORTS = 0, 1, 2, 4, 5, 6, 13
VERSION_RESOURCE, MANIFEST_RESOURCE = 16, 24


@dataclass
class Section:
    address: int
    size: int
    offset: int  # in the file


class Image:
    def __init__(self, content):
        self.content = content
        (header,) = self._read("<I", 0x3C)
        if content[:2] != b"MZ" or content[header : header + 4] != b"PE\0\0":
            raise ValueError("no PE file")
        _, sections, self.timestamp, _, _, optional_size, self.characteristics = self._read(
            "<HHIIIHH", header + 4)
        optional = header + 24
        (magic,) = self._read("<H", optional)
        if magic != 0x20B:
            raise ValueError("no 64-bit PE file")
        (self.image_base,) = self._read("<Q", optional + 24)
        (self.dll_characteristics,) = self._read("<H", optional + 70)
        (directories,) = self._read("<I", optional + 108)
        self._directories = [self._read("<II", optional + 112 + 8 * i) for i in range(directories)]
        self._sections = []
        for i in range(sections):
            size, address, raw_size, offset = self._read("<IIII",
                                                         optional + optional_size + 40 * i + 8)
            self._sections.append(Section(address, max(size, raw_size), offset))

    def _read(self, layout, offset):
        return struct.unpack_from(layout, self.content, offset)

    def _offset(self, address):
        for section in self._sections:
            if section.address <= address < section.address + section.size:
                return address - section.address + section.offset
        raise ValueError(f"address {address:#x} is in no section")

    def _text(self, address):
        start = self._offset(address)
        return self.content[start : self.content.index(b"\0", start)].decode("ascii")

    def directory_size(self, number):
        return self._directories[number][1]

    def _imports(self):
        """The entries of the import table: the names of a library and of the functions in it."""
        address, size = self._directories[IMPORTS]
        entry = self._offset(address) if size else 0
        while size and any(fields := self._read("<5I", entry)):
            yield self._text(fields[3]), self._imported_names(self._offset(fields[0] or fields[4]))
            entry += 20

    def _imported_names(self, thunk):
        names = []
        while (value := self._read("<Q", thunk)[0]):
            if not value >> 63:  # else a number
                names.append(self._text(value + 2))
            thunk += 8
        return names

    @property
    def imported_libraries(self):
        """The names of the libraries in the import table, in its order."""
        return [library for library, _ in self._imports()]

    @property
    def imported_functions(self):
        """The names of the functions in the import table, in its order."""
        return [name for _, names in self._imports() for name in names]

    def imported_from(self, library):
        """The names that the import table wants of this library, in its order."""
        return [name for each, names in self._imports() if each == library for name in names]

    @property
    def exported_functions(self):
        """The names in the export table, in its order, which is that of the alphabet."""
        address, size = self._directories[EXPORTS]
        if not size:
            return []
        count, _, names = self._read("<3I", self._offset(address) + 24)
        return [self._text(name) for name in self._read(f"<{count}I", self._offset(names))]

    def resource(self, kind):
        """The first resource of the kind, in its first language; None if there is none."""
        address, size = self._directories[RESOURCES]
        if not size:
            return None
        root = self._offset(address)
        place = self._resource_entries(root, 0).get(kind)
        while place is not None and place & 0x80000000:
            place = next(iter(self._resource_entries(root, place & 0x7FFFFFFF).values()))
        if place is None:
            return None
        data, length = self._read("<II", root + place)
        start = self._offset(data)
        return self.content[start : start + length]

    def _resource_entries(self, root, place):
        named, numbered = self._read("<HH", root + place + 12)
        return dict(self._read("<II", root + place + 16 + 8 * i) for i in range(named + numbered))

    @property
    def version(self):
        """The four numbers of the file version; None without a version resource."""
        resource = self.resource(VERSION_RESOURCE)
        if resource is None:
            return None
        fixed = resource.index(struct.pack("<I", 0xFEEF04BD))
        high, low = struct.unpack_from("<II", resource, fixed + 8)
        return high >> 16, high & 0xFFFF, low >> 16, low & 0xFFFF
