#ifndef AMBERVANE_DOCTEXT_XML_READER_H_
#define AMBERVANE_DOCTEXT_XML_READER_H_

#include <memory>
#include <string_view>

#include "base/bytes.h"
#include "doctext/text_collector.h"

namespace ambervane {

/// The attributes of one element; the views live as long as the call that hands them out.
class XmlAttributes {
 public:
  XmlAttributes(const unsigned char** fields, int count) : fields_(fields), count_(count) {}

  /// By local name, in whatever namespace, or empty.
  std::string_view value(std::string_view name) const { return value(name, {}); }
  /// By local name, in a namespace whose URI ends in `space`, or empty.
  std::string_view value(std::string_view name, std::string_view space) const;

 private:
  const unsigned char** fields_;  ///< libxml2's: five pointers an attribute
  int count_;
};

/// Takes what a document consists of. Names are without prefix: namespaces are not told apart,
/// because the formats read here have two sets of them.
class XmlHandler {
 public:
  virtual ~XmlHandler() = default;
  /// Returns whether to read what is inside; if not, `endElement` is not called either.
  virtual bool startElement(std::string_view name, const XmlAttributes& attributes) = 0;
  virtual void endElement(std::string_view name) = 0;
  /// A piece of text in UTF-8; one text may come in several.
  virtual void characters(std::string_view text) = 0;
};

/// Reads XML piece by piece. Nothing outside the document is fetched, no entity but the five
/// predefined ones is known, and a document with definitions of its own is refused.
///
/// libxml2 compares each attribute of an element with each other, so an overlong tag is refused
/// too. What handlers throw ends the process.
class XmlReader {
 public:
  /// Markup longer than this, in bytes, is damage.
  static constexpr std::size_t kLongestTag = 256 * 1024;

  explicit XmlReader(XmlHandler& handler);
  ~XmlReader();
  XmlReader(const XmlReader&) = delete;
  XmlReader& operator=(const XmlReader&) = delete;

  /// False once nothing more will come out of the document.
  bool feed(BytesView piece);
  /// At the document's end: whether all of it was well formed.
  bool finish();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

/// Any other XML document: the text of all elements, each as words of its own. False for one that
/// is not well formed; what stands before the fault is collected.
bool readXmlText(BytesView bytes, TextCollector& collector);

}  // namespace ambervane

#endif  // AMBERVANE_DOCTEXT_XML_READER_H_
