"""The tables of a benchmark run, as Markdown, out of its data."""

import statistics

CLIENTS = {"socket": "bare socket", "libmodbus": "libmodbus", "qtserialbus": "Qt Serial Bus",
           "driver": "driver", "driver-text": "driver, as people type it",
           "driver-spin": "driver, looking awake",
           "driver-glib": "driver, GLib's loop", "epoll_reads": "bare epoll",
           "goburrow_reads": "goburrow, goroutines", "libmodbus_reads": "libmodbus, threads"}
SPINNING = "driver-spin"
WORKS = {"50": "listened to every 50 ms", "read": "read after read"}
READ_DEVICES = [1, 10, 100, 1000]
MOST_LOAD = 0.5
MOST_ROUND_TRIP_US = 35  # of a bare socket; a quiet machine takes 15 to 25
MOST_SPREAD = 1.3  # of its rounds: the third quartile to the first


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


def disturbances(results):
    """Why this run says little of what it measured; none when it was a quiet one."""
    rounds = next(row["us"] for row in results["reads"]
                  if (row["registers"], row["client"]) == (1, "socket"))
    low, middle, high = statistics.quantiles(rounds, n=4)
    load = results["machine"]["load"]
    checks = (
        (load > MOST_LOAD, f"the load before the run was {load:.1f}, more than {MOST_LOAD}"),
        (middle > MOST_ROUND_TRIP_US,
         f"a bare socket's round trip took {middle:.1f} us, more than {MOST_ROUND_TRIP_US}"
         f" (idle cores: {results['machine']['idleCores']}; see bench/README.md)"),
        (high / low > MOST_SPREAD,
         f"a bare socket's rounds spread from {low:.1f} to {high:.1f} us, more than {MOST_SPREAD}"))
    return [why for failed, why in checks if failed]


def reads(results):
    us = {(row["registers"], row["client"]): row["us"] for row in results["reads"]}

    def row(one):
        driver = us.get((one["registers"], "driver"))
        compared = driver is not None and driver is not one["us"]
        return (one["registers"], CLIENTS[one["client"]], number(median(one["us"]), 1),
                spread(driver, one["us"]) if compared else "", number(one["instructions"]),
                number(one["systemCalls"], 1))

    return table(("registers", "client", "round trip, us", "driver / client", "instructions",
                  "system calls"),
                 (row(one) for one in results["reads"] if one["client"] != SPINNING))


def spinning(results):
    found = {(row["registers"], row["client"]): row for row in results["reads"]}

    def ratio(registers, client, key):
        return spread(found[registers, SPINNING][key], found[registers, client][key])

    def row(registers):
        return (registers, number(median(found[registers, SPINNING]["us"]), 1),
                ratio(registers, "socket", "us"), ratio(registers, "driver", "us"),
                ratio(registers, "driver", "processorUs"))

    return table(("registers", "round trip, us", "of the bare socket's", "of the driver's without",
                  "processor time, of the driver's without"),
                 (row(n) for n, client in found if client == SPINNING))


class Scale:
    """The runs with many devices, by what was measured."""

    def __init__(self, results):
        self.found = {(one["client"], one["work"], one["devices"], one["threads"],
                       one["everywhere"]): one["runs"] for one in results["scale"]}

    def clients(self, work):
        """Those that did this work with any number of devices."""
        return list(dict.fromkeys(client for client, what, *_ in self.found if what == work))

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
                 (row(n, c) for n in READ_DEVICES for c in scale.clients("50")))


def reading(results):
    scale = Scale(results)

    def row(devices, client):
        spent, floor = (scale.values("processorUsPerOrder", who, "read", devices)
                        for who in (client, "epoll_reads"))
        return (devices, CLIENTS[client],
                number(scale.median("ordersPerSecond", client, "read", devices)),
                number(median(spent), 1), "" if client == "epoll_reads" else spread(spent, floor))

    return table(("devices", "client", "orders/s", "processor time per order, us",
                  "of the bare epoll's"),
                 (row(n, c) for n in READ_DEVICES for c in scale.clients("read")))


def carrying(results):
    scale = Scale(results)

    def row(interval, devices):
        def value(key):
            return scale.median(key, "driver", interval, devices)

        spent = value("processorUsPerOrder")
        return (interval, number(devices), number(value("ordersPerSecond")), number(spent, 1),
                number(int(interval) * 1000 / spent), number(value("latenessMedianUs") / 1000, 1),
                number(value("latenessP99Us") / 1000, 1), number(value("kbPerDevice")))

    measured = sorted({(int(work), devices) for client, work, devices, *_ in scale.found
                       if work not in WORKS})
    return table(("interval, ms", "devices", "orders/s", "processor time per order, us",
                  "a core carries", "lateness, median, ms", "lateness, 99 %, ms",
                  "memory per device, kB"), (row(str(i), n) for i, n in measured))


def growth(results):
    scale = Scale(results)
    counts = {(one["client"], one["devices"]): one["instructions"]
              for one in results["scaleInstructions"]}

    def row(client):
        few, many = counts[client, 10], counts[client, 1000]
        time = spread(*(scale.values("processorUsPerOrder", client, "read", n) for n in (1000, 10)))
        return (CLIENTS[client], time, number(few), number(many), f"{many / few:.2f}")

    return table(("client", "processor time", "instructions at 10", "instructions at 1000",
                  "ratio"), map(row, dict.fromkeys(client for client, _ in counts)))


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
    return table(("processor", "cores", "idle cores", "kernel", "date", "load before"),
                 [[found["processor"], found["cores"], found["idleCores"], found["kernel"],
                   found["date"], number(found["load"], 1)]])


def all_of(results):
    return {make.__name__: make(results)
            for make in (machine, reads, spinning, reading, listening, carrying, growth, threads, codec)}
