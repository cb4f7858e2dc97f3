#include <NODOCore/base/Errors.h>
#include <NODOCore/base/Files.h>
#include <NODOCore/helper/HelperConnection.h>
#include <NODOCore/helper/NODOHelperXPCClient.h>
#include <NODOCore/helper/NODOHelperXPCProtocol.h>
#include <NODOCore/hooks/AgentHookLogInspector.h>
#include <NODOCore/hooks/HookFiles.h>
#include <NODOCore/power/PowerManaging.h>
#include <programs/nodoctl/StateAccess.h>
#include <programs/shared/ProgramFrame.h>

#include <cerrno>
#include <filesystem>
#include <limits>
#include <stdexcept>
#include <utility>

#include <fcntl.h>

namespace nodo::nodoctl {
namespace {

StateStore userStore(const Environment& environment) {
  try {
    return StateStore::defaultStore(environment);
  } catch (const NODOError& error) {
    throw std::runtime_error(std::string(error.what()) + "; set HOME or NODO_STATE_DIR");
  }
}

// Minutes whose seconds a whole number cannot hold are none that any policy allows.
bool canBeAllowed(std::int64_t minutes) {
  return minutes > 0 && minutes <= std::numeric_limits<std::int64_t>::max() / 60;
}

// While it lives no other nodoctl changes the user's own state.
FileDescriptor lockOwnState(const StateStore& store) {
  // A change takes milliseconds, and an agent waits for this.
  constexpr std::chrono::seconds patience(1);
  const std::filesystem::path name = store.directory / "nodoctl.lock";
  makeFolderOfOwner(store.directory);
  FileDescriptor lock = openLocked(name, O_CREAT, patience);
  if (!lock && errno == EWOULDBLOCK) {
    throw std::runtime_error("another nodoctl has been changing the state in " +
                             store.directory.string() +
                             " for a second, so nothing was changed; try again");
  }
  if (!lock) {
    throwErrno("Unable to lock", name.string());
  }
  giveToOwnerOfFolder(name);
  return lock;
}

// Loads the controller's state, changes it, and saves it where `change` says that it did: as one
// step, so that of two programs at once neither loses what the other did.
StatusReport changeOwnState(const NODOController& controller, Date now,
                            const std::function<bool(NODOState&)>& change) {
  FileDescriptor lock = lockOwnState(controller.store);
  NODOState state = controller.store.load();
  if (change(state)) {
    controller.store.save(state);
  }
  lock.reset();  // to look at the machine takes longer
  return controller.report(state, now);
}

void endFallback(const ToolContext& context) {
  const Date now = context.now();
  const auto fallback =
      AgentHookLogInspector::recentFallbackStatus(std::nullopt, now, context.environment);
  if (fallback.isActive) {
    AgentHookLogInspector::markFallbackResolved(std::nullopt, "helper manual", now,
                                                context.environment);
  }
}

}  // namespace

NODOController localController(const ToolContext& context) {
  return {.store = userStore(context.environment),
          .detector = {},
          .processListing = context.machine.processListing,
          .snapshotProvider = context.machine.snapshotProvider,
          .decisionEngine = {defaultPolicy}};
}

std::string localStateNotice(const std::string& reason) {
  return "helper unavailable (" + reason + "); using the local state";
}

Unavailability Unavailability::from(const std::exception& error,
                                    const std::function<std::optional<std::string>()>& refusal) {
  if (const auto* client = dynamic_cast<const NODOHelperClientError*>(&error)) {
    const bool isUnavailable = client->errorCase() == NODOHelperClientError::Case::unavailable;
    if (const auto reason = isUnavailable ? refusal() : std::nullopt) {
      return {.reason = *reason, .isBroken = true};
    }
    const std::string reason = isUnavailable ? client->reason() : client->what();
    return {.reason = reason.empty() ? "it gave no reason" : reason,
            .isBroken = client->helperIsThere()};
  }
  if (dynamic_cast<const DecodingError*>(&error) != nullptr) {
    return {.reason = std::string("its answer cannot be read: ") + error.what(), .isBroken = true};
  }
  const auto* connection = dynamic_cast<const HelperConnectionError*>(&error);
  return {.reason = error.what(), .isBroken = connection != nullptr && connection->helperIsThere()};
}

BudgetedConnecting::BudgetedConnecting(std::shared_ptr<const HelperConnecting> connecting,
                                       double& timeout, std::function<Clock::time_point()> now)
    : connecting_(std::move(connecting)),
      timeout_(timeout),
      now_(std::move(now)),
      limit_(timeout),
      begin_(now_()) {}

std::unique_ptr<HelperConnection> BudgetedConnecting::privilegedConnection(
    const std::string& machServiceName) const {
  const double left = limit_ - Seconds(now_() - begin_).count();
  if (left <= 0) {
    throw NODOHelperClientError::timedOut();
  }
  timeout_ = left;
  return connecting_->privilegedConnection(machServiceName);
}

StateAccess::StateAccess(const DaemonOptions& options, const ToolContext& context,
                         std::function<void(const std::string& reason)> unavailable)
    : context_(context),
      daemon_{.machServiceName = std::string(NODOServiceConstants::helperMachServiceName),
              .timeout = options.timeout,
              .connecting = nullptr},
      unavailable_(std::move(unavailable)) {
  daemon_.connecting =
      std::make_shared<BudgetedConnecting>(context.helperConnecting(options.bus), daemon_.timeout);
}

SourcedStatus StateAccess::askOrWork(const Ask& ask, const Work& work) {
  try {
    return {.report = ask(daemon_), .source = DoctorStatusSource::helper};
  } catch (const std::exception& error) {
    unavailable_(Unavailability::from(error, context_.refusalOfThisProgram).reason);
  }
  return {.report = work(localController(context_)), .source = DoctorStatusSource::local};
}

SourcedStatus StateAccess::status() {
  return askOrWork(
      [](const NODOHelperXPCClient& daemon) { return daemon.status(); },
      [this](const NODOController& controller) { return controller.status(context_.now()); });
}

SourcedStatus StateAccess::manual(const ManualRequest& request) {
  const Work work = [&](const NODOController& controller) {
    const Date now = context_.now();
    controller.requireDuration(request.minutes);
    return changeOwnState(controller, now, [&](NODOState& state) {
      return setTimer(state, request.minutes, request.extendOnly, request.requester, now);
    });
  };
  if (!canBeAllowed(request.minutes)) {
    return {.report = work(localController(context_)), .source = DoctorStatusSource::local};
  }
  SourcedStatus outcome = askOrWork(
      [&](const NODOHelperXPCClient& daemon) {
        return daemon.enableManual(request.minutes, request.extendOnly, request.requester,
                                   context_.now());
      },
      work);
  if (outcome.source == DoctorStatusSource::helper) {
    endFallback(context_);
  }
  return outcome;
}

SourcedStatus StateAccess::stop() {
  return askOrWork([](const NODOHelperXPCClient& daemon) { return daemon.stop(); },
                   [this](const NODOController& controller) {
                     const Date now = context_.now();
                     return changeOwnState(controller, now, [now](NODOState& state) {
                       endTimer(state, reason::userStop, now);
                       return true;
                     });
                   });
}

SourcedStatus StateAccess::repair() {
  return askOrWork([](const NODOHelperXPCClient& daemon) { return daemon.repair(); },
                   [this](const NODOController& controller) {
                     const Date now = context_.now();
                     return changeOwnState(controller, now, [now](NODOState& state) {
                       resetState(state, now);
                       return true;
                     });
                   });
}

DaemonRunReport StateAccess::reconcile() {
  try {
    return daemon_.reconcile();
  } catch (const std::exception& error) {
    throw std::runtime_error("only the daemon may switch the sleep lock, and it is unavailable (" +
                             Unavailability::from(error, context_.refusalOfThisProgram).reason +
                             "); 'nodoctl reconcile --simulate' shows what a pass would do");
  }
}

DaemonRunReport StateAccess::simulatedReconcile() {
  NoopPowerManager nobody;
  const NODOController controller = localController(context_);
  const FileDescriptor lock = lockOwnState(controller.store);
  return controller.reconcile(nobody, std::nullopt, context_.now());
}

}  // namespace nodo::nodoctl
