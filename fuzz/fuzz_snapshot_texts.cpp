#include <NODOCore/base/Text.h>
#include <NODOCore/daemon/PMSetSleepLock.h>
#include <NODOCore/sensing/SystemSnapshot.h>
#include <platform/linux/senses/LinuxSystemSnapshotProvider.h>

#include <algorithm>
#include <string>

#include <fuzz/Fuzzing.h>

namespace nodo::fuzzing {
namespace {

using Provider = MacSystemSnapshotProvider;

bool isDigit(char character) {
  return character >= '0' && character <= '9';
}

// At most three digits right before the first "%" that has a digit before it.
std::optional<std::int64_t> slowPercent(std::string_view text) {
  for (std::size_t sign = 1; sign < text.size(); ++sign) {
    if (text[sign] != '%' || !isDigit(text[sign - 1])) {
      continue;
    }
    std::int64_t percent = 0;
    std::int64_t scale = 1;
    for (std::size_t back = 1; back <= std::min<std::size_t>(3, sign); ++back) {
      if (!isDigit(text[sign - back])) {
        break;
      }
      percent += scale * (text[sign - back] - '0');
      scale *= 10;
    }
    return percent;
  }
  return std::nullopt;
}

void checkBattery(std::string_view text) {
  const auto percent = Provider::batteryPercent(text);
  require(percent == slowPercent(text), "the percentage is the first one in the text");
  require(!percent || (*percent >= 0 && *percent <= 999), "a percentage has at most three digits");

  const PowerSource source = Provider::powerSource(text);
  require(Provider::powerSource(lowercased(text)) == source, "capitals do not change the source");
  require(Provider::powerSource(std::string(text) + "\n'AC Power'") == PowerSource::ac,
          "mains count whatever else is named");
}

void checkRoute(std::string_view text) {
  require(Provider::defaultRouteAvailable(text, 1) == false, "a failing tool means no route");
  const auto available = Provider::defaultRouteAvailable(text, 0);
  require(available != false, "a tool that succeeds never means no route");
  require(Provider::defaultRouteAvailable(lowercased(text), 0) == available,
          "capitals do not change the route");
}

void checkLid(std::string_view first, std::string_view second) {
  if (first.ends_with('\r')) {
    return;  // with a line feed it would be one character, which separates nothing
  }
  const std::string both = std::string(first) + "\n" + std::string(second);
  const auto closed = Provider::lidClosed(first);
  require(Provider::lidClosed(both) == (closed ? closed : Provider::lidClosed(second)),
          "the first line that tells the lid's state decides");
}

void checkKernel(std::string_view text) {
  const std::string line = "\"SleepDisabled\" = ";
  require(kernelSleepDisabled(line + "Yes\n" + std::string(text)) == true &&
              kernelSleepDisabled(line + "No\n" + std::string(text)) == false,
          "the first line that shows the kernel's flag decides");
  require(contains(text, line) || kernelSleepDisabled(text) != true,
          "a flag that is not shown is not set");
}

void checkRouteTables(std::string_view first, std::string_view second) {
  const std::string both = std::string(first) + "\n" + std::string(second);
  require(hasDefaultRouteIPv4(both) == (hasDefaultRouteIPv4(first) || hasDefaultRouteIPv4(second)),
          "one default row is enough for IPv4");
  require(hasDefaultRouteIPv6(both) == (hasDefaultRouteIPv6(first) || hasDefaultRouteIPv6(second)),
          "one default row is enough for IPv6");
  require(hasDefaultRouteIPv4(both + "\neth0 00000000 0100000A 0003 0 0 100 00000000 0 0 0"),
          "a default row counts after any others");
}

}  // namespace
}  // namespace nodo::fuzzing

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = nodo::fuzzing::textOf(data, size);
  const auto [first, second] = nodo::fuzzing::twoTexts(text);
  nodo::fuzzing::checkBattery(text);
  nodo::fuzzing::checkRoute(text);
  nodo::fuzzing::checkLid(first, second);
  nodo::fuzzing::checkKernel(text);
  nodo::fuzzing::checkRouteTables(first, second);
  return 0;
}
