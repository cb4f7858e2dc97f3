#pragma once

#include <string>
#include <utility>
#include <vector>

namespace nodo::test {

using MethodTypes = std::pair<std::string, std::string>;  // selector, type encoding

/// The required instance methods of the protocol that connections are made from, as they were
/// compiled.
std::vector<MethodTypes> wireProtocolMethods();

/// All other methods of the protocol, and the protocols it adopts.
std::vector<std::string> wireProtocolExtras();

/// Whether instances of the class that the daemon exports answer each of these selectors.
bool exportedObjectAnswers(const std::vector<MethodTypes>& methods);

}  // namespace nodo::test
