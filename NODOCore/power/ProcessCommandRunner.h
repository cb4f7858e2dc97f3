#pragma once

#include <NODOCore/power/CommandRunning.h>

#include <string>
#include <vector>

namespace nodo {

/// Runs real child processes.
///
/// Standard input and the environment are inherited; every other descriptor stays out of the child.
/// Standard output is read to its end before standard error is, so a tool that fills the pipe of
/// its standard error (64 KiB) before it closes standard output would stall: none of nodo's tools
/// does. The process must not ignore SIGCHLD, or the exit status is lost (std::system_error,
/// ECHILD).
class ProcessCommandRunner : public CommandRunning {
 public:
  CommandOutput run(const std::string& executable,
                    const std::vector<std::string>& arguments) const override;
};

}  // namespace nodo
