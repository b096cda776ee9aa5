"""What a play wrote, whether it was survived, and the table of all plays."""

import collections
import re

from fault_places import KIND_NONE, KIND_WIN32

LIE = 99  # instead of a failure's number: the call claims success and does nothing

# Lies that nobody can survive unnoticed, and what the sweep must say of each: (call, function, sticky, words).
LIES = [
    ("CloseHandle", "ProcessUserText", False, "handles instead of"),
    ("MFCreateSample", "BuildSample", False, "CRASH"),
    ("IMFSample::SetSampleTime", "BuildSample", True, "left the grid"),
    ("LocalFree", "TraceIdentity", False, "blocks of the local heap kept"),
    ("PropVariantClear", "DeliverSample", False, "blocks of the platform instead of"),
    ("RegCloseKey", "RegisterClassKeys", False, "handles instead of"),
    ("CreateEventW", "StartPipeThreads", False, "handles closed that were not open"),
    ("IMFMediaEventQueue::QueueEventParamVar", "DeliverSample", True, "not shown afterwards: pattern"),
]
LIES_WHEN_QUICK = 3
NOT_SHOWN = "not shown afterwards"


class Play:
    """One life of the camera with one call failing, and what came of it."""

    def __init__(self, site, occurrence, sticky, failure, expected=""):
        self.site, self.occurrence, self.sticky, self.failure = site, occurrence, sticky, failure
        self.expected = expected  # of a lie: what must be noticed
        self.number = 0
        self.lines = []
        self.ended = False
        self.trouble = ""  # a crash or a hang
        self.attempts = 0
        self.judged = self.missed = self.repeated = False
        self.reasons = []

    def __str__(self):
        which = f"from call {self.occurrence} on" if self.sticky else f"call {self.occurrence}"
        how = "which lies" if self.expected else f"failure {self.failure + 1} of {self.site.failures}"
        return f"{self.site}, {which}, {how}"

    def values(self, word):
        return [line[len(word) + 1 :] for line in self.lines if line.startswith(word + " ")]

    def pairs(self, word):
        return dict(pair.split("=") for text in self.values(word) for pair in text.split())

    def was_late(self):
        """True once when nothing is wrong but that something was not shown: with clocks ten times as fast a frame is
        fresh for a tenth of a second only, which a busy machine may take to look at it."""
        return not self.repeated and bool(self.reasons) and all(text.startswith(NOT_SHOWN) for text in self.reasons)

    def delivered(self):
        """How often the failure was handed out, and its code."""
        for text in self.values("DELIVERED"):
            count, code = text.split()
            return int(count), int(code)
        return 0, 0


def normalised(line):
    """A line of the log without what differs from play to play."""
    line = re.sub(r"Ravlo\.\d+", "Ravlo.#", line)
    line = re.sub(r"\b(?:0x)?[0-9A-F]{16}\b", "#", line)
    return re.sub(r"tid=\d+|pid=\d+|observed \d+|\d+ of \d+ samples|^PIPE \d+ ms passed", "#", line)


