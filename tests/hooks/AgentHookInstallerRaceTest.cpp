#include <NODOCore/base/Files.h>

#include <filesystem>
#include <functional>
#include <string>
#include <thread>

#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <tests/hooks/InstallerFixture.h>
#include <unistd.h>

namespace nodo {
namespace {

namespace fs = std::filesystem;

// Somebody else saves a file of which the installer has just read an older content.
class AgentHookInstallerRaceTest : public InstallerFixture {
 protected:
  // Runs `action` and exchanges the file for `theirs` as soon as the action has read it. Returns
  // whether the old file was still in its place then.
  bool saveOnceItIsRead(const std::string& file, const std::string& theirs,
                        const std::function<void()>& action) const {
    const FileDescriptor watch(::inotify_init1(IN_CLOEXEC));
    EXPECT_GE(::inotify_add_watch(watch.get(), (home / file).c_str(), IN_CLOSE_NOWRITE), 0);
    const auto old = numberOf(file);
    home.write("theirs", theirs);
    bool wasThere = false;
    std::thread somebody([&] {
      pollfd read = {.fd = watch.get(), .events = POLLIN, .revents = 0};
      if (::poll(&read, 1, mostMilliseconds) == 1) {
        wasThere = numberOf(file) == old;
        fs::rename(home / "theirs", home / file);
      }
    });
    action();
    somebody.join();
    return wasThere;
  }

  // Settings that take much longer to merge than it takes to rename a file.
  static std::string largeSettings() {
    std::string text = R"({"env": {)";
    for (int number = 0; number < 40'000; ++number) {
      text += (number == 0 ? "\"V" : ", \"V") + std::to_string(number) + R"(": "some value")";
    }
    return text + "}}";
  }

 private:
  static constexpr int mostMilliseconds = 20'000;

  ino_t numberOf(const std::string& file) const {
    struct stat found {};

    return ::stat((home / file).c_str(), &found) == 0 ? found.st_ino : 0;
  }
};

TEST_F(AgentHookInstallerRaceTest, SettingsSavedMeanwhileAreKeptAndGetTheHooks) {
  install(AgentHookTarget::pi);
  // A machine that stops this test at the wrong instant proves nothing; then it is tried again.
  for (int attempt = 0; attempt < 10; ++attempt) {
    home.write(claudeFile, largeSettings());
    const bool wasInTime = saveOnceItIsRead(claudeFile, R"({"theirs": 1})", [&] {
      EXPECT_EQ(install(AgentHookTarget::claude), report("claude", claudeFile, true, "installed"));
    });
    if (wasInTime) {
      EXPECT_TRUE(holds(claudeFile,
                        "{\"theirs\":1,\"hooks\":{" + ourEvents(AgentHookTarget::claude) + "}}"));
      return;
    }
  }
  FAIL() << "the file was never exchanged in time";
}

TEST_F(AgentHookInstallerRaceTest, SettingsSavedMeanwhileLoseOnlyOurHooks) {
  install(AgentHookTarget::claude);
  const std::string hooks = "\"hooks\":{" + ourEvents(AgentHookTarget::claude) + "}";
  for (int attempt = 0; attempt < 10; ++attempt) {
    const std::string large = largeSettings();
    home.write(claudeFile, large.substr(0, large.size() - 1) + "," + hooks + "}");
    const bool wasInTime = saveOnceItIsRead(claudeFile, "{\"theirs\":1," + hooks + "}", [&] {
      EXPECT_EQ(uninstall(AgentHookTarget::claude), report("claude", claudeFile, true, "removed"));
    });
    if (wasInTime) {
      EXPECT_TRUE(holds(claudeFile, R"({"theirs":1})"));
      return;
    }
  }
  FAIL() << "the file was never exchanged in time";
}

}  // namespace
}  // namespace nodo
