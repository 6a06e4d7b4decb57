#ifndef AMBERVANE_PLATFORM_FILE_LOCK_H_
#define AMBERVANE_PLATFORM_FILE_LOCK_H_

#include <functional>

namespace ambervane {

/// An advisory lock over a whole open file. `operation` is LOCK_EX, LOCK_SH or LOCK_UN of
/// <sys/file.h>, with LOCK_NB or-ed in where the call must not wait. Returns 0, or -1 with errno
/// set. Replaceable because some file systems know no locks, and so that a test can refuse one.
using LockFunction = std::function<int(int descriptor, int operation)>;

/// flock(2).
int systemFileLock(int descriptor, int operation);

}  // namespace ambervane

#endif  // AMBERVANE_PLATFORM_FILE_LOCK_H_