class Judge:
    def __init__(self, rules, usual_lines):
        self.rules = rules
        self.usual_lines = usual_lines

    def code_shows(self, play, code):
        """In a line that a play without a fault does not write, or as a result that the client got."""
        forms = {f"0x{code:08X}"}
        if play.site.kind == KIND_WIN32:
            forms |= {f"0x{0x80070000 | code:08X}"}
            forms |= {f"{word}={code}" for word in ("GetLastError", "err", "gateerr", "openerr")}
        for line in play.values("LOG"):
            if normalised(line) not in self.usual_lines and any(
                re.search(re.escape(form) + r"(?!\d)", line) for form in forms
            ):
                return True
        return any(f"0x{result.split()[0]}" in forms for result in play.values("RESULT"))

    def judge(self, play):
        play.judged = True
        if play.trouble:
            play.reasons = [play.trouble]
        elif play.delivered()[0] == 0:
            play.missed = True
            play.reasons = ["the call was not made"] if play.occurrence == 1 else []
        else:
            play.reasons = self.complaints(play)
        if play.expected:
            noticed = any(play.expected in reason for reason in play.reasons)
            play.reasons = [] if noticed else [f"nobody noticed it; due was: {play.expected}", *play.reasons]

    def complaints(self, play):
        site = play.site
        code = play.delivered()[1]
        abandons = self.rules.find(site, "abandons", code)
        complaints = play.values("WRONG")
        if abandons:
            # Threads that nobody could wait for keep what they use until the process ends.
            complaints = [text for text in complaints if not re.match("while loaded|after the unload|objects of", text)]
        complaints += self.kept(play, abandons)
        complaints += self.results(play)
        complaints += self.not_shown(play, code)
        for effect in ("line", *(("line-when-kept-up",) if play.sticky else ())):
            rule = None if self.rules.find(site, "no-line", code) else self.rules.find(site, effect, code)
            if rule and not any(text.strip() in line for line in play.values("LOG") for text in rule.line.split("||")):
                complaints.append(f"the log lacks: {rule.line}")
        if code and not self.rules.find(site, "silent", code) and not self.code_shows(play, code):
            complaints.append(f"code {code} (0x{code & 0xFFFFFFFF:08X}) shows nowhere")
        return complaints

    @staticmethod
    def kept(play, abandons):
        held = play.pairs("HELD")
        texts = {"local": "blocks of the local heap kept", "closes": "handles closed that were not open"}
        if not abandons:
            texts["running"] = "threads still running"
        return [f"{held.get(name)} {text}" for name, text in texts.items() if held.get(name) != "0"]

    def results(self, play):
        """A client meets the failure in the call that ran into it and nowhere else; other threads' it never meets."""
        results = [text.split(" ", 3) for text in play.values("RESULT")]
        if play.site.role != "client":
            return [f"the client noticed: {step} gave 0x{hr}" for hr, _, _, step in results]
        if play.sticky:
            return []
        complaints = [
            f"{step} gave 0x{hr}" + (" when tried again" if int(repeated) else "")
            for hr, during, repeated, step in results
            if int(repeated) or not int(during)
        ]
        code = play.delivered()[1]
        if self.rules.find(play.site, "silent", code):
            return complaints
        right = {KIND_NONE: 0x8007000E, KIND_WIN32: 0x80070000 | code}.get(play.site.kind, code)
        return complaints + [
            f"{step} gave 0x{hr} instead of 0x{right:08X}"
            for hr, during, _, step in results
            if int(during) and int(hr, 16) != right
        ]

    def not_shown(self, play, code):
        """The camera serves its pattern whatever befalls its threads, and all else works after a single failure."""
        wanted = [] if play.site.role == "client" and play.sticky and not play.expected else ["client", "pattern"]
        if not play.sticky:
            wanted += ["live", "header", "mismatch", "gate"]
        shown = play.pairs("SHOWN")
        return [
            f"{NOT_SHOWN}: {what}"
            for what in wanted
            if shown.get(what) != "1" and not self.rules.find(play.site, f"no-{what}", code)
        ]


def print_table(plays):
    """Rows by call. Returns the sums: sites, injected, survived."""
    rows = collections.OrderedDict()
    for play in sorted(plays, key=lambda play: play.site.call):
        row = rows.setdefault(play.site.call, {"sites": set(), "injected": 0, "survived": 0})
        row["sites"].add(play.site.number)
        if play.judged and not play.missed:
            row["injected"] += 1
            row["survived"] += 0 if play.reasons else 1
    print(f"{'call':<46} {'sites':>6} {'injected':>9} {'survived':>9}")
    for call, row in rows.items():
        print(f"{call:<46} {len(row['sites']):>6} {row['injected']:>9} {row['survived']:>9}")
    sums = [sum(len(row["sites"]) for row in rows.values())]
    sums += [sum(row[column] for row in rows.values()) for column in ("injected", "survived")]
    print(f"{'all':<46} {sums[0]:>6} {sums[1]:>9} {sums[2]:>9}")
    return sums


def print_left_out(imports, sites, rules):
    reasons = collections.OrderedDict()
    for _, name, reason in imports:
        if reason != "-":
            reasons.setdefault(reason, []).append(name)
    print("\nleft out, because")
    for reason, names in reasons.items():
        print(f"  {reason}:\n      {', '.join(sorted(names))}")
    reached = {site.call for site in sites}
    idle = [name for _, name, reason in imports if reason == "-" and name not in reached]
    if idle:
        print(f"  the camera's life without a fault does not come to them:\n      {', '.join(sorted(idle))}")
    for site in sites:
        rule = rules.find(site, "left-out") if site.failures else None
        if rule:
            print(f"  {rule.reason}:\n      {site}")
