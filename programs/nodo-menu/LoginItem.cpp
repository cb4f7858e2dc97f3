#include <NODOCore/base/Files.h>
#include <programs/nodo-menu/LoginItem.h>
#include <programs/nodoctl/Tool.h>

#include <fstream>
#include <stdexcept>
#include <utility>

namespace nodo::menu {
namespace {

namespace fs = std::filesystem;

constexpr char identifier[] = "com.quintavel.nodo.menu";

// Each character of `text` for which `escape` has something else is written as that.
template <class Escape>
std::string escaped(const std::string& text, Escape escape) {
  std::string result;
  for (const char c : text) {
    result += escape(c);
  }
  return result;
}

// A quoted argument of a key "Exec". The key is a string that is unescaped before its quotes are,
// so that a backslash for the one needs another for the other.
std::string execArgument(const std::string& text) {
  return '"' +
         escaped(text,
                 [](char c) -> std::string {
                   switch (c) {
                     case '"':
                     case '`':
                     case '$':
                       return std::string("\\\\") + c;
                     case '\\':
                       return "\\\\\\\\";
                     case '%':
                       return "%%";
                     default:
                       return std::string(1, c);
                   }
                 }) +
         '"';
}

std::string xmlText(const std::string& text) {
  return escaped(text, [](char c) -> std::string {
    switch (c) {
      case '&':
        return "&amp;";
      case '<':
        return "&lt;";
      case '>':
        return "&gt;";
      default:
        return std::string(1, c);
    }
  });
}

std::string desktopEntry(const fs::path& program) {
  return "[Desktop Entry]\nType=Application\nName=nodo\n"
         "Comment=Shows whether this computer is kept awake\nExec=" +
         execArgument(program.string()) + "\nIcon=" + identifier + "\nTerminal=false\n";
}

std::string propertyList(const fs::path& program) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
         "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
         "<plist version=\"1.0\">\n<dict>\n\t<key>Label</key>\n\t<string>" +
         std::string(identifier) +
         "</string>\n\t<key>ProgramArguments</key>\n\t<array>\n\t\t<string>" +
         xmlText(program.string()) +
         "</string>\n\t</array>\n\t<key>RunAtLoad</key>\n\t<true/>\n"
         "\t<key>LimitLoadToSessionType</key>\n\t<string>Aqua</string>\n</dict>\n</plist>\n";
}

fs::path home(const Environment& environment) {
  const auto folder = nodoctl::homeFolder(environment);
  if (!folder) {
    throw std::runtime_error("HOME is not set");
  }
  return *folder;
}

// Where the desktop's own settings write as well.
fs::path autostartFolder(const Environment& environment) {
  // The standard has relative ones ignored.
  const fs::path own = nonEmptyValue(environment, "XDG_CONFIG_HOME").value_or("");
  return (own.is_absolute() ? own : home(environment) / ".config") / "autostart";
}

}  // namespace

LoginItem::LoginItem(Kind kind, const Environment& environment, fs::path program)
    : kind_(kind), program_(std::move(program)) {
  path_ = kind == Kind::xdgAutostart
              ? autostartFolder(environment) / (std::string(identifier) + ".desktop")
              : home(environment) / "Library/LaunchAgents" / (std::string(identifier) + ".plist");
}

bool LoginItem::isOn() const {
  std::ifstream file(path_);
  if (!file) {
    return false;
  }
  if (kind_ == Kind::launchAgent) {
    return true;
  }
  // A desktop's settings switch an entry off without removing it.
  for (std::string line; std::getline(file, line);) {
    if (line == "Hidden=true" || line == "X-GNOME-Autostart-enabled=false") {
      return false;
    }
  }
  return true;
}

void LoginItem::turn(bool on) const {
  if (!on) {
    fs::remove(path_);
    return;
  }
  makeFolder(path_.parent_path());
  replaceFile(path_, kind_ == Kind::xdgAutostart ? desktopEntry(program_) : propertyList(program_));
}

}  // namespace nodo::menu
