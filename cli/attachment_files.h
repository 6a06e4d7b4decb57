#ifndef AMBERVANE_CLI_ATTACHMENT_FILES_H_
#define AMBERVANE_CLI_ATTACHMENT_FILES_H_

#include <map>
#include <set>
#include <string>
#include <string_view>

#include "store/catalog_rows.h"

namespace ambervane {

/// What an attachment is called: its file name, or "attachment-<section>" without one.
std::string displayName(const AttachmentRow& attachment);

/// A name under which a file from outside may be written into a folder: the last part of a path
/// only, no leading dots, no control characters, at most 200 bytes, never empty.
std::string safeFileName(std::string_view name);

/// Hands out each name once: a second "a.pdf" becomes "a (2).pdf". Names that differ only in case
/// count as the same, because some file systems think so.
class UniqueNames {
 public:
  std::string claim(const std::string& name);

 private:
  std::set<std::string> taken_;
  std::map<std::string, int> next_;
};

}  // namespace ambervane

#endif  // AMBERVANE_CLI_ATTACHMENT_FILES_H_
