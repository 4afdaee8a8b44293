#!/usr/bin/env python3
"""Runs the console samples of all pages, and compares what they print with what the pages show.

A sample is a fenced block with lines that begin with "$ ", each a command, followed by its output:
standard output and standard error as they may mix on a screen. In that,

- a line "..." stands for any lines,
- what differs from run to run is compared by its form only: see VARYING,
- a command that ends in a backslash goes on in the next line, one with <<END up to END,
- ports are replaced by free ones, in commands, in the files of examples/ and in what is printed.

When the text right before a block says "another terminal", its command runs on to the end of the
page, and is waited for until it has printed what is shown. A block without a command after "the
other terminal" is what that command prints next. Each command has a shell of its own, in a folder
like the project's. <!-- not run: REASON --> before a block excuses it; see also NOT_RUN.

CTest passes the programs in the environment.
"""

import collections
import contextlib
import difflib
import os
import pathlib
import re
import signal
import subprocess
import tempfile
import unittest

from programs import PATIENCE, Program, free_port

ROOT = pathlib.Path(__file__).resolve().parent.parent
PROGRAMS = pathlib.Path(os.environ["DRIVER_HOST"]).parent
VARYING = [
    (r"\b\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z", "DATE AND TIME"),
    (r"\b\d\d:\d\d:\d\d\.\d{3}\b", "TIME"),
    (r"^\d{10}: ", "SECONDS: "),
    (r"\b\d+\.\d s\b", "DURATION"),
    (r"\b\d+\.\d\d(/\d+\.\d\d){3} ms\b", "ROUND TRIPS"),
    (r"^(file: +)/.*/", r"\1FOLDER/"),
]
NOT_RUN = {  # commands that begin so, and who runs them
    r"cmake ": "tests/install_kit.sh builds the kit and the module, tests/test_installed.py installs "
               "and packs the tree, and ./test builds it",
    r"\./bench/run": "it takes minutes, and measures",
    r"\./test": "it runs this",
    r"build/release/bin/simulate": "a test of its own runs it, and its speed is another each time",
    r"driver-host --plugin build/module/": "tests/install_kit.sh loads it",
}
OURS = re.compile(r"^(driver-host|device-simulator|cmake|\./\w+|(build|examples)/\S+) \S", re.M)
PORT = re.compile(r'(?:--port |-p |127\.0\.0\.1:|"port":)(\d{4,5})\b')

Sample = collections.namedtuple("Sample", "line command shown kind")


def samples(text):
    """Kind is "here", "other" (terminal), "more" (of it), or the reason why it is not run."""
    end = 0
    for block in re.finditer(r"^```(\w*)\n(.*?)^```$", text, re.M | re.S):
        before = text[end:block.start()].strip().rpartition("\n\n")[2]
        end = block.end()
        line = text.count("\n", 0, block.start()) + 1
        excuse = re.fullmatch(r"<!-- not run: (.+) -->", before, re.S)
        kind = excuse[1] if excuse else "other" if "another terminal" in before else "here"
        parts = re.split(r"^\$ ", block[2], flags=re.M)
        if not excuse and not block[1] and OURS.search(parts[0]):
            raise AssertionError(f"line {line}: a command that does not begin with '$ '")
        if re.search("[Tt]he other terminal", before) and len(parts) == 1:
            yield Sample(line, None, block[2].splitlines(), "more")
        for part in parts[1:]:
            command, shown = split(part.splitlines())
            known = [NOT_RUN[each] for each in NOT_RUN if re.match(each, command)]
            yield Sample(line, command, shown, known[0] if known and not excuse else kind)


def split(lines):
    """The command, and what it shows."""
    size = 1
    while lines[size - 1].endswith("\\"):
        size += 1
    document = re.search(r"<<(\w+)", lines[0])
    if document:
        size = lines.index(document[1]) + 1
    return "\n".join(lines[:size]), lines[size:]


def agree(shown, output, errors):
    """Whether a screen may show these two as the page does."""
    shown = list(shown)
    for line in errors:
        if line in shown:
            shown.remove(line)
        elif "..." not in shown:
            return False
    form = "".join("(.*\n)*" if line == "..." else re.escape(line + "\n") for line in shown)
    return re.fullmatch(form, "".join(line + "\n" for line in output)) is not None


