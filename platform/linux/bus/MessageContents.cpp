#include <platform/linux/bus/BusConnection.h>
#include <platform/linux/bus/MessageContents.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include <fmt/format.h>

namespace nodo {
namespace {

// ---- noncharacters

std::uint8_t byteAt(std::string_view text, std::size_t index) {
  return static_cast<std::uint8_t>(text[index]);
}

// How many bytes the noncharacter has that begins `text`, which is UTF-8; 0 when none does.
std::size_t noncharacterLength(std::string_view text) {
  if (text.size() >= 3 && byteAt(text, 0) == 0xEF) {
    const std::uint8_t last = byteAt(text, 2);
    const bool isInArabicBlock = byteAt(text, 1) == 0xB7 && last >= 0x90 && last <= 0xAF;
    const bool endsFirstPlane = byteAt(text, 1) == 0xBF && last >= 0xBE;
    return isInArabicBlock || endsFirstPlane ? 3 : 0;
  }
  const bool endsLaterPlane = text.size() >= 4 && byteAt(text, 0) >= 0xF0 &&
                              (byteAt(text, 1) & 0x0FU) == 0x0F && byteAt(text, 2) == 0xBF &&
                              byteAt(text, 3) >= 0xBE;
  return endsLaterPlane ? 4 : 0;
}

// The code units in UTF-16 of one such, which is what JSON escapes.
std::string escaped(std::string_view noncharacter) {
  std::uint32_t point = byteAt(noncharacter, 0) & (noncharacter.size() == 3 ? 0x0FU : 0x07U);
  for (std::size_t index = 1; index < noncharacter.size(); ++index) {
    point = point << 6U | (byteAt(noncharacter, index) & 0x3FU);
  }
  if (point < 0x10000) {
    return fmt::format("\\u{:04x}", point);
  }
  point -= 0x10000;
  return fmt::format("\\u{:04x}\\u{:04x}", 0xD800 + (point >> 10U), 0xDC00 + (point & 0x3FFU));
}

template <class Replacement>
std::string withReplaced(std::string_view text, const Replacement& replacement) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    // Nearly all bytes are lower than the first of any noncharacter.
    const auto candidate = std::find_if(text.begin(), text.end(), [](char byte) {
      return static_cast<std::uint8_t>(byte) >= 0xEF;
    });
    const auto plain = static_cast<std::size_t>(candidate - text.begin());
    result += text.substr(0, plain);
    text.remove_prefix(plain);
    const std::size_t length = noncharacterLength(text);
    if (length > 0) {
      result += replacement(text.substr(0, length));
      text.remove_prefix(length);
    } else if (!text.empty()) {
      result += text.front();
      text.remove_prefix(1);
    }
  }
  return result;
}

// ---- how large

constexpr char action[] = "read the arguments";
// What a value takes at most besides a text's characters: itself, or a length and what aligns it.
constexpr std::size_t valueBytes = 8;

bool isContainer(char type) {
  return type == SD_BUS_TYPE_ARRAY || type == SD_BUS_TYPE_STRUCT || type == SD_BUS_TYPE_VARIANT ||
         type == SD_BUS_TYPE_DICT_ENTRY;
}

bool isText(char type) {
  return type == SD_BUS_TYPE_STRING || type == SD_BUS_TYPE_OBJECT_PATH ||
         type == SD_BUS_TYPE_SIGNATURE;
}

std::size_t readValue(sd_bus_message* message, char type) {
  if (isText(type)) {
    const char* text = nullptr;
    checkSystemd(sd_bus_message_read_basic(message, type, &text), action);
    return valueBytes + std::strlen(text);
  }
  std::uint64_t largest = 0;
  checkSystemd(sd_bus_message_read_basic(message, type, &largest), action);
  return valueBytes;
}

// Reads to the end of a container, or of the message; false once they took more than `left`. The
// library lets containers nest 128 deep.
bool fits(sd_bus_message* message, std::size_t& left) {
  for (;;) {
    char type = 0;
    const char* contents = nullptr;
    const int more = sd_bus_message_peek_type(message, &type, &contents);
    checkSystemd(more, action);
    if (more == 0) {
      return true;
    }
    const std::size_t bytes = isContainer(type) ? valueBytes : readValue(message, type);
    if (bytes > left) {
      return false;
    }
    left -= bytes;
    if (isContainer(type)) {
      checkSystemd(sd_bus_message_enter_container(message, type, contents), action);
      if (!fits(message, left)) {
        return false;
      }
      checkSystemd(sd_bus_message_exit_container(message), action);
    }
  }
}

}  // namespace

std::string withEscapedNoncharacters(std::string_view json) {
  return withReplaced(json, escaped);
}

std::string withoutNoncharacters(std::string_view text) {
  return withReplaced(text, [](std::string_view) { return "\uFFFD"; });
}

bool isLargerThan(sd_bus_message* message, std::size_t limit) {
  checkSystemd(sd_bus_message_rewind(message, 1), action);
  std::size_t left = limit;
  const bool fitted = fits(message, left);
  checkSystemd(sd_bus_message_rewind(message, 1), action);
  return !fitted;
}

}  // namespace nodo
