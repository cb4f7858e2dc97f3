#include <NODOCore/base/SyncToDisk.h>

#include <fcntl.h>
#include <unistd.h>

namespace nodo {

int syncToDisk(int descriptor) {
  // On Darwin fsync only reaches the drive's cache. Some file systems (network, FAT) refuse the
  // full sync; then fsync is the best there is.
  return ::fcntl(descriptor, F_FULLFSYNC) == 0 ? 0 : ::fsync(descriptor);
}

}  // namespace nodo
