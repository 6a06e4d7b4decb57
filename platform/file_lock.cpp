#include "platform/file_lock.h"

#include <sys/file.h>

namespace ambervane {

int systemFileLock(int descriptor, int operation) { return ::flock(descriptor, operation); }

}  // namespace ambervane
