#!/usr/bin/env python3
"""Checks the DLL as it would be shipped, and what its objects ask of the runtime.

usage: check_dll.py --dll FILE --objects FOLDER --version-file CMakeLists.txt

Prints one line a check; exit code 1 when one fails.
"""

import argparse
import pathlib
import re
import subprocess
import sys

from pe_file import PeFile

EXPORTS = ["DllCanUnloadNow", "DllGetClassObject", "DllRegisterServer", "DllUnregisterServer"]

# All of them part of every Windows; the C runtime among them, everything else of the C++ runtime is inside the DLL.
SYSTEM_LIBRARIES = {"advapi32.dll", "kernel32.dll", "mfplat.dll", "msvcrt.dll", "ole32.dll"}

# The functions through which the module can be watched, and failed, from outside.
IMPORTS = {
    "kernel32.dll": """
        CancelIoEx CancelWaitableTimer ConnectNamedPipe CreateDirectoryW CreateEventW CreateFileW CreateNamedPipeW
        CreateThread CreateWaitableTimerExW DisableThreadLibraryCalls DisconnectNamedPipe FileTimeToSystemTime
        GetFileInformationByHandleEx GetModuleFileNameW GetOverlappedResult GetSystemTimeAsFileTime GetTickCount64
        InitializeCriticalSectionAndSpinCount OutputDebugStringW ProcessIdToSessionId ReadFile ResetEvent SetEvent
        SetWaitableTimer WaitForMultipleObjects WaitForSingleObject WriteFile""",
    "advapi32.dll": """
        AddAccessAllowedAce ConvertSidToStringSidW ConvertStringSidToSidW CreateWellKnownSid EqualSid GetSecurityInfo
        GetTokenInformation InitializeAcl InitializeSecurityDescriptor IsValidSid LookupAccountSidW OpenProcessToken
        OpenThreadToken RegCreateKeyExW RegDeleteTreeW RegGetValueW RegOpenKeyExW RegQueryValueExW RegSetValueExW
        SetSecurityDescriptorDacl SetSecurityDescriptorOwner""",
    "ole32.dll": "CoCreateFreeThreadedMarshaler CoGetApartmentType PropVariantClear StringFromGUID2",
    "mfplat.dll": """
        MFCreateAttributes MFCreateEventQueue MFCreateMediaType MFCreateMemoryBuffer MFCreatePresentationDescriptor
        MFCreateSample MFCreateStreamDescriptor MFGetSystemTime MFShutdown MFStartup""",
}

# What none of our objects may call, whatever the runtime inside the DLL does.
FORBIDDEN_CALLS = {
    "what reaches into other processes, or loads a library by the search order": re.compile(
        r"__imp_(LoadLibrary[AW]|OpenProcess|DuplicateHandle)$"
    ),
    "a printf-family function": re.compile(r"printf|StringCch|StringCb"),
    "a thread of the C++ runtime": re.compile(r"pthread_create|St6thread|_beginthread"),
    "another function than the one to be watched": re.compile(
        r"__imp_(CreateEventExW|CreateEventA|CreateFileA|CreateFile2|CreateWaitableTimerW|GetTickCount|CancelIo|"
        r"WaitForSingleObjectEx|WaitForMultipleObjectsEx|SleepConditionVariable\w+|GetOverlappedResultEx)$"
    ),
}


class Report:
    def __init__(self):
        self.failures = 0

    def expect(self, what, problems):
        self.failures += bool(problems)
        print(f"{'ok  ' if not problems else 'FAIL'} {what}{': ' if problems else ''}{', '.join(problems)}")


def unequal(found, wanted):
    return [] if found == wanted else [f"found {found!r}, wanted {wanted!r}"]


def check_image(report, pe, version):
    report.expect("exports by name", unequal(sorted(pe.export_names()), EXPORTS))
    report.expect("no export by number alone", unequal(pe.export_count(), len(EXPORTS)))

    imports = {library.lower(): set(names) for library, names in pe.imports().items()}
    report.expect("imports system libraries only", sorted(set(imports) - SYSTEM_LIBRARIES))
    for library, names in IMPORTS.items():
        missing = sorted(set(names.split()) - imports.get(library, set()))
        report.expect(f"imports by name from {library}", missing)

    for name, flag in (
        ("DYNAMIC_BASE", pe.DYNAMIC_BASE),
        ("HIGH_ENTROPY_VA", pe.HIGH_ENTROPY_VA),
        ("NX_COMPAT", pe.NX_COMPAT),
    ):
        report.expect(f"flag {name}", [] if pe.dll_characteristics & flag else ["not set"])
    report.expect("relocations are there", [] if pe.has_relocations() else ["none: the image could not move"])
    report.expect("image base above 4 GB", [] if pe.image_base >= 1 << 32 else [hex(pe.image_base)])

    strings = pe.version_strings()
    for name, value in {
        "CompanyName": "Ravlo",
        "FileDescription": "Ravlo virtual camera media source",
        "FileVersion": version,
        "OriginalFilename": "rvmediasource.dll",
        "ProductName": "Ravlo",
        "ProductVersion": version,
    }.items():
        report.expect(f"version resource, {name}", unequal(strings.get(name), value))


def check_objects(report, folder):
    objects = sorted(folder.rglob("*.cpp.obj"))
    report.expect("objects of the module are there", [] if objects else [f"none below {folder}"])
    calls = {}
    for path in objects:
        listing = subprocess.run(
            ["x86_64-w64-mingw32-nm", "--undefined-only", "--format=posix", path],
            check=True, capture_output=True, text=True,
        )
        calls[path] = [line.split()[0] for line in listing.stdout.splitlines()]
    for what, pattern in FORBIDDEN_CALLS.items():
        found = [f"{path.name} calls {name}" for path, names in calls.items() for name in names if pattern.search(name)]
        report.expect(f"no object calls {what}", found)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--dll", type=pathlib.Path, required=True)
    parser.add_argument("--objects", type=pathlib.Path, required=True)
    parser.add_argument("--version-file", type=pathlib.Path, required=True)
    options = parser.parse_args()
    version = re.search(r"project\(ravlo VERSION ([0-9.]+)", options.version_file.read_text(encoding="utf-8")).group(1)

    report = Report()
    check_image(report, PeFile(options.dll.read_bytes()), version)
    check_objects(report, options.objects)
    return 1 if report.failures else 0


if __name__ == "__main__":
    sys.exit(main())
