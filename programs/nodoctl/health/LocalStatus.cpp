#include <programs/nodoctl/health/LocalStatus.h>
#include <programs/nodoctl/helper/StateAccess.h>
#include <programs/shared/DefaultPolicy.h>

#include <exception>
#include <memory>
#include <utility>

namespace nodo::nodoctl {
namespace {

using Problems = std::vector<std::string>;

class TolerantListing : public ProcessListing {
 public:
  TolerantListing(std::shared_ptr<const ProcessListing> listing, Problems& problems)
      : listing_(std::move(listing)), problems_(problems) {}

  std::vector<RunningProcess> listProcesses() const override {
    try {
      return listing_->listProcesses();
    } catch (const std::exception& error) {
      problems_.push_back(std::string("no agents can be found: ") + error.what());
      return {};
    }
  }

 private:
  std::shared_ptr<const ProcessListing> listing_;
  Problems& problems_;
};

class TolerantSnapshots : public SystemSnapshotProviding {
 public:
  TolerantSnapshots(std::shared_ptr<const SystemSnapshotProviding> provider, Problems& problems)
      : provider_(std::move(provider)), problems_(problems) {}

  SystemSnapshot snapshot(Date now) const override {
    try {
      return provider_->snapshot(now);
    } catch (const std::exception& error) {
      problems_.push_back(std::string("power, network and lid cannot be read: ") + error.what());
      return {.now = now};
    }
  }

 private:
  std::shared_ptr<const SystemSnapshotProviding> provider_;
  Problems& problems_;
};

StatusReport withoutState(const HostMachine& machine, Date now) {
  StatusReport report;
  report.generatedAt = now;
  report.state = NODOState::fresh(now);
  report.agents = AgentDetector().detect(*machine.processListing);
  report.snapshot = machine.snapshotProvider->snapshot(now);
  report.decision =
      PowerDecisionEngine{defaultPolicy}.evaluate(report.state, report.agents, report.snapshot);
  return report;
}

}  // namespace

StatusReport localStatusAtAnyRate(const ToolContext& context, Problems& problems) {
  const Date now = context.now();
  HostMachine machine = context.machine;
  machine.processListing = std::make_shared<TolerantListing>(machine.processListing, problems);
  machine.snapshotProvider =
      std::make_shared<TolerantSnapshots>(machine.snapshotProvider, problems);
  try {
    NODOController controller = localController(context);
    controller.processListing = machine.processListing;
    controller.snapshotProvider = machine.snapshotProvider;
    return controller.status(now);
  } catch (const std::exception& error) {
    problems.emplace_back(error.what());
  }
  return withoutState(machine, now);
}

}  // namespace nodo::nodoctl
