"""A desktop without a screen: a display, a session bus, a real panel with a place for icons, and a
service that takes notifications; and an icon in it as its panel sees it."""

import os
import pathlib
import re
import shutil
import subprocess

import dbus
import dbus.bus

from expectations import PATIENCE, check, listens, skip, wait_until
from processes import environment, start

WATCHER = ("org.kde.StatusNotifierWatcher", "/StatusNotifierWatcher")
NOTIFICATIONS = ("org.freedesktop.Notifications", "/org/freedesktop/Notifications",
                 "org.freedesktop.Notifications")


class Desktop:
    """What a session's programs find. `variables` is their environment."""

    def __init__(self, folder, home=None):
        for program in ["Xvfb", "xfce4-panel", "xdotool", "import"]:
            if shutil.which(program) is None:
                skip(f"{program} is not installed")
        self.folder = pathlib.Path(folder)
        home = str(home or self.folder / "home")
        for path in [home, self.folder / "runtime"]:
            pathlib.Path(path).mkdir(parents=True, mode=0o700)
        socket = str(self.folder / "runtime/bus")
        self.variables = environment(
            DISPLAY=self._display(), HOME=home, XDG_CONFIG_HOME=f"{home}/.config",
            XDG_RUNTIME_DIR=str(self.folder / "runtime"), LANG="C.UTF-8", TZ="UTC0",
            DBUS_SESSION_BUS_ADDRESS=f"unix:path={socket}", NODO_HOOK_LOG=f"{home}/hook.log",
            QT_QPA_PLATFORMTHEME="", XDG_CURRENT_DESKTOP="XFCE")
        for name in ["WAYLAND_DISPLAY", "QT_QPA_PLATFORM"]:
            self.variables.pop(name, None)
        # With what is installed for sessions: the panel keeps its settings by a service.
        start("dbus-daemon", "--session", f"--address=unix:path={socket}", "--nofork",
              "--nopidfile", env=self.variables, stderr=subprocess.DEVNULL)
        wait_until(lambda: listens(socket), "the session bus listens", PATIENCE)
        self.bus = dbus.bus.BusConnection(f"unix:path={socket}")
        self.panel = None

    def _display(self):
        reader, writer = os.pipe()
        start("Xvfb", "-displayfd", str(writer), "-screen", "0", "900x700x24", "-nolisten", "tcp",
              pass_fds=[writer], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(writer)
        with open(reader, encoding="ascii") as numbers:
            number = numbers.readline().strip()
        check(number, "the display is there")
        return f":{number}"

    def owner_of(self, name):
        return self.bus.name_has_owner(name)

    def start_panel(self):
        self.panel = start("xfce4-panel", "--disable-wm-check", env=self.variables,
                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        wait_until(lambda: self.owner_of(WATCHER[0]), "the panel shows icons", 3 * PATIENCE)

    def kill_panel(self):
        self.panel.kill()
        self.panel.wait()
        wait_until(lambda: not self.owner_of(WATCHER[0]), "the panel is gone", PATIENCE)

    def start_notifications(self):
        start("/usr/bin/python3", "-m", "dbusmock", "--session", "--template",
              "notification_daemon", env=self.variables, stdout=subprocess.DEVNULL)
        wait_until(lambda: self.owner_of(NOTIFICATIONS[0]), "notifications are taken", PATIENCE)

    def notifications(self):
        """The summary and the body of each that came."""
        mock = dbus.Interface(self.bus.get_object(*NOTIFICATIONS[:2]),
                              "org.freedesktop.DBus.Mock")
        return [(str(arguments[3]), str(arguments[4]))
                for _, arguments in mock.GetMethodCalls("Notify")]

    def icons(self):
        watcher = dbus.Interface(self.bus.get_object(*WATCHER), "org.freedesktop.DBus.Properties")
        names = watcher.Get(WATCHER[0], "RegisteredStatusNotifierItems")
        return [Icon(self.bus, *re.match(r"([^/]*)(/.*)?$", str(name)).groups())
                for name in names]

    def icon(self):
        """The only one, once it is there."""
        def only():
            if not self.owner_of(WATCHER[0]):
                return None
            icons = self.icons()
            return icons[0] if len(icons) == 1 else None
        return wait_until(only, "the panel has one icon", PATIENCE)

    # ---- what can be seen

    def click(self, place, button):
        self.xdotool("mousemove", *map(str, place), "click", button)

    def xdotool(self, *arguments):
        return subprocess.run(["xdotool", *arguments], env=self.variables, text=True,
                              capture_output=True, check=False, timeout=PATIENCE).stdout

    def windows(self, title):
        """Those of that title that are shown."""
        return self.xdotool("search", "--onlyvisible", "--name", title).split()

    def screenshot(self, file=None, window="root"):
        """The picture; and as a file, in the format that its name says."""
        command = ["import", "-window", window]
        if file is not None:
            subprocess.run([*command, file], env=self.variables, check=True, timeout=PATIENCE)
        taken = subprocess.run([*command, "-depth", "8", "ppm:-"], env=self.variables, check=True,
                               capture_output=True, timeout=PATIENCE)
        return Picture(taken.stdout)


class Picture:
    """Pixels, as three bytes each for red, green and blue."""

    def __init__(self, ppm):
        header = re.match(rb"P6\s+(\d+)\s+(\d+)\s+255\s", ppm)
        check(header, "a picture")
        self.width, self.height = int(header[1]), int(header[2])
        self.bytes = ppm[header.end():]

    def pixel(self, column, row):
        place = 3 * (row * self.width + column)
        return self.bytes[place:place + 3]

    def row(self, number):
        return self.bytes[3 * number * self.width:3 * (number + 1) * self.width]

    def differences(self, other):
        """The places at which the two differ."""
        check((self.width, self.height) == (other.width, other.height), "pictures of one size")
        return [(x, y) for y in range(self.height) if self.row(y) != other.row(y)
                for x in range(self.width) if self.pixel(x, y) != other.pixel(x, y)]

    def is_like(self, other):
        return self.bytes == other.bytes

    def colours(self):
        return {self.bytes[i:i + 3] for i in range(0, len(self.bytes), 3)}


def words_of(properties):
    """An entry's label: an underscore marks a key, and two stand for one."""
    return re.sub("_(_?)", r"\1", str(properties.get("label", "")))


class Icon:
    """A program's icon as a panel sees it, with its menu."""

    ITEM = "org.kde.StatusNotifierItem"
    MENU = "com.canonical.dbusmenu"

    def __init__(self, bus, name, path):
        self.bus, self.name = bus, name
        self.path = path or "/StatusNotifierItem"

    def property(self, name):
        item = dbus.Interface(self.bus.get_object(self.name, self.path, introspect=False),
                              "org.freedesktop.DBus.Properties")
        return item.Get(self.ITEM, name)

    def tool_tip(self):
        icon, _, title, text = self.property("ToolTip")
        return f"{icon}{title}{text}"

    def icon_name(self):
        return str(self.property("IconName"))

    def _menu(self):
        path = self.property("Menu")
        return dbus.Interface(self.bus.get_object(self.name, path, introspect=False), self.MENU)

    def entries(self):
        """The menu from top to bottom with all below it: each with its number and properties."""
        found = []

        def add(node):
            number, properties, children = node
            if properties.get("visible", True) and properties.get("type") != "separator":
                found.append((int(number), properties))
            for child in children:
                add(child)

        for child in self._menu().GetLayout(0, -1, dbus.Array([], signature="s"))[1][2]:
            add(child)
        return found

    def lines(self):
        """Its words, as a panel shows them."""
        return [words_of(properties) for _, properties in self.entries()]

    def choose(self, words):
        """As a person would, by the words."""
        for number, properties in self.entries():
            if words_of(properties) == words:
                check(properties.get("enabled", True), f"{words!r} can be chosen")
                self._menu().Event(number, "clicked", dbus.String("", variant_level=1),
                                   dbus.UInt32(0))
                return
        raise AssertionError(f"no entry {words!r} among {self.lines()}")
