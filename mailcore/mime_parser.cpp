#include "mailcore/mime_parser.h"

#include <algorithm>
#include <string>
#include <utility>

namespace ambervane {
namespace {

struct Delimiter {
  std::size_t begin;         // of the marker
  std::size_t contentBegin;  // of the part behind the delimiter's line
};

/// A part inside a multipart may begin with the empty line that ends its absent header block
/// (RFC 2046 section 5.1.1). A message may not: there an empty first line is skipped.
HeaderSplit splitPart(BytesView part, bool insideMultipart) {
  if (insideMultipart && part.starts_with("\r\n")) return {0, 2};
  if (insideMultipart && part.starts_with('\n')) return {0, 1};
  return splitHeaderAndBody(part);
}

}  // namespace

std::unique_ptr<MIMEPart> MIMEParser::parse(BytesView data) {
  MIMEParser parser(data);
  auto root = parser.parsePart({0, data.size()}, nullptr, 0);
  root->section_ = root->isMultipart() ? "" : "1";
  assignSections(*root);
  return root;
}

std::unique_ptr<MIMEPart> MIMEParser::parsePart(ByteRange range, MIMEPart* parent, int depth) {
  std::unique_ptr<MIMEPart> part(new MIMEPart);
  const BytesView bytes = slice(data_, range);
  const HeaderSplit split = splitPart(bytes, parent != nullptr && parent->isMultipart());
  part->parent_ = parent;
  part->headers_ = HeaderSet::parse(bytes.substr(0, split.headerEnd));
  part->fullRange_ = range;
  part->headerRange_ = {range.begin, range.begin + split.headerEnd};
  part->bodyRange_ = {range.begin + split.bodyBegin, range.end};
  if (depth < kMaxMimeDepth) parseChildren(*part, depth + 1);
  return part;
}

void MIMEParser::parseChildren(MIMEPart& part, int depth) {
  std::vector<ByteRange> ranges;
  const auto boundary = part.contentType().boundary();
  if (part.isMultipart() && boundary && !boundary->empty()) {
    ranges = splitMultipart(part.bodyRange_, *boundary);
  } else if (part.isRFC822() && !part.bodyRange_.empty() && partsLeft_ > 0) {
    ranges.push_back(part.bodyRange_);
  }
  partsLeft_ -= ranges.size();
  part.children_.reserve(ranges.size());
  for (const ByteRange range : ranges) part.children_.push_back(parsePart(range, &part, depth));
}

std::vector<ByteRange> MIMEParser::splitMultipart(ByteRange body, std::string_view boundary) const {
  const std::string marker = "--" + std::string(boundary);
  const BytesView data = slice(data_, {0, body.end});
  std::vector<Delimiter> delimiters;
  std::size_t end = body.end;  // of the last part
  std::size_t at = body.begin;
  while (delimiters.size() < partsLeft_) {
    const auto found = firstRange(data, marker, at);
    if (!found) break;
    at = found->end;
    if (found->begin != body.begin && data[found->begin - 1] != '\n') continue;
    std::size_t behind = found->end;
    const bool closing = data.substr(behind, 2) == "--";
    if (closing) behind += 2;
    behind = std::min(data.find_first_not_of(" \t", behind), data.size());
    if (behind < data.size() && data[behind] != '\r' && data[behind] != '\n') continue;
    if (closing) {
      end = found->begin;
      break;
    }
    if (behind < data.size() && data[behind] == '\r') ++behind;
    if (behind < data.size() && data[behind] == '\n') ++behind;
    delimiters.push_back({found->begin, behind});
    at = behind;
  }

  std::vector<ByteRange> ranges;
  ranges.reserve(delimiters.size());
  for (std::size_t i = 0; i < delimiters.size(); ++i) {
    ByteRange range = {delimiters[i].contentBegin,
                       i + 1 < delimiters.size() ? delimiters[i + 1].begin : end};
    // The line end before a delimiter belongs to the delimiter.
    if (!range.empty() && data[range.end - 1] == '\n') --range.end;
    if (!range.empty() && data[range.end - 1] == '\r') --range.end;
    ranges.push_back(range);
  }
  return ranges;
}

void MIMEParser::assignSections(MIMEPart& part) {
  const std::string prefix = part.section_.empty() ? "" : part.section_ + ".";
  std::size_t number = 0;
  for (const auto& child : part.children_) {
    child->section_ = prefix + std::to_string(++number);
    assignSections(*child);
  }
}

}  // namespace ambervane
