#pragma once

#include <QLocalServer>
#include <QString>
#include <functional>

namespace nodo::menu {

/// Lets one nodo-menu of a user run at a time: a second one has the first show its window.
///
/// All on the thread of the interface.
class FirstInstance {
 public:
  /// `socket` is the absolute path of the meeting point, in a folder of this user's own.
  explicit FirstInstance(QString socket) : socket_(std::move(socket)) {}

  /// True when this is the first. Else the first one has been asked to show its window.
  ///
  /// Throws std::runtime_error when the meeting point can be neither reached nor made.
  bool claim();

  /// From now on `show` is called when another one is started. After `claim`.
  void whenAnotherStarts(const std::function<void()>& show);

 private:
  bool reachesFirst() const;

  QString socket_;
  QLocalServer server_;
};

}  // namespace nodo::menu
