#pragma once

#include <NODOCore/helper/NODOHelperXPCProtocol.h>
#include <NODOCore/helper/NODOXPCClientAuthentication.h>

#include <cstdio>
#include <memory>
#include <string>

namespace nodo {

/// Offers a service to the clients that are allowed to use it, by XPC.
///
/// Each new connection is judged by NODOXPCClientAuthentication before anything is exported on it,
/// and the system is given the same requirement; refusals are told in `log` as XPCRejectionLog
/// does. Requests reach the service on the main dispatch queue, one after
/// another. To be made and destroyed on the main thread; no request reaches the service after that.
class XPCHelperListener {
 public:
  /// `machServiceName` must be one that launchd keeps for this process.
  XPCHelperListener(const std::string& machServiceName, NODOHelperXPCProtocol& service,
                    std::shared_ptr<const CodeSigning> codeSigning, std::FILE* log);

  XPCHelperListener(const XPCHelperListener&) = delete;
  XPCHelperListener& operator=(const XPCHelperListener&) = delete;

  ~XPCHelperListener();

 private:
  struct Objects;

  std::unique_ptr<Objects> objects_;
};

}  // namespace nodo
