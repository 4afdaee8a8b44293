#!/usr/bin/env python3
"""What is installed runs from wherever it is moved to, and is what the packages have."""

import glob
import os
import pty
import re
import shutil
import subprocess
import tempfile
import unittest

import programs

RUNTIME = """bin/device-simulator bin/driver-host lib/libhost_plugin_management.so.1
    lib/libhost_plugin_management.so.1.0.0 lib/libhost_points.so.1 lib/libhost_points.so.1.0.0
    lib/libhost_utilities.so.1 lib/libhost_utilities.so.1.0.0
    lib/plugins/libp_driver_modbus.profile.json lib/plugins/libp_driver_modbus.so
    share/bash-completion/completions/device-simulator
    share/bash-completion/completions/driver-host share/man/man1/device-simulator.1
    share/man/man1/driver-host.1 share/doc/modbus-driver/docs/device-compatibility.md
    share/doc/modbus-driver/docs/driver-host.md""".split()
DEVELOPMENT = """lib/libhost_plugin_management.so lib/libhost_points.so lib/libhost_utilities.so
    lib/cmake/HostFramework/HostFrameworkConfig.cmake
    lib/cmake/HostFramework/HostFrameworkConfigVersion.cmake
    lib/cmake/HostFramework/HostFrameworkTargets.cmake
    lib/cmake/HostFramework/HostFrameworkTargets-release.cmake
    share/doc/modbus-driver/docs/host-kit.md""".split()
OF_DEBIAN = {"modbus-driver": {"share/doc/modbus-driver/changelog.gz",
                               "share/doc/modbus-driver/copyright",
                               "share/lintian/overrides/modbus-driver"},
             "modbus-driver-dev": {"share/doc/modbus-driver-dev/changelog.gz",
                                   "share/doc/modbus-driver-dev/copyright"}}
EXAMPLES = "share/doc/modbus-driver/examples/"


def output(*command, **options):
    return subprocess.run(command, check=True, encoding="utf-8", timeout=programs.PATIENCE,
                          stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, **options).stdout


