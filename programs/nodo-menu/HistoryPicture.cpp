#include <NODOCore/base/LocalTime.h>
#include <programs/nodo-menu/HistoryPicture.h>

#include <QBrush>
#include <QFont>
#include <QFontMetricsF>
#include <QPen>
#include <QPointF>
#include <QString>
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <map>

namespace nodo::menu {
namespace {

constexpr Seconds barSpan(std::chrono::minutes(5));
constexpr int axisParts = 4;

// Draws one report into one frame.
class Drawing {
 public:
  Drawing(QPainter& painter, const QRectF& frame, const HistoryReport& report, bool isDark)
      : painter_(painter), report_(report), colours_(pictureColours(isDark)), layout_(frame) {
    painter_.fillRect(frame, colours_.background);
    QFont font = painter_.font();
    font.setPixelSize(11);
    painter_.setFont(font);
  }

  void draw() {
    drawRequests();
    drawLock();
    drawAxis();
    drawLegend();
  }

 private:
  void drawRequests() {
    std::map<std::int64_t, std::int64_t> bars;  // requests by time slot
    for (const TriggerActivityBucket& bucket : report_.requestMinutes) {
      const Date at = std::clamp(bucket.startedAt, report_.since, report_.until);
      bars[static_cast<std::int64_t>((at - report_.since) / barSpan)] += bucket.count;
    }
    std::int64_t most = 1;
    for (const auto& bar : bars) {
      most = std::max(most, bar.second);
    }
    const QRectF& area = layout_.requests;
    for (const auto& [slot, count] : bars) {
      const double left = layout_.x(report_, report_.since + barSpan * slot);
      const double right = layout_.x(report_, report_.since + barSpan * (slot + 1));
      const double height = area.height() * static_cast<double>(count) / static_cast<double>(most);
      const double width = std::max(right - left - 1, 2.0);
      painter_.fillRect(
          QRectF(std::min(left, area.right() - width), area.bottom() - height, width, height),
          colours_.request);
    }
    drawLine(area.bottomLeft(), area.bottomRight(), Qt::SolidLine);
  }

  void drawLock() {
    for (const HistoryPeriod& period : report_.lockPeriods) {
      painter_.fillRect(place(period), colours_.lock);
    }
    for (const HistoryPeriod& period : report_.vetoes) {
      const QRectF veto = place(period);
      painter_.fillRect(veto, QBrush(colours_.veto, Qt::BDiagPattern));
      painter_.setPen(colours_.veto);
      painter_.drawRect(veto.adjusted(0.5, 0.5, -0.5, -0.5));
    }
    if (report_.lockKnownSince) {
      const double middle = layout_.band.center().y();
      drawLine({layout_.band.left(), middle}, {layout_.x(report_, *report_.lockKnownSince), middle},
               Qt::DotLine);
    }
    drawLine(layout_.band.bottomLeft(), layout_.band.bottomRight(), Qt::SolidLine);
  }

  void drawAxis() {
    const Seconds part = (report_.until - report_.since) / axisParts;
    for (int i = 0; i <= axisParts; ++i) {
      const Date at = report_.since + part * i;
      const double x = layout_.x(report_, at);
      drawLine({x, layout_.axis.top()}, {x, layout_.axis.top() + 3}, Qt::SolidLine);
      const QString text =
          i == axisParts ? QStringLiteral("now") : QString::fromStdString(clockText(at, at));
      const double width = QFontMetricsF(painter_.font()).horizontalAdvance(text);
      const double left =
          std::clamp(x - width / 2, layout_.axis.left(), layout_.axis.right() - width);
      painter_.drawText(QRectF(left, layout_.axis.top() + 3, width + 1, layout_.axis.height() - 3),
                        Qt::AlignLeft | Qt::AlignVCenter, text);
    }
  }

