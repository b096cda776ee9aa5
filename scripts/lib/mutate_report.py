"""What is known of each mutation, kept in a table on disk, and the tables and lists made of it."""

import difflib
import threading
from pathlib import Path

# passed: by the matching programs only so far; equal: compiles to the same code; broken: does not compile.
VERDICTS = ("caught", "survived", "passed", "equal", "broken")


class Results:
    """One line a judgement, appended at once: identity, verdict, who caught it, seconds. The last one counts."""

    def __init__(self, file, resume):
        self._file = Path(file)
        self._lock = threading.Lock()
        self._known = {}
        if resume and self._file.exists():
            for line in self._file.read_text(encoding="utf-8").split("\n"):
                fields = line.split("\t")
                if len(fields) == 4:
                    self._known[fields[0]] = fields[1:]
        else:
            self._file.write_text("", encoding="utf-8")

    def add(self, mutation, verdict, killer, seconds):
        with self._lock:
            self._known[mutation.identity] = [verdict, killer, f"{seconds:.0f}"]
            with open(self._file, "a", encoding="utf-8") as file:
                file.write("\t".join([mutation.identity, *self._known[mutation.identity]]) + "\n")

    def verdict(self, mutation):
        return self._known.get(mutation.identity, [""])[0]

    def killer(self, mutation):
        return self._known.get(mutation.identity, ["", ""])[1]


def read_equivalents(file):
    """Identities of mutations that change nothing to be seen, each with the reason on the indented lines below it."""
    reasons, current = {}, None
    for line in Path(file).read_text(encoding="utf-8").split("\n"):
        if line.startswith("#") or not line.strip():
            continue
        if line[0].isspace():
            reasons[current] = f"{reasons[current]} {line.strip()}".strip()
        else:
            current = line.strip()
            reasons[current] = ""
    unexplained = [identity for identity, reason in reasons.items() if not reason]
    if unexplained:
        raise SystemExit(f"{file} gives no reason for: {unexplained[0]}")
    return reasons


def difference(mutation, text):
    before, after = text.split("\n"), mutation.apply(text).split("\n")
    lines = difflib.unified_diff(before, after, mutation.path, mutation.path, lineterm="", n=0)
    return "\n".join(f"    {line}" for line in list(lines)[2:])


def print_report(mutations, results, equivalents, texts, goal):
    """True when enough were caught, and every one was judged to the end."""
    rows, survivors, listed_wrongly = {}, [], []
    explained = 0
    for mutation in sorted(mutations, key=lambda m: (m.path, m.line)):
        verdict = results.verdict(mutation)
        if mutation.identity in equivalents:
            explained += 1
            if verdict == "caught":
                listed_wrongly.append(mutation)
            continue
        row = rows.setdefault(str(Path(mutation.path).parent), {"caught": 0, "survived": 0})
        if verdict == "caught":
            row["caught"] += 1
        else:
            row["survived"] += 1
            survivors.append(mutation)
    print(f"{'folder':<16}{'mutations':>10}{'caught':>8}{'survived':>10}{'':>8}")
    total = {"caught": sum(r["caught"] for r in rows.values()), "survived": len(survivors)}
    for folder, row in [*sorted(rows.items()), ("all", total)]:
        count = row["caught"] + row["survived"]
        print(f"{folder:<16}{count:>10}{row['caught']:>8}{row['survived']:>10}{_percent(row['caught'], count):>7} %")
    print(f"{explained} more are known to change nothing that can be seen: scripts/lib/mutations/equivalent.txt")
    for mutation in survivors:
        verdict = results.verdict(mutation)
        print(f"\n{verdict or 'not judged'}: {mutation.path}:{mutation.line}: {mutation.operator}: {mutation.detail}")
        print(difference(mutation, texts[mutation.path]))
    for mutation in listed_wrongly:
        print(f"\nlisted as changing nothing, yet {results.killer(mutation)} sees it:\n  {mutation.identity}")
    count = total["caught"] + total["survived"]
    return count > 0 and 100 * total["caught"] >= goal * count and not listed_wrongly


def _percent(part, whole):
    return f"{100 * part / whole:.1f}" if whole else "-"
