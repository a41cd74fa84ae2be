#!/usr/bin/env python3
"""Prints the tables of a run of the benchmarks: one for each section, a row for each work and size.

A benchmark is named section/work/subject/size. Of each, the median over the repetitions counts. The subject "Enrolix" is
the project's own, one that begins with "floor: " is a bare operation that no subject can do without, every other one is
a peer, and the peer with the least figure is the best. Counters named as in UNITS are rows of their own.
"""

import argparse
import json
import statistics
import sys

OURS = "Enrolix"
FLOOR = "floor: "
UNITS = {"ns": "", "bytes": "bytes", "allocations": "allocations"}


def read(files):
    """{section: {(work, size, unit): {subject: median}}}, in the order of the files."""
    samples = {}
    for file in files:
        with open(file, encoding="utf-8") as text:
            runs = json.load(text)["benchmarks"]
        # The repetitions were mixed; the tables go by the order in which the benchmarks were entered.
        for run in sorted(runs, key=lambda run: run["family_index"]):
            if run["run_type"] != "iteration" or run.get("error_occurred"):
                continue
            section, work, subject, size = run["run_name"].split("/")[:4]
            figures = {unit: run[unit] for unit in UNITS if unit in run}
            if "items_per_second" in run:
                figures["ns"] = 1e9 / run["items_per_second"]
            for unit, value in figures.items():
                row = samples.setdefault(section, {}).setdefault((work, int(size), unit), {})
                row.setdefault(subject, []).append(value)
    return {
        section: {key: {s: statistics.median(v) for s, v in row.items()} for key, row in rows.items()}
        for section, rows in samples.items()
    }


def number(value):
    return f"{value:.1f}" if value < 100 else f"{value:,.0f}"


def ratio(ours, other):
    return f"{ours / other:.2f}" if ours is not None and other else ""


def summary(rows):
    header = ["work", "size", "ours", "best peer", "", "ratio", "floor", "ratio"]
    lines = []
    for (work, size, unit), row in rows.items():
        ours = row.get(OURS)
        peers = {s: v for s, v in row.items() if s != OURS and not s.startswith(FLOOR)}
        best = min(peers, key=peers.get, default=None)
        floors = [v for s, v in row.items() if s.startswith(FLOOR)]
        floor = floors[0] if floors else None
        lines.append([
            f"{work}, {UNITS[unit]}" if UNITS[unit] else work,
            f"{size:,}",
            number(ours) if ours is not None else "",
            number(peers[best]) if best else "",
            best or "",
            ratio(ours, peers.get(best)),
            number(floor) if floor is not None else "",
            ratio(ours, floor),
        ])
    return [header] + lines


def everything(rows):
    subjects = list(dict.fromkeys(subject for row in rows.values() for subject in row))
    subjects.sort(key=lambda s: (s != OURS, s.startswith(FLOOR)))
    lines = [["work", "size"] + subjects]
    for (work, size, unit), row in rows.items():
        name = f"{work}, {UNITS[unit]}" if UNITS[unit] else work
        lines.append([name, f"{size:,}"] + [number(row[s]) if s in row else "" for s in subjects])
    return lines


def show(lines, markdown):
    is_text = [all(not cell[:1].isdigit() for cell in column) for column in zip(*lines[1:])]
    if markdown:
        rule = ["---" if text else "---:" for text in is_text]
        for line in [lines[0], rule] + lines[1:]:
            print("| " + " | ".join(line) + " |")
        return
    widths = [max(map(len, column)) for column in zip(*lines)]
    for line in lines:
        cells = [c.ljust(w) if text else c.rjust(w) for c, w, text in zip(line, widths, is_text)]
        print("  ".join(cells).rstrip())


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("files", nargs="+", metavar="JSON", help="what the benchmarks wrote")
    parser.add_argument("--markdown", action="store_true", help="print the tables as Markdown")
    parser.add_argument("--all", action="store_true", help="print every subject, not the best peer alone")
    options = parser.parse_args()
    sections = read(options.files)
    if not sections:
        sys.exit("table: no benchmark was run")
    for section, rows in sections.items():
        print(f"\n### {section}\n" if options.markdown else f"\n==> {section}, ns unless said otherwise")
        show(everything(rows) if options.all else summary(rows), options.markdown)


if __name__ == "__main__":
    main()
