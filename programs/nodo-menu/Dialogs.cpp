#include <NODOCore/hooks/Agents.h>
#include <programs/nodo-menu/Dialogs.h>

#include <QDialog>
#include <QDialogButtonBox>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTime>
#include <QTimeEdit>
#include <QVBoxLayout>

namespace nodo::menu {
namespace {

QDialog* shown(QDialog* dialog) {
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->show();
  dialog->raise();
  dialog->activateWindow();
  return dialog;
}

// The files that an installation writes entries into.
std::string agentsFiles() {
  std::string text;
  for (const Agent& agent : allAgents()) {
    text.append(text.empty() ? "" : "\n")
        .append(displayName(agent.target))
        .append(": ~/")
        .append(agent.configurationFile);
  }
  return text;
}

QMessageBox* messageBox(QWidget* parent, const std::string& text) {
  auto* box = new QMessageBox(parent);
  box->setWindowTitle(QStringLiteral("nodo"));
  box->setTextFormat(Qt::PlainText);
  box->setText(QString::fromStdString(text));
  return box;
}

}  // namespace

QDialog* askForTime(QWidget* parent, ClockTime offered,
                    const std::function<void(ClockTime)>& then) {
  auto* dialog = new QDialog(parent);
  dialog->setWindowTitle(QStringLiteral("nodo: keep awake until a time"));
  auto* label = new QLabel(QStringLiteral("Keep this computer awake &until"), dialog);
  auto* time = new QTimeEdit(QTime(offered.hour, offered.minute), dialog);
  time->setDisplayFormat(QStringLiteral("HH:mm"));
  time->setAccessibleName(QStringLiteral("Until when"));
  label->setBuddy(time);
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, dialog);
  buttons->button(QDialogButtonBox::Ok)->setText(QStringLiteral("&Keep awake"));
  QObject::connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::reject);
  QObject::connect(buttons, &QDialogButtonBox::accepted, dialog, &QDialog::accept);
  QObject::connect(dialog, &QDialog::accepted, dialog, [time, then] {
    then({.hour = time->time().hour(), .minute = time->time().minute()});
  });
  auto* layout = new QVBoxLayout(dialog);
  layout->addWidget(label);
  layout->addWidget(time);
  layout->addWidget(buttons);
  return shown(dialog);
}

QDialog* askToSetUp(QWidget* parent, AgentHookSetupAction action,
                    const std::function<void()>& then) {
  QMessageBox* box = messageBox(
      parent,
      "nodo adds its hooks to the settings of your agents, so that they can keep this computer "
      "awake. What else stands there stays as it is.\n\n" +
          agentsFiles());
  box->setIcon(QMessageBox::Question);
  QPushButton* yes = box->addButton(QString::fromStdString(std::string(buttonTitle(action))),
                                    QMessageBox::AcceptRole);
  box->setDefaultButton(yes);
  box->setEscapeButton(box->addButton(QMessageBox::Cancel));
  QObject::connect(yes, &QPushButton::clicked, box, then);
  return shown(box);
}

QDialog* tell(QWidget* parent, const std::string& text) {
  return shown(messageBox(parent, text));
}

}  // namespace nodo::menu
