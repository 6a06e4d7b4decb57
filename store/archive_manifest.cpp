#include "store/archive_manifest.h"

#include <limits>
#include <nlohmann/json.hpp>
#include <optional>

#include "base/calendar.h"
#include "base/file.h"
#include "base/json.h"
#include "evidence/retention_policy_json.h"
#include "store/archive_error.h"

namespace ambervane {
namespace {

using Json = nlohmann::json;

/// Takes the members it knows out of an object; what is left over is unknown.
class MemberReader {
 public:
  MemberReader(Json object, const std::string& file) : object_(std::move(object)), file_(file) {
    if (!object_.is_object()) fail("it is not a JSON object");
  }

  /// The member, taken out; absent when it is missing or null.
  std::optional<Json> take(const char* key) {
    const auto member = object_.find(key);
    if (member == object_.end()) return std::nullopt;
    Json value = std::move(*member);
    object_.erase(member);
    if (value.is_null()) return std::nullopt;
    return value;
  }
  std::optional<std::string> text(const char* key) {
    const std::optional<Json> value = take(key);
    if (!value) return std::nullopt;
    if (!value->is_string()) fail(std::string(key) + " is not a text");
    return value->get<std::string>();
  }
  template <typename Integer>
  Integer integer(const char* key, Integer missing) {
    const std::optional<Json> value = take(key);
    if (!value) return missing;
    if (!value->is_number_integer() ||
        (value->is_number_unsigned() &&
         value->get<std::uint64_t>() > std::uint64_t{std::numeric_limits<std::int64_t>::max()}) ||
        value->get<std::int64_t>() < std::numeric_limits<Integer>::min() ||
        value->get<std::int64_t>() > std::numeric_limits<Integer>::max()) {
      fail(std::string(key) + " is not a whole number in its range");
    }
    return value->get<Integer>();
  }
  std::string rest() const { return object_.empty() ? std::string() : object_.dump(); }
  [[noreturn]] void fail(const std::string& detail) const { throw JsonError(file_, detail); }

 private:
  Json object_;
  const std::string& file_;
};

}  // namespace

ArchiveManifest ArchiveManifest::load(const std::filesystem::path& path, Date now) {
  const std::optional<Bytes> text = readFileIfPossible(path);
  if (!text) throw ArchiveError(ArchiveError::NotAnArchive{path.parent_path().native()});
  return fromJson(*text, pathText(path), now);
}

void ArchiveManifest::save(const std::filesystem::path& path) const {
  writeFileAtomically(path, toJson());
}

ArchiveManifest ArchiveManifest::fromJson(std::string_view text, const std::string& file,
                                          Date now) {
  MemberReader members(parseJson(text, file), file);
  ArchiveManifest manifest;
  manifest.formatVersion = members.integer("formatVersion", 1);
  manifest.minimumReaderVersion = members.integer("minimumReaderVersion", 1);
  const std::optional<std::string> archiveID = members.text("archiveID");
  if (!archiveID) members.fail("archiveID is missing");
  manifest.archiveID = *archiveID;
  manifest.name = members.text("name").value_or("Archive");
  manifest.createdAt = now;
  if (const auto createdAt = members.text("createdAt")) {
    const std::optional<Date> date = parseIso8601(*createdAt);
    if (!date) members.fail("createdAt is not a date");
    manifest.createdAt = *date;
  }
  manifest.createdBy = members.text("createdBy").value_or("unknown");
  if (const auto policy = members.take("policy")) {
    manifest.policy = retentionPolicyFromJson(*policy);
  }
  manifest.compression = members.text("compression").value_or("deflate+dictionary");
  if (const auto effort = members.text("compressionEffort")) {
    const auto known = compressionEffortFromRawValue(*effort);
    if (!known) members.fail("compressionEffort is unknown: " + *effort);
    manifest.compressionEffort = *known;
  }
  manifest.attachmentExtractionThreshold =
      members.integer("attachmentExtractionThreshold", manifest.attachmentExtractionThreshold);
  manifest.dictionaryTrainingSample =
      members.integer("dictionaryTrainingSample", manifest.dictionaryTrainingSample);
  manifest.maxPackBytes = members.integer("maxPackBytes", manifest.maxPackBytes);
  manifest.unknownMembers = members.rest();
  return manifest;
}

std::string ArchiveManifest::toJson() const {
  Json json = unknownMembers.empty() ? Json::object() : Json::parse(unknownMembers);
  json["formatVersion"] = formatVersion;
  json["minimumReaderVersion"] = minimumReaderVersion;
  json["archiveID"] = archiveID;
  json["name"] = name;
  json["createdAt"] = iso8601(createdAt);
  json["createdBy"] = createdBy;
  json["policy"] = ambervane::toJson(policy);
  json["compression"] = compression;
  json["compressionEffort"] = rawValue(compressionEffort);
  json["attachmentExtractionThreshold"] = attachmentExtractionThreshold;
  json["dictionaryTrainingSample"] = dictionaryTrainingSample;
  json["maxPackBytes"] = maxPackBytes;
  return prettyJson(json);
}

}  // namespace ambervane
