"""nodo-menu at a desktop, for the scripts that take NODOD, NODOCTL and NODO-MENU as arguments: a
laptop with its daemon, a panel, and a user."""

import pathlib
import shutil
import subprocess
import sys
import time

from desktop import Desktop
from expectations import PATIENCE, check, wait_until
from laptop import FOLDER, Network, PowerSupplies
from processes import start

WINDOW = "nodo: why this computer"  # how its title begins
ICONS = pathlib.Path(__file__).parents[2] / "programs/nodo-menu/icons"


class Menu:
    """The program and its icon."""

    def __init__(self, desktop):
        self.desktop = desktop
        self.process = None

    def start(self, *options):
        self.process = self.run(*options)
        return self.process

    def run(self, *options):
        return start(sys.argv[3], "--bus", "system", *options, env=self.desktop.variables)

    def says(self, words, what):
        """Waits until the menu's lines hold the words, one after another."""
        try:
            wait_until(lambda: words in " ".join(self.desktop.icon().lines()), what, PATIENCE)
        except AssertionError:
            raise AssertionError(f"{what}: {words!r} is not in {self.desktop.icon().lines()}") \
                from None

    def choose(self, words):
        wait_until(lambda: words in self.desktop.icon().lines(), f"{words!r} is offered", PATIENCE)
        self.desktop.icon().choose(words)


class World:
    """A laptop with its daemon, a desktop, and a user with hooks."""

    def __init__(self, daemon, logind, home=None):
        self.daemon, self.logind = daemon, logind
        self.network, self.supplies = Network(), PowerSupplies()
        self.desktop = Desktop(FOLDER / "desktop", home)
        self.desktop.variables["PATH"] = \
            f"{pathlib.Path(sys.argv[2]).parent}:{self.desktop.variables['PATH']}"
        # The icons as the package installs them.
        theme = FOLDER / "share/icons/hicolor/symbolic/apps"
        shutil.copytree(ICONS, theme)
        self.desktop.variables["XDG_DATA_DIRS"] = f"{FOLDER}/share:/usr/local/share:/usr/share"
        self.menu = Menu(self.desktop)

    def nodoctl(self, *arguments):
        return subprocess.run([sys.argv[2], *arguments], env=self.desktop.variables, text=True,
                              capture_output=True, check=False, timeout=PATIENCE)

    def icon_is(self, state):
        """Waits until it is that of the state, by its name in the desktop's theme."""
        name = f"nodo-menu-{state}-symbolic"
        wait_until(lambda: self.desktop.icon().icon_name() == name, f"the icon is {name}",
                   PATIENCE)

    def place_of_icon(self):
        """Its middle on the screen, which is where that changes with its state."""
        self.nodoctl("stop")
        self.icon_is("off")
        before = self.at_rest()
        self.nodoctl("manual", "30")
        self.icon_is("manualactive")
        changed = wait_until(lambda: self.at_rest().differences(before), "it is drawn", PATIENCE)
        left, right = min(x for x, _ in changed), max(x for x, _ in changed)
        check(right - left < 48, f"only the icon has changed, and not from {left} to {right}")
        self.nodoctl("stop")
        self.icon_is("off")
        return (left + right) // 2, changed[len(changed) // 2][1]

    def at_rest(self, window="root"):
        """The picture once nothing on it changes."""
        def settled():
            before = self.desktop.screenshot(window=window)
            time.sleep(0.3)
            return before if self.desktop.screenshot(window=window).is_like(before) else None
        return wait_until(settled, "nothing changes on the screen", PATIENCE)
