"""The places from which the module calls the platform, by name, and what the sweep accepts of each."""

import collections
import re
import subprocess

IMAGE_BASE = 0x180000000
ADDR2LINE = "x86_64-w64-mingw32-addr2line"
KIND_NONE, KIND_WIN32 = 0, 1  # as the program of the sweep numbers the kinds of codes

Rule = collections.namedtuple("Rule", "call function role effects line reason")


class Site:
    """A gated function, called from one place on one kind of thread."""

    def __init__(self, fields):
        self.key, self.role, self.call = fields[0], fields[1], fields[2]
        self.kind, self.failures, self.hits = int(fields[3]), int(fields[4]), int(fields[5])
        self.frames = [int(frame, 16) for frame in fields[6:]]
        self.fresh = False  # only reached while the module is being loaded, or for the first time since
        self.number = 0
        self.functions = []  # of the whole stack, innermost first
        self.place = "?"

    def __str__(self):
        return f"site {self.number} ({self.role}: {self.call} at {self.place})"

    def callers(self, function):
        """The functions that a rule's function may name."""
        functions = self.functions or [""]
        return functions[:1] if function.startswith(">") else functions

    def takes(self, rule, code):
        return (
            rule.role in ("*", self.role)
            and any(re.fullmatch(rule.call, call) for call in (self.call, f"{self.call}:{code}"))
            and any(re.search(rule.function.lstrip(">"), name) for name in self.callers(rule.function))
        )


class Rules:
    """The exceptions from the rule that an injected code shows and everything works afterwards."""

    def __init__(self, path):
        self.rules = []
        self.used = set()
        for line in path.read_text(encoding="utf-8").splitlines():
            if line.strip() and not line.startswith("#"):
                parts = (part.strip() for part in re.split(r"(?<!\|) \|(?!\|)", line, maxsplit=5))
                call, function, role, effects, text, reason = parts
                self.rules.append(Rule(call, function, role, tuple(effects.split()), text, reason))

    def find(self, site, effect, code=None):
        for rule in self.rules:
            if effect in rule.effects and site.takes(rule, code):
                self.used.add(rule)
                return rule
        return None

    def unused(self):
        return [rule for rule in self.rules if rule not in self.used]


def stacks_of(offsets, debug_file):
    """What lies at each place that a call returns to: {offset: [(function, file and line), ...]}, innermost first."""
    # The call ends where it returns to: the byte before that is still part of it.
    addresses = "\n".join(hex(IMAGE_BASE + offset - 1) for offset in sorted(set(offsets)))
    rows = subprocess.run(
        [ADDR2LINE, "-f", "-C", "-i", "-a", "-e", str(debug_file)],
        input=addresses, capture_output=True, text=True, check=True,
    ).stdout.splitlines()
    stacks, current, index = {}, None, 0
    while index < len(rows):
        if re.fullmatch(r"0x[0-9a-f]{16}", rows[index]):
            current = stacks.setdefault(int(rows[index], 16) - IMAGE_BASE + 1, [])
            index += 1
        else:
            current.append((rows[index], rows[index + 1]))
            index += 2
    return stacks


def name_sites(sites, debug_file):
    """Gives every site the functions of its stack and a file and line of the module's own code."""
    stacks = stacks_of([frame for site in sites for frame in site.frames], debug_file)
    for site in sites:
        stack = [entry for frame in site.frames for entry in stacks.get(frame, [])]
        site.functions = [re.sub(r"\(.*", "", name) for name, _ in stack]
        own = [place for _, place in stack if re.search(r"(^|/)src/", place)]
        # The holders of handles and the like are called from everywhere; who holds tells more.
        telling = [place for place in own if "/platform/" not in place]
        best = (telling or own or ["the runtime"])[0]
        site.place = re.sub(r"^.*?\bsrc/", "", best).split(" (")[0]
