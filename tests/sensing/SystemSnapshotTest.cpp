#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/sensing/SystemSnapshot.h>

#include <string>

#include <gtest/gtest.h>

namespace nodo {
namespace {

const Date noon = dateFromSeconds(1769860800);

SystemSnapshot fullSnapshot() {
  return {.now = noon,
          .powerSource = PowerSource::battery,
          .batteryPercent = 85,
          .defaultRouteAvailable = true,
          .lidClosed = false};
}

TEST(SystemSnapshotTest, ItsJSONHasItsKeysInTheirOrder) {
  const std::string text =
      R"({"now":"2026-01-31T12:00:00Z","powerSource":"battery","batteryPercent":85,)"
      R"("defaultRouteAvailable":true,"lidClosed":false})";
  EXPECT_EQ(encodeJSON(fullSnapshot(), JSONLayout::compact), text);
  EXPECT_EQ(decodeJSON<SystemSnapshot>(text), fullSnapshot());
}

TEST(SystemSnapshotTest, WhatIsUnknownIsLeftOut) {
  SystemSnapshot snapshot;
  snapshot.now = noon;
  const std::string text = R"({"now":"2026-01-31T12:00:00Z","powerSource":"unknown"})";
  EXPECT_EQ(encodeJSON(snapshot, JSONLayout::compact), text);
  EXPECT_EQ(decodeJSON<SystemSnapshot>(text), snapshot);
}

TEST(SystemSnapshotTest, TimeAndPowerSourceAreRequired) {
  for (const char* text : {R"({"now":"2026-01-31T12:00:00Z"})", R"({"powerSource":"ac"})",
                           R"({"now":"2026-01-31T12:00:00Z","powerSource":"AC"})",
                           R"({"now":"2026-01-31T12:00:00Z","powerSource":"ac","lidClosed":0})"}) {
    EXPECT_THROW(decodeJSON<SystemSnapshot>(text), DecodingError) << text;
  }
}

TEST(SystemSnapshotTest, TheStaticProviderDatesItsValue) {
  const StaticSystemSnapshotProvider provider(fullSnapshot());
  SystemSnapshot expected = fullSnapshot();
  expected.now = noon + Seconds(90);
  EXPECT_EQ(provider.snapshot(noon + Seconds(90)), expected);
  EXPECT_EQ(provider.value, fullSnapshot());
}

}  // namespace
}  // namespace nodo
