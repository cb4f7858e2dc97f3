#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/base/JSONValue.h>
#include <NODOCore/state/StateStore.h>
#include <testing/DiskFull.h>
#include <testing/TemporaryFolder.h>
#include <testing/UnprivilegedUser.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nodo {
namespace {

namespace fs = std::filesystem;
using test::DiskFull;
using test::TemporaryFolder;
using test::UnprivilegedUser;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

const Date noon = dateFromSeconds(1769860800);

NODOState someState() {
  NODOState state = NODOState::fresh(noon);
  state.recordRequester({"Codex", "web", "Stop", noon}, noon, 6, 500);
  state.recordPowerOperation({true, false, "tool", 0, "", ""}, noon, "enable:manual_timer", 20);
  state.manualUntil = noon + Seconds(600);
  state.lastLidClosed = true;
  return state;
}

class StateStoreTest : public ::testing::Test {
 protected:
  void saveFailsWith(int code) {
    try {
      store.save(someState());
      FAIL() << "it was saved";
    } catch (const std::system_error& error) {
      EXPECT_EQ(error.code().value(), code) << error.what();
      EXPECT_THAT(error.what(), HasSubstr(store.directory.string()));
    }
  }

  TemporaryFolder folder;
  StateStore store{folder / "state"};
};

// A store that remembers what it has read, as the daemon's does.
class RememberingStoreTest : public StateStoreTest {
 protected:
  RememberingStoreTest() {
    store.memory = std::make_shared<StateStore::Memory>();
    store.save(timerOf(10));
    EXPECT_EQ(store.load(), timerOf(10));
  }

  static NODOState timerOf(int minutes) {
    NODOState state = NODOState::fresh(noon);
    state.manualUntil = noon + Seconds(60 * minutes);
    return state;
  }

  static std::string textOf(const NODOState& state) {
    return encodeJSON(state, JSONLayout::prettySorted) + "\n";
  }

