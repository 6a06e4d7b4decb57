#include "doctext/sandbox.h"

#ifdef __linux__
#include <linux/landlock.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>

#include "base/file.h"
#endif

namespace ambervane {

#ifdef __linux__

bool giveUpWriting() noexcept {
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return false;
  const long version =
      ::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
  if (version < 1) return false;
  landlock_ruleset_attr rules{};
  // Renaming counts as removing and making.
  rules.handled_access_fs = LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_REMOVE_DIR |
                            LANDLOCK_ACCESS_FS_REMOVE_FILE | LANDLOCK_ACCESS_FS_MAKE_CHAR |
                            LANDLOCK_ACCESS_FS_MAKE_DIR | LANDLOCK_ACCESS_FS_MAKE_REG |
                            LANDLOCK_ACCESS_FS_MAKE_SOCK | LANDLOCK_ACCESS_FS_MAKE_FIFO |
                            LANDLOCK_ACCESS_FS_MAKE_BLOCK | LANDLOCK_ACCESS_FS_MAKE_SYM;
  constexpr std::uint64_t kTruncate = 1U << 14;  // younger than the headers of Debian 12
  if (version >= 3) rules.handled_access_fs |= kTruncate;
  // Nothing is added that would be allowed after all.
  const FileHandle ruleset(
      static_cast<int>(::syscall(SYS_landlock_create_ruleset, &rules, sizeof rules, 0)));
  return ruleset && ::syscall(SYS_landlock_restrict_self, ruleset.descriptor(), 0) == 0;
}

#else

bool giveUpWriting() noexcept { return false; }

#endif

}  // namespace ambervane