class Project:
    """A folder like the project's, with ports that are free in place of those on the pages."""

    def __init__(self, place, pages):
        self.place = place
        self.ports = {port: str(free_port()) for page in pages for port in PORT.findall(page)}
        for each in ROOT.iterdir():
            if each.name not in ("build", "examples", "run"):
                (place / each.name).symlink_to(each)
        (place / "run").symlink_to(PROGRAMS / "driver-host")
        (place / "build").mkdir()
        (place / "build" / "release").symlink_to(PROGRAMS.parent)
        (place / "build" / "sample").symlink_to(PROGRAMS.parent / "examples" / "sample_module")
        for each in (ROOT / "examples").rglob("*.*"):
            copy = place / each.relative_to(ROOT)
            copy.parent.mkdir(parents=True, exist_ok=True)
            if each.is_file() and each.suffix != ".pyc":
                copy.write_text(self.replaced(each.read_text(encoding="utf-8")), encoding="utf-8")
                copy.chmod(each.stat().st_mode)

    def replaced(self, text):
        return re.sub(r"\b\d{4,5}\b", lambda found: self.ports.get(found[0], found[0]), text)

    def normal(self, text):
        for port, real in self.ports.items():
            text = re.sub(rf"\b{real}\b", port, text)
        for pattern, replacement in VARYING:
            text = re.sub(pattern, replacement, text, flags=re.M)
        return text.splitlines()

    def shell(self, command):
        path = f"{PROGRAMS}:{os.environ['PATH']}:/usr/sbin"
        return {"args": ["bash", "-c", self.replaced(command)], "cwd": self.place,
                "env": {**os.environ, "PATH": path}, "stdin": subprocess.DEVNULL,
                "encoding": "utf-8"}


class Terminal(Program):
    """Another one, where a program runs on."""

    def __init__(self, project, command):
        options = project.shell(command)
        # On a screen lines come at once. In a pipeline only those of its last program would.
        lines = [] if "|" in command else ["stdbuf", "-oL"]
        super().__init__([*lines, *options.pop("args")], **options,
                         stderr=subprocess.STDOUT, start_new_session=True)
        self.project = project

    def kill(self):
        with contextlib.suppress(ProcessLookupError):
            os.killpg(self.pid, signal.SIGKILL)

    def read(self, shown):
        """As many lines as are shown, and more where "..." allows it."""
        seen = []
        for index, line in enumerate(shown):
            while line != "...":
                text = self.stdout.readline()
                seen += self.project.normal(text)
                if not text or seen[-1] == line or shown[index - 1:index] != ["..."]:
                    break
        return seen


class Samples(unittest.TestCase):
    pages = sorted([*ROOT.glob("*.md"), *ROOT.glob("docs/*.md"), *ROOT.glob("examples/**/*.md")])
    maxDiff = None

    def test_all_pages(self):
        texts = [page.read_text(encoding="utf-8") for page in self.pages]
        with tempfile.TemporaryDirectory() as place:
            project = Project(pathlib.Path(place), texts)
            for page, text in zip(self.pages, texts):
                with self.subTest(page.relative_to(ROOT)), contextlib.ExitStack() as terminals:
                    self.check(page.relative_to(ROOT), samples(text), project, terminals)

    def check(self, page, all_samples, project, terminals):
        terminal = None
        for sample in all_samples:
            place = f"{page}:{sample.line}"
            print(place, sample.command or "(the other terminal)", flush=True)
            shown = project.normal("\n".join(sample.shown))
            if sample.kind == "here":
                done = subprocess.run(**project.shell(sample.command), capture_output=True,
                                      timeout=PATIENCE)
                output, errors = project.normal(done.stdout), project.normal(done.stderr)
            elif sample.kind in ("other", "more"):
                if sample.kind == "other":
                    terminal = Terminal(project, sample.command)
                    terminals.callback(terminal.close)
                output, errors = terminal.read(shown), []
            else:
                print("    not run:", sample.kind)
                continue
            with self.subTest(place):
                if not agree(shown, output, errors):
                    self.fail("\n".join([f"{place} differs from what is printed",
                                         *difflib.ndiff(shown, output + errors)]))


if __name__ == "__main__":
    unittest.main()
