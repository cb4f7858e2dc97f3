#include <NODOCore/base/SyncToDisk.h>

#include <unistd.h>

namespace nodo {

int syncToDisk(int descriptor) {
  return ::fsync(descriptor);
}

}  // namespace nodo
