#include "bench/inputs.h"

#include <numeric>
#include <utility>

#include "cli/synthetic_mail.h"
#include "mailcore/parsed_message.h"
#include "mailcore/transfer_decoding.h"
#include "store/seed_dictionary.h"
#include "store/solid_block_writer.h"

namespace ambervane::bench {
namespace {

constexpr std::int64_t kMails = 400;
constexpr std::size_t kFileBytes = 300000;

/// The first attachment of the type in the synthetic mail that has at least `bytes`.
Bytes attachmentOf(const std::string& mimeType, std::size_t bytes) {
  for (const Bytes& raw : mails()) {
    Bytes found;
    ParsedMessage(raw).forEachAttachment([&](AttachmentRef&& file, DecodedBytes&& decoded) {
      if (file.mimeType == mimeType && decoded.view().size() >= bytes) {
        found = std::move(decoded).take();
      }
    });
    if (!found.empty()) return found;
  }
  return {};
}

/// Messages without files, one behind the other, up to `bytes`: what records and blocks hold.
Bytes textOf(std::size_t bytes) {
  constexpr std::size_t kLongestText = 20000;
  Bytes text;
  const SyntheticMail mail(7);
  for (std::int64_t number = 0; text.size() < bytes; ++number) {
    const Bytes raw = mail.message(number).raw;
    if (raw.size() < kLongestText) text += raw;
  }
  text.resize(bytes);
  return text;
}

}  // namespace

std::string& givenArchive() {
  static std::string path;
  return path;
}

const std::vector<Bytes>& mails() {
  static const std::vector<Bytes> kAll = [] {
    std::vector<Bytes> all;
    const SyntheticMail mail;
    for (std::int64_t number = 0; number < kMails; ++number) {
      all.push_back(mail.message(number).raw);
    }
    return all;
  }();
  return kAll;
}

std::size_t totalBytes(const std::vector<Bytes>& messages) {
  return std::accumulate(
      messages.begin(), messages.end(), std::size_t{0},
      [](std::size_t sum, const Bytes& message) { return sum + message.size(); });
}

const Bytes& decodedFile() {
  static const Bytes kFile = [] {
    Bytes file;
    while (file.size() < kFileBytes) file += attachmentOf("application/pdf", 20000);
    file.resize(kFileBytes);
    return file;
  }();
  return kFile;
}

const Bytes& encodedFile() {
  static const Bytes kText = ContentTransferDecoder::encodeBase64Wrapped(decodedFile(), 76);
  return kText;
}

const std::vector<Sample>& samples() {
  static const std::vector<Sample> kSamples = {
      {"record3K", textOf(3000)},
      {"record12K", textOf(12000)},
      {"record64K", textOf(65536)},
      {"csv", attachmentOf("text/csv", 30000)},
      {"pdf", attachmentOf("application/pdf", 60000)},
      {"block4M", textOf(SolidBlockWriter::kBlockBytes)},
  };
  return kSamples;
}

const std::vector<PreparedMessage>& preparedMails() {
  static const std::vector<PreparedMessage> kPrepared = [] {
    PrepareSettings settings;
    settings.dictionary = {1, std::make_shared<const Bytes>(seedDictionary())};
    std::vector<PreparedMessage> prepared;
    for (const Bytes& raw : mails()) {
      SourceMessage source;
      source.raw = raw;
      prepared.push_back(*prepareOne(std::move(source), settings));
    }
    return prepared;
  }();
  return kPrepared;
}

}  // namespace ambervane::bench
