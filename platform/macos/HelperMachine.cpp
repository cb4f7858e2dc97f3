#include <platform/DaemonMachine.h>
#include <platform/HelperMachine.h>
#include <platform/macos/MacDaemonLoop.h>
#include <platform/macos/SecurityCodeSigning.h>
#include <platform/macos/XPCHelperConnection.h>

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <notify.h>
#include <unistd.h>

namespace nodo {
namespace {

// The system's own notification that the daemon posts, which comes with a word on a descriptor.
class PostedChangeNews : public ChangeNews {
 public:
  PostedChangeNews() {
    if (::notify_register_file_descriptor(changedNotification, &descriptor_, 0, &token_) !=
        NOTIFY_STATUS_OK) {
      throw std::runtime_error("the system tells of no notifications");
    }
    ::fcntl(descriptor_, F_SETFL, O_NONBLOCK);
  }

  PostedChangeNews(const PostedChangeNews&) = delete;
  PostedChangeNews& operator=(const PostedChangeNews&) = delete;

  ~PostedChangeNews() override { ::notify_cancel(token_); }

  int descriptor() const override { return descriptor_; }

  bool take() override {
    bool hasNews = false;
    for (int token = 0; ::read(descriptor_, &token, sizeof token) > 0;) {
      hasNews = true;
    }
    return hasNews;
  }

 private:
  int descriptor_ = -1;
  int token_ = 0;
};

}  // namespace

std::shared_ptr<const HelperConnecting> helperConnecting(
    [[maybe_unused]] const std::optional<std::string>& bus) {
  return std::make_shared<XPCHelperConnecting>();
}

std::shared_ptr<const HelperConnecting> helperWatching(const std::optional<std::string>& bus) {
  return helperConnecting(bus);
}

std::optional<std::string> refusalOfThisProgram() {
  const std::filesystem::path daemons = "/Library/LaunchDaemons";
  std::error_code ignored;
  if (!std::filesystem::exists(daemons / NODOServiceConstants::helperPlistName, ignored) ||
      NODOXPCClientAuthentication::validateSelf(SecurityCodeSigning()).isAccepted()) {
    return std::nullopt;
  }
  return "the daemon refuses this copy of nodoctl: it is not signed by the same team";
}

DaemonStanding daemonStanding(const std::optional<std::string>& bus, Seconds limit) {
  return {.settings = daemonSettings(bus, limit)};
}

std::optional<SettingsReport> daemonSettings([[maybe_unused]] const std::optional<std::string>& bus,
                                             [[maybe_unused]] Seconds limit) {
  const std::filesystem::path file = settingsFile();
  // The folder is root's, whose daemon may know what this user does not.
  if (::access(file.c_str(), R_OK) != 0 && errno != ENOENT) {
    return std::nullopt;
  }
  return SettingsReport(readSettings(file, false));
}

std::unique_ptr<ChangeNews> listenForChanges([[maybe_unused]] const std::optional<std::string>& bus,
                                             [[maybe_unused]] Seconds limit) {
  try {
    return std::make_unique<PostedChangeNews>();
  } catch (const std::runtime_error&) {
    return nullptr;
  }
}

std::string_view restartCommand() {
  return "sudo launchctl kickstart -k system/com.quintavel.nodo.helper";
}

}  // namespace nodo