  void drawLegend() {
    QRectF place = layout_.legend;
    place = drawKey(place, colours_.request, QStringLiteral("requests"));
    place = drawKey(place, colours_.lock, QStringLiteral("kept awake"));
    place = drawKey(place, QBrush(colours_.veto, Qt::BDiagPattern),
                    QStringLiteral("sleep allowed by a safety rule"));
    if (report_.lockKnownSince) {
      drawKey(place, QBrush(colours_.text, Qt::Dense6Pattern), QStringLiteral("not known"));
    }
  }

  // Returns what is left of `place`.
  QRectF drawKey(const QRectF& place, const QBrush& brush, const QString& text) {
    constexpr double side = 9;
    const QRectF key(place.left(), place.center().y() - side / 2, side, side);
    painter_.fillRect(key, brush);
    painter_.setPen(colours_.text);
    const QRectF words = place.adjusted(side + 4, 0, 0, 0);
    painter_.drawText(words, Qt::AlignLeft | Qt::AlignVCenter, text);
    const double width = QFontMetricsF(painter_.font()).horizontalAdvance(text);
    return words.adjusted(width + 14, 0, 0, 0);
  }

  void drawLine(QPointF from, QPointF to, Qt::PenStyle style) {
    painter_.setPen(QPen(colours_.text, 1, style));
    painter_.drawLine(from, to);
  }

  // At least as wide as can be seen.
  QRectF place(const HistoryPeriod& period) const {
    constexpr double narrowest = 2;
    const double left = layout_.x(report_, period.startedAt);
    const double width = std::max(layout_.x(report_, period.endedAt) - left, narrowest);
    const QRectF& band = layout_.band;
    return {std::min(left, band.right() - width), band.top(), width, band.height()};
  }

  QPainter& painter_;
  const HistoryReport& report_;
  PictureColours colours_;
  PictureLayout layout_;
};

}  // namespace

PictureColours pictureColours(bool isDark) {
  return isDark ? PictureColours{.background = QColor(0x1e, 0x1e, 0x1e),
                                 .text = QColor(0xe6, 0xe6, 0xe6),
                                 .request = QColor(0x6c, 0xb6, 0xff),
                                 .lock = QColor(0x57, 0xc7, 0x85),
                                 .veto = QColor(0xff, 0xa6, 0x57)}
                : PictureColours{.background = QColor(0xff, 0xff, 0xff),
                                 .text = QColor(0x24, 0x24, 0x24),
                                 .request = QColor(0x1a, 0x66, 0xb8),
                                 .lock = QColor(0x1f, 0x7a, 0x45),
                                 .veto = QColor(0xb3, 0x4a, 0x00)};
}

PictureLayout::PictureLayout(const QRectF& frame) {
  constexpr double margin = 10;
  constexpr double textHeight = 18;
  constexpr double bandHeight = 18;
  const QRectF inner = frame.adjusted(margin, margin, -margin, -margin / 2);
  legend = QRectF(inner.left(), inner.bottom() - textHeight, inner.width(), textHeight);
  axis = QRectF(inner.left(), legend.top() - textHeight, inner.width(), textHeight);
  band = QRectF(inner.left(), axis.top() - bandHeight, inner.width(), bandHeight);
  requests = QRectF(inner.topLeft(), QPointF(inner.right(), band.top() - 4));
}

double PictureLayout::x(const HistoryReport& report, Date at) const {
  const Seconds whole = report.until - report.since;
  const double share = whole > Seconds(0) ? (at - report.since) / whole : 1;
  return band.left() + band.width() * std::clamp(share, 0.0, 1.0);
}

void drawHistory(QPainter& painter, const QRectF& frame, const HistoryReport& report, bool isDark) {
  painter.save();
  Drawing(painter, frame, report, isDark).draw();
  painter.restore();
}

QImage historyImage(const HistoryReport& report, QSize size, bool isDark, double scale) {
  QImage image((QSizeF(size) * scale).toSize(), QImage::Format_RGB32);
  image.setDevicePixelRatio(scale);
  QPainter painter(&image);
  drawHistory(painter, QRectF(QPointF(), QSizeF(size)), report, isDark);
  return image;
}

}  // namespace nodo::menu
