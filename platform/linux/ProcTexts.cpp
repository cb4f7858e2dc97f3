#include <NODOCore/base/Text.h>
#include <platform/linux/ProcTexts.h>

#include <algorithm>
#include <utility>

namespace nodo {
namespace {

std::string repaired(std::string_view text) {
  return isValidUTF8(text) ? std::string(text) : repairedUTF8(text);
}

std::string_view withoutTrailing(std::string_view text, char character) {
  const auto last = text.find_last_not_of(character);
  return text.substr(0, last == std::string_view::npos ? 0 : last + 1);
}

bool continuesCodePoint(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

}  // namespace

// "PID (NAME) STATE PPID PGRP SESSION TTY TPGID FLAGS ...", proc(5): the name may itself hold
// parentheses, so the last one ends it.
std::optional<ProcStat> parseProcStat(std::string_view text) {
  constexpr std::int64_t kernelThreadFlag = 0x00200000;  // PF_KTHREAD
  const auto nameBegin = text.find('(');
  const auto nameEnd = text.rfind(')');
  if (nameBegin == std::string_view::npos || nameEnd == std::string_view::npos ||
      nameEnd < nameBegin) {
    return std::nullopt;
  }
  std::string_view rest = text.substr(nameEnd + 1);
  takeField(rest);
  const auto parent = takeField(rest);
  const auto ppid = parent ? integerFromText<std::int32_t>(*parent) : std::nullopt;
  if (!ppid) {
    return std::nullopt;
  }
  for (int skipped = 0; skipped < 4; ++skipped) {
    takeField(rest);
  }
  const auto flags = integerFromText<std::int64_t>(takeField(rest).value_or(""));
  return ProcStat{.name = repaired(text.substr(nameBegin + 1, nameEnd - nameBegin - 1)),
                  .ppid = *ppid,
                  .isKernelThread = (flags.value_or(0) & kernelThreadFlag) != 0};
}

// Each argument ends with a NUL; a process that renamed itself leaves a run of them.
ProcCommandLine parseProcCommandLine(std::string_view text) {
  std::string command(withoutTrailing(text, '\0'));
  std::string executable = repaired(std::string_view(command).substr(0, command.find('\0')));
  std::replace(command.begin(), command.end(), '\0', ' ');
  return {.executable = std::move(executable), .command = repaired(command)};
}

std::string_view firstBytes(std::string_view text, std::size_t size) {
  if (text.size() <= size) {
    return text;
  }
  // A code point has at most three bytes after its first; more of them are no UTF-8 anyway.
  std::size_t end = size;
  for (int steps = 0; steps < 3 && end > 0 && continuesCodePoint(text[end]); ++steps) {
    --end;
  }
  return text.substr(0, continuesCodePoint(text[end]) ? size : end);
}

}  // namespace nodo
