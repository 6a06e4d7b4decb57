#include "evidence/hold.h"

#include <algorithm>
#include <cmath>

#include "base/calendar.h"
#include "base/json.h"
#include "base/text.h"

namespace ambervane {
namespace {

using nlohmann::json;
using Texts = std::vector<std::string>;

constexpr const char* kDocument = "The legal hold";

std::string folded(std::string_view text) { return composed(lowercase(text)); }

bool containsAnyIgnoringCase(std::string_view text, const Texts& entries) {
  return std::ranges::any_of(entries, [text](const std::string& entry) {
    const std::string_view wanted = trim(entry);
    return !wanted.empty() && containsIgnoringCase(text, wanted);
  });
}

std::optional<Date> decodeDate(const json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || found->is_null()) return std::nullopt;
  if (found->is_number()) {
    const double seconds = found->get<double>();
    if (std::isfinite(seconds)) return Date{seconds};
  } else if (const auto date = parseIso8601(found->get_ref<const std::string&>())) {
    return date;
  }
  throw JsonError(kDocument, std::string("the date in \"") + key + "\" cannot be read");
}

json encode(const HoldCriteria& criteria) {
  json value = {{"participants", criteria.participants},
                {"folders", criteria.folders},
                {"searchTerms", criteria.searchTerms},
                {"pinnedMessageHashes", criteria.pinnedMessageHashes}};
  if (criteria.dateFrom) value["dateFrom"] = criteria.dateFrom->seconds;
  if (criteria.dateTo) value["dateTo"] = criteria.dateTo->seconds;
  return value;
}

HoldCriteria decodeCriteria(const json& value) {
  return {.participants = value.at("participants").get<Texts>(),
          .folders = value.at("folders").get<Texts>(),
          .dateFrom = decodeDate(value, "dateFrom"),
          .dateTo = decodeDate(value, "dateTo"),
          .searchTerms = value.at("searchTerms").get<Texts>(),
          .pinnedMessageHashes = value.at("pinnedMessageHashes").get<Texts>()};
}

}  // namespace

bool HoldCriteria::isEmpty() const noexcept {
  return participants.empty() && folders.empty() && searchTerms.empty() && !dateFrom && !dateTo;
}

std::string HoldCriteria::summary() const {
  Texts parts;
  const auto add = [&parts](const char* words, const Texts& list) {
    if (!list.empty()) parts.push_back(words + join(list, " or "));
  };
  add("anyone matching ", participants);
  add("mailbox contains ", folders);
  if (dateFrom) parts.push_back("from " + iso8601(*dateFrom));
  if (dateTo) parts.push_back("until " + iso8601(*dateTo));
  add("text contains ", searchTerms);
  if (!pinnedMessageHashes.empty()) {
    parts.push_back(std::to_string(pinnedMessageHashes.size()) + " named one by one");
  }
  return join(parts, ", ");
}

bool LateText::containsAny(const Reader& read, const Texts& entries) {
  return std::ranges::any_of(entries, [&](const std::string& entry) {
    const std::string_view wanted = trim(entry);
    if (wanted.empty()) return false;
    if (!isAsked_) {
      folded_ = read();
      if (folded_) folded_ = folded(*folded_);
      isAsked_ = true;
    }
    return !folded_ || folded_->find(folded(wanted)) != std::string::npos;
  });
}

bool HoldSubject::matches(const HoldCriteria& criteria) {
  if (std::ranges::any_of(criteria.pinnedMessageHashes, [this](const std::string& pinned) {
        return asciiEqualIgnoringCase(trim(pinned), source_.hash);
      })) {
    return true;
  }
  if (criteria.isEmpty()) return false;
  const bool isInFolder = criteria.folders.empty() ||
                          std::ranges::any_of(source_.folders, [&](const std::string& path) {
                            return containsAnyIgnoringCase(path, criteria.folders);
                          });
  const auto& date = source_.date;
  return isInFolder && (!criteria.dateFrom || (date && *date >= *criteria.dateFrom)) &&
         (!criteria.dateTo || (date && *date <= *criteria.dateTo)) &&
         (criteria.participants.empty() ||
          participants_.containsAny(source_.participants, criteria.participants)) &&
         (criteria.searchTerms.empty() || text_.containsAny(source_.text, criteria.searchTerms));
}

std::string holdCriteriaJson(const HoldCriteria& criteria) { return compactJson(encode(criteria)); }

HoldCriteria holdCriteriaFromJson(std::string_view text) {
  return decodeJson(parseJson(text, kDocument), kDocument, decodeCriteria);
}

std::string legalHoldJson(const LegalHold& hold) {
  json value = {{"id", hold.id},
                {"name", hold.name},
                {"reason", hold.reason},
                {"custodian", hold.custodian},
                {"createdAt", hold.createdAt.seconds},
                {"criteria", encode(hold.criteria)}};
  if (hold.releasedAt) value["releasedAt"] = hold.releasedAt->seconds;
  return compactJson(value);
}

LegalHold legalHoldFromJson(std::string_view text) {
  return decodeJson(parseJson(text, kDocument), kDocument, [](const json& value) {
    const auto createdAt = decodeDate(value, "createdAt");
    if (!createdAt) throw JsonError(kDocument, "it has no date");
    return LegalHold{.id = value.at("id").get<std::string>(),
                     .name = value.at("name").get<std::string>(),
                     .reason = value.at("reason").get<std::string>(),
                     .custodian = value.at("custodian").get<std::string>(),
                     .createdAt = *createdAt,
                     .releasedAt = decodeDate(value, "releasedAt"),
                     .criteria = decodeCriteria(value.at("criteria"))};
  });
}

}  // namespace ambervane
