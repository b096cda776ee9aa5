#!/usr/bin/env python3
"""Checks the producer library as others get it: installed, moved to another folder, and built against.

usage: check_package.py [--build FOLDER]      (default build/windows, built with the `windows` preset)

Works in build/sdk-package. Prints one line a check; exit code 1 when one fails.
"""

import argparse
import concurrent.futures
import os
import pathlib
import re
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests/binary"))
from pe_file import PeFile  # noqa: E402

CROSS = "x86_64-w64-mingw32"
WARNINGS = ["-pedantic", "-Wall", "-Wextra", "-Werror"]

FILES = {
    "bin/ravloproducer.dll",
    "include/ravlo/producer.h",
    "include/ravlo/producer.hpp",
    "lib/cmake/ravloproducer/ravloproducerConfig.cmake",
    "lib/cmake/ravloproducer/ravloproducerConfigVersion.cmake",
    "lib/libravloproducer.a",
    "lib/libravloproducer.dll.a",
    "lib/pkgconfig/ravloproducer.pc",
    "share/ravloproducer/examples/CMakeLists.txt",
    "share/ravloproducer/examples/generated_frames.cpp",
    "share/ravloproducer/examples/minimal_producer.c",
}

# Part of every Windows; the C++ runtime is inside.
SYSTEM_LIBRARIES = {"advapi32.dll", "kernel32.dll", "msvcrt.dll"}

# A project in C alone, which has no C++ linker to bring the runtime, linked to either library.
C_PROJECT = """\
cmake_minimum_required(VERSION 3.23)
project(c_alone LANGUAGES C)
find_package(ravloproducer {version} EXACT CONFIG REQUIRED)
foreach(library producer producer_dll)
    add_executable(with_${{library}} "{source}")
    target_link_libraries(with_${{library}} PRIVATE ravlo::${{library}})
    target_link_options(with_${{library}} PRIVATE -static)
endforeach()
"""


class Failed(Exception):
    pass


def run(*command, stdin=None, env=None):
    result = subprocess.run(
        [str(word) for word in command], input=stdin, env=env, text=True, capture_output=True, check=False
    )
    if result.returncode != 0:
        words = " ".join(str(word) for word in command)
        said = (result.stdout + result.stderr).strip().splitlines()
        raise Failed("\n".join([words, *said[:20], *(["..."] if len(said) > 20 else [])]))
    return result.stdout


def expect_equal(what, found, wanted):
    if found != wanted:
        raise Failed(f"{what}: found {found!r}, wanted {wanted!r}")


def libraries_of(program):
    return {name.lower() for name in PeFile(program.read_bytes()).imports()}


