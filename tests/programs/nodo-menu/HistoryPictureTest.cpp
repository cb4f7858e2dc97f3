#include <programs/nodo-menu/HistoryPicture.h>

#include <QBuffer>
#include <QByteArray>
#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>

#include <gtest/gtest.h>

namespace nodo::menu {
namespace {

constexpr Date now = dateFromSeconds(1'769'847'300);  // 2026-01-31 08:15 UTC
constexpr Seconds hour(std::chrono::hours(1));
const QSize size(600, 160);

Date ago(double hours) {
  return now - hour * hours;
}

HistoryReport empty() {
  HistoryReport report;
  report.since = ago(12);
  report.until = now;
  return report;
}

HistoryReport full() {
  HistoryReport report = empty();
  report.requestMinutes = {{.startedAt = ago(9), .count = 4}, {.startedAt = ago(3), .count = 2}};
  report.lockPeriods = {{.startedAt = ago(9), .endedAt = ago(6)},
                        {.startedAt = ago(1), .endedAt = now, .ending = PeriodEnding::lasts}};
  report.vetoes = {{.startedAt = ago(6), .endedAt = ago(4)}};
  return report;
}

// Of the WCAG, 1 to 21.
double contrast(const QColor& one, const QColor& other) {
  const auto luminance = [](const QColor& colour) {
    const auto linear = [](double part) {
      return part <= 0.04045 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(colour.redF()) + 0.7152 * linear(colour.greenF()) +
           0.0722 * linear(colour.blueF());
  };
  const auto [dark, light] = std::minmax({luminance(one), luminance(other)});
  return (light + 0.05) / (dark + 0.05);
}

// In light and dark.
class HistoryPictureTest : public ::testing::TestWithParam<bool> {
 protected:
  QColor at(const QImage& image, double x, double y) const {
    return image.pixelColor(static_cast<int>(x), static_cast<int>(y));
  }

  QColor inBand(const QImage& image, const HistoryReport& report, double hoursAgo) const {
    return at(image, layout.x(report, ago(hoursAgo)), layout.band.center().y());
  }

  int pixels(const QImage& image, const QRectF& area, const QColor& colour) const {
    int found = 0;
    const QRect place = area.toRect();
    for (int y = place.top(); y <= place.bottom(); ++y) {
      for (int x = place.left(); x <= place.right(); ++x) {
        found += image.pixelColor(x, y) == colour ? 1 : 0;
      }
    }
    return found;
  }

  QRectF between(const HistoryReport& report, double from, double to) const {
    const double left = layout.x(report, ago(from));
    return {left, layout.band.top(), layout.x(report, ago(to)) - left, layout.band.height()};
  }

  PictureColours colours = pictureColours(GetParam());
  PictureLayout layout{QRectF(QPointF(), QSizeF(size))};
};

TEST_P(HistoryPictureTest, TheLockIsABandWhereItWasHeldUpToNow) {
  const QImage image = historyImage(full(), size, GetParam());
  EXPECT_EQ(inBand(image, full(), 10), colours.background);
  EXPECT_EQ(inBand(image, full(), 7.5), colours.lock);
  EXPECT_EQ(inBand(image, full(), 2), colours.background);
  EXPECT_EQ(inBand(image, full(), 0.5), colours.lock);
  EXPECT_EQ(at(image, layout.band.right() - 1, layout.band.center().y()), colours.lock);
}

TEST_P(HistoryPictureTest, AVetoIsHatchedSoThatItDiffersWithoutColour) {
  const QImage image = historyImage(full(), size, GetParam());
  const QRectF veto = between(full(), 6, 4).adjusted(3, 3, -3, -3);
  EXPECT_GT(pixels(image, veto, colours.veto), 20);
  EXPECT_GT(pixels(image, veto, colours.background), 20);
}

TEST_P(HistoryPictureTest, RequestsAreBarsAsHighAsTheyAreMany) {
  const QImage image = historyImage(full(), size, GetParam());
  const QRectF& area = layout.requests;
  const double many = layout.x(full(), ago(9)) + 1;
  const double fewer = layout.x(full(), ago(3)) + 1;
  EXPECT_EQ(at(image, many, area.top() + area.height() * 0.25), colours.request);
  EXPECT_EQ(at(image, fewer, area.top() + area.height() * 0.25), colours.background);
  EXPECT_EQ(at(image, fewer, area.top() + area.height() * 0.75), colours.request);
}

TEST_P(HistoryPictureTest, AnEmptyTimeHasNeitherBarsNorBand) {
  const QImage image = historyImage(empty(), size, GetParam());
  EXPECT_EQ(pixels(image, layout.requests, colours.request), 0);
  EXPECT_EQ(pixels(image, layout.band, colours.lock), 0);
}

TEST_P(HistoryPictureTest, TimeOfWhichNothingIsKnownIsDotted) {
  HistoryReport report = empty();
  const QRectF before = between(report, 11, 7).adjusted(0, 3, 0, -3);
  EXPECT_EQ(pixels(historyImage(report, size, GetParam()), before, colours.text), 0);
  report.lockKnownSince = ago(6);
  EXPECT_GT(pixels(historyImage(report, size, GetParam()), before, colours.text), 20);
}

TEST_P(HistoryPictureTest, AShortPeriodCanStillBeSeen) {
  HistoryReport report = empty();
  report.lockPeriods = {{.startedAt = now - Seconds(1), .endedAt = now}};
  EXPECT_GT(pixels(historyImage(report, size, GetParam()), layout.band, colours.lock), 10);
}

TEST_P(HistoryPictureTest, WhatIsDrawnStandsOutFromTheBackground) {
  EXPECT_GE(contrast(colours.text, colours.background), 7);
  for (const QColor& colour : {colours.request, colours.lock, colours.veto}) {
    EXPECT_GE(contrast(colour, colours.background), 4.5) << colour.name().toStdString();
  }
}

TEST_P(HistoryPictureTest, ItCanBeKeptAsPNGInAnyResolution) {
  const QImage image = historyImage(full(), size, GetParam(), 2);
  EXPECT_EQ(image.size(), size * 2);
  QByteArray bytes;
  QBuffer buffer(&bytes);
  ASSERT_TRUE(buffer.open(QIODevice::WriteOnly));
  ASSERT_TRUE(image.save(&buffer, "PNG"));
  const QImage read = QImage::fromData(bytes, "PNG").convertToFormat(image.format());
  ASSERT_EQ(read.size(), image.size());
  EXPECT_EQ(read.pixelColor(1, 1), colours.background);
}

INSTANTIATE_TEST_SUITE_P(LightAndDark, HistoryPictureTest, ::testing::Bool());

}  // namespace
}  // namespace nodo::menu
