#pragma once

#include <NODOCore/presentation/HistoryReport.h>
#include <programs/nodo-menu/MenuModel.h>

#include <QDialog>
#include <QLabel>
#include <QPlainTextEdit>
#include <QWidget>
#include <functional>
#include <optional>

namespace nodo::menu {

/// The picture of the last twelve hours, which tells in words what it shows to who cannot see it.
class HistoryView : public QWidget {
 public:
  explicit HistoryView(QWidget* parent);

  void setReport(const HistoryReport& report);

  QSize sizeHint() const override { return {640, 170}; }

  QSize minimumSizeHint() const override { return {300, 130}; }

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  std::optional<HistoryReport> report_;
};

/// The window "Why?": whether the computer is kept awake and why, what a person should know and do,
/// the last twelve hours, and the doctor's report. Escape closes it.
class WhyWindow : public QDialog {
 public:
  /// `opens` is called each time that it has been shown, as its reasons are found out only then.
  explicit WhyWindow(std::function<void()> opens);

  /// What the model knows of the reasons, or else as much as it does.
  void setFacts(const MenuModel& model, Date now);

  /// Shows it, in front of other windows.
  void present();

 private:
  std::function<void()> opens_;
  QLabel headline_;
  HistoryView history_;
  QLabel findings_;
  QPlainTextEdit report_;
};

}  // namespace nodo::menu