class Package:
    def __init__(self, build):
        self.build = build
        self.work = ROOT / "build/sdk-package"
        self.folder = self.work / "moved"
        self.include = self.folder / "include"
        self.examples = self.folder / "share/ravloproducer/examples"
        text = (ROOT / "CMakeLists.txt").read_text()
        self.version = re.search(r"project\(ravlo VERSION ([0-9.]+)", text).group(1)

    def install(self):
        """the component installs these files and no others"""
        shutil.rmtree(self.work, ignore_errors=True)
        installed = self.work / "installed"
        run("cmake", "--install", self.build, "--component", "sdk", "--prefix", installed)
        installed.rename(self.folder)
        found = {str(path.relative_to(self.folder)) for path in self.folder.rglob("*") if path.is_file()}
        expect_equal("files", sorted(found), sorted(FILES))

    def headers(self):
        """each header compiles alone, as C11 and C++20, natively and for Windows"""
        cases = [
            ("gcc", "c", "c11", "producer.h"),
            (f"{CROSS}-gcc-posix", "c", "c11", "producer.h"),
        ]
        for compiler in ("g++", f"{CROSS}-g++-posix"):
            cases += [(compiler, "c++", "c++20", header) for header in ("producer.h", "producer.hpp")]
        for compiler, language, standard, header in cases:
            flags = [f"-std={standard}", *WARNINGS, f"-I{self.include}", "-fsyntax-only", "-x", language, "-"]
            # Twice, for the guard against that.
            source = f"#include <ravlo/{header}>\n" * 2
            run(compiler, *flags, stdin=source)
            if compiler.startswith(CROSS):
                run(compiler, "-DRAVLO_PRODUCER_DLL", *flags, stdin=source)

    def document(self):
        """the code of docs/producer-sdk.md compiles"""
        text = (ROOT / "docs/producer-sdk.md").read_text()
        for language, compiler, standard in (("c", "gcc", "c11"), ("cpp", "g++", "c++20")):
            blocks = re.findall(rf"^```{language}\n(.*?)^```$", text, re.MULTILINE | re.DOTALL)
            expect_equal(f"blocks of {language}", len(blocks), 1)
            flags = [f"-std={standard}", *WARNINGS, f"-I{self.include}", "-fsyntax-only"]
            run(compiler, *flags, "-x", "c++" if language == "cpp" else "c", "-", stdin=blocks[0])

    def without_windows(self):
        """the headers need none of Windows"""
        flags = ["-std=c11", f"-I{self.include}", "-M", "-x", "c", "-"]
        listed = run(f"{CROSS}-gcc-posix", *flags, stdin="#include <ravlo/producer.h>\n")
        if re.search(r"/(windows|windef|winbase)\.h\b", listed):
            raise Failed("producer.h includes a Windows header")
        for header in ("producer.h", "producer.hpp"):
            for line in (self.include / "ravlo" / header).read_text().splitlines():
                if re.match(r'\s*#\s*include\s*[<"](win|_mingw)', line):
                    raise Failed(f"{header}: {line}")

    def exports(self):
        """the DLL exports what the header declares, and carries the project's version"""
        header = (self.include / "ravlo/producer.h").read_text()
        declared = re.findall(r"^RAVLO_PRODUCER_API [^;]*?\b(ravlo_\w+)\(", header, re.MULTILINE)
        dll = PeFile((self.folder / "bin/ravloproducer.dll").read_bytes())
        expect_equal("exports", sorted(dll.export_names()), sorted(declared))
        expect_equal("number of exports", dll.export_count(), len(declared))
        if len(declared) < 10:
            raise Failed(f"the header declares only {declared}")
        strings = dll.version_strings()
        expect_equal("version", (strings["FileVersion"], strings["ProductVersion"]), (self.version, self.version))
        expect_equal("libraries", libraries_of(self.folder / "bin/ravloproducer.dll") - SYSTEM_LIBRARIES, set())
        flags = dll.DYNAMIC_BASE | dll.HIGH_ENTROPY_VA | dll.NX_COMPAT
        expect_equal("flags", dll.dll_characteristics & flags, flags)

    def cmake_examples(self):
        """the examples build as a CMake project of their own"""
        self._cmake(self.examples, self.work / "examples")
        for name in ("minimal_producer", "generated_frames"):
            found = libraries_of(self.work / f"examples/{name}.exe")
            expect_equal(f"libraries of {name}", found - SYSTEM_LIBRARIES, set())

    def cmake_c(self):
        """a CMake project in C alone links the static library and the DLL"""
        source = self.work / "c"
        source.mkdir()
        text = C_PROJECT.format(version=self.version, source=self.examples / "minimal_producer.c")
        (source / "CMakeLists.txt").write_text(text)
        self._cmake(source, source / "build")
        found = libraries_of(source / "build/with_producer.exe")
        expect_equal("libraries of the static one", found - SYSTEM_LIBRARIES, set())
        found = libraries_of(source / "build/with_producer_dll.exe")
        expect_equal("libraries of the other", found - SYSTEM_LIBRARIES, {"ravloproducer.dll"})

    def pkg_config(self):
        """pkg-config gives the flags for either library, in C and C++"""
        if not shutil.which("pkg-config"):
            raise Failed("there is no pkg-config: run scripts/setup.sh")
        expect_equal("version", self._pkg_config("--modversion"), [self.version])
        static = (["--static"], ["-static"], set())
        # The compiler's own runtime stays out of the question which library of ours was taken.
        shared = ([], ["-static-libgcc"], {"ravloproducer.dll"})
        for compiler, source, standard, way in (
            ("gcc-posix", "minimal_producer.c", "-std=c11", static),
            ("gcc-posix", "minimal_producer.c", "-std=c11", shared),
            ("g++-posix", "generated_frames.cpp", "-std=c++20", static),
        ):
            question, linking, beside = way
            program = self.work / "with_pkg_config.exe"
            flags = self._pkg_config(*question, "--cflags", "--libs")
            run(f"{CROSS}-{compiler}", standard, *WARNINGS, self.examples / source, *flags, *linking, "-o", program)
            expect_equal(f"libraries of {source} {question}", libraries_of(program) - SYSTEM_LIBRARIES, beside)

    def _pkg_config(self, *arguments):
        environment = {**os.environ, "PKG_CONFIG_LIBDIR": str(self.folder / "lib/pkgconfig"), "PKG_CONFIG_PATH": ""}
        return run("pkg-config", *arguments, "ravloproducer", env=environment).split()

    def _cmake(self, source, build):
        run(
            "cmake", "-G", "Ninja", "-S", source, "-B", build,
            "-DCMAKE_SYSTEM_NAME=Windows", "-DCMAKE_BUILD_TYPE=Release",
            f"-DCMAKE_C_COMPILER={CROSS}-gcc-posix", f"-DCMAKE_CXX_COMPILER={CROSS}-g++-posix",
            f"-DCMAKE_PREFIX_PATH={self.folder}",
        )  # fmt: skip
        run("cmake", "--build", build)


def check(step):
    try:
        step()
    except Failed as failure:
        print(f"FAIL {step.__doc__}\n     {failure}".replace("\n", "\n     "))
        return False
    print(f"ok   {step.__doc__}")
    return True


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build/windows")
    package = Package(parser.parse_args().build.resolve())
    if not check(package.install):
        return 1
    steps = (package.cmake_examples, package.cmake_c, package.pkg_config, package.headers, package.document,
             package.without_windows, package.exports)
    with concurrent.futures.ThreadPoolExecutor(max_workers=2) as pool:
        return 0 if all(list(pool.map(check, steps))) else 1


if __name__ == "__main__":
    sys.exit(main())
