#include "mailformats/mail_source_kind.h"

namespace ambervane {

std::string_view kindName(MailSourceKind kind) noexcept {
  switch (kind) {
    case MailSourceKind::mbox:
      return "mbox";
    case MailSourceKind::maildir:
      return "maildir";
    case MailSourceKind::appleMail:
      return "appleMail";
    case MailSourceKind::appleMailPackage:
      return "appleMailPackage";
    case MailSourceKind::emlDirectory:
      return "emlDirectory";
    case MailSourceKind::emlFile:
      return "emlFile";
    case MailSourceKind::mhFolder:
      return "mhFolder";
    case MailSourceKind::thunderbirdProfile:
      return "thunderbirdProfile";
    case MailSourceKind::mboxFolder:
      return "mboxFolder";
    case MailSourceKind::portableExport:
      return "portableExport";
    case MailSourceKind::olm:
      return "olm";
    case MailSourceKind::pst:
      return "pst";
    case MailSourceKind::outlookMessage:
      return "outlookMessage";
    case MailSourceKind::outlookMessageFolder:
      return "outlookMessageFolder";
    case MailSourceKind::gzipFile:
      return "gzipFile";
    case MailSourceKind::zipFile:
      return "zipFile";
    case MailSourceKind::unknown:
      return "unknown";
  }
  return {};
}

std::string_view kindLabel(MailSourceKind kind) noexcept {
  switch (kind) {
    case MailSourceKind::mbox:
      return "mbox file";
    case MailSourceKind::maildir:
      return "Maildir";
    case MailSourceKind::appleMail:
      return "Apple Mail store";
    case MailSourceKind::appleMailPackage:
      return "Apple Mail .mbox package";
    case MailSourceKind::emlDirectory:
      return "Folder of messages";
    case MailSourceKind::emlFile:
      return "Single message";
    case MailSourceKind::mhFolder:
      return "MH folder";
    case MailSourceKind::thunderbirdProfile:
      return "Thunderbird profile";
    case MailSourceKind::mboxFolder:
      return "Folder of mbox files";
    case MailSourceKind::portableExport:
      return "Ambervane portable export";
    case MailSourceKind::olm:
      return "Outlook for Mac archive";
    case MailSourceKind::pst:
      return "Outlook personal store";
    case MailSourceKind::outlookMessage:
      return "Outlook message";
    case MailSourceKind::outlookMessageFolder:
      return "Folder of Outlook messages";
    case MailSourceKind::gzipFile:
      return "Compressed mail file";
    case MailSourceKind::zipFile:
      return "ZIP file of messages";
    case MailSourceKind::unknown:
      return "Unrecognised";
  }
  return {};
}

}  // namespace ambervane
