#include <NODOCore/base/Files.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/hooks/HookScript.h>
#include <NODOCore/power/CommandRunning.h>

#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <tests/hooks/HookScriptFixture.h>
#include <unistd.h>

namespace nodo::test {
namespace {

namespace fs = std::filesystem;

std::optional<std::string> find(const std::string& program) {
  for (const char* folder : {"/bin/", "/usr/bin/", "/usr/local/bin/", "/opt/homebrew/bin/"}) {
    const std::string path = folder + program;
    if (::access(path.c_str(), X_OK) == 0) {
      return path;
    }
  }
  return std::nullopt;
}

const fs::path standIns = NODO_HOOK_STAND_INS;

}  // namespace

bool hasPython() {
  return find("python3").has_value();
}

HookScriptFixture::HookScriptFixture() {
  fs::create_directory(folder_ / "tools");
  for (const char* program : {"bash", "cat", "head", "tr", "mkdir", "sleep"}) {
    fs::create_symlink(find(program).value(), folder_ / "tools" / program);
  }
  for (const char* program : {"caffeinate", "date"}) {
    fs::create_symlink(standIns / program, folder_ / "tools" / program);
  }
  if (const auto python = find("python3")) {
    fs::create_symlink(standIns / "python3", folder_ / "tools" / "python3");
    set("HOOK_TEST_PYTHON", *python);
  }
  if (::mkfifo(path("caffeinate.started").c_str(), 0600) != 0) {
    throw std::runtime_error("no pipe");
  }
  // Open for both, so that neither side waits for the other.
  caffeinate_ = FileDescriptor(::open(path("caffeinate.started").c_str(), O_RDWR | O_CLOEXEC));
  fs::create_directories(folder_ / "home" / "project");
  installNodoctl("nodoctl");
  useScript(hookScriptText(""));
  set("HOME", path("home"));
  set("PATH", path("tools"));
  set("NODO_HOOK_LOG", path("log"));
  set("NODO_HOOK_STAMP", path("stamp"));
  set("NODOCTL_PATH", path("nodoctl"));
  set("HOOK_TEST_FOLDER", folder_.path().string());
  set("HOOK_TEST_NOW", std::to_string(now));
  set("HOOK_TEST_REPORT", "Status: active");
}

void HookScriptFixture::run(const std::string& payload) {
  folder_.write("payload", payload);
  runWithPayloadThere();
}

void HookScriptFixture::runWithPayloadThere() {
  std::vector<std::string> arguments = {
      "-c",
      R"(cd "$1" && payload=$2 && shift 2 && exec "$@" <"$payload")",
      "sh",
      path("home/project"),
      path("payload"),
      "/usr/bin/env",
      "-i"};
  for (const auto& [name, value] : environment_) {
    arguments.push_back(name + "=" + value);
  }
  arguments.push_back(path("hook"));
  const CommandOutput output = ProcessCommandRunner().run("/bin/sh", arguments);
  EXPECT_EQ(output.exitCode, 0);
  EXPECT_EQ(output.standardOutput, "");
  EXPECT_EQ(output.standardError, "");
}

void HookScriptFixture::useScript(const std::string& text) {
  folder_.write("hook", text);
  fs::permissions(folder_ / "hook", fs::perms::owner_all);
}

void HookScriptFixture::hide(const std::string& program) {
  if (!fs::remove(folder_ / "tools" / program)) {
    throw std::runtime_error(program + " was not there");
  }
}

void HookScriptFixture::installNodoctl(const fs::path& name) {
  fs::create_directories((folder_ / name).parent_path());
  fs::create_symlink(standIns / "nodoctl", folder_ / name);
}

std::optional<std::string> HookScriptFixture::content(const std::string& name) const {
  return readFile(folder_ / name);
}

std::vector<std::string> HookScriptFixture::log() const {
  std::vector<std::string> messages;
  const std::string text = content("log").value_or("");
  for (const std::string_view line : splitAtLineFeeds(text)) {
    EXPECT_TRUE(line.starts_with(logTime)) << line;
    messages.emplace_back(line.substr(std::string_view(logTime).size()));
  }
  return messages;
}

std::vector<std::string> HookScriptFixture::calls() const {
  std::vector<std::string> lines;
  const std::string text = content("calls").value_or("");
  for (const std::string_view line : splitAtLineFeeds(text)) {
    lines.emplace_back(line);
  }
  return lines;
}

std::string HookScriptFixture::awaitCaffeinate() const {
  constexpr int mostMilliseconds = 20'000;
  std::string line;
  pollfd ready = {.fd = caffeinate_.get(), .events = POLLIN, .revents = 0};
  char character = 0;
  while (::poll(&ready, 1, mostMilliseconds) == 1 &&
         ::read(caffeinate_.get(), &character, 1) == 1 && character != '\n') {
    line += character;
  }
  return line;
}

void HookScriptFixture::letCaffeinateStay() {
  if (::mkfifo(path("caffeinate.ask").c_str(), 0600) != 0) {
    throw std::runtime_error("no pipe");
  }
}

void HookScriptFixture::answerCaffeinate(const std::string& word) const {
  folder_.write("caffeinate.ask", word + "\n");
}

}  // namespace nodo::test
