#ifndef AMBERVANE_MAILFORMATS_MAIL_SOURCE_KIND_H_
#define AMBERVANE_MAILFORMATS_MAIL_SOURCE_KIND_H_

#include <array>
#include <string_view>

namespace ambervane {

/// What a path holds, as far as mail is concerned.
enum class MailSourceKind {
  mbox,
  maildir,
  appleMail,
  appleMailPackage,
  emlDirectory,
  emlFile,
  mhFolder,
  thunderbirdProfile,
  mboxFolder,
  portableExport,
  olm,
  pst,
  outlookMessage,
  outlookMessageFolder,
  gzipFile,  ///< of one mbox or one message
  zipFile,
  unknown
};

/// In the order they are shown.
inline constexpr std::array kAllMailSourceKinds = {
    MailSourceKind::mbox,
    MailSourceKind::maildir,
    MailSourceKind::appleMail,
    MailSourceKind::appleMailPackage,
    MailSourceKind::emlDirectory,
    MailSourceKind::emlFile,
    MailSourceKind::mhFolder,
    MailSourceKind::thunderbirdProfile,
    MailSourceKind::mboxFolder,
    MailSourceKind::portableExport,
    MailSourceKind::olm,
    MailSourceKind::pst,
    MailSourceKind::outlookMessage,
    MailSourceKind::outlookMessageFolder,
    MailSourceKind::gzipFile,
    MailSourceKind::zipFile,
    MailSourceKind::unknown,
};

/// The string form, equal to the enumerator's name; archives record it.
std::string_view kindName(MailSourceKind kind) noexcept;
/// English words for the user.
std::string_view kindLabel(MailSourceKind kind) noexcept;

}  // namespace ambervane

#endif  // AMBERVANE_MAILFORMATS_MAIL_SOURCE_KIND_H_