  // Writes over the file where it is, so that its number and its size stay.
  void overwrite(const std::string& content) const {
    std::fstream file(store.stateURL());
    file << content;
  }
};

TEST_F(StateStoreTest, APersonsStoreIsWhereTheEnvironmentSays) {
  EXPECT_EQ(StateStore::defaultStore({{"NODO_STATE_DIR", "/x/y"}, {"HOME", "/home/u"}}),
            (StateStore{"/x/y"}));
  EXPECT_EQ(StateStore::defaultStore({{"HOME", "/home/u"}}), (StateStore{"/home/u/.nodo"}));
}

TEST_F(StateStoreTest, AnEmptyFolderInTheEnvironmentIsIgnored) {
  EXPECT_EQ(StateStore::defaultStore({{"NODO_STATE_DIR", ""}, {"HOME", "/home/u"}}),
            (StateStore{"/home/u/.nodo"}));
  EXPECT_EQ(StateStore::daemon({{"NODO_STATE_DIR", ""}, {"HOME", "/home/u"}}),
            (StateStore{"/Library/Application Support/nodo"}));
}

TEST_F(StateStoreTest, TheDaemonsStoreIsTheSystemsUnlessTheEnvironmentSaysOtherwise) {
  EXPECT_EQ(StateStore::daemon({}), (StateStore{"/Library/Application Support/nodo"}));
  EXPECT_EQ(StateStore::daemon({{"NODO_STATE_DIR", "/x"}}), (StateStore{"/x"}));
}

TEST_F(StateStoreTest, WithoutAnyFolderThereIsNoStoreOfAPersons) {
  for (const Environment& environment :
       {Environment{}, Environment{{"NODO_STATE_DIR", ""}, {"HOME", ""}},
        Environment{{"USER", "u"}}}) {
    try {
      StateStore::defaultStore(environment);
      FAIL() << "there is no folder for it";
    } catch (const NODOError& error) {
      EXPECT_EQ(error, NODOError::stateDirectoryUnavailable());
      EXPECT_STREQ(error.what(), "Unable to resolve nodo state directory");
    }
  }
}

TEST_F(StateStoreTest, TheFileIsInItsFolder) {
  EXPECT_EQ((StateStore{"/x/y"}).stateURL(), fs::path("/x/y/state.json"));
}

TEST_F(StateStoreTest, StoresAreEqualByTheirFolders) {
  EXPECT_EQ((StateStore{"/x"}), (StateStore{"/x"}));
  EXPECT_NE((StateStore{"/x"}), (StateStore{"/y"}));
  EXPECT_NE((StateStore{"/x"}), (StateStore{"/x/y"}));
  for (const char* spelling : {"/x/", "/x//", "/x/.", "/y/../x"}) {
    EXPECT_EQ((StateStore{"/x"}), (StateStore{spelling})) << spelling;
  }
}

TEST_F(StateStoreTest, LoadingWithoutAFileIsAFreshStateAndMakesNothing) {
  const Date before = currentDate();
  const NODOState state = store.load();
  EXPECT_GE(state.createdAt, before);
  EXPECT_LE(state.createdAt, currentDate());
  EXPECT_EQ(state, NODOState::fresh(state.createdAt));
  EXPECT_THAT(folder.names(), IsEmpty());
}

TEST_F(StateStoreTest, TheFirstSaveMakesTheFolderWithItsParents) {
  const StateStore deep{folder / "a" / "b" / "c"};
  deep.save(someState());
  EXPECT_EQ(deep.load(), someState());
}

TEST_F(StateStoreTest, WhatIsSavedIsLoadedEqual) {
  store.save(someState());
  EXPECT_EQ(store.load(), someState());
  NODOState changed = someState();
  changed.ownsSleepDisable = true;
  changed.lastRequester.reset();
  store.save(changed);
  EXPECT_EQ(store.load(), changed);
}

TEST_F(StateStoreTest, DatesKeepTheirWholeSecondsOnly) {
  NODOState state = NODOState::fresh(noon + Seconds(0.75));
  state.manualUntil = noon + Seconds(90.999);
  store.save(state);
  EXPECT_EQ(store.load().createdAt, noon);
  EXPECT_EQ(store.load().manualUntil, noon + Seconds(90));
}

TEST_F(StateStoreTest, TheFileIsForPeopleToo) {
  store.save(someState());
  const std::string content = folder.read("state/state.json");
  EXPECT_THAT(content, HasSubstr("{\n  \"createdAt\": \"2026-01-31T12:00:00Z\",\n"));
  const JSONValue document = JSONValue::parse(content);
  const auto& members = *document.object();
  EXPECT_TRUE(
      std::is_sorted(members.begin(), members.end(),
                     [](const auto& left, const auto& right) { return left.first < right.first; }));
}

TEST_F(StateStoreTest, AnEmptyObjectLoads) {
  folder.write("state/state.json", "{}");
  const NODOState state = store.load();
  EXPECT_EQ(state, NODOState::fresh(state.createdAt));
}

TEST_F(StateStoreTest, AFileThatHoldsNoStateFailsToLoadAndStaysAsItIs) {
  for (const std::string content :
       {"[]", "", "not JSON", "{", "{}}", "null", "{\"ownsSleepDisable\":1}", "\xFF\xFE{}",
        "{\"manualUntil\":\"tomorrow\"}"}) {
    folder.write("state/state.json", content);
    EXPECT_THROW(store.load(), DecodingError) << content;
    EXPECT_EQ(folder.read("state/state.json"), content);
  }
}

TEST_F(StateStoreTest, AFileThatHoldsNoStateIsNamedWithWhatCanBeDone) {
  folder.write("state/state.json", "{\"ownsSleepDisable\":1}");
  try {
    store.load();
    FAIL() << "it was loaded";
  } catch (const DecodingError& error) {
    EXPECT_EQ(error.what(), "the state file " + store.stateURL().string() +
                                " cannot be read: ownsSleepDisable: expected true or false, found "
                                "number 1. It was left as it is; move it away to begin with a "
                                "fresh state");
    EXPECT_EQ(error.path(), "ownsSleepDisable");
  }
}

TEST_F(StateStoreTest, AFileThatMayNotBeReadFailsToLoad) {
  folder.write("state/state.json", "{}");
  fs::permissions(folder.path(), fs::perms(0755));
  fs::permissions(folder / "state" / "state.json", fs::perms(0));
  const UnprivilegedUser user;
  EXPECT_THROW(store.load(), std::system_error);
}

TEST_F(StateStoreTest, AFolderThatCannotBeMadeIsAnError) {
  folder.write("state", "a file");
  saveFailsWith(ENOTDIR);
  EXPECT_EQ(folder.read("state"), "a file");
}

TEST_F(StateStoreTest, AFailedSaveLeavesTheOldState) {
  const NODOState old = NODOState::fresh(noon);
  store.save(old);
  {
    const DiskFull full;
    saveFailsWith(EFBIG);
  }
  EXPECT_EQ(store.load(), old);
  EXPECT_THAT(folder.names(), ElementsAre("state"));
  EXPECT_EQ(std::distance(fs::directory_iterator(folder / "state"), fs::directory_iterator()), 1);
}

TEST_F(StateStoreTest, TheFilesModeIsKept) {
  store.save(someState());
  fs::permissions(store.stateURL(), fs::perms(0600));
  store.save(someState());
  EXPECT_EQ(fs::status(store.stateURL()).permissions(), fs::perms(0600));
}

TEST_F(RememberingStoreTest, AFileAsItWasIsNotDecodedAgain) {
  // What decoding could not have told.
  store.memory->state.lastStopReason = "remembered";
  EXPECT_EQ(store.load().lastStopReason, "remembered");
  EXPECT_EQ(StateStore(store).load().lastStopReason, "remembered");
}

TEST_F(RememberingStoreTest, AChangeThatKeepsSizeAndTimesIsSeen) {
  const fs::file_time_type written = fs::last_write_time(store.stateURL());
  ASSERT_EQ(textOf(timerOf(20)).size(), textOf(timerOf(10)).size());
  overwrite(textOf(timerOf(20)));
  fs::last_write_time(store.stateURL(), written);
  EXPECT_EQ(store.load(), timerOf(20));
}

TEST_F(RememberingStoreTest, AChangeRightBehindASaveIsSeen) {
  for (int minutes = 10; minutes < 60; ++minutes) {
    store.save(timerOf(minutes));
    overwrite(textOf(timerOf(minutes + 1)));
    EXPECT_EQ(store.load(), timerOf(minutes + 1));
  }
}

TEST_F(RememberingStoreTest, AnotherFileInItsPlaceIsSeen) {
  folder.write("other", textOf(timerOf(20)));
  fs::last_write_time(folder / "other", fs::last_write_time(store.stateURL()));
  fs::rename(folder / "other", store.stateURL());
  EXPECT_EQ(store.load(), timerOf(20));
}

TEST_F(RememberingStoreTest, ARemovedFileIsAFreshStateAndAReturnedOneIsLoaded) {
  fs::rename(store.stateURL(), folder / "away");
  EXPECT_EQ(store.load().manualUntil, std::nullopt);
  fs::rename(folder / "away", store.stateURL());
  EXPECT_EQ(store.load(), timerOf(10));
}

TEST_F(RememberingStoreTest, AFileThatTurnsBadIsAnErrorEachTime) {
  for (const char* content : {"", "[]"}) {
    folder.write("state/state.json", content);
    EXPECT_THROW(store.load(), DecodingError);
    EXPECT_THROW(store.load(), DecodingError);
  }
  store.save(timerOf(20));
  EXPECT_EQ(store.load(), timerOf(20));
}

TEST_F(RememberingStoreTest, AFailedSaveIsNotRemembered) {
  {
    const DiskFull full;
    saveFailsWith(EFBIG);
  }
  EXPECT_EQ(store.load(), timerOf(10));
}

TEST_F(RememberingStoreTest, WhatIsSavedIsLoadedAsTheFileHoldsIt) {
  NODOState state = timerOf(20);
  state.updatedAt = noon + Seconds(0.5);
  store.save(state);
  EXPECT_EQ(store.load().updatedAt, noon);
}

}  // namespace
}  // namespace nodo
