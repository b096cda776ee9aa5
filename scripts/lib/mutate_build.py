"""Builds programs with one mutated file, beside an untouched build: only the objects that read the file are compiled,
and each link takes them ahead of the archives that hold their originals."""

import json
import os
import re
import shlex
import shutil
import subprocess
import threading
from pathlib import Path

# Warnings say nothing here, and without debug records equal code makes equal objects.
_DROPPED = re.compile(r"-W(?!l,).*|-g\d?|-ffile-prefix-map=.*|-Wl,--out-implib,.*")
_PLATFORM_HEADERS = (
    "windows.h", "mfapi.h", "mfidl.h", "mferror.h", "atomic", "string", "memory", "optional", "utility",
)  # fmt: skip
_OURS = re.compile(r"src/CMakeFiles/")


class Flavour:
    """One build tree of the copy: its commands, and which of our objects read which file."""

    def __init__(self, tree, preset, nm):
        self.tree = Path(tree)
        self.build = self.tree / "build" / preset
        self.nm = nm
        with open(self.build / "compile_commands.json", encoding="utf-8") as file:
            entries = [shlex.split(e["command"]) for e in json.load(file) if e["file"].endswith(".cpp")]
        self._compile = {e[e.index("-o") + 1]: e for e in entries}
        self._readers = self._read_dependencies()
        self._lock = threading.Lock()
        self._links, self._symbols, self._members = {}, {}, None

    def _ninja(self, *arguments):
        return subprocess.run(
            ["ninja", "-C", self.build, "-t", *arguments], check=True, capture_output=True, text=True
        ).stdout

    def _read_dependencies(self):
        readers, current = {}, None
        for line in self._ninja("deps").split("\n"):
            if line and not line.startswith(" "):
                name = line.split(":")[0]
                current = name if name in self._compile else None
            elif current and line:
                path = os.path.normpath(os.path.join(self.build, line.strip()))
                if path.startswith(f"{self.tree}{os.sep}"):
                    readers.setdefault(os.path.relpath(path, self.tree), set()).add(current)
        return readers

    def objects_reading(self, path):
        return sorted(name for name in self._readers.get(path, ()) if _OURS.match(name))

    def test_objects_reading(self, target, path):
        """The objects of a test program itself that read a header of ours, and so hold inline code of it."""
        return sorted(self._readers.get(path, set()) & {p for p in self._link_command(target) if not _OURS.match(p)})

    def compile(self, name, overlay, out):
        """False when it does not compile. `overlay` holds the mutated file in place of the copy's own."""
        is_ours = _OURS.match(name)
        command = [part for part in self._compile[name] if not (is_ours and _DROPPED.fullmatch(part))]
        source = Path(command[command.index("-c") + 1])
        relative = source.relative_to(self.tree)
        if is_ours and (overlay / relative).exists():
            command[command.index("-c") + 1] = str(relative)
        command[command.index("-o") + 1] = str(out)
        command[1:1] = [f"-I{overlay}/src", f"-I{overlay}/include"]
        if not is_ours:
            command.append("-w")
            cwd = self.build
        else:
            command[1:1] = ["-w", "-g0"]
            cwd = overlay
        if is_ours and "ravlo_portable" not in name:
            command[1:1] = ["-include", self._platform_headers(command)]
        out.parent.mkdir(parents=True, exist_ok=True)
        return subprocess.run(command, cwd=cwd, capture_output=True, check=False).returncode == 0

    def _platform_headers(self, command):
        """The headers that cost most of the time, precompiled once with the flags that every command shares."""
        header = self.build / "platform_headers.h"
        with self._lock:
            if not header.with_suffix(".h.gch").exists():
                header.write_text("".join(f"#include <{h}>\n" for h in _PLATFORM_HEADERS), encoding="ascii")
                flags = [p for p in command if p.startswith(("-D", "-O", "-std", "-f", "-w", "-g"))]
                subprocess.run([command[0], *flags, "-x", "c++-header", header], check=True)
        return str(header)

    def original(self, name, pristine):
        """The object of the unchanged file, made once with the flags and the paths of the mutated ones."""
        out = pristine / "objects" / name
        if not out.exists():
            source = Path(self._compile[name][self._compile[name].index("-c") + 1]).relative_to(self.tree)
            copy = pristine / source
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copyfile(self.tree / source, copy)
            scratch = out.with_name(f"{out.name}.{os.getpid()}.{id(copy)}")
            if not self.compile(name, pristine, scratch):
                raise RuntimeError(f"{source} does not compile")
            os.replace(scratch, out)
        return out

    def _link_command(self, target):
        if target not in self._links:
            line = self._ninja("commands", target).strip().split("\n")[-1]
            command = line.removeprefix(": && ").split(" && ")[0]
            self._links[target] = [p for p in shlex.split(command) if not _DROPPED.fullmatch(p)]
        return self._links[target]

    def link(self, target, changed, out):
        """Links `target` to `out`; `changed` maps objects' names to the files to take instead. False if it fails."""
        command = list(self._link_command(target))
        command[command.index("-o") + 1] = str(out)
        for name, file in changed.items():
            if name in command:
                command[command.index(name)] = str(file)
            elif Path(name).name in self._archived_objects(target):
                command.insert(1, str(file))
        if "-s" not in command:
            command.insert(1, "-s")
        out.unlink(missing_ok=True)
        return subprocess.run(command, cwd=self.build, capture_output=True, check=False).returncode == 0

    def takes(self, target, changed):
        """True when the program holds code of these objects itself, not only the DLL that it loads."""
        command = self._link_command(target)
        if any(name in command for name in changed):
            return True
        return any(Path(name).name in self._archived_objects(target) for name in changed)

    def _archived_objects(self, target):
        """The archive members that the link of `target` draws in, found by following undefined symbols."""
        if target not in self._symbols:
            if self._members is None:
                self._members = {}
                for archive in ("lib/libravlo_windows.a", "lib/libravlo_portable.a"):
                    if (self.build / archive).exists():
                        self._members.update(self._read_symbols([archive]))
            providers = {s: name for name, (defined, _) in self._members.items() for s in defined}
            objects = [p for p in self._link_command(target) if p.endswith((".obj", ".o"))]
            read = self._read_symbols(objects)
            defined = set().union(*(d for d, _ in read.values())) if read else set()
            wanted = list(set().union(*(u for _, u in read.values())) - defined) if read else []
            drawn = set()
            while wanted:
                name = providers.get(wanted.pop())
                if name and name not in drawn:
                    drawn.add(name)
                    wanted.extend(self._members[name][1])
            self._symbols[target] = drawn
        return self._symbols[target]

    def _read_symbols(self, files):
        """By object name: the symbols it defines, and those it needs."""
        listing = subprocess.run(
            [self.nm, "-A", *files], cwd=self.build, capture_output=True, text=True, check=True
        ).stdout
        found = {}
        for line in listing.split("\n"):
            head, _, rest = line.rpartition(":")
            fields = rest.split()
            if len(fields) < 2:
                continue
            name = Path(head.split(":")[-1]).name
            defined, undefined = found.setdefault(name, (set(), set()))
            kind, symbol = fields[-2], fields[-1]
            if kind == "U":
                undefined.add(symbol)
            elif kind.isupper() or kind in "wvu":
                defined.add(symbol)
        return found
