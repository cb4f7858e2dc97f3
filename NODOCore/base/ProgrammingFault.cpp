#include <NODOCore/base/ProgrammingFault.h>

#include <cstdio>
#include <cstdlib>

namespace nodo {

void programmingFault(const char* what) noexcept {
  std::fprintf(stderr, "nodo: programming fault: %s\n", what);
  std::abort();
}

std::int64_t checkedDifference(std::int64_t minuend, std::int64_t subtrahend) {
  std::int64_t difference = 0;
  if (__builtin_sub_overflow(minuend, subtrahend, &difference)) {
    programmingFault("a difference of whole seconds does not fit in 64 bits");
  }
  return difference;
}

}  // namespace nodo
