#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/helper/NODOHelperXPCClient.h>
#include <NODOCore/helper/NODOHelperXPCProtocol.h>
#include <testing/FakeHelper.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <fuzz/Fuzzing.h>

namespace nodo::fuzzing {
namespace {

using ErrorCase = NODOHelperClientError::Case;

std::optional<NODOHelperCommandResponse> envelopeIn(std::string_view text) {
  try {
    return decodeJSON<NODOHelperCommandResponse>(text);
  } catch (const DecodingError& error) {
    require(isValidUTF8(error.what()), "an error's message is valid UTF-8");
    return std::nullopt;
  }
}

NODOHelperCommandResponse reread(const NODOHelperCommandResponse& response) {
  return decodeJSON<NODOHelperCommandResponse>(encodeJSON(response, JSONLayout::compact));
}

void checkEnvelope(const NODOHelperCommandResponse& decoded) {
  // One reading completes a state and cuts a time of decoding to its second.
  const NODOHelperCommandResponse response = reread(decoded);
  require(reread(response) == response, "an envelope reads back equal");
  require(response.status.has_value() == decoded.status.has_value() &&
              response.run.has_value() == decoded.run.has_value() &&
              response.error == decoded.error,
          "an envelope keeps its fields");
}

/// The case of the error that `request` ends with, when it is one of the client's.
std::optional<ErrorCase> errorOf(const std::function<void()>& request, bool& decodingFailed) {
  try {
    request();
  } catch (const NODOHelperClientError& error) {
    return error.errorCase();
  } catch (const DecodingError&) {
    decodingFailed = true;
  }
  return std::nullopt;
}

void checkRequest(std::string_view text, const std::optional<NODOHelperCommandResponse>& envelope,
                  bool hasReport, const std::function<void()>& request) {
  bool decodingFailed = false;
  const std::optional<ErrorCase> error = errorOf(request, decodingFailed);
  if (!isValidUTF8(text)) {
    require(error == ErrorCase::invalidResponse, "a reply that is no UTF-8 is invalid");
    return;
  }
  require(decodingFailed == !envelope, "a reply that is no envelope gives the decoder's error");
  if (envelope && envelope->error) {
    require(error == ErrorCase::unavailable, "an envelope's error wins over its reports");
  } else if (envelope) {
    require(hasReport ? !error : error == ErrorCase::invalidResponse,
            "a request succeeds exactly when its report is there");
  }
}

}  // namespace
}  // namespace nodo::fuzzing

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using nodo::fuzzing::checkRequest;
  const std::string_view text = nodo::fuzzing::textOf(data, size);
  const auto envelope = nodo::fuzzing::envelopeIn(text);
  if (envelope) {
    nodo::fuzzing::checkEnvelope(*envelope);
  }

  const auto helper = std::make_shared<nodo::test::FakeHelper>();
  const auto answer = [text](const auto& request) { request.reply(std::string(text)); };
  helper->answer("status", answer);
  helper->answer("reconcile", answer);
  const nodo::NODOHelperXPCClient client{"service", 0, helper};
  checkRequest(text, envelope, envelope && envelope->status, [&] { client.status(); });
  checkRequest(text, envelope, envelope && envelope->run, [&] { client.reconcile(); });
  return 0;
}
