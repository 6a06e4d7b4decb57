#include "doctext/office_package.h"

#include <algorithm>
#include <optional>

#include "base/text.h"

namespace ambervane {
namespace {

/// Relations followed from a part with text, in the order they are read in.
constexpr std::string_view kFollowed[] = {
    "header",     "footer",  "footnotes", "endnotes",    "comments",
    "notesSlide", "drawing", "chart",     "diagramData",
};
/// More relations of one part than any writer makes.
constexpr std::size_t kMaxRelations = 100'000;

std::string_view lastPiece(std::string_view uri) { return uri.substr(uri.rfind('/') + 1); }

/// The member that `target`, a relative or absolute reference in a part of `folder`, means.
std::string resolved(std::string_view folder, std::string_view target) {
  std::vector<std::string_view> path;
  if (!target.starts_with('/')) path = splitOmittingEmpty(folder, "/");
  for (const std::string_view piece : splitOmittingEmpty(target, "/")) {
    if (piece == ".") continue;
    if (piece != "..") {
      path.push_back(piece);
    } else if (!path.empty()) {
      path.pop_back();
    }
  }
  std::string member;
  for (const std::string_view piece : path) {
    if (!member.empty()) member.push_back('/');
    member += piece;
  }
  return member;
}

class RelationReader final : public XmlHandler {
 public:
  RelationReader(std::string_view folder, std::vector<PartRelation>& relations)
      : folder_(folder), relations_(relations) {}

  bool startElement(std::string_view name, const XmlAttributes& attributes) override {
    if (name != "Relationship") return true;
    if (attributes.value("TargetMode") == "External" || relations_.size() >= kMaxRelations) {
      return true;
    }
    relations_.push_back({std::string(attributes.value("Id")),
                          std::string(lastPiece(attributes.value("Type"))),
                          resolved(folder_, attributes.value("Target"))});
    return true;
  }
  void endElement(std::string_view) override {}
  void characters(std::string_view) override {}

 private:
  std::string_view folder_;
  std::vector<PartRelation>& relations_;
};

/// What an element of a text part does to the flow of words.
enum class Flow { none, run, line, word, hyphen, skipped };

struct Element {
  std::string_view name;
  Flow flow;
};
constexpr Element kElements[] = {
    {"t", Flow::run},
    {"text", Flow::run},
    {"p", Flow::line},
    {"tr", Flow::line},
    {"comment", Flow::line},
    {"cm", Flow::line},
    {"tc", Flow::word},
    {"br", Flow::word},
    {"cr", Flow::word},
    {"tab", Flow::word},
    {"noBreakHyphen", Flow::hyphen},
    // The same content once more, for programs that do not know the first form.
    {"Fallback", Flow::skipped},
    {"rPh", Flow::skipped},
};

Flow flowOf(std::string_view name) {
  for (const Element& element : kElements) {
    if (element.name == name) return element.flow;
  }
  return Flow::none;
}

class RunReader final : public XmlHandler {
 public:
  explicit RunReader(TextCollector& collector) : collector_(collector) {}

  bool startElement(std::string_view name, const XmlAttributes&) override {
    const Flow flow = flowOf(name);
    if (flow == Flow::run) ++runs_;
    if (flow == Flow::hyphen) collector_.append("-");
    breakAt(flow);
    return flow != Flow::skipped;
  }
  void endElement(std::string_view name) override {
    const Flow flow = flowOf(name);
    if (flow == Flow::run) --runs_;
    breakAt(flow);
  }
  void characters(std::string_view text) override {
    if (runs_ > 0) collector_.append(text);
  }

 private:
  void breakAt(Flow flow) {
    if (flow == Flow::line) collector_.breakLine();
    if (flow == Flow::word) collector_.breakWord();
  }

  TextCollector& collector_;
  int runs_ = 0;
};

}  // namespace

void OfficePackage::readPart(std::string_view part, XmlHandler& handler, const bool& wantsNoMore) {
  XmlReader reader(handler);
  bool wellFormed = true;
  const auto isDone = [&] { return wantsNoMore || collector_.isFull(); };
  const bool wasRead = members_.read(part, [&](BytesView piece) {
    wellFormed = reader.feed(piece);
    return wellFormed && !isDone();
  });
  if (!isDone() && !(wasRead && wellFormed && reader.finish())) damaged_ = true;
}

std::vector<PartRelation> OfficePackage::relations(std::string_view part) {
  const std::size_t nameAt = part.rfind('/') + 1;
  const std::string_view folder = part.substr(0, nameAt);
  const std::string member =
      std::string(folder) + "_rels/" + std::string(part.substr(nameAt)) + ".rels";
  std::vector<PartRelation> found;
  if (!members_.contains(member)) return found;
  RelationReader handler(folder, found);
  readPart(member, handler);
  return found;
}

void OfficePackage::readRuns(std::string_view part) { readPending({std::string(part)}); }

void OfficePackage::readRunsBeside(std::string_view part) { readPending(partsToFollow(part)); }

void OfficePackage::readPending(std::vector<std::string> pending) {
  // A stack, the next part last: what belongs to a part comes right behind it.
  while (!pending.empty() && !collector_.isFull()) {
    const std::string part = std::move(pending.back());
    pending.pop_back();
    if (!seen_.insert(part).second) continue;
    RunReader runs(collector_);
    readPart(part, runs);
    collector_.checkpoint();
    std::vector<std::string> more = partsToFollow(part);
    pending.insert(pending.end(), std::make_move_iterator(more.begin()),
                   std::make_move_iterator(more.end()));
  }
}

std::vector<std::string> OfficePackage::partsToFollow(std::string_view part) {
  std::vector<PartRelation> all = relations(part);
  std::vector<std::string> parts;
  for (const std::string_view type : kFollowed) {
    for (PartRelation& relation : all) {
      if (relation.type == type) parts.push_back(std::move(relation.target));
    }
  }
  std::reverse(parts.begin(), parts.end());
  return parts;
}

std::string_view targetOfType(const std::vector<PartRelation>& relations, std::string_view type) {
  const auto found =
      std::find_if(relations.begin(), relations.end(),
                   [&](const PartRelation& relation) { return relation.type == type; });
  return found == relations.end() ? std::string_view() : found->target;
}

std::string_view targetOfId(const std::vector<PartRelation>& relations, std::string_view id) {
  const auto found = std::find_if(relations.begin(), relations.end(),
                                  [&](const PartRelation& relation) { return relation.id == id; });
  return found == relations.end() ? std::string_view() : found->target;
}

}  // namespace ambervane
