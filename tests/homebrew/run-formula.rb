# Loads formula and cask with a stand-in for Homebrew, which records instead of running, and checks the steps.
#
# usage: run-formula.rb FORMULA CASK VERSION

require "pathname"

module OS
  class << self
    attr_accessor :mac

    def mac?
      mac
    end
  end
end

class Formula
  class << self
    attr_reader :tested, :values, :dependencies

    def inherited(formula)
      super
      formula.instance_variable_set(:@values, {})
      formula.instance_variable_set(:@dependencies, [])
    end

    %i[desc homepage url sha256 license].each do |name|
      define_method(name) { |value| @values[name] = value }
    end

    def depends_on(what)
      @dependencies << what
    end

    def on_linux
      yield
    end

    def test(&block)
      @tested = block
    end
  end

  attr_reader :steps

  def initialize
    @steps = []
  end

  def system(*command)
    @steps << command
  end

  def std_cmake_args
    ["-DCMAKE_INSTALL_PREFIX=/prefix"]
  end

  def bin
    Pathname("/prefix/bin")
  end

  def sbin
    Pathname("/prefix/sbin")
  end

  def man8
    Pathname("/prefix/share/man/man8")
  end

  def rm(files)
    @steps << ["rm", *files.map(&:to_s)]
  end

  def generate_completions_from_executable(*command)
    @steps << ["completions", *command.map(&:to_s)]
  end
end

# The stanzas of a cask, each with what it was given.
class Cask
  attr_reader :stanzas

  def initialize(&block)
    @stanzas = {}
    instance_eval(&block)
  end

  %i[url name desc homepage sha256 depends_on pkg uninstall zap caveats].each do |stanza|
    define_method(stanza) { |*values| @stanzas[stanza] = values.first }
  end

  def version(value = nil)
    @stanzas[:version] ||= value
  end
end

def cask(token, &block)
  $cask = [token, Cask.new(&block).stanzas]
end

ARGV.first(2).each { |file| load file }

def expect(what, actual, expected)
  return if actual == expected

  warn "#{what}: #{actual.inspect} instead of #{expected.inspect}"
  exit 1
end

formula = Nodo.new
OS.mac = false
formula.install
configure, build, install, completions, *more = formula.steps
preset = configure[configure.index("--preset") + 1]
expect "places in the configuration", formula.std_cmake_args - configure, []
expect "what is built", build.last, preset
expect "what is installed", install, ["cmake", "--install", "build/#{preset}"]
expect "what completes", completions, ["completions", "/prefix/bin/nodoctl", "completion"]
expect "version", Nodo.values[:url][/nodo-(.*)\.tar\.gz/, 1], ARGV[2]
expect "digest", Nodo.values[:sha256].match?(/\A\h{64}\z/), true
expect "license", Nodo.values[:license], "MIT"
expect "test", Nodo.tested.nil?, false
expect "length of the description", Nodo.values[:desc].length <= 80, true
expect "caveats", formula.caveats.include?("nodoctl hooks install"), true
expect "steps on Linux only", more, []
expect "caveats on Linux", formula.caveats.include?("daemon"), false

OS.mac = true
formula = Nodo.new
formula.install
expect "what is not for a Mac's formula", formula.steps.last,
       ["rm", "/prefix/sbin/nodod", "/prefix/share/man/man8/nodod.8"]
expect "the way to the daemon", formula.caveats.include?("brew install --cask nodo"), true

token, stanzas = $cask
expect "token", token, "nodo"
expect "what is fetched and what is installed", File.basename(stanzas[:url]), stanzas[:pkg]
expect "version in the address", stanzas[:url].include?("/v#{ARGV[2]}/"), true
expect "digest", stanzas[:sha256].match?(/\A\h{64}\z/), true
expect "the cask's description", stanzas[:desc], Nodo.values[:desc]
expect "what removes it", stanzas[:uninstall][:early_script],
       { executable: "/usr/local/bin/nodo-uninstall", args: ["--yes", "--keep-state"], sudo: true }
expect "the service", stanzas[:uninstall][:launchctl], "com.quintavel.nodo.helper"
expect "the receipt", stanzas[:uninstall][:pkgutil], "com.quintavel.nodo.pkg"
expect "what zapping takes besides", stanzas[:zap], { delete: "/Library/Application Support/nodo" }
expect "the cask's caveats", stanzas[:caveats].include?("nodoctl hooks uninstall"), true
