#!/usr/bin/env python3
"""Fails when a room includes what it must not know: check_rooms.py SOURCE_FOLDER."""

import pathlib
import re
import sys

VALUES = ("types link_options order_failure reply_framing worker_statistics d_order plugin_management_global "
          "fast_delegate").split()
KIT = r"(plugin_management|utilities)/"
POINTS = r"points/"
QT = r"Q\w+$|QtCore/qglobal\.h$"
QT_VALUES = r"Q(ByteArray|String|Map|Variant|List|Hash|tGlobal)$"
STANDARD = r"[a-z_]+$"  # <vector>, and no header of the system such as <sys/socket.h>
SYSTEM = r"(arpa|net|netinet|sys)/\w+\.h$|(fcntl|langinfo|netdb|poll|pthread|signal|termios|unistd|wchar)\.h$"

# Each room, and the patterns of which every include of its files must match one. Its own folder may
# always be included. A file that stands here by itself is a room of its own.
ROOMS = {
    "host/utilities": [QT, STANDARD],
    "host/runtime/engine": [rf"plugin_management/({'|'.join(VALUES)})\.h$", QT_VALUES, STANDARD],
    "host/runtime/loop": [r"plugin_management/fast_delegate\.h$", r"Q(AbstractEventDispatcher|"
                          r"BasicTimer|Event|Object|SocketNotifier)$", STANDARD, SYSTEM],
    "host/runtime/link": [r"runtime/loop/", r"runtime/engine/link_life\.h$",
                          r"plugin_management/(fast_delegate|link_options|reply_framing)\.h$", QT,
                          r"gnutls/|asm/termbits\.h$",
                          STANDARD, SYSTEM],
    "host/runtime/shell": [r"runtime/", KIT, r"Q(List|LoggingCategory|Object|Pointer|Thread|tGlobal)$",
                           r"sys/random\.h$", STANDARD],
    "host/plugin_management": [KIT, r"runtime/shell/(\w+_shell|command_declarations)\.h$",
                               r"runtime/engine/map_lookup\.h$", QT, STANDARD],
    "host/points": [r"Q(ByteArray|Date\w+|Json\w+|List|Locale|Map|RegularExpression|String|"
                    r"StringList|tGlobal|Variant|Vector)$", STANDARD],
    "plugins/p_driver_modbus/source/modbus_codec.cpp": [r"modbus_codec\.h$", r"endian\.h$", STANDARD],
    "plugins/p_driver_modbus/source/modbus_codec.h": [STANDARD],
    "plugins/p_driver_modbus/source": [KIT, QT, STANDARD],
    "apps/driver_host": [KIT, POINTS, r"common/", QT, r"CLI/", STANDARD, SYSTEM],
    "apps/common": [r"common/", r"plugin_management/parameter_check\.h$", QT, r"CLI/", STANDARD, SYSTEM],
    "apps/device_simulator": [r"common/", QT, r"CLI/", STANDARD, SYSTEM],
    "examples/sample_module": [KIT, QT, STANDARD],
}


def room_of(path):
    return next(room for room in ROOMS if path == room or path.startswith(room + "/"))


def main(top):
    wrong = []
    files = [path for room in ROOMS for path in [top / room, *(top / room).rglob("*")]
             if path.suffix in (".h", ".cpp") and "tests" not in path.parts]
    for file in sorted(set(files)):
        path = file.relative_to(top).as_posix()
        room = room_of(path)
        folder = room if (top / room).is_dir() else path.rpartition("/")[0]
        for include in re.findall(r'(?m)^#include [<"]([^>"]+)[>"]', file.read_text()):
            own = (top / folder / include).exists() or (file.parent / include).exists() \
                or ("host/" + include).startswith(folder + "/") \
                or include == file.stem + ".moc"
            if not (own and room == folder) \
                    and not any(re.match(pattern, include) for pattern in ROOMS[room]):
                wrong.append(f"{path}: {room} must not know {include}")
    print("\n".join(wrong) or f"{len(set(files))} files keep to their rooms")
    return 1 if wrong or not files else 0


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1])))
