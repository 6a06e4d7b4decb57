#ifndef AMBERVANE_PLATFORM_HOST_H_
#define AMBERVANE_PLATFORM_HOST_H_

#include <string>

namespace ambervane {

// Names that go into records. Each is well-formed UTF-8 and never empty.

/// This machine's name, "unknown" where it cannot be had. Asked once and kept.
std::string localHostName();

/// The login name of the effective user, else $USER, else the user's number.
std::string loginUserName();

/// The name this program was started under, without its folder.
std::string processName();

}  // namespace ambervane

#endif  // AMBERVANE_PLATFORM_HOST_H_
