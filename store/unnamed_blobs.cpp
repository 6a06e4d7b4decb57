#include "store/unnamed_blobs.h"

#include <algorithm>
#include <array>
#include <utility>

#include "base/digest.h"
#include "store/message_reader.h"

namespace ambervane {
namespace {

/// Lengths of lines that mail programs write.
constexpr std::array<std::size_t, 6> kUsualLineLengths = {76, 72, 64, 60, 80, 56};
constexpr std::size_t kMostRecipes = 24;

/// The lengths that break `text` characters into `lines` lines.
std::vector<std::size_t> lineLengths(std::size_t text, std::size_t lines) {
  if (lines <= 1) return {std::max(text, Base64Recipe::kMinLineLength)};
  const auto fits = [&](std::size_t length) { return (text - 1) / length + 1 == lines; };
  std::vector<std::size_t> lengths;
  for (const std::size_t usual : kUsualLineLengths) {
    if (fits(usual)) lengths.push_back(usual);
  }
  // Every other length lies in one short range; the few of it that are tried are as good as any.
  std::size_t length = (text + lines - 1) / lines;
  length += (4 - length % 4) % 4;
  for (int tried = 0; tried < 4 && length <= Base64Recipe::kMaxLineLength; ++tried, length += 4) {
    if (fits(length) && std::ranges::find(lengths, length) == lengths.end()) {
      lengths.push_back(length);
    }
  }
  return lengths;
}

}  // namespace

std::vector<Base64Recipe> plausibleRecipes(std::size_t decoded, std::size_t encoded) {
  std::vector<Base64Recipe> recipes;
  const std::size_t text = (decoded + 2) / 3 * 4;
  if (text == 0 || text > encoded) return recipes;
  for (const bool crlf : {true, false}) {
    const std::size_t newline = crlf ? 2 : 1;
    if ((encoded - text) % newline != 0) continue;
    const std::size_t breaks = (encoded - text) / newline;
    for (const std::size_t trailing : {0U, 1U}) {
      for (const std::size_t leading : {0U, 1U}) {
        if (breaks < trailing + leading) continue;
        for (const std::size_t length : lineLengths(text, breaks - trailing - leading + 1)) {
          recipes.push_back(
              {length, crlf, trailing == 1, leading == 0 ? "" : (crlf ? "\r\n" : "\n")});
        }
      }
    }
  }
  if (recipes.size() > kMostRecipes) recipes.resize(kMostRecipes);
  return recipes;
}

void UnnamedBlobs::add(std::int64_t packID, const ScannedRecord& record) {
  records_.emplace(record.originalLength, Place{packID, record});
}

std::optional<BlobRow> UnnamedBlobs::take(MailArchive& archive, const std::string& hash,
                                          std::uint32_t encodedLength) {
  // Base64 is at least a third longer than what it stands for, and not twice as long.
  for (auto at = records_.lower_bound(encodedLength / 2);
       at != records_.end() && at->first <= encodedLength; ++at) {
    const auto recipes = plausibleRecipes(at->first, encodedLength);
    if (recipes.empty() && at->first != encodedLength) continue;
    BlobRow row;
    row.hash = hash;
    row.packID = at->second.packID;
    row.packOffset = static_cast<std::int64_t>(at->second.record.offset);
    row.storedSize = static_cast<std::int64_t>(at->second.record.storedLength);
    row.originalSize = static_cast<std::int64_t>(at->first);
    row.recordFlags = at->second.record.flags.bits;
    row.dictionaryID = at->second.record.dictionaryID;
    row.encodedSize = encodedLength;
    Bytes bytes;
    try {
      bytes = blobBytes(archive, row, 0);
    } catch (const SQLiteError&) {
      throw;
    } catch (const TranslatableError&) {
      continue;  // damaged, or another blob's key
    }
    bool isProved = sha256Hex(bytes) == hash;
    for (auto recipe = recipes.begin(); !isProved && recipe != recipes.end(); ++recipe) {
      isProved = sha256Hex(recipe->encode(bytes)) == hash;
      if (!isProved) continue;
      row.recipe = recipe->toJson();
      row.contentHash = sha256Hex(bytes);
    }
    if (!isProved) continue;
    records_.erase(at);
    return row;
  }
  return std::nullopt;
}

}  // namespace ambervane
