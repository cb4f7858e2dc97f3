#include <platform/ChangeNames.h>

#include <gtest/gtest.h>

namespace nodo {
namespace {

TEST(ChangeNamesTest, NamesAreJoinedInTheirOrderAndEachIsThereOnce) {
  ChangeNames changes;
  for (const char* name : {"route", "lid", "route", "power supply", "lid"}) {
    changes.add(name);
  }
  EXPECT_FALSE(changes.isEmpty());
  EXPECT_EQ(changes.take(), "route, lid, power supply");
}

TEST(ChangeNamesTest, WhatWasTakenIsForgotten) {
  ChangeNames changes;
  changes.add("lid");
  changes.take();
  EXPECT_TRUE(changes.isEmpty());
  EXPECT_EQ(changes.take(), "");
  changes.add("lid");
  EXPECT_EQ(changes.take(), "lid");
}

}  // namespace
}  // namespace nodo
