#include <NODOCore/base/Errors.h>
#include <programs/nodoctl/Answer.h>
#include <programs/nodoctl/run/Lease.h>

#include <algorithm>
#include <exception>
#include <utility>

namespace nodo::nodoctl {
namespace {

constexpr Seconds longestWait(60);

std::string failureText(const std::exception& error) {
  return std::string(
             "the timer cannot be extended, so the computer may sleep while the command "
             "runs: ") +
         error.what();
}

}  // namespace

Lease::Lease(HelperOptions options, std::int64_t minutes, std::string requester,
             const ToolContext& context)
    : options_(std::move(options)),
      minutes_(minutes),
      requester_(std::move(requester)),
      context_(context),
      next_(context.now()) {}

void Lease::begin() {
  try {
    extend();
  } catch (const NODOError&) {
    throw;
  } catch (const std::exception& error) {
    warnOnce(warnedOfFailure_, failureText(error));
  }
}

void Lease::keep() {
  if (context_.now() < next_) {
    return;
  }
  try {
    extend();
  } catch (const std::exception& error) {
    warnOnce(warnedOfFailure_, failureText(error));
  }
}

Seconds Lease::timeToWait() const {
  return std::clamp(next_ - context_.now(), Seconds(0), longestWait);
}

void Lease::extend() {
  const Date now = context_.now();
  const Seconds half(static_cast<double>(minutes_) * 60 / 2);
  next_ = now + std::min(half, longestWait);
  StateAccess state(options_, context_, [this](const std::string& reason) {
    warnOnce(warnedOfDaemon_, localStateNotice(reason));
  });
  const SourcedStatus extended =
      state.manual({.minutes = minutes_,
                    .extendOnly = true,
                    .requester = ActivationRequester(requester_, std::nullopt, "run", now)});
  if (extended.source == DoctorStatusSource::helper) {
    next_ = now + half;
  }
}

void Lease::warnOnce(bool& warned, const std::string& message) {
  if (!std::exchange(warned, true)) {
    context_.console().complain(message);
  }
}

}  // namespace nodo::nodoctl
