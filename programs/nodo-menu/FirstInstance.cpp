#include <programs/nodo-menu/FirstInstance.h>

#include <QLocalSocket>
#include <QLockFile>
#include <stdexcept>

namespace nodo::menu {
namespace {

constexpr int patience = 2000;  // milliseconds

}  // namespace

bool FirstInstance::claim() {
  // Two that start at once would each take the other's meeting point for one that was left.
  QLockFile lock(socket_ + QStringLiteral(".lock"));
  if (!lock.tryLock(patience)) {
    throw std::runtime_error("cannot lock " + socket_.toStdString() + ".lock");
  }
  if (reachesFirst()) {
    return false;
  }
  QLocalServer::removeServer(socket_);  // of one that was killed
  server_.setSocketOptions(QLocalServer::UserAccessOption);
  if (!server_.listen(socket_)) {
    throw std::runtime_error("cannot listen at " + socket_.toStdString() + ": " +
                             server_.errorString().toStdString());
  }
  return true;
}

// Connecting says it all.
bool FirstInstance::reachesFirst() const {
  QLocalSocket socket;
  socket.connectToServer(socket_);
  return socket.waitForConnected(patience);
}

void FirstInstance::whenAnotherStarts(const std::function<void()>& show) {
  QObject::connect(&server_, &QLocalServer::newConnection, &server_, [this, show] {
    while (QLocalSocket* socket = server_.nextPendingConnection()) {
      socket->disconnectFromServer();
      socket->deleteLater();
    }
    show();
  });
}

}  // namespace nodo::menu
