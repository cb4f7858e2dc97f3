// Sets the civil clock that one program sees, and no other clock: preloaded into the program
// (LD_PRELOAD), it is ahead by as many seconds as stand in the file that NODO_CLOCK_AHEAD names, as
// eight bytes in the machine's order, which may be changed at any time.

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <ctime>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

using Ahead = std::atomic<std::int64_t>;
static_assert(sizeof(Ahead) == sizeof(std::int64_t) && Ahead::is_always_lock_free,
              "written by others");

const Ahead& secondsAhead() {
  static const Ahead* const ahead = [] {
    const char* const path = std::getenv("NODO_CLOCK_AHEAD");
    const int file = path != nullptr ? ::open(path, O_RDONLY | O_CLOEXEC) : -1;
    void* const content =
        file >= 0 ? ::mmap(nullptr, sizeof(Ahead), PROT_READ, MAP_SHARED, file, 0) : MAP_FAILED;
    if (content == MAP_FAILED) {
      std::abort();  // by the right time, a test would find nothing
    }
    ::close(file);
    return static_cast<const Ahead*>(content);
  }();
  return *ahead;
}

}  // namespace

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
  const long result = ::syscall(SYS_clock_gettime, clock, time);
  if (result == 0 && clock == CLOCK_REALTIME) {
    time->tv_sec += secondsAhead().load(std::memory_order_relaxed);
  }
  return static_cast<int>(result);
}