class Installed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.scratch = tempfile.mkdtemp()
        cls.addClassCleanup(shutil.rmtree, cls.scratch)
        output("cmake", "--install", os.environ["BUILD"], "--prefix", cls.scratch + "/first")
        cls.prefix = cls.scratch + "/moved"
        os.rename(cls.scratch + "/first", cls.prefix)
        cls.host = cls.prefix + "/bin/driver-host"

    def test_nothing_but_what_belongs_there(self):
        found = {os.path.relpath(os.path.join(folder, name), self.prefix)
                 for folder, _, names in os.walk(self.prefix) for name in names}
        examples = {name for name in found if name.startswith(EXAMPLES)}
        headers = {name for name in found if re.match(r"include/host_framework/\w+/\w+\.h$", name)}
        self.assertEqual(found - examples - headers, {*RUNTIME, *DEVELOPMENT})
        stray = re.compile("_p.h$|/test_|cache")
        self.assertFalse([name for name in examples | headers if stray.search(name)])
        self.assertIn("include/host_framework/plugin_management/d_abstract_plugin.h", headers)

    def test_run_builds_what_is_installed(self):
        """So that an installation can follow it, with nothing else built."""
        build = os.environ["BUILD"]
        with open(os.path.join(os.path.dirname(__file__), "..", "run"), encoding="utf-8") as run:
            targets = re.search(r'build\.sh" release (.+)', run.read())[1].split()
        commands = output("ninja", "-C", build, "-t", "commands", *targets)
        known = output("ninja", "-C", build, "-t", "targets", "all").split("\n")
        known = {line.rpartition(": ")[0] for line in known}
        installed = set()
        for script in glob.glob(build + "/**/cmake_install.cmake", recursive=True):
            with open(script, encoding="utf-8") as text:
                installed.update(re.findall(rf'"{re.escape(build)}/([^"]+)"', text.read()))
        self.assertIn("lib/plugins/libp_driver_modbus.so", installed & known)
        self.assertEqual([name for name in installed & known if name not in commands], [])

    def test_programs(self):
        device = programs.Device([self.prefix + "/bin/device-simulator", "--port", "0"])
        self.addCleanup(device.close)
        values = output(self.host, "read", "--host", "127.0.0.1", "--port", str(device.port),
                        "--register", "100", "--register-type", "holdingRegisters")
        self.assertEqual(values, "100  258  0x0102\n")
        self.assertIn(self.prefix + "/lib/plugins/libp_driver_modbus.so", output(self.host, "info"))

    def test_kit(self):
        source, build = self.prefix + "/" + EXAMPLES + "sample_module", self.scratch + "/sample"
        output("cmake", "-G", "Ninja", "-S", source, "-B", build,
               "-DCMAKE_PREFIX_PATH=" + self.prefix, "-DCMAKE_CXX_COMPILER=" + os.environ["CXX"])
        output("cmake", "--build", build)
        module = build + "/libsample_module.so"
        self.assertIn("get: ", output(self.host, "--plugin", module, "info"))
        for words, expected in ((["g"], "get\n"), (["get", "--tim"], "--times\n")):
            found = output(self.host, "--complete", "--plugin", module, *words)
            self.assertEqual(found, expected)

    def test_pages_point_to_what_is_installed(self):
        top = self.prefix + "/share/doc/modbus-driver/"
        pages = glob.glob(top + "docs/*.md")
        self.assertEqual(len(pages), 3)
        for page in pages:
            with open(page, encoding="utf-8") as file:
                text = file.read()
            places = {top + "docs/" + link for link in re.findall(r"\]\(([\w./-]+)[)#]", text)}
            files = re.findall(r"\b(?:apps|examples|host|tests)/[\w/-]+\.(?:cpp|h|py)\b", text)
            places.update(top + name for name in files)
            self.assertEqual([place for place in places if not os.path.exists(place)], [])

    def manual(self, program):
        """The paragraphs of each section and subsection, without any blanks."""
        shown = subprocess.run(["groff", "-man", "-ww", "-Tascii", "-P-cbou",
                                f"{self.prefix}/share/man/man1/{program}.1"],
                               check=True, encoding="utf-8", capture_output=True)
        self.assertEqual(shown.stderr, "")
        parts = re.split(r"(?m)^(?:   )?(\S.*)\n", shown.stdout)
        return {name: {"".join(text.split()) for text in part.split("\n\n")}
                for name, part in zip(parts[1::2], parts[2::2])}

    def help(self, program, *command):
        """What it lists, such as options, likewise."""
        text = output(f"{self.prefix}/bin/{program}", *command, "--help")
        text = text.replace("ORDERS TEXT REQUIRED", "ORDERS")
        return {"".join(entry.split()) for entry in
                re.findall(r"(?m)^  (?:-|[a-z][\w-]*  |ORDERS).*(?:\n {9,}.*)*", text)}

    def test_manual_says_what_help_says(self):
        page = self.manual("device-simulator")
        told = page["OPTIONS"] | page["MISBEHAVIOURS"]
        self.assertEqual(told - {""}, self.help("device-simulator"))
        page = self.manual("driver-host")
        shared = set().union(*(page[name] for name in ("OPTIONS", "GLOBAL OPTIONS",
                                                       "CONNECTION OPTIONS", "LINK OPTIONS",
                                                       "COMMANDS")))
        listed = self.help("driver-host")
        for command in output(self.host, "--complete", "").split():
            about, *_ = [entry for entry in listed if entry.startswith(command)]
            told = {command + text.rstrip(".") for text in page[command]}
            with self.subTest(command):
                own = {text for text in page[command] if text.startswith(("-", "ORDERS"))}
                found = self.help("driver-host", command)
                self.assertEqual(own - found, set(), "only in the page")
                self.assertEqual(found - own - shared, set(), "only in the help")
                self.assertIn(about, told)
                listed |= found
        self.assertEqual(shared - listed - {""}, set(), "only in the page")

    def test_completion_in_bash(self):
        keys = [("driver-host in", "info"), ("driver-host --format=j", "--format=json"),
                ("driver-host listen --cou", "--count"),
                ("driver-host read --registerT", "--registerType"),
                ("driver-host --quiet info --format j", "json"), ("driver-host run RUN_", "RUN_ME"),
                ("driver-host --plugin RUN_", "RUN_ME"),
                ("driver-host --plugin RUN_ME inf", "info"),
                ("driver-host --plugin RUN_ME wri", "wri"), # no module, no such command
                ("driver-host info --format csv --fo", "--fo"), # not twice
                ("driver-host write --param a=1 --param b=2 --para", "--param"),
                ("driver-host write --param x=rea", "x=rea"), ("driver-host read RUN_", "RUN_"),
                ("device-simulator --misbehave ne", "never"),
                ("device-simulator --mis", "--misbehave")]
        open(self.scratch + "/RUN_ME", "w").close()
        controller, terminal = pty.openpty()
        bash = programs.Program(
            ["bash", "--norc", "--noprofile", "-i"], stdin=terminal, stdout=terminal,
            stderr=terminal, cwd=self.scratch, start_new_session=True, env={
                **os.environ, "PATH": self.prefix + "/bin:" + os.environ["PATH"], "TERM": "dumb"})
        self.addCleanup(bash.close)
        os.close(terminal)
        screen = os.fdopen(controller, "r+b", buffering=0)
        self.addCleanup(screen.close)
        for program in "driver-host", "device-simulator":
            script = f"{self.prefix}/share/bash-completion/completions/{program}"
            screen.write(f". {script}\n".encode())
        screen.write(b"stty cols 999; bind 'set bell-style none'\n")
        for typed, last in keys:
            # The line, completed, becomes the arguments of an echo.
            screen.write(typed.encode() + b"\t\x01echo 'typed: ' \n")
            shown = b""
            while not re.search(rb"\ntyped:  .*\n", shown):
                shown += os.read(controller, 4096)
            completed = shown.split(b"\ntyped:  ")[1].decode().splitlines()[0]
            self.assertEqual(completed.split(), typed.split()[:-1] + [last])

    def test_packages(self):
        output("cpack", "-G", "DEB", "--config", os.environ["BUILD"] + "/CPackConfig.cmake", "-B",
               self.scratch, "-D", "CPACK_PACKAGING_INSTALL_PREFIX=/usr", stderr=subprocess.DEVNULL)
        for name, layout in ("modbus-driver", RUNTIME), ("modbus-driver-dev", DEVELOPMENT):
            package, = glob.glob(f"{self.scratch}/{name}_*.deb")
            listing = output("dpkg-deb", "-c", package)
            paths = re.findall(r"(?m)\./usr/(\S*[^/\s])(?: -> .*)?$", listing)
            paths = {path for path in paths if not path.startswith((EXAMPLES, "include/"))}
            expected = {re.sub(r"(\.1)$", r"\1.gz", path) if "/man1/" in path else path
                        for path in layout} | OF_DEBIAN[name]
            self.assertEqual(paths, expected)
        depends = [output("dpkg-deb", "-f", glob.glob(f"{self.scratch}/{name}_*.deb")[0], "Depends")
                   for name in OF_DEBIAN]
        self.assertRegex(depends[0], r"libqt5core5a \(>= 5\.15.*libqt5network5.*libqt5serialbus5.*libqt5serialport5")
        self.assertIn("modbus-driver (= 1.0.0)", depends[1])


if __name__ == "__main__":
    unittest.main()
