# Installs the package that packaging/macos/package makes, with the daemon.
#
# As with the formula, whoever publishes a release puts the package's address and `shasum -a 256` here, and this
# file as Casks/nodo.rb into a tap. The package has to be signed: the daemon serves signed programs only.
cask "nodo" do
  version "0.1.0"
  sha256 "0000000000000000000000000000000000000000000000000000000000000000"

  url "https://example.invalid/nodo/releases/download/v#{version}/nodo-#{version}-macos-universal.pkg"
  name "nodo"
  desc "Keeps a laptop awake while coding agents work"
  homepage "https://example.invalid/nodo"

  depends_on macos: ">= :ventura"

  pkg "nodo-#{version}-macos-universal.pkg"

  # Before anything goes it proves that no lock is left on; an upgrade, which uninstalls too, keeps the timer. The
  # rest only mends what it did not find.
  uninstall early_script: {
              executable: "/usr/local/bin/nodo-uninstall",
              args:       ["--yes", "--keep-state"],
              sudo:       true,
            },
            launchctl:    "com.quintavel.nodo.helper",
            pkgutil:      "com.quintavel.nodo.pkg"

  # Not ~/.nodo: agents would call a script that is gone. `nodoctl hooks uninstall` takes both away.
  zap delete: "/Library/Application Support/nodo"

  caveats <<~TEXT
    To have coding agents keep this Mac awake while they work:
      nodoctl hooks install
    Before nodo is uninstalled, have them let go of it:
      nodoctl hooks uninstall
    A nodoctl of the formula "nodo" is not this one, and the daemon does not serve it:
      brew uninstall --formula nodo
  TEXT
end
