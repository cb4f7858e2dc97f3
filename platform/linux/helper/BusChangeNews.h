#pragma once

#include <platform/HelperMachine.h>
#include <platform/linux/helper/BusHelperConnection.h>

#include <string>

namespace nodo {

/// The daemon's signal, and the coming and going of its name, on the bus where it was found.
class BusChangeNews : public ChangeNews {
 public:
  /// Throws BusError, also when the bus does not answer by `deadline`.
  BusChangeNews(ClientBus bus, const std::string& serviceName, BusClock::time_point deadline);
  BusChangeNews(const BusChangeNews&) = delete;
  BusChangeNews& operator=(const BusChangeNews&) = delete;
  ~BusChangeNews() override = default;

  int descriptor() const override;
  bool take() override;

 private:
  static int onNews(sd_bus_message* message, void* self, sd_bus_error* error);

  BusHandle bus_;
  SystemdHandle<sd_bus_slot> changed_;
  SystemdHandle<sd_bus_slot> ownerChanged_;
  bool hasNews_ = false;
};

}  // namespace nodo
