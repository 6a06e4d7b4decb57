#ifndef AMBERVANE_MAILCORE_MIME_PARSER_H_
#define AMBERVANE_MAILCORE_MIME_PARSER_H_

#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

#include "base/bytes.h"
#include "mailcore/mime_part.h"

namespace ambervane {

/// A part at this depth is a leaf, whatever it says it is. Multiparts and embedded messages count.
inline constexpr int kMaxMimeDepth = 32;
/// From the part that reaches this number on, delimiters are no longer looked for, so that a
/// message of nothing but delimiters cannot take fifty times its size in memory. No byte is lost:
/// the last part reaches to the end.
inline constexpr std::size_t kMaxMimeParts = 250'000;

/// Reads the structure of a message (RFC 2045, RFC 2046). Never fails: damaged input gives fewer
/// parts. Time is linear in the size for each level of nesting.
class MIMEParser {
 public:
  /// The root part, sections assigned. It refers to `data` by ranges only.
  static std::unique_ptr<MIMEPart> parse(BytesView data);

 private:
  explicit MIMEParser(BytesView data) : data_(data) {}
  std::unique_ptr<MIMEPart> parsePart(ByteRange range, MIMEPart* parent, int depth);
  void parseChildren(MIMEPart& part, int depth);
  std::vector<ByteRange> splitMultipart(ByteRange body, std::string_view boundary) const;
  static void assignSections(MIMEPart& part);

  BytesView data_;
  std::size_t partsLeft_ = kMaxMimeParts;
};

}  // namespace ambervane

#endif  // AMBERVANE_MAILCORE_MIME_PARSER_H_
