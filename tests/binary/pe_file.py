"""Reads what a 64-bit Windows binary declares: flags, exports, imports, version strings."""

import struct


class PeFile:
    """A PE32+ image; raises ValueError or struct.error on anything else."""

    DYNAMIC_BASE = 0x0040
    HIGH_ENTROPY_VA = 0x0020
    NX_COMPAT = 0x0100

    def __init__(self, data):
        self._data = data
        if data[:2] != b"MZ":
            raise ValueError("no MZ header")
        header = self._u32(0x3C)
        if data[header : header + 4] != b"PE\0\0":
            raise ValueError("no PE header")
        sections, self.time_stamp = struct.unpack_from("<HI", data, header + 6)
        optional_size = self._u16(header + 20)
        optional = header + 24
        if self._u16(optional) != 0x20B:
            raise ValueError("not PE32+")
        self.image_base = struct.unpack_from("<Q", data, optional + 24)[0]
        self.dll_characteristics = self._u16(optional + 70)
        count = self._u32(optional + 108)
        self._directories = [struct.unpack_from("<II", data, optional + 112 + 8 * i) for i in range(count)]
        self._sections = []
        for i in range(sections):
            at = optional + optional_size + 40 * i
            virtual_size, address, raw_size, raw = struct.unpack_from("<IIII", data, at + 8)
            self._sections.append((address, max(virtual_size, raw_size), raw))

    def export_names(self):
        address, size = self._directories[0]
        if not size:
            return []
        at = self._offset(address)
        count = self._u32(at + 24)
        names = self._offset(self._u32(at + 32))
        return [self._text(self._u32(names + 4 * i)) for i in range(count)]

    def export_count(self):
        """All exports, those by number alone included."""
        address, size = self._directories[0]
        return self._u32(self._offset(address) + 20) if size else 0

    def imports(self):
        """Library name -> names of the imported functions."""
        found = {}
        address, size = self._directories[1]
        at = self._offset(address) if size else 0
        while size and self._u32(at + 12):
            names = found.setdefault(self._text(self._u32(at + 12)), [])
            thunk = self._offset(self._u32(at) or self._u32(at + 16))
            while entry := struct.unpack_from("<Q", self._data, thunk)[0]:
                names.append(f"#{entry & 0xFFFF}" if entry >> 63 else self._text((entry & 0x7FFFFFFF) + 2))
                thunk += 8
            at += 20
        return found

    def has_relocations(self):
        return self._directories[5][1] > 0

    def version_strings(self):
        """Name -> value of the version resource's string tables."""
        data = self._version_resource()
        strings = {}
        self._read_block(data, 0, strings, 0)
        return strings

    def _version_resource(self):
        root = self._offset(self._directories[2][0])
        at = root
        for wanted in (16, None, None):
            named, numbered = struct.unpack_from("<HH", self._data, at + 12)
            entries = [struct.unpack_from("<II", self._data, at + 16 + 8 * i) for i in range(named + numbered)]
            chosen = [target for key, target in entries if wanted in (None, key)]
            if not chosen:
                raise ValueError("no version resource")
            at = root + (chosen[0] & 0x7FFFFFFF)
        address, size = struct.unpack_from("<II", self._data, at)
        start = self._offset(address)
        return self._data[start : start + size]

    def _read_block(self, data, at, strings, depth):
        length, value_length, is_text = struct.unpack_from("<HHH", data, at)
        end = at + length
        key_end = at + 6
        while data[key_end : key_end + 2] != b"\0\0":
            key_end += 2
        key = data[at + 6 : key_end].decode("utf-16-le")
        value = (key_end + 2 + 3) & ~3
        if is_text and depth == 3:
            strings[key] = data[value : value + 2 * value_length].decode("utf-16-le").rstrip("\0")
            return end
        child = (value + value_length + 3) & ~3
        while child < end and depth < 3 and key != "VarFileInfo":
            child = (self._read_block(data, child, strings, depth + 1) + 3) & ~3
        return end

    def _offset(self, address):
        for start, size, raw in self._sections:
            if start <= address < start + size:
                return raw + address - start
        raise ValueError(f"address {address:#x} lies in no section")

    def _text(self, address):
        at = self._offset(address)
        return self._data[at : self._data.index(b"\0", at)].decode("ascii")

    def _u16(self, at):
        return struct.unpack_from("<H", self._data, at)[0]

    def _u32(self, at):
        return struct.unpack_from("<I", self._data, at)[0]
