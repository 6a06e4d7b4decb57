#include "evidence/finding.h"

namespace ambervane {
namespace {

struct Words {
  LocalizedMessage operator()(const Finding::ChainIntact& f) const {
    return {"Chain intact across %@ entries", {std::to_string(f.entries)}};
  }
  LocalizedMessage operator()(const Finding::ChainMalformed& f) const {
    return {"Malformed journal entry at position %@", {std::to_string(f.at)}};
  }
  LocalizedMessage operator()(const Finding::ChainSequenceGap& f) const {
    return {"Sequence gap: expected %1$@, found %2$@",
            {std::to_string(f.expected), std::to_string(f.found)}};
  }
  LocalizedMessage operator()(const Finding::ChainBreak& f) const {
    return {"Chain break at entry %@", {std::to_string(f.at)}};
  }
  LocalizedMessage operator()(const Finding::ChainEntryModified& f) const {
    return {"Entry %@ has been modified", {std::to_string(f.at)}};
  }
  LocalizedMessage operator()(const Finding::Verbatim& f) const { return {f.text, {}}; }
};

}  // namespace

LocalizedMessage Finding::message() const { return std::visit(Words{}, value_); }

}  // namespace ambervane
