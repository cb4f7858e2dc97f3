#include <NODOCore/helper/NODOHelperXPCClient.h>
#include <testing/UnprivilegedUser.h>

#include <gmock/gmock.h>

#include <tests/programs/nodoctl/ToolFixture.h>

namespace nodo::nodoctl {
namespace {

using test::FakeHelperRequest;
using ::testing::EndsWith;
using ::testing::StartsWith;
using Texts = std::vector<std::string>;

// Every message that a person may meet: it says what is wrong, where, and what can be done; on the
// right stream, with the right exit status.
class MessagesTest : public ToolFixture {
 protected:
  struct Message {
    Texts arguments;
    int exitStatus;
    Texts says;  ///< in this order, on standard error
  };

  void expectMessage(const Message& message, bool withOutput = false) {
    const Outcome outcome = run(message.arguments);
    SCOPED_TRACE(::testing::PrintToString(message.arguments) + "\n" + outcome.error);
    EXPECT_EQ(outcome.exitStatus, message.exitStatus);
    EXPECT_EQ(outcome.output.empty(), !withOutput);
    EXPECT_THAT(outcome.error, StartsWith("nodoctl: "));
    EXPECT_THAT(outcome.error, EndsWith("\n"));
    std::size_t at = 0;
    for (const std::string& part : message.says) {
      const auto found = outcome.error.find(part, at);
      EXPECT_NE(found, std::string::npos) << "does not say " << part;
      at = found == std::string::npos ? at : found + part.size();
    }
  }

  void expectMessages(const std::vector<Message>& messages) {
    for (const Message& message : messages) {
      expectMessage(message);
    }
  }

