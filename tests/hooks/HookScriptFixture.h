#pragma once

#include <NODOCore/base/Files.h>
#include <testing/TemporaryFolder.h>

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace nodo::test {

/// Runs the real hook script under bash, in a home of its own, with stand-ins for the tools behind
/// it and for the clock. At first everything works: nodoctl is found and has the doctor say that it
/// is active, and there is no stamp.
class HookScriptFixture : public ::testing::Test {
 protected:
  static constexpr int now = 1'769'850'900;
  /// What stands before each line of the log.
  static constexpr const char* logTime = "2026-01-31 09:15:00 ";

  HookScriptFixture();

  /// Runs the script once with `payload` on its standard input. Expects of every run that it exits
  /// with 0 and prints nothing.
  void run(const std::string& payload = "");

  /// The same with whatever the test has put at "payload" in its folder.
  void runWithPayloadThere();

  /// Sets a variable of the script's environment, which holds nothing else than what is set here.
  void set(const std::string& name, const std::string& value) { environment_[name] = value; }

  void unset(const std::string& name) { environment_.erase(name); }

  /// Exchanges the script for this text.
  void useScript(const std::string& text);

  /// Takes a program off the search path.
  void hide(const std::string& program);

  /// Puts the stand-in for nodoctl at a path below the folder.
  void installNodoctl(const std::filesystem::path& name);

  void stamp(const std::string& content) const { folder_.write("stamp", content); }

  /// The content of a file below the folder, or nothing when there is no file.
  std::optional<std::string> content(const std::string& name) const;

  /// What the log holds, without the times. Expects every line to have one.
  std::vector<std::string> log() const;

  /// What was run, in order: each program with its arguments in angle brackets, but python3 with
  /// the key that was looked for.
  std::vector<std::string> calls() const;

  /// The next line that the stand-in for caffeinate has to say, which may take its time; empty when
  /// it remains silent.
  std::string awaitCaffeinate() const;

  /// Makes caffeinate stay until `answerCaffeinate`.
  void letCaffeinateStay();
  void answerCaffeinate(const std::string& word) const;

  const TemporaryFolder& folder() const { return folder_; }

  std::string path(const std::string& name) const { return (folder_ / name).string(); }

 private:
  TemporaryFolder folder_;
  std::map<std::string, std::string> environment_;
  FileDescriptor caffeinate_;
};

/// Whether these tests can run the script's parser of JSON.
bool hasPython();

}  // namespace nodo::test
