"""Turns the benchmark's results into the tables and the plot of docs/performance.md.

Usage: report.py RESULTS.json PERFORMANCE.md PLOT.svg
"""

import json
import math
import platform
import re
import sys
from pathlib import Path

SIZES = [10, 100, 1000, 10000]
OPERATIONS = [
    # figure, operation, colour
    ("get", "get_optimize_sorce", "#0072b2"),
    ("set", "set_optimize_sorce", "#d55e00"),
    ("list", "ls_service", "#009e73"),
]


def medians(results):
    """The medians by figure, e.g. "get_floor/100"."""
    return {
        row["run_name"].replace("/real_time", ""): row
        for row in results["benchmarks"]
        if row.get("aggregate_name") == "median"
    }


def duration(nanoseconds):
    for unit, size in (("ms", 1e6), ("µs", 1e3)):
        if nanoseconds >= size:
            return f"{nanoseconds / size:.3g} {unit}"
    return f"{nanoseconds:.3g} ns"


def table(head, rows):
    lines = [head, ["---"] * len(head), *rows]
    return "".join("| " + " | ".join(line) + " |\n" for line in lines)


def ratio_row(figure, entries, measured, floor, limit):
    ratio = measured / floor
    verdict = "" if ratio <= limit else ", missed"
    return [
        figure,
        f"{entries:,}",
        duration(measured),
        duration(floor),
        f"{ratio:.2f}",
        f"{limit:g}{verdict}",
    ]


def ratios(median):
    def time(figure, entries):
        return median[f"{figure}/{entries}"]["real_time"]

    def module_time(entries):
        call, floor = median[f"list/{entries}"], median[f"list_floor/{entries}"]
        return (call["cpu_time"] - floor["cpu_time"]) / entries

    rows = [
        ratio_row(name, size, time(figure, size), time(figure + "_floor", size), 1.15)
        for figure, name, _ in OPERATIONS
        for size in SIZES
    ]
    rows += [
        ratio_row("module time per entry", size, module_time(size), module_time(100), 1.5)
        for size in (1000, 10000)
    ]
    rows += [
        ratio_row(name, 1000, time(figure, 1000), time(figure + "_floor", 1000), 2)
        for figure, name in (("select_ids", "selecting by id"), ("change_ids", "changing by id"))
    ]
    return table(["figure", "entries", "measured", "floor", "ratio", "to reach"], rows)


def nothing(median):
    call = median["nothing"]
    return (
        f"One `ls_reg`, which does nothing, takes {duration(call['real_time'])} and "
        f"{call['allocations']:.0f} allocations through `call_func`.\n"
    )


def machine(context):
    cpu = re.search(r"model name\s*: (.*)", Path("/proc/cpuinfo").read_text())
    rows = [
        ("date", context["date"][:10]),
        ("processor", f"{cpu[1] if cpu else platform.machine()}, {context['num_cpus']} cores"),
        ("load before", f"{context['load_avg'][0]:.2f}"),
        ("kernel", f"{platform.system()} {platform.release()}"),
        ("compiler", context["compiler"]),
        ("libxml2", context["libxml2"]),
        ("file system", context["file_system"]),
    ]
    return table(["machine", ""], [list(row) for row in rows])


def plot(median):
    """Cost over entries, both logarithmic: each operation a line, its floor a pale band below."""
    left, right, top, bottom = 70, 595, 20, 380
    series = {
        figure: [median[f"{figure}/{size}"]["real_time"] for size in SIZES]
        for operation, *_ in OPERATIONS
        for figure in (operation, operation + "_floor")
    }
    low = math.floor(math.log10(min(map(min, series.values()))))
    high = math.ceil(math.log10(max(map(max, series.values()))))

    def x(entries):
        return left + (right - left) * (math.log10(entries) - 1) / 3

    def y(nanoseconds):
        return bottom - (bottom - top) * (math.log10(nanoseconds) - low) / (high - low)

    def line(x1, y1, x2, y2, style):
        return f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" {style}/>'

    def text(at_x, at_y, words, style=""):
        return f'<text x="{at_x:.1f}" y="{at_y:.1f}" {style}>{words}</text>'

    band = 'stroke-width="9" stroke-opacity="0.3" fill="none"'
    grid = 'stroke="#dddddd"'
    middle = 'text-anchor="middle"'
    svg = [
        '<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 640 440" '
        'font-family="sans-serif" font-size="13">',
        '<rect width="640" height="440" fill="white"/>',
    ]
    for size in SIZES:
        svg.append(line(x(size), top, x(size), bottom, grid))
        svg.append(text(x(size), bottom + 20, f"{size:,}", middle))
    for power in range(low, high + 1):
        svg.append(line(left, y(10**power), right, y(10**power), grid))
        svg.append(
            text(left - 8, y(10**power) + 4, duration(10**power), 'text-anchor="end"')
        )
    svg.append(text((left + right) / 2, bottom + 45, "configured entries", middle))
    for row, (figure, name, colour) in enumerate(OPERATIONS):
        for drawn, style in ((figure + "_floor", band), (figure, 'stroke-width="2" fill="none"')):
            points = " ".join(f"{x(n):.1f},{y(t):.1f}" for n, t in zip(SIZES, series[drawn]))
            svg.append(f'<polyline points="{points}" stroke="{colour}" {style}/>')
        for size, time in zip(SIZES, series[figure]):
            svg.append(f'<circle cx="{x(size):.1f}" cy="{y(time):.1f}" r="3.5" fill="{colour}"/>')
        at = top + 22 + 20 * row
        svg.append(line(left + 15, at, left + 45, at, f'stroke="{colour}" {band}'))
        svg.append(line(left + 15, at, left + 45, at, f'stroke="{colour}" stroke-width="2"'))
        svg.append(text(left + 53, at + 4, f"{name}, on its floor"))
    svg.append("</svg>\n")
    return "\n".join(svg)


def main():
    results, document, picture = map(Path, sys.argv[1:])
    measured = json.loads(results.read_text())
    median = medians(measured)
    tables = "\n".join((ratios(median), nothing(median), machine(measured["context"])))
    print(tables, end="")
    picture.write_text(plot(median))
    begin, end = "<!-- measured: begin -->\n", "<!-- measured: end -->\n"
    before, rest = document.read_text().split(begin)
    after = rest.split(end)[1]
    document.write_text(f"{before}{begin}\n{tables}\n{end}{after}")


main()
