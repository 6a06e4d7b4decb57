#ifndef AMBERVANE_MAILCORE_PARSED_MESSAGE_H_
#define AMBERVANE_MAILCORE_PARSED_MESSAGE_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/bytes.h"
#include "base/date.h"
#include "mailcore/address_parser.h"
#include "mailcore/mime_part.h"

namespace ambervane {

/// References behind this many in one message are not read.
inline constexpr std::size_t kMaxReferences = 100'000;

/// What is known of one attachment. The two digests are lower-case hexadecimal SHA-256:
/// `contentHash` knows the file whatever its encoding, `encodedHash` proves that the stored form
/// is the one the message held.
struct AttachmentRef {
  std::optional<std::string> filename;
  std::string mimeType;  ///< lower case
  std::string charset;   ///< as declared; empty without one
  std::string section;
  ByteRange encodedRange;  ///< the part's body in the raw message
  std::int64_t encodedSize = 0;
  std::int64_t decodedSize = 0;  ///< bytes after transfer decoding
  TransferEncoding transferEncoding = TransferEncoding::sevenBit;
  std::optional<std::string> contentID;
  bool isInline = false;
  std::string contentHash;  ///< of the decoded bytes
  std::string encodedHash;  ///< of the bytes in `encodedRange`
  friend bool operator==(const AttachmentRef&, const AttachmentRef&) = default;
};

/// The texts of a message, each part read once.
struct MessageTexts {
  std::string all;            ///< what `allTextForIndexing` returns
  std::string plainTextBody;  ///< what `plainTextBody` returns
};

/// A message taken apart. Borrows its bytes: the caller keeps them unchanged for as long as this
/// object lives. Parsing never fails. All strings handed out are well-formed UTF-8. Nothing but
/// the tree and the headers' own caches is kept, so each call computes anew. One thread at a time.
class ParsedMessage {
 public:
  explicit ParsedMessage(BytesView raw);

  BytesView raw() const noexcept { return raw_; }
  const MIMEPart& root() const noexcept { return *root_; }
  const HeaderSet& headers() const noexcept { return root_->headers(); }

  std::string subject() const;  ///< decoded, or empty
  // Only the first field of a name is read.
  std::vector<MailAddress> from() const { return addresses("from"); }
  std::vector<MailAddress> sender() const { return addresses("sender"); }
  std::vector<MailAddress> replyTo() const { return addresses("reply-to"); }
  std::vector<MailAddress> to() const { return addresses("to"); }
  std::vector<MailAddress> cc() const { return addresses("cc"); }
  std::vector<MailAddress> bcc() const { return addresses("bcc"); }
  std::optional<Date> date() const;
  /// Without angle brackets; absent where nothing is left. `inReplyTo` is not split.
  std::optional<std::string> messageID() const { return identifier("message-id"); }
  std::optional<std::string> inReplyTo() const { return identifier("in-reply-to"); }
  /// The first `kMaxReferences` of them.
  std::vector<std::string> references() const;
  /// The subject without "Re:" and its kin in several languages, for grouping conversations.
  std::string normalizedSubject() const;

  std::size_t size() const noexcept { return raw_.size(); }
  std::string sha256() const;  ///< of the whole message, lower-case hexadecimal

  /// Cheap: decodes and hashes nothing.
  bool hasAttachments() const;
  /// Decodes and hashes every attachment; call it once and keep the result.
  std::vector<AttachmentRef> attachments() const;
  /// As `attachments`, handing out each attachment's bytes too, which may borrow from `raw()`.
  void forEachAttachment(
      const std::function<void(AttachmentRef&& attachment, DecodedBytes&& decoded)>& visit) const;

  /// The first plain text, else the first HTML as text, else the root if it is text; an attachment
  /// is never the body.
  std::string plainTextBody() const;
  std::optional<std::string> htmlBody() const;
  /// All texts that are no attachment, joined with LF. A message without any gives the first
  /// mebibyte of its decoded body, if that is UTF-8.
  std::string allTextForIndexing() const { return texts().all; }
  /// `plainTextBody` and `allTextForIndexing` for little more than the cost of one.
  MessageTexts texts() const;

 private:
  std::vector<MailAddress> addresses(std::string_view name) const;
  std::optional<std::string> identifier(std::string_view name) const;

  BytesView raw_;
  std::unique_ptr<const MIMEPart> root_;
};

/// `subject` (UTF-8) without reply and forward prefixes, in composed form (NFC); see ParsedMessage.
std::string normalizedSubject(std::string_view subject);

}  // namespace ambervane

#endif  // AMBERVANE_MAILCORE_PARSED_MESSAGE_H_
