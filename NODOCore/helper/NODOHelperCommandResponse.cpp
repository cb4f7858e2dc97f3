#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/helper/NODOHelperCommandResponse.h>

#include <utility>

namespace nodo {
namespace {

template <class Fields, class Response>
void describe(Fields& fields, Response& response) {
  fields.optional("status", response.status);
  fields.optional("run", response.run);
  fields.optional("error", response.error);
}

}  // namespace

NODOHelperCommandResponse NODOHelperCommandResponse::success(StatusReport status) {
  return {.status = std::move(status)};
}

NODOHelperCommandResponse NODOHelperCommandResponse::success(DaemonRunReport run) {
  return {.run = std::move(run)};
}

NODOHelperCommandResponse NODOHelperCommandResponse::failure(const std::exception& error) {
  return {.error = error.what()};
}

JSONValue encode(const NODOHelperCommandResponse& response) {
  ObjectEncoder fields;
  describe(fields, response);
  return fields.finish();
}

void decode(const JSONReader& from, NODOHelperCommandResponse& response) {
  ObjectDecoder fields(from);
  describe(fields, response);
}

}  // namespace nodo
