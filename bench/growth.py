"""Measures how the CPU time of downloads grows with their number and with their size, and draws it.

usage: growth.py BUILD-DIRECTORY PLOT.svg [LARGEST-SIZE-IN-MIB] [ROUNDS]

Figures are medians over the rounds. Files larger than a round's worth of memory are measured once.
"""

import pathlib
import statistics
import sys

import matplotlib

matplotlib.use("svg")
# Text as text, and identifiers that are the same every time.
matplotlib.rcParams.update({"svg.fonttype": "none", "svg.hashsalt": "voinet"})

import matplotlib.pyplot as plt  # noqa: E402  (after the choice of the backend)

import figures  # noqa: E402
import servers  # noqa: E402
from measure import measure  # noqa: E402
from workplace import Workplace, write_random  # noqa: E402

COUNTS = (1, 10, 100, 1000)
SIZES_MIB = (1, 16, 128, 1024, 8192)
REPEATED_UP_TO_MIB = 1024
WARM_UP_TO_MIB = 1024

STYLES = {"library": "o-", "bare libcurl": "s--", "curl": "^:", "wget": "v-."}


def commands(place, port, name, target, count):
    """One process per tool that downloads `name` `count` times, each to a file of its own."""
    url = f"http://127.0.0.1:{port}/{name}"
    addresses = place.work / "addresses"
    addresses.write_text("".join(f"{url}?{number}\n" for number in range(count)))
    return {
        "library": figures.download_command(place, "http", port, name, target, count, "numbered"),
        "bare libcurl": figures.bare_command(place, port, name, target, count, "numbered"),
        "curl": ("curl", "-s", f"{url}?[1-{count}]", "-o", f"{target}#1"),
        "wget": ("wget", "-q", "-P", target.parent, "-i", addresses),
    }


def median_times(place, port, name, count, rounds, warm_mib):
    """CPU seconds by tool, the tools in turns."""
    times = {tool: [] for tool in STYLES}
    for number in range(rounds):
        tools = list(STYLES)[number % len(STYLES):] + list(STYLES)[:number % len(STYLES)]
        for tool in tools:
            target = place.small_target()
            command = commands(place, port, name, target, count)[tool]
            times[tool].append(measure(*command, warm_mib=warm_mib)[0])
            files = list(target.parent.iterdir())
            if len(files) != count:
                sys.exit(f"{tool} made {len(files)} files instead of {count}")
            place.check(files[0], name)
    place.small_target()
    return {tool: statistics.median(values) for tool, values in times.items()}


def measure_counts(place, port):
    return {count: median_times(place, port, "small", count, place.rounds, 0)
            for count in COUNTS}


def measure_sizes(place, port, largest_mib):
    measured = {}
    for size_mib in (size for size in SIZES_MIB if size <= largest_mib):
        write_random(place.root / "sized", size_mib << 20)
        rounds = place.rounds if size_mib <= REPEATED_UP_TO_MIB else 1
        # The library holds a file twice for a moment, and the file served is in memory as well.
        warm_mib = 3 * min(size_mib, WARM_UP_TO_MIB)
        measured[size_mib] = median_times(place, port, "sized", 1, rounds, warm_mib)
    (place.root / "sized").unlink()
    return measured


def show(what, measured):
    print(f"| {what} | " + " | ".join(f"{tool}, CPU s" for tool in STYLES) + " |")
    print("|---" * (len(STYLES) + 1) + "|")
    for point, times in measured.items():
        print(f"| {point} | " + " | ".join(f"{times[tool]:.3f}" for tool in STYLES) + " |")
    print(flush=True)


def draw(axes, title, label, measured):
    for tool, style in STYLES.items():
        axes.plot(list(measured), [times[tool] for times in measured.values()], style, label=tool)
    axes.set(title=title, xlabel=label, ylabel="CPU seconds", xscale="log", yscale="log")
    axes.set_xticks(list(measured), [f"{point:,}" for point in measured])
    axes.minorticks_off()
    axes.grid(alpha=0.3)
    axes.legend()


def plot(file, counts, sizes):
    drawing, (left, right) = plt.subplots(1, 2, figsize=(11, 4.5), layout="constrained")
    draw(left, "Downloads of 4 KiB in one process", "downloads", counts)
    draw(right, "One download", "MiB", sizes)
    drawing.savefig(file, metadata={"Date": None, "Creator": None})


def main():
    build, file = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
    largest_mib = int(sys.argv[3]) if len(sys.argv) > 3 else 1024
    rounds = int(sys.argv[4]) if len(sys.argv) > 4 else 3
    with Workplace(build, 1, rounds) as place, servers.nginx(place.work) as port:
        counts = measure_counts(place, port)
        show("downloads of 4 KiB", counts)
        sizes = measure_sizes(place, port, largest_mib)
        show("one download of MiB", sizes)
    plot(file, counts, sizes)


if __name__ == "__main__":
    main()
