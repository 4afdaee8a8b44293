"""The tables of a benchmark run, as Markdown, out of its data."""

import statistics

CLIENTS = {"socket": "bare socket", "libmodbus": "libmodbus", "qtserialbus": "Qt Serial Bus",
           "driver": "driver"}
WORKS = {"50": "listened to every 50 ms", "read": "read after read"}


def table(head, rows):
    lines = ["| " + " | ".join(map(str, row)) + " |" for row in (head, *rows)]
    return "\n".join([lines[0], "|---" * len(head) + "|", *lines[1:]])


def median(values):
    return statistics.median(values)


def spread(ours, theirs, factor=1):
    """Median, least and greatest of the ratios of runs that belong together."""
    ratios = sorted(factor * a / b for a, b in zip(ours, theirs))
    return f"{median(ratios):.2f} ({ratios[0]:.2f} to {ratios[-1]:.2f})"


def number(value, places=0):
    return "" if value is None else f"{value:,.{places}f}"


def reads(results):
    us = {(row["registers"], row["client"]): row["us"] for row in results["reads"]}

    def row(one):
        driver = us.get((one["registers"], "driver"))
        compared = driver is not None and driver is not one["us"]
        return (one["registers"], CLIENTS[one["client"]], number(median(one["us"]), 1),
                spread(driver, one["us"]) if compared else "", number(one["instructions"]),
                number(one["systemCalls"], 1))

    return table(("registers", "client", "round trip, us", "driver / client", "instructions",
                  "system calls"), map(row, results["reads"]))


class Scale:
    """The runs with many devices, by what was measured."""

    def __init__(self, results):
        self.found = {(one["client"], one["work"], one["devices"], one["threads"],
                       one["everywhere"]): one["runs"] for one in results["scale"]}
        self.clients = list(dict.fromkeys(one["client"] for one in results["scale"]))
        self.devices = sorted({one["devices"] for one in results["scale"]})

    def values(self, key, client, work, devices, threads=1, everywhere=False):
        return [run[key] for run in self.found[client, work, devices, threads, everywhere]]

    def median(self, key, *which):
        return median(self.values(key, *which))


def listening(results):
    scale = Scale(results)

    def row(devices, client):
        def value(key):
            return scale.median(key, client, "50", devices)

        memory = number(value("kbPerDevice")) if devices >= 100 else ""
        return (devices, CLIENTS[client], number(value("ordersPerSecond")),
                number(value("processorUsPerOrder"), 1),
                number(value("latenessMedianUs") / 1000, 1),
                number(value("latenessP99Us") / 1000, 1), number(value("roundTripMeanUs")), memory)

    return table(("devices", "client", "orders/s", "processor time per order, us",
                  "lateness, median, ms", "lateness, 99 %, ms", "round trip, us",
                  "memory per device, kB"),
                 (row(n, c) for n in scale.devices for c in scale.clients))


def reading(results):
    scale = Scale(results)

    def row(devices, client):
        spent, driver = (scale.values("processorUsPerOrder", who, "read", devices)
                         for who in (client, "driver"))
        return (devices, CLIENTS[client],
                number(scale.median("ordersPerSecond", client, "read", devices)),
                number(median(spent), 1), "" if client == "driver" else spread(driver, spent))

    return table(("devices", "client", "orders/s", "processor time per order, us",
                  "driver / client"), (row(n, c) for n in scale.devices for c in scale.clients))


def growth(results):
    scale = Scale(results)
    counts = {(one["client"], one["devices"]): one["instructions"]
              for one in results["scaleInstructions"]}

    def row(client):
        few, many = counts[client, 10], counts[client, 1000]
        times = [spread(*(scale.values("processorUsPerOrder", client, work, n) for n in (1000, 10)))
                 for work in WORKS]
        return (CLIENTS[client], *times, number(few), number(many), f"{many / few:.2f}")

    return table(("client", *(f"processor time, {work}" for work in WORKS.values()),
                  "instructions at 10", "instructions at 1000", "ratio"),
                 map(row, scale.clients))


def threads(results):
    scale = Scale(results)
    threaded = sorted({key[2] for key in scale.found if key[3] == 2})

    def row(work, devices):
        one, two = (scale.values("processorUsPerOrder", "driver", work, devices, n, True)
                    for n in (1, 2))
        return (WORKS[work], devices, number(median(one), 1), number(median(two), 1),
                spread(one, two, 2))

    return table(("devices are", "devices", "one thread, us per order", "two threads, us per order",
                  "orders of two / of one"), (row(w, n) for w in WORKS for n in threaded))


def codec(results):
    def row(one):
        def value(who, key, places=0):
            return number(one[who][key], places) if who in one else ""

        times = ""
        if "frame" in one:
            times = f"{one['frame']['instructions'] / one['codec']['instructions']:.0f}"
        return (one["case"], *(value(who, "instructions") for who in ("codec", "pdu", "frame")),
                times, value("memcpy", "instructions"),
                *(value(who, "ns", 1) for who in ("codec", "pdu", "frame", "memcpy")))

    return table(("", "codec", "PDU class", "its frame", "frame / codec", "memcpy", "codec, ns",
                  "PDU class, ns", "its frame, ns", "memcpy, ns"), map(row, results["codec"]))


def machine(results):
    found = results["machine"]
    return table(("processor", "cores", "kernel", "date", "load before"),
                 [[found["processor"], found["cores"], found["kernel"], found["date"],
                   number(found["load"], 1)]])


def all_of(results):
    return {make.__name__: make(results)
            for make in (machine, reads, listening, reading, growth, threads, codec)}
