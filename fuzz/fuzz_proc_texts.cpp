#include <NODOCore/base/Text.h>
#include <platform/linux/senses/ProcProcessListing.h>

#include <string>

#include <fuzz/Fuzzing.h>

namespace nodo::fuzzing {
namespace {

void checkStat(std::string_view text) {
  if (const auto stat = parseProcStat(text)) {
    require(isValidUTF8(stat->name), "a process's name is valid UTF-8");
    const std::string again = "1 (" + stat->name + ") S " + std::to_string(stat->ppid) +
                              " 1 1 0 -1 " + (stat->isKernelThread ? "2097152" : "0") + " 0\n";
    const auto read = parseProcStat(again);
    require(read && read->name == stat->name && read->ppid == stat->ppid &&
                read->isKernelThread == stat->isKernelThread,
            "a stat written out reads back equal");
  }
  const auto named = parseProcStat("7 (" + std::string(text) + ") S 42 7 7 0 -1 4194304 100\n");
  require(named && named->ppid == 42 && !named->isKernelThread,
          "no name changes what stands behind it");
}

void checkCommandLine(std::string_view text) {
  const ProcCommandLine line = parseProcCommandLine(text);
  require(isValidUTF8(line.executable) && isValidUTF8(line.command),
          "a command line is valid UTF-8");
  require(line.command.find('\0') == std::string::npos, "a command holds no NUL");
  require(line.command == line.executable || line.command.starts_with(line.executable + " "),
          "a command begins with the executable");
  const ProcCommandLine ended = parseProcCommandLine(std::string(text) + std::string(3, '\0'));
  require(ended.executable == line.executable && ended.command == line.command,
          "NULs at the end change nothing");
}

void checkCut(std::string_view text, std::size_t size) {
  const std::string_view beginning = firstBytes(text, size);
  require(text.starts_with(beginning), "the first bytes begin the text");
  require(beginning.size() <= size, "no more bytes are taken than asked for");
  require(beginning == text || beginning.size() + 3 >= size, "no whole code point is left out");

  const std::string valid = repairedUTF8(text);
  require(isValidUTF8(firstBytes(valid, size)), "a valid text stays valid");
}

}  // namespace
}  // namespace nodo::fuzzing

// A byte for a number of bytes, then a "stat" and a "cmdline", between them a line "%%".
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view input = nodo::fuzzing::textOf(data, size);
  const std::size_t number = nodo::fuzzing::takeNumber(input);
  const auto [stat, line] = nodo::fuzzing::twoTexts(input);
  nodo::fuzzing::checkStat(stat);
  nodo::fuzzing::checkCommandLine(line);
  nodo::fuzzing::checkCut(input, number);
  return 0;
}
