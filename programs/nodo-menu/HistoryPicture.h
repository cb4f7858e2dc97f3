#pragma once

#include <NODOCore/presentation/HistoryReport.h>

#include <QColor>
#include <QImage>
#include <QPainter>
#include <QRectF>
#include <QSize>

/// The picture of when and why the computer was kept awake, with now at its right edge.
namespace nodo::menu {

/// Its colours. What is drawn differs in place and shape as well.
struct PictureColours {
  QColor background;
  QColor text;
  QColor request;
  QColor lock;
  QColor veto;
};

PictureColours pictureColours(bool isDark);

/// Where its parts are, in the painter's units.
struct PictureLayout {
  explicit PictureLayout(const QRectF& frame);

  /// The place of an instant between the report's ends; those beyond are at the edges.
  double x(const HistoryReport& report, Date at) const;

  QRectF requests;  ///< bars that stand on its lower edge
  QRectF band;      ///< the lock, with the vetoes in it
  QRectF axis;      ///< times of day
  QRectF legend;    ///< what is what, in words
};

/// Draws it into `frame`: each five minutes with requests as a bar, the lock as a band, vetoes
/// hatched, the time of which nothing is known dotted. For 300 by 120 units at least.
void drawHistory(QPainter& painter, const QRectF& frame, const HistoryReport& report, bool isDark);

/// The same as a picture of its own, `size` units of which each takes `scale` pixels a side.
QImage historyImage(const HistoryReport& report, QSize size, bool isDark, double scale = 1);

}  // namespace nodo::menu
