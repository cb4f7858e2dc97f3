#include <platform/HelperMachine.h>
#include <platform/linux/helper/BusHelperConnection.h>

#include <utility>

namespace nodo {
namespace {

class BusHelperConnecting : public HelperConnecting {
 public:
  explicit BusHelperConnecting(std::optional<std::string> bus) : bus_(std::move(bus)) {}

  std::unique_ptr<HelperConnection> privilegedConnection(
      const std::string& machServiceName) const override {
    return std::make_unique<BusHelperConnection>(bus_, machServiceName);
  }

 private:
  std::optional<std::string> bus_;
};

}  // namespace

std::shared_ptr<const HelperConnecting> helperConnecting(const std::optional<std::string>& bus) {
  return std::make_shared<BusHelperConnecting>(bus);
}

std::optional<std::string> refusalOfThisProgram() {
  return std::nullopt;
}

}  // namespace nodo
