#pragma once

#include <string>

namespace nodo::nodoctl {

/// The script that makes `shell` ("bash", "zsh" or "fish") complete nodoctl's commands and options,
/// made from the same description that parses them.
std::string completionScript(const std::string& shell);

}  // namespace nodo::nodoctl