  std::string state() const { return (folder / ".nodo/state.json").string(); }
};

TEST_F(MessagesTest, AWrongUse) {
  expectMessages(
      {{{}, 2, {"No command given. Try 'nodoctl doctor' or 'nodoctl --help'.\n"}},
       {{"start", "30"}, 2, {"\"nodoctl start\"; did you mean \"nodoctl manual\"?"}},
       {{"log"}, 2, {"\"nodoctl log\"; did you mean \"nodoctl doctor --verbose\"?"}},
       {{"help", "statsu"}, 2, {"nodoctl statsu\"; did you mean \"status\"?", "'nodoctl --help'"}},
       {{"help", "hooks", "on"},
        2,
        {"no command \"nodoctl hooks on\"\n", "'nodoctl hooks --help'"}},
       {{"help", "status", "x"}, 2, {"\"nodoctl status x\"", "'nodoctl status --help'"}},
       {{"stauts"}, 2, {"stauts\"; did you mean \"status\"?", "'nodoctl --help'"}},
       {{"status", "--jsno"},
        2,
        {"no option \"--jsno\"; did you mean \"--json\"?", "'nodoctl status --help'"}},
       {{"manual", "--minuts", "5"},
        2,
        {"no option \"--minuts\"; did you mean \"--minutes\"?", "'nodoctl manual --help'"}},
       {{"stauts", "--json"}, 2, {"stauts\"; did you mean \"status\"?"}},
       {{"status", "--quickly"}, 2, {"--quickly", "'nodoctl status --help'"}},
       {{"status", "now"}, 2, {"now", "'nodoctl status --help'"}},
       {{"manual"},
        2,
        {"DURATION, --minutes N or --until HH:MM is required", "'nodoctl manual --help'"}},
       {{"manual", "--minutes"}, 2, {"--minutes", "'nodoctl manual --help'"}},
       {{"manual", "--minutes", "1x"},
        2,
        {"\"1x\" is no length of time; write 30, 30m, 1h or 1h30m", "'nodoctl manual --help'"}},
       {{"manual", "0"}, 2, {"\"0\" is no length of time"}},
       {{"manual", ""}, 2, {"\"\" is no length of time"}},
       {{"on", "1h90m"}, 2, {"\"1h90m\" is no length of time", "'nodoctl on --help'"}},
       {{"manual", "--until", "25:00"},
        2,
        {"\"25:00\" is no time of day; write it as 17:30, from 00:00 to 23:59"}},
       {{"on", "--until", "5pm"}, 2, {"\"5pm\" is no time of day"}},
       {{"manual", "30", "--until", "17:30"}, 2, {"--until HH:MM do not go together"}},
       {{"manual", "--minutes", "30", "--until", "17:30"}, 2, {"do not go together"}},
       {{"on", "30", "--minutes", "30"}, 2, {"DURATION, --minutes N and", "do not go together"}},
       {{"manual", "1h", "30m"}, 2, {"30m", "'nodoctl manual --help'"}},
       {{"manual", "--untill", "17:30"}, 2, {"did you mean \"--until\"?"}},
       {{"history", "--since", "yesterday"}, 2, {"\"yesterday\" is no length of time"}},
       {{"history", "--since", "169h"}, 2, {"\"169h\" is too long ago: the last 168 hours"}},
       {{"histroy"}, 2, {"did you mean \"history\"?"}},
       {{"status", "--helper-timeout", "soon"},
        2,
        {"--helper-timeout: \"soon\" is not a number of seconds above 0",
         "'nodoctl status --help'"}},
       {{"status", "--bus", "user"},
        2,
        {"--bus: \"user\" is neither system nor session nor a bus address such as "
         "unix:path=/run/bus",
         "'nodoctl status --help'"}},
       {{"watch", "--interval", "-1"},
        2,
        {"--interval: \"-1\" is not a number of seconds above 0", "'nodoctl watch --help'"}},
       {{"run"}, 2, {"A COMMAND to run or --pid PID is required", "'nodoctl run --help'"}},
       {{"run", "make", "-j"}, 2, {"-j", "'nodoctl run --help'"}},
       {{"hooks"},
        2,
        {"No command given. Try 'nodoctl hooks inspect' or 'nodoctl hooks --help'.\n"}},
       {{"hooks", "install", "cluade"}, 2, {"no agent \"cluade\"; did you mean \"claude\"?\n"}},
       {{"hooks", "install", "vim"},
        2,
        {"no agent \"vim\"; there are claude, codex, grok, pi\n",
         "'nodoctl hooks install --help'"}},
       {{"completion", "csh"}, 2, {"csh", "'nodoctl completion --help'"}}});
}

TEST_F(MessagesTest, MinutesThatNoPolicyAllows) {
  for (const bool daemon : {false, true}) {
    if (daemon) {
      startDaemon();
    }
    expectMessages({{{"manual", "--minutes", "0"}, 2, {"0 minutes are too few, at least 1\n"}},
                    {{"manual", "--minutes", "-1", "--json"}, 2, {"-1 minutes are too few"}},
                    {{"run", "--minutes", "-5", "--", "true"},
                     2,
                     {"-5 minutes are too few, at least 1\n", "see nodod(8)"}}});
  }
}

TEST_F(MessagesTest, NoPlaceForTheState) {
  environment.erase("HOME");
  expectMessages(
      {{{"status"}, 1, {"Unable to resolve nodo state directory", "set HOME or NODO_STATE_DIR\n"}},
       {{"hooks", "inspect"}, 1, {"HOME is not set", "use --home DIR"}}});
}

TEST_F(MessagesTest, AHomeThatDoesNotExistAndIsNotMade) {
  folder.write("file", "");
  for (const char* command : {"install", "uninstall", "inspect"}) {
    for (const char* name : {"nowhere", "file"}) {
      const std::string home = (folder / name).string();
      expectMessage({{"hooks", command, "--home", home},
                     1,
                     {"no home folder " + home + "; make it first, or", "--home DIR\n"}});
    }
  }
  EXPECT_FALSE(std::filesystem::exists(folder / "nowhere"));
}

TEST_F(MessagesTest, AStateThatCannotBeRead) {
  folder.write(".nodo/state.json", "{\"ownsSleepDisable\": 1}");
  for (const char* command : {"status", "stop", "repair"}) {
    expectMessage({{command},
                   1,
                   {"the state file " + state() + " cannot be read: ownsSleepDisable",
                    "left as it is", "move it away to begin with a fresh state\n"}});
  }
}

TEST_F(MessagesTest, AFolderThatCannotBeWrittenTo) {
  using std::filesystem::perms;
  constexpr perms read = perms::owner_read | perms::group_read | perms::others_read;
  constexpr perms enter = perms::owner_exec | perms::group_exec | perms::others_exec;
  folder.write(".nodo/state.json", "{}");
  std::filesystem::permissions(folder / ".nodo/state.json", read);
  std::filesystem::permissions(folder / ".nodo", read | enter);
  std::filesystem::permissions(folder.path(), enter, std::filesystem::perm_options::add);
  {
    const test::UnprivilegedUser user;
    expectMessages(
        {{{"manual", "--minutes", "5"}, 1, {"Unable to lock " + state(), "Permission denied"}},
         {{"stop"}, 1, {"Unable to lock " + state(), "Permission denied"}}});
  }
  std::filesystem::permissions(folder / ".nodo", perms::owner_all);
}

TEST_F(MessagesTest, TheDaemonDoesNotDo) {
  startDaemon();

  const struct {
    std::function<void(const FakeHelperRequest&)> answer;
    std::string reason;
  } cases[] = {
      {[](const FakeHelperRequest&) {}, "Helper request timed out"},
      {[](const FakeHelperRequest& request) { request.fail("start it with 'nodod'"); },
       "start it with 'nodod'"},
      {[](const FakeHelperRequest& request) { request.refuse("not for you"); }, "not for you"},
      {[](const FakeHelperRequest& request) { request.interrupt(); }, "connection interrupted"},
      {[](const FakeHelperRequest& request) { request.reply("nonsense"); },
       "its answer cannot be read: "}};

  for (const auto& each : cases) {
    for (const char* request :
         {"status", "stop", "repair", "enableManual", "enableManualV2", "reconcile"}) {
      helper->answer(request, each.answer);
    }
    const std::string says = "helper unavailable (" + each.reason;
    for (const Texts& command :
         {Texts{"status"}, Texts{"stop"}, Texts{"repair"}, Texts{"manual", "--minutes", "5"},
          Texts{"manual", "--minutes", "5", "--extend-only", "--requester", "x"}, Texts{"menu"}}) {
      Texts arguments = command;
      arguments.insert(arguments.end(), {"--helper-timeout", "0.02"});
      expectMessage({arguments, 0, {says, "; using the local state\n"}}, true);
    }
    expectMessage({{"doctor", "--helper-timeout", "0.02"}, 1, {says}}, true);
    expectMessage({{"reconcile", "--helper-timeout", "0.02"},
                   1,
                   {"only the daemon may switch the sleep lock", each.reason,
                    "'nodoctl reconcile --simulate'"}});
  }
}

TEST_F(MessagesTest, ACommandThatCannotBeRun) {
  environment["PATH"] = folder.path().string();
  expectMessages(
      {{{"run", "--", "nosuch"}, 127, {"cannot run \"nosuch\"", "in no folder of PATH\n"}},
       {{"run", "--", "/no/such"}, 127, {"cannot run \"/no/such\"", "No such file or directory"}},
       {{"run", "--", "/"}, 126, {"cannot run \"/\"", "Permission denied"}}});
}

TEST_F(MessagesTest, AnOutputThatIsClosed) {
  startDaemon();
  std::ostringstream error;
  std::ostream closed(nullptr);
  const ToolContext context{
      .environment = environment,
      .machine = {.processListing = machine,
                  .snapshotProvider = machine,
                  .sleepDiagnostics = [this](Date at) { return diagnose(at); }},
      .helperConnecting = [this](const auto&) { return helper; },
      .now = [this] { return now; },
      .output = closed,
      .error = error};
  for (const char* command : {"status", "doctor", "watch"}) {
    error.str("");
    EXPECT_EQ(runTool({command}, context), 1) << command;
    EXPECT_THAT(error.str(), StartsWith("nodoctl: the answer cannot be written: "));
  }
}

}  // namespace
}  // namespace nodo::nodoctl
