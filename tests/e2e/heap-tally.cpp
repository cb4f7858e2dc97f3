// Counts the blocks of memory that a program holds, for checks that it loses none: pages say too
// little, as the allocator keeps as many as suits it. Preloaded into the program (LD_PRELOAD), the
// number stands in the file that NODO_HEAP_TALLY names, as eight bytes in the machine's order, from
// the start to the end.

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

extern "C" {
// The allocator under the names that stay the C library's own when malloc is replaced.
// NOLINTBEGIN(readability-identifier-naming)
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);
// NOLINTEND(readability-identifier-naming)
}

namespace {

using Tally = std::atomic<std::int64_t>;
static_assert(sizeof(Tally) == sizeof(std::int64_t) && Tally::is_always_lock_free,
              "read by others");

// Until the file is mapped. What counts must not allocate.
Tally early{0};
Tally* blocks = &early;

void* counted(void* block) {
  if (block != nullptr) {
    ++*blocks;
  }
  return block;
}

[[gnu::constructor]] void openTally() {
  const char* path = std::getenv("NODO_HEAP_TALLY");
  const int file =
      path == nullptr ? -1 : ::open(path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (file < 0 || ::ftruncate(file, sizeof(Tally)) != 0) {
    std::perror("heap-tally: NODO_HEAP_TALLY");
    std::_Exit(1);
  }
  void* page = ::mmap(nullptr, sizeof(Tally), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  if (page == MAP_FAILED) {
    std::perror("heap-tally: NODO_HEAP_TALLY");
    std::_Exit(1);
  }
  ::close(file);
  blocks = new (page) Tally(early.load());
  ::unsetenv("LD_PRELOAD");  // what the program starts would write over its count
}

}  // namespace

extern "C" {

void* malloc(std::size_t size) {
  return counted(__libc_malloc(size));
}

void* calloc(std::size_t count, std::size_t size) {
  return counted(__libc_calloc(count, size));
}

void* realloc(void* block, std::size_t size) {
  if (block == nullptr) {
    return malloc(size);
  }
  void* moved = __libc_realloc(block, size);
  if (size == 0 && moved == nullptr) {  // which frees
    --*blocks;
  }
  return moved;
}

void* memalign(std::size_t alignment, std::size_t size) {
  return counted(__libc_memalign(alignment, size));
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
  return memalign(alignment, size);
}

int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
  *block = memalign(alignment, size);
  return *block == nullptr ? ENOMEM : 0;
}

void free(void* block) {
  if (block != nullptr) {
    --*blocks;
  }
  __libc_free(block);
}
}
