#include "platform/host.h"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <vector>

#include "base/text.h"

namespace ambervane {
namespace {

std::string askHostName() {
  std::array<char, 256> name{};
  // A name that does not fit may come without its end: the last byte stays out of reach.
  if (::gethostname(name.data(), name.size() - 1) != 0 || name[0] == '\0') return "unknown";
  return repairedUtf8(name.data());
}

}  // namespace

std::string localHostName() {
  static const std::string kName = askHostName();
  return kName;
}

std::string loginUserName() {
  struct passwd entry {};
  struct passwd* found = nullptr;
  std::vector<char> buffer(1024);
  int error = ERANGE;
  while (error == ERANGE && buffer.size() <= (std::size_t{1} << 20)) {
    buffer.resize(buffer.size() * 2);
    error = ::getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found);
  }
  if (error == 0 && found != nullptr && found->pw_name[0] != '\0') {
    return repairedUtf8(found->pw_name);
  }
  // Nothing here sets the environment while threads run.
  const char* const user = std::getenv("USER");  // NOLINT(concurrency-mt-unsafe)
  if (user != nullptr && user[0] != '\0') return repairedUtf8(user);
  return std::to_string(::geteuid());
}

std::string processName() {
#ifdef __APPLE__
  return repairedUtf8(::getprogname());
#else
  return repairedUtf8(program_invocation_short_name);
#endif
}

}  // namespace ambervane
