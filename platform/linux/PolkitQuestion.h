#pragma once

#include <platform/linux/CallerPolicy.h>
#include <platform/linux/SystemdHandles.h>

#include <string>

namespace nodo {

/// Asks polkit on `bus` whether the peer called `caller` there may do `CallerPolicy::action`,
/// without asking a person. `answered` gets the reply, or an error in its place after two
/// seconds at the latest, and `userData`; letting go of the result forgets the question. Throws
/// std::runtime_error when it cannot be sent.
SystemdHandle<sd_bus_slot> askPolkit(sd_bus* bus, const std::string& caller,
                                     sd_bus_message_handler_t answered, void* userData);

/// What `reply` says. Anything but a clear answer is a failure.
AuthorityAnswer readPolkitAnswer(sd_bus_message* reply);

}  // namespace nodo
