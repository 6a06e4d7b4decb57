#ifndef AMBERVANE_MAILCORE_MIME_PART_H_
#define AMBERVANE_MAILCORE_MIME_PART_H_

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/bytes.h"
#include "mailcore/header_set.h"
#include "mailcore/parameterized_header.h"
#include "mailcore/transfer_decoding.h"

namespace ambervane {

/// One part of a message (RFC 2045): ranges into the message's bytes, no copies of them. All
/// ranges count from the first byte of the message. A part owns its children and lives as long as
/// the ParsedMessage it came from. Immutable, but headers are parsed on first use without a lock:
/// one thread at a time. Where a function takes `data`, it is the whole message.
class MIMEPart {
 public:
  const HeaderSet& headers() const noexcept { return headers_; }
  ByteRange fullRange() const noexcept { return fullRange_; }
  ByteRange headerRange() const noexcept { return headerRange_; }  ///< without the empty line
  ByteRange bodyRange() const noexcept { return bodyRange_; }
  const std::vector<std::unique_ptr<MIMEPart>>& children() const noexcept { return children_; }
  const MIMEPart* parent() const noexcept { return parent_; }  ///< null for the root
  /// "" for a multipart root, "1" for any other, "2.1" and so on below. A multipart inside an
  /// embedded message has a level of its own, unlike in IMAP.
  const std::string& section() const noexcept { return section_; }

  /// Without a Content-Type it is "text/plain", inside a multipart/digest "message/rfc822".
  const ParameterizedHeader& contentType() const;
  /// The Content-Disposition, or null.
  const ParameterizedHeader* disposition() const;
  TransferEncoding transferEncoding() const;
  bool isMultipart() const { return contentType().mediaType() == "multipart"; }
  bool isText() const { return contentType().mediaType() == "text"; }
  /// Whether the type is that of an embedded message.
  bool isRFC822() const;
  /// The Content-ID without its angle brackets, as a view into `headers()`.
  std::optional<std::string_view> contentID() const;
  /// From the disposition, else the "name" of the type; never empty. Lives as long as the part.
  std::optional<std::string_view> filename() const;
  bool isAttachment() const;

  BytesView rawBody(BytesView data) const noexcept { return slice(data, bodyRange_); }
  /// May borrow from `data`.
  DecodedBytes decodedBody(BytesView data) const;
  /// The text of a text part in UTF-8, absent for any other part.
  std::optional<std::string> textContent(BytesView data) const;

  /// Calls `visit(part)` for this part and then for all below it, in file order, attachments and
  /// embedded messages included.
  template <class Visit>
  void walk(Visit&& visit) const {
    visit(*this);
    for (const auto& child : children_) child->walk(visit);
  }
  /// The first part in that order for which `test(part)` holds, or null.
  template <class Test>
  const MIMEPart* findFirst(Test&& test) const {
    if (test(*this)) return this;
    for (const auto& child : children_) {
      if (const MIMEPart* const found = child->findFirst(test)) return found;
    }
    return nullptr;
  }

 private:
  friend class MIMEParser;
  MIMEPart() = default;

  HeaderSet headers_;
  ByteRange fullRange_;
  ByteRange headerRange_;
  ByteRange bodyRange_;
  std::vector<std::unique_ptr<MIMEPart>> children_;
  MIMEPart* parent_ = nullptr;
  std::string section_;
  mutable std::unique_ptr<const ParameterizedHeader> contentType_;  ///< null until asked for
  mutable std::unique_ptr<const ParameterizedHeader> disposition_;
  mutable bool dispositionRead_ = false;  ///< a missing field is looked for only once
};

}  // namespace ambervane

#endif  // AMBERVANE_MAILCORE_MIME_PART_H_
