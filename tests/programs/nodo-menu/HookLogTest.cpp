#include <programs/nodo-menu/HookLog.h>
#include <testing/TemporaryFolder.h>

#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace nodo::menu {
namespace {

const std::string begun = "2026-01-31 08:15:00 fallback caffeinate started seconds=600\n";
const std::string resolved = "2026-01-31 08:16:00 fallback resolved reason=manual\n";
const std::string throttled = "2026-01-31 08:15:00 throttled agent=claude\n";

class HookLogTest : public ::testing::Test {
 protected:
  void append(const std::string& text) const { std::ofstream(path, std::ios::app) << text; }

  test::TemporaryFolder folder;
  std::filesystem::path path = folder / "hook.log";
};

TEST_F(HookLogTest, AFallbackThatBeginsOrEndsIsToldOfOnce) {
  HookLog log(path);
  EXPECT_FALSE(log.tellsOfFallback());
  append(begun);
  EXPECT_TRUE(log.tellsOfFallback());
  EXPECT_FALSE(log.tellsOfFallback());
  append(resolved);
  EXPECT_TRUE(log.tellsOfFallback());
}

TEST_F(HookLogTest, WhatStoodThereBeforeIsNoNews) {
  append(begun);
  HookLog log(path);
  EXPECT_FALSE(log.tellsOfFallback());
}

TEST_F(HookLogTest, OtherLinesAreNoNews) {
  HookLog log(path);
  append(throttled);
  EXPECT_FALSE(log.tellsOfFallback());
}

TEST_F(HookLogTest, OneThatBeginsAnewIsReadFromItsBeginning) {
  append(throttled + throttled + throttled);
  HookLog log(path);
  std::filesystem::remove(path);
  EXPECT_FALSE(log.tellsOfFallback());
  append(begun);
  EXPECT_TRUE(log.tellsOfFallback());
}

TEST_F(HookLogTest, OfMuchTheEndIsRead) {
  HookLog log(path);
  append(std::string(1 << 20, 'x') + "\n" + begun);
  EXPECT_TRUE(log.tellsOfFallback());
}

TEST_F(HookLogTest, APipeInItsPlaceHoldsUpNothing) {
  HookLog log(path);
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  EXPECT_FALSE(log.tellsOfFallback());
}

}  // namespace
}  // namespace nodo::menu
