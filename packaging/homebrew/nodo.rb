# Builds the tool and the library from the source archive of a release; on macOS the daemon comes with the
# cask alone.
#
# The host is a placeholder, and the digest is filled in when a release is published: whoever publishes
# one puts its archive's address and `shasum -a 256` here and this file into a tap.
class Nodo < Formula
  desc "Keeps a laptop awake while coding agents work"
  homepage "https://example.invalid/nodo"
  url "https://example.invalid/nodo/releases/download/v0.1.0/nodo-0.1.0.tar.gz"
  sha256 "0000000000000000000000000000000000000000000000000000000000000000"
  license "MIT"

  depends_on "cli11" => :build
  depends_on "cmake" => :build
  depends_on "fmt" => :build
  depends_on "ninja" => :build
  depends_on "pkgconf" => [:build, :test]
  depends_on "rapidjson" => :build
  depends_on "scdoc" => :build
  depends_on "tomlplusplus" => :build
  depends_on macos: :ventura
  depends_on "re2"
  depends_on "utf8proc"

  on_linux do
    # Loaded when it is needed, so that nothing links with it.
    depends_on "systemd"
  end

  def install
    # Warnings of a compiler that is newer than the release are nobody's concern here.
    system "cmake", "--preset", "release", "-DNODO_WARNINGS_AS_ERRORS=OFF", *std_cmake_args
    system "cmake", "--build", "--preset", "release"
    system "cmake", "--install", "build/release"
    generate_completions_from_executable(bin/"nodoctl", "completion")
    return unless OS.mac?

    # It runs as root, so neither its folder nor its signature may be those of a user.
    rm [sbin/"nodod", man8/"nodod.8"]
  end

  def caveats
    hooks = <<~TEXT
      To have coding agents keep this computer awake while they work:
        nodoctl hooks install
    TEXT
    return hooks unless OS.mac?

    hooks + <<~TEXT
      That is by caffeinate and with the lid open only: this is nodo without its daemon, which serves
      nobody but programs signed by its own team. The cask brings the daemon and such a nodoctl:
        brew uninstall --formula nodo && brew install --cask nodo
    TEXT
  end

  test do
    assert_match version.to_s, shell_output("#{bin}/nodoctl --version")

    ENV["NODO_STATE_DIR"] = testpath/"state"
    report = JSON.parse(shell_output("#{bin}/nodoctl reconcile --simulate --json"))
    refute report["status"]["decision"]["shouldPreventSleep"]

    (testpath/"test.cpp").write <<~CPP
      #include <NODOCore/NODOCore.h>
      #include <iostream>
      int main() { std::cout << nodo::durationText(725) << std::endl; }
    CPP
    flags = shell_output("pkgconf --cflags --libs --static nodocore").chomp.split
    system ENV.cxx, "-std=c++20", "test.cpp", *flags, "-o", "test"
    assert_equal "12m 5s\n", shell_output("./test")
  end
end
