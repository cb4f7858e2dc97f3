"""nodo-menu at a desktop, for the scripts that take NODOD, NODOCTL and NODO-MENU as arguments: a
laptop with its daemon, a panel, and a user."""

import pathlib
import shutil
import subprocess
import sys

from desktop import Desktop
from expectations import PATIENCE, wait_until
from laptop import FOLDER, Network, PowerSupplies
from processes import start

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

    def __init__(self, daemon, logind):
        self.daemon, self.logind = daemon, logind
        self.network, self.supplies = Network(), PowerSupplies()
        self.desktop = Desktop(FOLDER / "desktop")
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

    def nobody_is_shown(self):
        return not self.desktop.icons()

