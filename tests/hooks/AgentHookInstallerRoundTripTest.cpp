#include <algorithm>
#include <filesystem>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <tests/hooks/InstallerFixture.h>

namespace nodo {
namespace {

namespace fs = std::filesystem;

// Configurations as people and tools may have written them: any JSON around hooks of other tools.
// The same for a seed on every machine, as only the generator's own numbers are used.
class Generator {
 public:
  explicit Generator(unsigned seed) : random_(seed) {}

  std::size_t below(std::size_t bound) { return random_() % bound; }

  bool oneIn(std::size_t count) { return below(count) == 0; }

  template <class Value>
  const Value& oneOf(const std::vector<Value>& values) {
    return values[below(values.size())];
  }

  JSONValue configuration() {
    JSONValue made = object(3);
    if (!oneIn(4)) {
      made.setMember("hooks", hooks());
    }
    return made;
  }

  std::string codexConfig() {
    std::string text = oneOf<std::string>({"", "# mine\n", "model = \"o5\"\r\n"});
    text += oneOf<std::string>({"", "[features]\n", "[features]\nhooks = true # wanted\n",
                                "[features]\nhooks = false\nweb = true\n"});
    return text + oneOf<std::string>({"", "[tui]\ntheme = 1.10", "[a.b]\nc = [1, 2]\n"});
  }

 private:
  // An event's list is not empty, as an empty one goes with our last hook.
  JSONValue hooks() {
    JSONValue made{JSONValue::Object()};
    for (const char* event : {"PreToolUse", "Stop", "SessionStart", "Zed", "PostToolUse"}) {
      if (oneIn(2)) {
        continue;
      }
      JSONValue::Array groups;
      for (std::size_t count = 1 + below(3); count > 0; --count) {
        groups.push_back(group());
      }
      made.setMember(event, JSONValue(std::move(groups)));
    }
    if (made.object()->empty()) {
      made.setMember("Stop", JSONValue(JSONValue::Array{group()}));
    }
    return made;
  }

  JSONValue group() {
    JSONValue made = object(1);
    JSONValue::Array entries;
    for (std::size_t count = below(3); count > 0; --count) {
      JSONValue entry = object(1);
      entry.setMember("command", JSONValue(text()));
      entries.push_back(std::move(entry));
    }
    made.setMember("hooks", JSONValue(std::move(entries)));
    return made;
  }

  JSONValue value(std::size_t depth) {
    switch (below(depth == 0 ? 4 : 6)) {
      case 0:
        return JSONValue();
      case 1:
        return JSONValue(oneIn(2));
      case 2:
        return JSONValue(JSONValue::Number{
            oneOf<std::string>({"0", "-0", "1.10", "12345678901234567890", "1e-7", "1E+30",
                                "0.1000000000000000055511151231257827", "-9007199254740993"})});
      case 3:
        return JSONValue(text());
      case 4:
        return object(depth - 1);
      default:
        return array(depth - 1);
    }
  }

  JSONValue array(std::size_t depth) {
    JSONValue::Array made;
    for (std::size_t count = below(4); count > 0; --count) {
      made.push_back(value(depth));
    }
    return JSONValue(std::move(made));
  }

  JSONValue object(std::size_t depth) {
    JSONValue made{JSONValue::Object()};
    for (std::size_t count = below(4); count > 0; --count) {
      made.setMember(text(), value(depth));
    }
    made.removeMember("hooks");
    return made;
  }

  std::string text() {
    return oneOf<std::string>({"", "model", "a/b \"c\"", "caf\xC3\xA9", "\xF0\x9F\x9A\x80",
                               "x\ny\t", "echo 'it''s'", "NODO_HOOK_AGENT='claude' other", "hooks",
                               "\x01\\u0041", "matcher", "env"});
  }

  std::mt19937 random_;
};

class AgentHookInstallerRoundTripTest : public InstallerFixture {
 protected:
  static constexpr unsigned configurations = 200;

  // Writes a file with a mode of its own, now and then behind a link.
  void place(Generator& generator, const std::string& file, const std::string& content) {
    const bool isLinked = generator.oneIn(3);
    const std::string real = isLinked ? "dotfiles/" + file : file;
    home.write(real, content);
    fs::permissions(home / real, fs::perms(generator.oneOf<unsigned>({0600, 0644, 0664, 0400})));
    if (isLinked) {
      fs::create_directories((home / file).parent_path());
      fs::create_symlink(home / real, home / file);
    }
  }

  // What stands in the home but the content of files: names, modes and where links lead.
  std::vector<std::string> layout() const {
    std::vector<std::string> entries;
    for (const auto& entry : fs::recursive_directory_iterator(home.path())) {
      const fs::file_status status = entry.symlink_status();
      entries.push_back(fs::relative(entry.path().parent_path(), home.path()).string() + "/" +
                        entry.path().filename().string() + " " +
                        std::to_string(static_cast<unsigned>(status.permissions())) + " " +
                        (fs::is_symlink(status) ? fs::read_symlink(entry.path()).string() : ""));
    }
    std::sort(entries.begin(), entries.end());
    return entries;
  }

