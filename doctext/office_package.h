#ifndef AMBERVANE_DOCTEXT_OFFICE_PACKAGE_H_
#define AMBERVANE_DOCTEXT_OFFICE_PACKAGE_H_

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "doctext/text_collector.h"
#include "doctext/xml_reader.h"
#include "doctext/zip_members.h"

namespace ambervane {

/// What one part of an Office Open XML package says of another (ECMA-376 part 2).
struct PartRelation {
  std::string id;
  std::string type;    ///< the last piece of its URI, such as "worksheet"
  std::string target;  ///< a member of the package
};

/// Reads parts of a zipped XML document into a collector and keeps whether any was damaged.
class OfficePackage {
 public:
  OfficePackage(ZipMembers members, TextCollector& collector)
      : members_(std::move(members)), collector_(collector) {}

  TextCollector& collector() noexcept { return collector_; }
  bool contains(std::string_view part) const { return members_.contains(part); }
  bool isDamaged() const noexcept { return damaged_; }

  /// Hands a part to `handler`, until the collector is full or `handler` wants no more.
  void readPart(std::string_view part, XmlHandler& handler, const bool& wantsNoMore = kNever);

  /// The relations of a part inside the package, in order; "" for the package itself. None where
  /// the part has none.
  std::vector<PartRelation> relations(std::string_view part);

  /// The runs of text of a part (WordprocessingML, DrawingML and the like), and of the notes,
  /// comments, drawings and charts it leads to. No part is read twice.
  void readRuns(std::string_view part);
  /// As `readRuns`, without the part itself.
  void readRunsBeside(std::string_view part);

 private:
  static constexpr bool kNever = false;
  void readPending(std::vector<std::string> pending);
  std::vector<std::string> partsToFollow(std::string_view part);

  ZipMembers members_;
  TextCollector& collector_;
  std::set<std::string, std::less<>> seen_;
  bool damaged_ = false;
};

/// The target of the first relation of a type, or empty.
std::string_view targetOfType(const std::vector<PartRelation>& relations, std::string_view type);
/// The target of a relation by its id, or empty.
std::string_view targetOfId(const std::vector<PartRelation>& relations, std::string_view id);

}  // namespace ambervane

#endif  // AMBERVANE_DOCTEXT_OFFICE_PACKAGE_H_
