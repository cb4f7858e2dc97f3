#include <NODOCore/base/System.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/daemon/PMSetSleepLock.h>

#include <exception>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace nodo {
namespace {

std::string_view kernelWords(std::optional<bool> disabled) {
  if (!disabled) {
    return "the kernel does not say whether sleep is disabled";
  }
  return *disabled ? "the kernel says that sleep is disabled"
                   : "the kernel says that sleep is not disabled";
}

void addWords(std::string& text, std::string_view words) {
  if (!words.empty()) {
    text = std::string(trimmed(text)) + (trimmed(text).empty() ? "" : "; ") + std::string(words);
  }
}

}  // namespace

Waiting Waiting::real() {
  return {.now = awakeTime, .pause = [](Seconds length) { std::this_thread::sleep_for(length); }};
}

VerifiedPowerManager::VerifiedPowerManager(std::unique_ptr<PowerManaging> manager,
                                           KernelValue kernelSaysDisabled, Waiting waiting)
    : manager_(std::move(manager)),
      kernelSaysDisabled_(std::move(kernelSaysDisabled)),
      waiting_(std::move(waiting)) {}

PowerOperationResult VerifiedPowerManager::setSleepDisabled(bool disabled) {
  PowerOperationResult result = manager_->setSleepDisabled(disabled);
  if (result.dryRun) {
    return result;
  }
  const std::optional<bool> kernel =
      result.succeeded() ? awaitKernel(disabled) : kernelSaysDisabled_();
  if (result.succeeded() && kernel == disabled) {
    return result;
  }
  if (result.succeeded()) {
    result.exitCode = 1;
  }
  // The tool says on either stream why it set nothing; people are shown standard error.
  addWords(result.standardError, trimmed(result.standardOutput));
  addWords(result.standardError, kernelWords(kernel));
  return result;
}

std::optional<bool> VerifiedPowerManager::awaitKernel(bool disabled) const {
  const Seconds end = waiting_.now() + patience;
  for (;;) {
    const std::optional<bool> kernel = kernelSaysDisabled_();
    if (kernel == disabled || waiting_.now() >= end) {
      return kernel;
    }
    waiting_.pause(pauseBetweenLooks);
  }
}

std::optional<bool> kernelSleepDisabled(std::string_view ioregOutput) {
  constexpr std::string_view key = "\"SleepDisabled\" = ";
  for (const std::string_view line : splitAtLineFeeds(ioregOutput)) {
    const std::size_t at = line.find(key);
    if (at == std::string_view::npos) {
      continue;
    }
    const std::string_view value = trimmed(line.substr(at + key.size()));
    return value == "Yes"  ? std::optional(true)
           : value == "No" ? std::optional(false)
                           : std::nullopt;
  }
  const bool isDomainShown =
      contains(ioregOutput, "IOPMrootDomain") || contains(ioregOutput, "\"AppleClamshellState\"");
  return isDomainShown ? std::optional(false) : std::nullopt;
}

std::optional<bool> askKernelSleepDisabled(const CommandRunning& runner) {
  // As the lid is looked at; the domain of a Mac without a lid does not answer to that.
  const std::vector<std::string> byLid{"-r", "-k", "AppleClamshellState", "-d", "4"};
  const std::vector<std::string> byClass{"-r", "-c", "IOPMrootDomain", "-d", "1"};
  try {
    for (const auto& arguments : {byLid, byClass}) {
      const CommandOutput domain = runner.run("/usr/sbin/ioreg", arguments);
      if (domain.exitCode != 0) {
        return std::nullopt;
      }
      if (!trimmed(domain.standardOutput).empty()) {
        return kernelSleepDisabled(domain.standardOutput);
      }
    }
  } catch (const std::exception&) {
    return std::nullopt;  // the operation that needed to know says that nobody does
  }
  return std::nullopt;
}

SleepLock pmsetSleepLock(const std::shared_ptr<const CommandRunning>& runner, Waiting waiting) {
  const auto kernel = [runner] { return askKernelSleepDisabled(*runner); };
  return {.manager = std::make_unique<VerifiedPowerManager>(
              std::make_unique<PMSetPowerManager>(runner, /*dryRun=*/false), kernel,
              std::move(waiting)),
          .isHeld = kernel,
          .diesWithProcess = false,
          .isSimulated = false};
}

}  // namespace nodo
