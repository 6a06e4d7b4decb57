#ifndef AMBERVANE_STORE_PREPARED_MESSAGE_H_
#define AMBERVANE_STORE_PREPARED_MESSAGE_H_

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "doctext/attachment_text.h"
#include "mailcore/parsed_message.h"
#include "mailcore/source_message.h"
#include "store/catalog_rows.h"
#include "store/codec.h"
#include "store/dictionary_keeper.h"
#include "store/known_digests.h"

namespace ambervane {

/// What preparing needs to know of the archive; copied, so that any thread may use it.
struct PrepareSettings {
  /// What need not be compressed again; null asks nobody. Must outlive its use.
  const KnownDigests* known = nullptr;
  /// Reads the texts of attachments for the index; null reads none. Must outlive its use.
  const AttachmentTextReader* attachmentText = nullptr;
  Dictionary dictionary;
  CompressionEffort effort = CompressionEffort::balanced;
  std::int64_t extractionThreshold = 4096;  ///< encoded bytes from which an attachment is a blob
  bool isLearning = false;                  ///< a sample for the dictionary is wanted
  bool storesContent = true;                ///< else the message is only described
  bool compressesRecords = true;            ///< else message records wait, plain, for a solid block
  bool preparesWhatIsNotMail = true;        ///< else such bytes are only recognised
};

/// An attachment that leaves its message's record.
struct PreparedBlob {
  AttachmentRef ref;
  std::size_t encodedLength = 0;
  bool isKnown = false;               ///< the archive holds it: the two fields below stay empty
  CompressedRecord compressed;        ///< of the decoded bytes when there is a recipe
  std::optional<std::string> recipe;  ///< JSON of a Base64Recipe
};

/// What the catalog keeps of a message's header, decoded.
struct EnvelopeFields {
  std::string messageID, threadKey, subject, subjectNormalized;
  std::string fromName, fromAddress, fromDomain, toAddresses, ccAddresses;
  std::string participants;  ///< addresses of all people, lower case, sorted, joined with one blank
  std::optional<Date> sentAt;
  std::string inReplyTo, references, snippet;
};

/// Everything about one message that can be worked out without the archive.
struct PreparedMessage {
  SourceMessage source;       ///< its raw bytes are given up
  std::size_t size = 0;       ///< of the raw bytes
  std::string hash;           ///< SHA-256 of the raw bytes, lower-case hexadecimal
  bool looksLikeMail = true;  ///< when false, the fields below may not be filled in
  bool isKnown = false;       ///< the archive holds it: of the fields below only the date is read
  std::vector<PreparedBlob> extracted;
  std::vector<AttachmentRef> inlineAttachments;  ///< those that stay in the record
  CompressedRecord record;                       ///< not compressed when it waits for a solid block
  Bytes trainingSample;                          ///< empty when none is wanted
  std::uint16_t dictionaryID = 0;  ///< of the dictionary all of it was compressed with
  EnvelopeFields envelope;
  std::vector<std::pair<std::string, std::string>> headers;  ///< for the header index
  IndexedText indexed;
  std::string
      people;  ///< the fields From, To, Cc and Bcc in one text, and the addresses read there
  std::int64_t unreadableAttachments =
      0;  ///< of a kind whose text is read, which was not to be had
};

/// The fields that name a message's people.
inline constexpr std::array<std::string_view, 4> kPeopleFields = {"from", "to", "cc", "bcc"};
/// Those fields of a message with their encoded words read, behind `addresses`, in one text.
std::string peopleOf(const HeaderSet& headers, const std::string& addresses);

/// Hashes, parses, splits and compresses one message. Absent for one without bytes. Safe from any
/// thread; takes the source's bytes with it.
std::optional<PreparedMessage> prepareOne(SourceMessage source, const PrepareSettings& settings);

}  // namespace ambervane

#endif  // AMBERVANE_STORE_PREPARED_MESSAGE_H_
