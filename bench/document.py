#!/usr/bin/python3
"""Puts the figures of a benchmark run into the documentation: document.py RESULTS_FILE DOCS_FOLDER.

Refuses a run that was disturbed. Replaces what stands between "<!-- table: NAME -->" and "<!-- end -->" in performance.md by that
table, and draws the plots. The same data make the same files, byte for byte."""

import json
import os
import re
import sys

import matplotlib

import tables

matplotlib.use("svg")
matplotlib.rcParams.update({
    "svg.hashsalt": "performance", "svg.fonttype": "none", "font.sans-serif": ["DejaVu Sans"],
    "axes.spines.top": False, "axes.spines.right": False, "axes.grid": True, "axes.grid.axis": "y",
    "grid.linewidth": 0.4, "legend.frameon": False, "figure.constrained_layout.use": True})
from matplotlib import pyplot  # noqa: E402  the backend is chosen before

COLOURS = {"socket": "#999999", "libmodbus": "#d98c3f", "qtserialbus": "#4b9b5f",
           "driver": "#2b6cb0", "driver-text": "#7fa8d6", "driver-glib": "#7fa8d6",
           "epoll_reads": "#999999", "goburrow_reads": "#8b5fbf", "libmodbus_reads": "#d98c3f"}


def save(figure, docs, name):
    folder = os.path.join(docs, "performance")
    os.makedirs(folder, exist_ok=True)
    figure.savefig(os.path.join(folder, name), metadata={"Date": None, "Creator": None})
    pyplot.close(figure)


def draw_reads(results, docs):
    figure, axes = pyplot.subplots(figsize=(7, 3))
    us = {(one["registers"], one["client"]): one["us"] for one in results["reads"]}
    quantities = sorted({quantity for quantity, _ in us})
    clients = ("socket", "libmodbus", "qtserialbus", "driver")
    width = 0.8 / len(clients)
    for i, client in enumerate(clients):
        places = [n for n, q in enumerate(quantities) if (q, client) in us]
        runs = [us[quantities[n], client] for n in places]
        middle = [tables.median(run) for run in runs]
        spread = [[m - min(run) for m, run in zip(middle, runs)],
                  [max(run) - m for m, run in zip(middle, runs)]]
        axes.bar([n + (i - 1.5) * width for n in places], middle, width * 0.9, yerr=spread,
                 error_kw={"elinewidth": 0.8}, label=tables.CLIENTS[client], color=COLOURS[client])
    axes.set_xticks(range(len(quantities)), quantities)
    axes.set(xlabel="registers in a read", ylabel="round trip, us")
    axes.legend(ncols=4, loc="upper center", bbox_to_anchor=(0.5, 1.2))
    save(figure, docs, "reads.svg")


def draw_over_devices(axes, scale, work, key, factor):
    devices = tables.READ_DEVICES
    for client in scale.clients(work):
        axes.plot(devices, [scale.median(key, client, work, n) * factor for n in devices],
                  marker="o", label=tables.CLIENTS[client], color=COLOURS[client])
    axes.set(xscale="log", xlabel="devices")
    axes.set_xticks(devices, devices)
    axes.minorticks_off()
    axes.set_ylim(bottom=0)


def draw_scale(results, docs):
    scale = tables.Scale(results)
    figure, axes = pyplot.subplot_mosaic([["names"] * 3, ["reading", "listening", "lateness"]],
                                         figsize=(9, 3.4), gridspec_kw={"height_ratios": [1, 12]})
    names, reading, listening, lateness = axes.values()
    draw_over_devices(reading, scale, "read", "processorUsPerOrder", 1)
    reading.set(title="read after read", ylabel="processor time per order, us")
    draw_over_devices(listening, scale, "50", "processorUsPerOrder", 1)
    listening.set(title="listened to every 50 ms")
    draw_over_devices(lateness, scale, "50", "latenessP99Us", 0.001)
    lateness.set(title="lateness of ticks, 99 %", ylabel="ms")
    names.axis("off")
    legend = names.legend(*reading.get_legend_handles_labels(), loc="center", ncols=6,
                          columnspacing=1, handlelength=1.2, fontsize="small")
    legend.set_in_layout(False)
    save(figure, docs, "scale.svg")


def draw_codec(results, docs):
    rows = [one for one in results["codec"] if "frame" in one][::-1]
    figure, axes = pyplot.subplots(figsize=(7, 3))
    bars = (("frame", "qtserialbus", "PDU class and header"), ("codec", "driver", "codec"))
    for i, (who, colour, label) in enumerate(bars):
        axes.barh([n + 0.2 - 0.4 * i for n in range(len(rows))],
                  [one[who]["instructions"] for one in rows], 0.36, label=label,
                  color=COLOURS[colour])
    axes.set_yticks(range(len(rows)), [one["case"] for one in rows])
    axes.set(xscale="log", xlim=(10, None), xlabel="instructions")
    axes.grid(axis="x")
    axes.grid(visible=False, axis="y")
    axes.legend(ncols=2, loc="upper center", bbox_to_anchor=(0.5, 1.2))
    save(figure, docs, "codec.svg")


def fill(path, results):
    made = tables.all_of(results)
    with open(path, encoding="utf-8") as file:
        text = file.read()
    filled, count = re.subn(r"(<!-- table: (\w+) -->\n).*?(<!-- end -->)",
                            lambda m: f"{m[1]}{made.pop(m[2])}\n{m[3]}", text, flags=re.S)
    if made:
        sys.exit(f"{path} has no place for: {', '.join(made)} (of {count + len(made)} tables)")
    with open(path, "w", encoding="utf-8") as file:
        file.write(filled)


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        results = json.load(file)
    disturbances = tables.disturbances(results)
    if disturbances:
        sys.exit("This run was disturbed and is not documented: " + "; ".join(disturbances)
                 + ". Run it again when nothing else uses the machine.")
    fill(os.path.join(sys.argv[2], "performance.md"), results)
    for draw in (draw_reads, draw_scale, draw_codec):
        draw(results, sys.argv[2])


if __name__ == "__main__":
    main()
