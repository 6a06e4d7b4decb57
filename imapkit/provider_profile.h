#ifndef AMBERVANE_IMAPKIT_PROVIDER_PROFILE_H_
#define AMBERVANE_IMAPKIT_PROVIDER_PROFILE_H_

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace ambervane {

/// What a known mail provider needs of a client. All texts are constants.
struct MailProviderProfile {
  enum class Access {
    password,     ///< the account's own
    appPassword,  ///< one made for this program in the account's settings
    localBridge,  ///< a program of the provider's on this machine, which says host, port and
                  ///< password
  };

  std::string_view name;
  std::span<const std::string_view> domains;  ///< of addresses, lower case
  std::string_view host;
  std::optional<std::uint16_t> port;
  Access access = Access::password;
  std::string_view credentialURL;  ///< where the password to use is found or made
  std::optional<std::string_view> helpURL;
  bool usernameIsLocalPart = false;  ///< the user name is the part before the "@"

  static std::span<const MailProviderProfile> known();
  /// The profile of the address's domain, in whatever case it is written; null when it has none.
  static const MailProviderProfile* matching(std::string_view address);
};

}  // namespace ambervane

#endif  // AMBERVANE_IMAPKIT_PROVIDER_PROFILE_H_