  void installAndUninstall() const {
    for (const AgentHookInstallReport& report : installer().installReportingFailures(all())) {
      EXPECT_TRUE(report.succeeded()) << report.error.value_or("");
    }
    EXPECT_TRUE(installer().inspect(all()).isCurrent());
    for (const AgentHookInstallReport& report : installer().uninstallReportingFailures(all())) {
      EXPECT_EQ(report.message, "removed") << report.target << report.error.value_or("");
    }
  }

  void empty() const {
    for (const std::string& name : home.names()) {
      fs::remove_all(home / name);
    }
  }
};

// As it was but for the order of members, digit for digit and in the order of lists.
std::string sorted(const std::string& text) {
  return jsonText(JSONValue::parse(text), JSONLayout::prettySorted) + "\n";
}

TEST_F(AgentHookInstallerRoundTripTest, WhatIsNotOursComesThroughUnharmed) {
  for (unsigned seed = 0; seed < configurations; ++seed) {
    SCOPED_TRACE(seed);
    Generator generator(seed);
    empty();
    const std::string claude = jsonText(generator.configuration(), JSONLayout::compact);
    const std::string codex = jsonText(generator.configuration(), JSONLayout::pretty);
    const std::string toml = generator.codexConfig();
    const std::string other = jsonText(generator.configuration(), JSONLayout::compact);
    place(generator, claudeFile, claude);
    // Without any member the file would go with our hooks, unless it is a link.
    place(generator, codexFile, codex == "{}" ? R"({"description": 1.10})" : codex);
    place(generator, codexConfigFile, toml);
    place(generator, ".grok/hooks/other.json", other);
    place(generator, ".pi/agent/extensions/other.ts", other);
    home.write(".nodo/state.json", other);
    const auto before = layout();
    const std::string codexBefore = home.read(codexFile);

    installAndUninstall();

    EXPECT_EQ(layout(), before);
    EXPECT_EQ(home.read(claudeFile), sorted(claude));
    EXPECT_EQ(home.read(codexFile), sorted(codexBefore));
    for (const char* file :
         {".grok/hooks/other.json", ".pi/agent/extensions/other.ts", ".nodo/state.json"}) {
      EXPECT_EQ(home.read(file), other) << file;
    }
    const std::string switched = home.read(codexConfigFile);
    EXPECT_THAT(switched, ::testing::HasSubstr("hooks = true"));
    if (toml.find("hooks = true") != std::string::npos) {
      EXPECT_EQ(switched, toml);
    }
    if (HasFailure()) {
      return;
    }
  }
}

TEST_F(AgentHookInstallerRoundTripTest, OfAnEmptyHomeOnlyWhatPeopleMayNeedIsLeft) {
  installAndUninstall();
  EXPECT_THAT(home.names(), ::testing::ElementsAre(".claude", ".codex"));
  EXPECT_EQ(home.read(claudeFile), "{}\n");
  EXPECT_EQ(home.read(codexConfigFile), "[features]\nhooks = true\n");
  EXPECT_FALSE(exists(codexFile));
}

TEST_F(AgentHookInstallerRoundTripTest, AFolderThatHoldsAnythingStaysAndSoDoesALink) {
  home.write(".pi/settings.json", "{}");
  home.write(".nodo/last-extend.stamp", "1");
  fs::create_directories(home / "dotfiles/grok");
  fs::create_directory_symlink("dotfiles/grok", home / ".grok");
  installAndUninstall();
  EXPECT_TRUE(exists(".pi/settings.json"));
  EXPECT_FALSE(exists(".pi/agent"));
  EXPECT_TRUE(exists(".nodo/last-extend.stamp"));
  EXPECT_TRUE(fs::is_symlink(home / ".grok"));
  EXPECT_FALSE(exists("dotfiles/grok/hooks"));
}

TEST_F(AgentHookInstallerRoundTripTest, AFolderThatWasEmptyBeforeIsNoneOfOursWithNothingRemoved) {
  fs::create_directories(home / ".grok/hooks");
  fs::create_directories(home / ".nodo");
  installer().uninstall(all());
  EXPECT_TRUE(exists(".grok/hooks"));
  EXPECT_TRUE(exists(".nodo"));
}

TEST_F(AgentHookInstallerRoundTripTest, TheFolderOfAScriptElsewhereStays) {
  fs::create_directory(home / "user");
  const AgentHookInstaller elsewhere(home / "user", home / "opt/nodo-agent-hook.sh", "/bin/sh");
  elsewhere.install(all());
  elsewhere.uninstall(all());
  EXPECT_TRUE(exists("opt"));
  EXPECT_FALSE(exists("opt/nodo-agent-hook.sh"));
  EXPECT_TRUE(exists("user"));
}

}  // namespace
}  // namespace nodo
