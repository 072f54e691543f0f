"""Turns the benchmark's results into the table and the plot of docs/performance.md.

Usage: report.py RESULTS.json PERFORMANCE.md PLOT.svg
"""

import json
import math
import platform
import re
import sys
import textwrap
from pathlib import Path

LIMIT = 1.10  # the highest ratio that is good enough
SIZES = [10, 100, 1000, 10000]
OPERATIONS = [("get_optimize_sorce", "get"), ("set_optimize_sorce", "set"), ("ls_service", "list")]
COLOURS = ["#0072b2", "#d55e00", "#009e73"]


def duration(nanoseconds):
    for unit, size in (("ms", 1e6), ("µs", 1e3)):
        if nanoseconds >= size:
            return f"{nanoseconds / size:.3g} {unit}"
    return f"{nanoseconds:.3g} ns"


def table(time):
    lines = ["| operation | entries | time | floor | ratio |", "| --- | --- | --- | --- | --- |"]
    figures = [(name, size, f"/{size}", key) for name, key in OPERATIONS for size in SIZES]
    for name, entries, suffix, key in [*figures, ("ignore_service, twice", 1000, "", "ignore")]:
        measured, floor = time[key + suffix], time[f"{key}_floor{suffix}"]
        verdict = "" if measured <= LIMIT * floor else ", missed"
        lines.append(
            f"| {name} | {entries:,} | {duration(measured)} | {duration(floor)} "
            f"| {measured / floor:.2f}{verdict} |"
        )
    lines.append(f"| ls_reg | - | {duration(time['nothing'])} | - | - |")
    return "\n".join(lines) + "\n"


def machine(context):
    cpu = re.search(r"model name\s*: (.*)", Path("/proc/cpuinfo").read_text())
    text = (
        f"Measured on {context['date'][:10]}: {cpu[1] if cpu else 'unknown processor'}, "
        f"{context['num_cpus']} cores, load {context['load_avg'][0]:.2f} before; "
        f"{platform.system()} {platform.release()}, {context['file_system']}; "
        f"{context['compiler']}, libxml2 {context['libxml2']}."
    )
    return textwrap.fill(text, 100, break_on_hyphens=False) + "\n"


def plot(time):
    """Time over entries, both logarithmic: each operation a line, its floor a pale band below."""
    left, right, top, bottom = 70, 595, 20, 380
    low = math.floor(math.log10(time["get/10"]))
    high = math.ceil(math.log10(time["list/10000"]))
    svg = [
        '<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 640 440" '
        'font-family="sans-serif" font-size="13">',
        '<rect width="640" height="440" fill="white"/>',
    ]

    def x(entries):
        return left + (right - left) * (math.log10(entries) - 1) / 3

    def y(nanoseconds):
        return bottom - (bottom - top) * (math.log10(nanoseconds) - low) / (high - low)

    def line(points, style):
        places = " ".join(f"{a:.1f},{b:.1f}" for a, b in points)
        svg.append(f'<polyline points="{places}" fill="none" {style}/>')

    def text(at_x, at_y, words, anchor):
        svg.append(f'<text x="{at_x:.1f}" y="{at_y:.1f}" text-anchor="{anchor}">{words}</text>')

    for size in SIZES:
        line([(x(size), top), (x(size), bottom)], 'stroke="#dddddd"')
        text(x(size), bottom + 20, f"{size:,}", "middle")
    for power in range(low, high + 1):
        line([(left, y(10**power)), (right, y(10**power))], 'stroke="#dddddd"')
        text(left - 8, y(10**power) + 4, duration(10**power), "end")
    text((left + right) / 2, bottom + 45, "configured entries", "middle")
    for row, ((name, key), colour) in enumerate(zip(OPERATIONS, COLOURS)):
        at = top + 22 + 20 * row
        legend = [(left + 15, at), (left + 45, at)]
        for figure, width in ((f"{key}_floor", '"9" stroke-opacity="0.3"'), (key, '"2"')):
            for points in ([(x(n), y(time[f"{figure}/{n}"])) for n in SIZES], legend):
                line(points, f'stroke="{colour}" stroke-width={width}')
        text(left + 53, at + 4, f"{name}, on its floor", "start")
    return "\n".join(svg) + "\n</svg>\n"


def main():
    results, document, picture = map(Path, sys.argv[1:])
    measured = json.loads(results.read_text())
    time = {
        row["run_name"].replace("/real_time", ""): row["real_time"]
        for row in measured["benchmarks"]
        if row.get("aggregate_name") == "median"
    }
    report = table(time) + "\n" + machine(measured["context"])
    print(report, end="")
    picture.write_text(plot(time))
    begin, end = "<!-- measured: begin -->\n", "<!-- measured: end -->\n"
    before, rest = document.read_text().split(begin)
    document.write_text(f"{before}{begin}\n{report}\n{end}{rest.split(end)[1]}")


main()
