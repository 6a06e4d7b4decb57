#ifndef AMBERVANE_EVIDENCE_FINDING_H_
#define AMBERVANE_EVIDENCE_FINDING_H_

#include <cstdint>
#include <string>
#include <utility>
#include <variant>

#include "base/localized_message.h"

namespace ambervane {

/// What a check found, kept apart from its words.
class Finding {
 public:
  struct ChainIntact {
    std::int64_t entries;
    friend bool operator==(const ChainIntact&, const ChainIntact&) = default;
  };
  struct ChainMalformed {
    std::int64_t at;  ///< the position, counted from 1, where an entry should have stood
    friend bool operator==(const ChainMalformed&, const ChainMalformed&) = default;
  };
  struct ChainSequenceGap {
    std::int64_t expected;
    std::int64_t found;
    friend bool operator==(const ChainSequenceGap&, const ChainSequenceGap&) = default;
  };
  struct ChainBreak {
    std::int64_t at;  ///< the `seq` of the entry that does not link to the one before it
    friend bool operator==(const ChainBreak&, const ChainBreak&) = default;
  };
  struct ChainEntryModified {
    std::int64_t at;  ///< the `seq` of the entry whose hash is not that of its fields
    friend bool operator==(const ChainEntryModified&, const ChainEntryModified&) = default;
  };
  /// A text that has no translation.
  struct Verbatim {
    std::string text;
    friend bool operator==(const Verbatim&, const Verbatim&) = default;
  };
  using Value = std::variant<ChainIntact, ChainMalformed, ChainSequenceGap, ChainBreak,
                             ChainEntryModified, Verbatim>;

  explicit Finding(Value value) : value_(std::move(value)) {}
  const Value& value() const noexcept { return value_; }
  /// Has every word a finding can say.
  LocalizedMessage message() const;
  friend bool operator==(const Finding&, const Finding&) = default;

 private:
  Value value_;
};

}  // namespace ambervane

#endif  // AMBERVANE_EVIDENCE_FINDING_H_
