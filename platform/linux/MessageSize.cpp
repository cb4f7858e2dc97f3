#include <platform/linux/MessageSize.h>
#include <platform/linux/SystemdHandles.h>

#include <cstdint>
#include <cstring>

namespace nodo {
namespace {

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

bool isLargerThan(sd_bus_message* message, std::size_t limit) {
  checkSystemd(sd_bus_message_rewind(message, 1), action);
  std::size_t left = limit;
  const bool fitted = fits(message, left);
  checkSystemd(sd_bus_message_rewind(message, 1), action);
  return !fitted;
}

}  // namespace nodo
