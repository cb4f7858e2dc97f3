#include <NODOCore/base/Errors.h>
#include <NODOCore/base/Files.h>
#include <NODOCore/control/DaemonSettings.h>
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

#include <fmt/format.h>

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

// Throws RefusedValue for minutes that `limits` do not allow.
void requireMinutes(std::int64_t minutes, const SafetyPolicy& limits) {
  const std::int64_t most = limits.maxManualDurationMinutes;
  if (minutes < 1) {
    throw RefusedValue(fmt::format("{} minutes are too few, at least 1", minutes));
  }
  if (minutes > most) {
    throw RefusedValue(fmt::format("{} minutes are too many, at most {} ({})", minutes, most,
                                   timeLeftText(std::chrono::minutes(most))));
  }
}

// Whether a date can hold their end.
bool canBeCounted(std::int64_t minutes) {
  return minutes > 0 && minutes <= std::numeric_limits<std::int64_t>::max() / 60;
}

// While it lives no other nodoctl changes the user's own state.
FileDescriptor lockOwnState(const StateStore& store) {
  // A change takes milliseconds, and an agent waits for this.
  constexpr std::chrono::seconds patience(1);
  const std::filesystem::path name = store.directory / "nodoctl.lock";
  makeFolderOfOwner(store.directory);
  FileDescriptor lock = openLocked(name, 0, patience);
  if (!lock && errno == ENOENT) {
    lock = openLocked(name, O_CREAT, patience);
    if (lock) {
      giveToOwnerOfFolder(name);
    }
  }
  if (!lock && errno == EWOULDBLOCK) {
    throw std::runtime_error("another nodoctl has been changing the state in " +
                             store.directory.string() +
                             " for a second, so nothing was changed; try again");
  }
  if (!lock) {
    throwErrno("Unable to lock", store.stateURL().string());
  }
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

StateAccess stateAccess(const DaemonOptions& daemon, const ToolContext& context) {
  return {daemon, context, [console = context.console()](const std::string& reason) {
            console.complain(localStateNotice(reason));
          }};
}

Unavailability Unavailability::from(const std::exception& error,
                                    const std::function<std::optional<std::string>()>& refusal) {
  if (const auto* client = dynamic_cast<const NODOHelperClientError*>(&error)) {
    const bool isUnavailable = client->errorCase() == NODOHelperClientError::Case::unavailable;
    if (const auto reason = isUnavailable ? refusal() : std::nullopt) {
      return {.reason = *reason, .sentence = *reason, .isBroken = true};
    }
    if (client->errorCase() == NODOHelperClientError::Case::timedOut) {
      return {.reason = client->what(),
              .sentence = "the daemon nodod does not answer",
              .isBroken = true};
    }
    std::string reason = isUnavailable ? client->reason() : client->what();
    reason = reason.empty() ? "it gave no reason" : reason;
    return {
        .reason = reason,
        .sentence =
            (client->helperIsThere() ? "the daemon nodod failed: " : "no daemon nodod: ") + reason,
        .isBroken = client->helperIsThere()};
  }
  if (dynamic_cast<const DecodingError*>(&error) != nullptr) {
    const std::string reason = std::string("its answer cannot be read: ") + error.what();
    return {.reason = reason, .sentence = "the daemon nodod failed: " + reason, .isBroken = true};
  }
  const auto* connection = dynamic_cast<const HelperConnectionError*>(&error);
  return {.reason = error.what(),
          .sentence = error.what(),
          .isBroken = connection != nullptr && connection->helperIsThere()};
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
  const double timeLeft = left();
  if (timeLeft <= 0) {
    throw NODOHelperClientError::timedOut();
  }
  timeout_ = timeLeft;
  return connecting_->privilegedConnection(machServiceName);
}

StateAccess::StateAccess(const DaemonOptions& options, const ToolContext& context,
                         std::function<void(const std::string& reason)> unavailable)
    : context_(context),
      bus_(options.bus),
      daemon_{.machServiceName = std::string(NODOServiceConstants::helperMachServiceName),
              .timeout = options.timeout,
              .connecting = nullptr},
      connecting_(std::make_shared<BudgetedConnecting>(context.helperConnecting(options.bus),
                                                       daemon_.timeout)),
      unavailable_(std::move(unavailable)) {
  daemon_.connecting = connecting_;
}

DaemonStanding StateAccess::daemonStanding() const {
  const double left = connecting_->left();
  return left > 0 ? context_.daemonStanding(bus_, Seconds(left)) : DaemonStanding();
}

std::optional<SafetyPolicy> StateAccess::daemonLimits() const {
  const double left = connecting_->left();
  const auto settings = left > 0 ? context_.daemonSettings(bus_, Seconds(left)) : std::nullopt;
  return settings ? std::optional(settings->policy) : std::nullopt;
}

KeepAwakeFacts StateAccess::keepAwakeFacts(const SourcedStatus& status,
                                           std::optional<bool> lockIsOn,
                                           const std::optional<SettingsReport>& settings) const {
  KeepAwakeFacts facts{.report = status.report, .lockIsOn = lockIsOn};
  if (status.unavailable) {
    facts.daemonFailure = status.unavailable->sentence;
  } else if (!status.report.decision.safetyBlocks.empty()) {
    facts.limits = settings ? std::optional(settings->policy) : daemonLimits();
  }
  return facts;
}

SourcedStatus StateAccess::askOrWork(const Ask& ask, const Work& work) {
  Unavailability why;
  try {
    return {.report = ask(daemon_), .source = DoctorStatusSource::helper};
  } catch (const RefusedValue&) {
    throw;
  } catch (const std::exception& error) {
    why = Unavailability::from(error, context_.refusalOfThisProgram);
  }
  unavailable_(why.reason);
  return {.report = work(localController(context_)),
          .source = DoctorStatusSource::local,
          .unavailable = std::move(why)};
}

SourcedStatus StateAccess::status() {
  return askOrWork(
      [](const NODOHelperXPCClient& daemon) { return daemon.status(); },
      [this](const NODOController& controller) { return controller.status(context_.now()); });
}

SourcedStatus StateAccess::manual(const ManualRequest& request) {
  if (!canBeCounted(request.minutes)) {
    requireMinutes(request.minutes, daemonLimits().value_or(defaultPolicy));
  }
  const Work work = [&](const NODOController& controller) {
    const Date now = context_.now();
    return changeOwnState(controller, now, [&](NODOState& state) {
      return setTimer(state, request.minutes, request.extendOnly, request.requester, now);
    });
  };
  SourcedStatus outcome = askOrWork(
      [&](const NODOHelperXPCClient& daemon) {
        try {
          return daemon.enableManual(request.minutes, request.extendOnly, request.requester,
                                     context_.now());
        } catch (const std::exception& error) {
          const auto why = Unavailability::from(error, context_.refusalOfThisProgram);
          requireMinutes(request.minutes,
                         (why.isBroken ? daemonLimits() : std::nullopt).value_or(defaultPolicy));
          throw;
        }
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
