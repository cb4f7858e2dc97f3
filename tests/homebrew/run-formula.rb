# Loads the formula with a stand-in for Homebrew, which records instead of running, and checks the steps.
#
# usage: run-formula.rb FORMULA VERSION

require "pathname"

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

  def generate_completions_from_executable(*command)
    @steps << ["completions", *command.map(&:to_s)]
  end
end

load ARGV[0]

def expect(what, actual, expected)
  return if actual == expected

  warn "#{what}: #{actual.inspect} instead of #{expected.inspect}"
  exit 1
end

formula = Nodo.new
formula.install
configure, build, install, completions = formula.steps
preset = configure[configure.index("--preset") + 1]
expect "places in the configuration", formula.std_cmake_args - configure, []
expect "what is built", build.last, preset
expect "what is installed", install, ["cmake", "--install", "build/#{preset}"]
expect "what completes", completions, ["completions", "/prefix/bin/nodoctl", "completion"]
expect "version", Nodo.values[:url][/nodo-(.*)\.tar\.gz/, 1], ARGV[1]
expect "digest", Nodo.values[:sha256].match?(/\A\h{64}\z/), true
expect "license", Nodo.values[:license], "MIT"
expect "test", Nodo.tested.nil?, false
expect "length of the description", Nodo.values[:desc].length <= 80, true
expect "caveats", formula.caveats.include?("nodoctl hooks install"), true
