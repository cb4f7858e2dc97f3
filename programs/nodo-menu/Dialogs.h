#pragma once

#include <NODOCore/base/LocalTime.h>
#include <NODOCore/hooks/AgentHookSetupPresentation.h>

#include <functional>
#include <string>

class QDialog;
class QWidget;

/// What the menu asks a person, and tells in words of its own. Nothing waits for an answer: the
/// dialogs are shown, go with their window `parent`, and call what is given for it.
namespace nodo::menu {

/// Until when the computer is to be kept awake.
QDialog* askForTime(QWidget* parent, ClockTime offered, const std::function<void(ClockTime)>& then);

/// Whether the agents' own files are to be changed.
QDialog* askToSetUp(QWidget* parent, AgentHookSetupAction action,
                    const std::function<void()>& then);

/// `text`, in lines, is shown as it is.
QDialog* tell(QWidget* parent, const std::string& text);

}  // namespace nodo::menu
