#include "imapkit/provider_profile.h"

#include <algorithm>
#include <array>

#include "base/text.h"
#include "imapkit/imap_server.h"

namespace ambervane {
namespace {

using Access = MailProviderProfile::Access;
using std::string_view;

constexpr std::array<string_view, 3> kICloudDomains = {"icloud.com", "me.com", "mac.com"};
constexpr std::array<string_view, 2> kGmailDomains = {"gmail.com", "googlemail.com"};
constexpr std::array<string_view, 14> kYahooDomains = {
    "yahoo.com",   "ymail.com",    "rocketmail.com", "myyahoo.com",  "yahoo.de",
    "yahoo.co.uk", "yahoo.fr",     "yahoo.it",       "yahoo.es",     "yahoo.ie",
    "yahoo.ca",    "yahoo.com.br", "yahoo.com.au",   "yahoo.com.mx",
};
constexpr std::array<string_view, 2> kBluewinDomains = {"bluewin.ch", "bluemail.ch"};
constexpr std::array<string_view, 3> kInfomaniakDomains = {"ik.me", "ikmail.com", "etik.com"};
constexpr std::array<string_view, 4> kProtonDomains = {"proton.me", "protonmail.com", "pm.me",
                                                       "protonmail.ch"};

constexpr std::array<MailProviderProfile, 6> kKnown = {{
    {"iCloud", kICloudDomains, "imap.mail.me.com", kTlsPort, Access::appPassword,
     "https://account.apple.com/account/manage", "https://support.apple.com/102654", true},
    {"Gmail", kGmailDomains, "imap.gmail.com", kTlsPort, Access::appPassword,
     "https://myaccount.google.com/apppasswords", "https://support.google.com/mail/answer/185833",
     false},
    {"Yahoo", kYahooDomains, "imap.mail.yahoo.com", kTlsPort, Access::appPassword,
     "https://login.yahoo.com/account/security", "https://help.yahoo.com/kb/SLN15241.html", false},
    {"Bluewin", kBluewinDomains, "imaps.bluewin.ch", kTlsPort, Access::password,
     "https://www.swisscom.ch/login", "https://www.swisscom.ch/help", false},
    {"Infomaniak", kInfomaniakDomains, "mail.infomaniak.com", kTlsPort, Access::appPassword,
     "https://manager.infomaniak.com", "https://www.infomaniak.com/support", false},
    {"Proton Mail", kProtonDomains, "127.0.0.1", std::nullopt, Access::localBridge,
     "https://proton.me/mail/bridge", "https://proton.me/support/imap-smtp-and-pop3-setup", false},
}};

}  // namespace

std::span<const MailProviderProfile> MailProviderProfile::known() { return kKnown; }

const MailProviderProfile* MailProviderProfile::matching(std::string_view address) {
  const std::size_t at = address.rfind('@');
  if (at == std::string_view::npos) return nullptr;
  const std::string domain = asciiLowercase(address.substr(at + 1));
  const auto found = std::find_if(kKnown.begin(), kKnown.end(), [&](const auto& profile) {
    return std::find(profile.domains.begin(), profile.domains.end(), domain) !=
           profile.domains.end();
  });
  return found == kKnown.end() ? nullptr : &*found;
}

}  // namespace ambervane
