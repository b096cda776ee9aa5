#!/usr/bin/env python3
"""Judges one run of the demo: what the camera showed in each phase of the story.

usage: demo_judge.py SAMPLES.csv PHASES.tsv TRACE.log

SAMPLES.csv is what rvhost wrote. PHASES.tsv has one line a phase: name, expected picture (live or pattern), begin,
time from which it is judged, end (all ms since 1970), and texts that the trace log must contain within the phase,
separated by "|". Prints a table; the exit code is 0 only when every phase was as expected.
"""
import csv
import datetime
import re
import sys

# A second of grace for the camera to repeat its last frame is already in the phases; what remains must be all one kind.
# A live picture may once be replaced by the pattern when the reader publishes twice during one copy.
MIN_LIVE_SHARE = 0.99
# Share of the samples that the frame rate promises: a busy machine may lose some, a stalled camera loses most.
MIN_SAMPLE_SHARE = 0.8
TICKS_PER_MS = 10_000
MS_PER_DAY = 86_400_000
TRACE_LINE = re.compile(r'^\[\d+:\d+ [^\]]*\] (\d\d):(\d\d):(\d\d)\.(\d\d\d) (.*)$')


def read_samples(path):
    """Returns the samples as (wall clock ms, delay in ticks, kind, on grid) and the grid's period in ticks."""
    with open(path, encoding='ascii') as file:
        start_unix_ms = int(file.readline().split('=')[1])
        rows = list(csv.DictReader(file))
    times = [int(row['sample_time']) for row in rows]
    samples = [(start_unix_ms + float(row['seconds']) * 1000, int(row['arrival']) - int(row['sample_time']),
                row['kind'], row['on_grid'] == '1') for row in rows]
    steps = [later - earlier for earlier, later in zip(times, times[1:])]
    return samples, min(steps, default=0)


def read_phases(path):
    phases = []
    with open(path, encoding='utf-8') as file:
        for line in file:
            name, expected, begin, judged, end, texts = line.rstrip('\n').split('\t')
            phases.append({'name': name, 'expected': expected, 'begin': int(begin), 'judged': int(judged),
                           'end': int(end), 'texts': [text for text in texts.split('|') if text]})
    return phases


def read_trace(path):
    """Returns (UTC time of day in ms, message) of every line."""
    lines = []
    with open(path, encoding='ascii', errors='replace') as file:
        for line in file:
            match = TRACE_LINE.match(line.rstrip('\r\n'))
            if match:
                hours, minutes, seconds, ms = (int(part) for part in match.groups()[:4])
                lines.append((((hours * 60 + minutes) * 60 + seconds) * 1000 + ms, match.group(5)))
    return lines


def time_of_day(unix_ms):
    utc = datetime.datetime.fromtimestamp(unix_ms / 1000, datetime.timezone.utc)
    return ((utc.hour * 60 + utc.minute) * 60 + utc.second) * 1000 + utc.microsecond // 1000


def was_traced(trace, text, begin, end):
    first = time_of_day(begin)
    return any((at - first) % MS_PER_DAY <= end - begin and text in message for at, message in trace)


def percentile(values, percent):
    """Nearest rank."""
    ordered = sorted(values)
    return ordered[max(0, -(-len(ordered) * percent // 100) - 1)]


def judge(phase, samples, period, trace):
    """Returns the row of the table and the list of what was not as expected."""
    window = [sample for sample in samples if phase['judged'] <= sample[0] < phase['end']]
    row = [phase['name'], phase['expected'], 'nothing', str(len(window)), '-', '-', '-']
    problems = []
    if window:
        live = sum(1 for sample in window if sample[2] == 'live') / len(window)
        seen = 'live' if live >= MIN_LIVE_SHARE else 'pattern' if live == 0 else 'mixed'
        delays = [sample[1] for sample in window]
        late = [(delay - min(delays)) / TICKS_PER_MS for delay in delays]
        row[2:] = [seen, str(len(window)), f'{live:.1%}', f'{percentile(late, 50):.1f}', f'{percentile(late, 99):.1f}']
        if seen != phase['expected']:
            problems.append(f"{phase['expected']} was expected, {seen} was seen")
    promised = (phase['end'] - phase['judged']) * TICKS_PER_MS / period if period > 0 else 0
    if not window or len(window) < MIN_SAMPLE_SHARE * promised:
        problems.append(f'only {len(window)} of about {promised:.0f} samples came')
    off_grid = sum(1 for sample in window if not sample[3])
    if off_grid:
        problems.append(f'{off_grid} sample times are off the grid')
    for text in phase['texts']:
        if not was_traced(trace, text, phase['begin'], phase['end']):
            problems.append(f'the trace log has no line with "{text}"')
    return row, problems


def print_table(rows):
    header = ['phase', 'expected', 'seen', 'samples', 'live', 'late p50 ms', 'late p99 ms', 'result']
    widths = [max(len(row[i]) for row in [header] + rows) for i in range(len(header))]
    for row in [header, ['-' * width for width in widths]] + rows:
        cells = [cell.ljust(width) if i < 3 or i == 7 else cell.rjust(width)
                 for i, (cell, width) in enumerate(zip(row, widths))]
        print('  ' + '  '.join(cells).rstrip())


def main():
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    samples, period = read_samples(sys.argv[1])
    phases = read_phases(sys.argv[2])
    trace = read_trace(sys.argv[3])
    rows, complaints = [], []
    for phase in phases:
        row, problems = judge(phase, samples, period, trace)
        rows.append(row + ['FAILED' if problems else 'ok'])
        complaints += [f"{phase['name']}: {problem}" for problem in problems]
    print_table(rows)
    for complaint in complaints:
        print(f'  {complaint}')
    if not phases:
        sys.exit('there is no phase to judge')
    return 1 if complaints else 0


if __name__ == '__main__':
    sys.exit(main())
