#include "store/recovery_index.h"

#include <fmt/format.h>
#include <unistd.h>

#include <charconv>
#include <cmath>
#include <memory>
#include <utility>
#include <vector>

#include "base/text.h"

namespace ambervane {
namespace {

constexpr std::size_t kMinimumFields = 3;
constexpr std::size_t kMessageFields = 9;  ///< the tenth, the block member, is optional
constexpr std::size_t kBlobFields = 6;

void appendEscaped(std::string& out, std::string_view text) {
  for (const char c : text) {
    switch (c) {
      case '\\':
        out += "\\\\";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\n':
        out += "\\n";
        break;
      default:
        out.push_back(c);
    }
  }
}

std::string unescaped(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char next = text[i] == '\\' && i + 1 < text.size() ? text[i + 1] : '\0';
    if (next == 't' || next == 'n' || next == '\\') {
      out.push_back(next == 't' ? '\t' : next == 'n' ? '\n' : '\\');
      ++i;
    } else {
      out.push_back(text[i]);
    }
  }
  return out;
}

std::optional<std::string> textOrAbsent(std::string_view field) {
  if (field.empty()) return std::nullopt;
  return std::string(field);
}

std::string numberOrEmpty(std::optional<std::int64_t> number) {
  return number ? std::to_string(*number) : std::string();
}

std::string secondsOrEmpty(std::optional<Date> date) {
  return date && std::isfinite(date->seconds) ? fmt::format("{:.0f}", date->seconds)
                                              : std::string();
}

std::optional<Date> dateFromSeconds(std::string_view field) {
  double seconds = 0;
  const char* const end = field.data() + field.size();
  const auto [stop, error] = std::from_chars(field.data(), end, seconds);
  if (error != std::errc() || stop != end || !std::isfinite(seconds)) return std::nullopt;
  return Date{seconds};
}

std::optional<RecoveryIndex::Entry> parseLine(std::string_view line) {
  const std::vector<std::string_view> fields = split(line, '\t');
  if (fields.size() < kMinimumFields) return std::nullopt;
  const std::optional<std::int64_t> offset = parseInteger(fields[1]);
  if (!offset || *offset < 0) return std::nullopt;
  if (fields[0] == "m" && fields.size() >= kMessageFields) {
    RecoveryIndex::Message message;
    message.offset = *offset;
    message.hash = fields[2];
    message.folder = unescaped(fields[3]);
    message.account = unescaped(fields[4]);
    message.uid = parseInteger(fields[5]);
    message.flags = unescaped(fields[6]);
    message.internalDate = dateFromSeconds(fields[7]);
    message.retentionClass = unescaped(fields[8]);
    if (fields.size() > kMessageFields) message.blockMember = parseInteger(fields[9]);
    return message;
  }
  if (fields[0] == "b" && fields.size() >= kBlobFields) {
    RecoveryIndex::Blob blob;
    blob.offset = *offset;
    blob.hash = fields[2];
    blob.contentHash = textOrAbsent(fields[3]);
    blob.encodedSize = parseInteger(fields[4]).value_or(0);
    blob.recipe = textOrAbsent(unescaped(fields[5]));
    return blob;
  }
  return std::nullopt;
}

bool endsInsideLine(const AppendFile& file) {
  const std::uint64_t size = file.size();
  if (size == 0) return false;
  char last = '\0';
  // A byte that cannot be read is taken for an open line: an empty line too many does no harm.
  return ::pread(file.descriptor(), &last, 1, static_cast<off_t>(size - 1)) != 1 || last != '\n';
}

}  // namespace

RecoveryIndex::RecoveryIndex(const std::filesystem::path& packURL)
    : file_(AppendFile::open(urlForPack(packURL))), lineOpen_(endsInsideLine(*file_)) {}

std::filesystem::path RecoveryIndex::urlForPack(const std::filesystem::path& packURL) {
  std::filesystem::path url = packURL;
  url.replace_extension("idx");
  return url;
}

void RecoveryIndex::appendMessage(const Message& message) {
  std::string line = fmt::format("m\t{}\t{}\t", message.offset, message.hash);
  appendEscaped(line, message.folder);
  line += '\t';
  appendEscaped(line, message.account);
  line += '\t' + numberOrEmpty(message.uid) + '\t';
  appendEscaped(line, message.flags);
  line += '\t' + secondsOrEmpty(message.internalDate) + '\t';
  appendEscaped(line, message.retentionClass);
  line += '\t' + numberOrEmpty(message.blockMember);
  appendLine(std::move(line));
}

void RecoveryIndex::appendBlob(const Blob& blob) {
  std::string line = fmt::format("b\t{}\t{}\t{}\t{}\t", blob.offset, blob.hash,
                                 blob.contentHash.value_or(""), blob.encodedSize);
  appendEscaped(line, blob.recipe.value_or(""));
  appendLine(std::move(line));
}

void RecoveryIndex::appendLine(std::string line) {
  if (lineOpen_) line.insert(line.begin(), '\n');
  line += '\n';
  lineOpen_ = true;
  file_->append(line);
  lineOpen_ = false;
}

void RecoveryIndex::synchronize() { file_->sync(); }

void RecoveryIndex::read(const std::filesystem::path& packURL,
                         const std::function<void(const Entry&)>& body) {
  std::shared_ptr<const MappedFile> file;
  try {
    file = MappedFile::open(urlForPack(packURL));
  } catch (const FileError&) {
    return;
  }
  parse(file->bytes(), body);
}

void RecoveryIndex::parse(BytesView text, const std::function<void(const Entry&)>& body) {
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    if (const auto entry = parseLine(repairedUtf8(text.substr(0, end)))) body(*entry);
    text.remove_prefix(end == BytesView::npos ? text.size() : end + 1);
  }
}

}  // namespace ambervane
