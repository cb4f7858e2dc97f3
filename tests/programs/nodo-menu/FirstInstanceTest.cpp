#include <programs/nodo-menu/FirstInstance.h>
#include <testing/TemporaryFolder.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

#include <gmock/gmock.h>

#include <fcntl.h>
#include <poll.h>

namespace nodo::menu {
namespace {

bool hasNews(const FirstInstance& first) {
  pollfd events{.fd = first.descriptor(), .events = POLLIN, .revents = 0};
  return ::poll(&events, 1, 0) == 1;
}

class FirstInstanceTest : public ::testing::Test {
 protected:
  test::TemporaryFolder folder;
};

TEST_F(FirstInstanceTest, TheSecondOneIsNotTheFirstWhichHearsOfIt) {
  FirstInstance first(folder.path());
  EXPECT_TRUE(first.claim());
  EXPECT_FALSE(hasNews(first));
  EXPECT_FALSE(FirstInstance(folder.path()).claim());
  EXPECT_TRUE(hasNews(first));
}

TEST_F(FirstInstanceTest, AllThatHaveBeenStartedAreTakenNoteOfAtOnce) {
  FirstInstance first(folder.path());
  ASSERT_TRUE(first.claim());
  EXPECT_FALSE(FirstInstance(folder.path()).claim());
  EXPECT_FALSE(FirstInstance(folder.path()).claim());
  first.takeOthers();
  EXPECT_FALSE(hasNews(first));
  EXPECT_FALSE(FirstInstance(folder.path()).claim());
  EXPECT_TRUE(hasNews(first));
}

TEST_F(FirstInstanceTest, AfterTheFirstHasEndedTheNextIsTheFirst) {
  {
    FirstInstance first(folder.path());
    ASSERT_TRUE(first.claim());
  }
  EXPECT_TRUE(std::filesystem::exists(folder / "nodo-menu.socket")) << "as one that was killed";
  FirstInstance next(folder.path());
  EXPECT_TRUE(next.claim());
  EXPECT_FALSE(FirstInstance(folder.path()).claim());
  EXPECT_TRUE(hasNews(next));
}

TEST_F(FirstInstanceTest, WithoutAFolderItSaysWhichOneIsMissing) {
  FirstInstance first(folder / "none");
  try {
    first.claim();
    FAIL();
  } catch (const std::system_error& error) {
    EXPECT_THAT(error.what(), ::testing::HasSubstr("none/nodo-menu.lock"));
  }
}

TEST_F(FirstInstanceTest, APathThatIsTooLongForASocketIsAnError) {
  FirstInstance first(folder / std::string(120, 'a'));
  EXPECT_THROW(first.claim(), std::runtime_error);
}

TEST_F(FirstInstanceTest, OneThatHoldsTheLockAndDoesNotListenIsToldOf) {
  const FileDescriptor lock = openLocked(folder / "nodo-menu.lock", O_CREAT);
  ASSERT_TRUE(lock);
  FirstInstance second(folder.path());
  EXPECT_THROW(second.claim(), std::system_error);
}

}  // namespace
}  // namespace nodo::menu
