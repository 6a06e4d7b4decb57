#include "store/dictionary_trainer.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>

#include "base/text.h"
#include "mailcore/header_set.h"

namespace ambervane {
namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::size_t kMinimumLineBytes = 4;
constexpr std::size_t kMaxLineBytes = 120;  ///< of a line, only these are looked at
constexpr std::size_t kMaxCharacters = 64;
constexpr std::size_t kMinimumValueCharacters = 6;
constexpr std::size_t kMinimumTextCharacters = 8;
constexpr std::uint32_t kMinimumMessages = 2;
constexpr std::size_t kMinimumStringBytes = 4;

/// In how many messages a string stands, once counted however often one repeats it.
struct Tally {
  std::uint32_t messages = 0;
  std::size_t lastMessage = 0;  ///< counted from 1
};
/// Sorted, so that a dictionary does not depend on the order of a hash table, nor its making on
/// strings chosen to collide in one.
using Tallies = std::map<std::string, Tally, std::less<>>;

void count(Tallies& tallies, std::string_view text, std::size_t message) {
  auto at = tallies.find(text);
  if (at == tallies.end()) at = tallies.emplace(std::string(text), Tally{}).first;
  if (at->second.lastMessage == message) return;
  at->second.lastMessage = message;
  ++at->second.messages;
}

void countLine(Tallies& tallies, BytesView line, std::size_t message) {
  if (line.size() < kMinimumLineBytes) return;
  const std::string text = latin1ToUtf8(line.substr(0, kMaxLineBytes));
  const std::size_t colon = text.find(':');
  if (colon == std::string::npos) {
    if (characterCount(text) >= kMinimumTextCharacters) {
      count(tallies, prefixCharacters(text, kMaxCharacters), message);
    }
    return;
  }
  const std::string_view name = std::string_view(text).substr(0, colon + 1);
  count(tallies, name, message);
  const std::string_view value = trim(std::string_view(text).substr(colon + 1));
  if (characterCount(value) < kMinimumValueCharacters) return;
  const std::string_view begin = prefixCharacters(value, kMaxCharacters);
  count(tallies, begin, message);
  count(tallies, std::string(name).append(" ").append(begin), message);
}

}  // namespace

Bytes DictionaryTrainer::sampleOf(BytesView message) {
  const HeaderSplit split = splitHeaderAndBody(message);
  Bytes sample(message.substr(0, std::min(split.headerEnd, kMaxSampleBytes)));
  sample.append(kLineEnd).append(kLineEnd).append(message.substr(split.bodyBegin, kBodyBytes));
  if (sample.size() > kMaxSampleBytes) sample.resize(kMaxSampleBytes);
  return sample;
}

void DictionaryTrainer::add(BytesView message) {
  if (!isFull()) addSample(sampleOf(message));
}

void DictionaryTrainer::addSample(Bytes sample) {
  if (isFull()) return;
  totalBytes_ += sample.size();
  samples_.push_back(std::move(sample));
}

Bytes DictionaryTrainer::build() const {
  Tallies tallies;
  for (std::size_t i = 0; i < samples_.size(); ++i) {
    LineReader lines(samples_[i]);
    while (const auto line = lines.next()) countLine(tallies, *line, i + 1);
  }
  struct Candidate {
    std::string_view text;
    std::size_t score;  ///< bytes saved, if each further message could copy it for nothing
  };
  std::vector<Candidate> candidates;
  for (const auto& [text, tally] : tallies) {
    if (tally.messages < kMinimumMessages || text.size() < kMinimumStringBytes) continue;
    candidates.push_back({text, (tally.messages - 1) * text.size()});
  }
  // Those of equal score stay in the order of their strings.
  std::stable_sort(candidates.begin(), candidates.end(),
                   [](const Candidate& a, const Candidate& b) { return a.score < b.score; });
  std::vector<std::string_view> taken;
  std::size_t total = 0;
  for (auto candidate = candidates.rbegin(); candidate != candidates.rend(); ++candidate) {
    const std::size_t bytes = candidate->text.size() + kLineEnd.size();
    if (total + bytes > targetSize_) continue;
    total += bytes;
    taken.push_back(candidate->text);
  }
  // Deflate writes short distances in fewer bits, and the end of the dictionary is nearest.
  Bytes dictionary;
  dictionary.reserve(total);
  for (auto text = taken.rbegin(); text != taken.rend(); ++text) {
    dictionary.append(*text).append(kLineEnd);
  }
  return dictionary;
}

}  // namespace ambervane
