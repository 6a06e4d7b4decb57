#include "store/message_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <string_view>
#include <unordered_map>
#include <variant>

#include "mailcore/parsed_message.h"
#include "store/archive_error.h"
#include "store/base64_recipe.h"
#include "store/message_record.h"
#include "store/pack_error.h"

namespace ambervane {
namespace {

[[noreturn]] void corrupt(std::string text) {
  throw PackError(PackError::CorruptRecord{std::move(text)});
}

PackLocation locationOf(const MessageRow& row) {
  if (row.erased) throw ArchiveError(ArchiveError::Erased{row.id});
  if (!row.packID || !row.packOffset) throw ArchiveError(ArchiveError::MessageMissing{row.id});
  PackLocation location;
  location.packID = *row.packID;
  location.offset = *row.packOffset;
  return location;
}

/// The row as it stands once its message does not wait for a block any more.
MessageRow settled(MailArchive& archive, const MessageRow& row) {
  if (row.packID || row.erased || archive.flushSolidBlock() == 0) return row;
  return archive.catalog().message(row.id).value_or(row);
}

/// The segments of a plain record in order, each blob as `fetch` gives it.
Bytes reassemble(BytesView plain, std::size_t expectedBytes,
                 const std::function<Bytes(const MessageRecord::Blob&)>& fetch) {
  const MessageRecord record = MessageRecord::decode(plain);
  Bytes raw;
  // The size comes from the catalog, which may be damaged: it is a hint and no more.
  raw.reserve(std::min(expectedBytes, kMaxRecordPayloadBytes));
  for (const MessageRecord::Segment& segment : record.segments) {
    if (const auto* literal = std::get_if<MessageRecord::Literal>(&segment)) {
      raw += literal->bytes;
    } else {
      raw += fetch(std::get<MessageRecord::Blob>(segment));
    }
  }
  return raw;
}

Bytes reassemble(MailArchive& archive, const MessageRow& given,
                 const std::function<Bytes(const MessageRecord::Blob&)>& fetch) {
  const MessageRow row = settled(archive, given);
  return reassemble(decodedRecordPayload(archive, row, locationOf(row)),
                    static_cast<std::size_t>(std::max<std::int64_t>(row.size, 0)), fetch);
}

/// A read is proved by its length: a record of another message would betray itself here.
void requireWhole(const MessageRow& row, const Bytes& raw) {
  if (static_cast<std::int64_t>(raw.size()) != row.size) {
    corrupt(fmt::format("message {} is {} bytes, expected {}", row.id, raw.size(), row.size));
  }
}

}  // namespace

Bytes decodedPayload(MailArchive& archive, const PackLocation& location, const std::string& where,
                     const std::string& digest, const std::function<SymmetricKey()>& findKey) {
  const PackStore::RawRecord record = archive.packs().read(location);
  Bytes opened;
  BytesView payload = record.payload;
  if (record.flags.encrypted()) {
    opened = ContentKeyStore::open(payload, findKey(), digest);
    payload = opened;
  }
  if (!record.flags.deflated()) return Bytes(payload);
  const auto dictionary = archive.dictionaries().dictionary(record.dictionaryID);
  auto plain = Compressor::decompress(payload, record.flags.codec(),
                                      dictionary ? BytesView(*dictionary) : BytesView(),
                                      record.originalLength);
  if (!plain) corrupt("decompression failed " + where);
  return *std::move(plain);
}

Bytes decodedPayload(MailArchive& archive, const PackLocation& location, const std::string& where) {
  return decodedPayload(archive, location, where, "",
                        []() -> SymmetricKey { corrupt("a block is encrypted"); });
}

Bytes decodedRecordPayload(MailArchive& archive, const MessageRow& row,
                           const PackLocation& location) {
  if (row.blockMember) {
    return archive.solidReader().member(archive, static_cast<std::size_t>(*row.blockMember),
                                        location);
  }
  return decodedPayload(archive, location, "for message " + std::to_string(row.id), row.sha256,
                        [&] {
                          auto key = archive.keys().key(row.id);
                          if (!key) throw ArchiveError(ArchiveError::Erased{row.id});
                          return *std::move(key);
                        });
}

Bytes blobBytes(MailArchive& archive, const std::string& hash, std::int64_t expectedEncodedLength) {
  const auto blob = archive.catalog().blob(hash);
  if (!blob) throw ArchiveError(ArchiveError::BlobMissing{hash});
  return blobBytes(archive, *blob, expectedEncodedLength);
}

Bytes blobBytes(MailArchive& archive, const BlobRow& row, std::int64_t expectedEncodedLength) {
  const std::string shortHash = row.hash.substr(0, 12);
  PackLocation location;
  location.packID = row.packID;
  location.offset = row.packOffset;
  Bytes bytes = decodedPayload(archive, location, "for blob " + shortHash, row.hash, [&] {
    auto key = archive.keys().blobKey(row.hash, false);
    if (!key) throw ArchiveError(ArchiveError::BlobErased{row.hash});
    return *std::move(key);
  });
  if (row.recipe) {
    if (const auto recipe = Base64Recipe::fromJson(*row.recipe)) bytes = recipe->encode(bytes);
  }
  if (expectedEncodedLength != 0 &&
      static_cast<std::int64_t>(bytes.size()) != expectedEncodedLength) {
    corrupt(fmt::format("blob {} is {} bytes, expected {}", shortHash, bytes.size(),
                        expectedEncodedLength));
  }
  return bytes;
}

Bytes messageOf(MailArchive& archive, BytesView record) {
  return reassemble(record, record.size(), [&archive](const MessageRecord::Blob& blob) {
    return blobBytes(archive, blob.hash, blob.length);
  });
}

Bytes rawMessage(MailArchive& archive, const MessageRow& row) {
  Bytes raw = reassemble(archive, row, [&archive](const MessageRecord::Blob& blob) {
    return blobBytes(archive, blob.hash, blob.length);
  });
  requireWhole(row, raw);
  return raw;
}

Bytes rawMessageForDisplay(MailArchive& archive, const MessageRow& row,
                           std::int64_t inlineBlobLimit) {
  return reassemble(archive, row, [&](const MessageRecord::Blob& blob) {
    if (blob.length > inlineBlobLimit) return Bytes();
    try {
      return blobBytes(archive, blob.hash, blob.length);
    } catch (const TranslatableError&) {
      return Bytes();
    }
  });
}

void forEachAttachment(MailArchive& archive, const MessageRow& row,
                       const std::function<void(const AttachmentRow&, Bytes&&)>& body) {
  const Bytes raw = rawMessage(archive, row);
  const ParsedMessage parsed(raw);
  std::unordered_map<std::string_view, const MIMEPart*> parts;
  parsed.root().walk([&parts](const MIMEPart& part) { parts.emplace(part.section(), &part); });
  for (const AttachmentRow& attachment : archive.catalog().attachments(row.id)) {
    const auto part = parts.find(attachment.section);
    if (part == parts.end()) {
      corrupt(fmt::format("message {} has no section {}", row.id, attachment.section));
    }
    body(attachment, part->second->decodedBody(raw).take());
  }
}

Bytes attachmentData(MailArchive& archive, const AttachmentRow& attachment) {
  const auto row = archive.catalog().message(attachment.messageID);
  if (!row) throw ArchiveError(ArchiveError::MessageMissing{attachment.messageID});
  Bytes data;
  forEachAttachment(archive, *row, [&](const AttachmentRow& each, Bytes&& bytes) {
    if (each.id == attachment.id) data = std::move(bytes);
  });
  return data;
}

}  // namespace ambervane
