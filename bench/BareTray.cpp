// The least program that shows an icon with a menu, to measure nodo-menu beside.

#include <QApplication>
#include <QIcon>
#include <QMenu>
#include <QSystemTrayIcon>

int main(int argc, char** argv) {
  const QApplication application(argc, argv);
  QMenu menu;
  menu.addAction(QStringLiteral("Quit"));
  QSystemTrayIcon icon(QIcon(QStringLiteral(":/icons/nodo-menu-off-symbolic.svg")));
  icon.setContextMenu(&menu);
  icon.show();
  return QApplication::exec();
}
