#include "mailformats/property_list.h"

#include <libxml/parser.h>

#include <charconv>
#include <cmath>
#include <string_view>
#include <utility>

#include "base/text.h"

namespace ambervane {
namespace {

std::optional<double> parseReal(std::string_view text) noexcept {
  double value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc{} || stop != end || !std::isfinite(value)) return std::nullopt;
  return value;
}

/// Follows the elements of a document: <plist>, one <dict>, and in it keys and values by turns.
class Decoder {
 public:
  void startElement(std::string_view name) {
    ++depth_;
    if (depth_ == kPlistDepth) {
      accept(name == "plist");
    } else if (depth_ == kRootDepth) {
      accept(name == "dict" && !std::exchange(hasRoot_, true));
    } else if (depth_ == kEntryDepth) {
      element_ = name;
      text_.clear();
      accept((name == "key") != key_.has_value());
    } else {
      accept(element_ == "dict" || element_ == "array");
    }
  }

  void characters(std::string_view text) {
    if (depth_ == kEntryDepth) text_ += text;
  }

  void endElement() {
    if (depth_-- != kEntryDepth || failed_) return;
    if (element_ == "key") {
      key_ = text_;
      return;
    }
    addValue(*key_);
    key_.reset();
  }

  void refuse() noexcept { failed_ = true; }

  std::optional<PropertyDictionary> finish() {
    if (failed_ || !hasRoot_ || key_) return std::nullopt;
    return std::move(values_);
  }

 private:
  static constexpr int kPlistDepth = 1;
  static constexpr int kRootDepth = 2;
  static constexpr int kEntryDepth = 3;

  void accept(bool holds) noexcept { failed_ = failed_ || !holds; }

  void addValue(const std::string& key) {
    const std::string_view trimmed = trimOf(text_, " \t\r\n");
    if (element_ == "string" || element_ == "date" || element_ == "data") {
      values_.insert_or_assign(key, text_);
    } else if (element_ == "integer") {
      if (const auto value = parseInteger(trimmed)) values_.insert_or_assign(key, *value);
    } else if (element_ == "real") {
      if (const auto value = parseReal(trimmed)) values_.insert_or_assign(key, *value);
    } else if (element_ == "true" || element_ == "false") {
      values_.insert_or_assign(key, element_ == "true");
    } else {
      accept(element_ == "dict" || element_ == "array");
    }
  }

  int depth_ = 0;
  bool failed_ = false;
  bool hasRoot_ = false;
  std::string element_;  // of `kEntryDepth`
  std::string text_;
  std::optional<std::string> key_;  // waits for its value
  PropertyDictionary values_;
};

Decoder& decoder(void* context) noexcept { return *static_cast<Decoder*>(context); }

std::string_view view(const xmlChar* text) noexcept { return reinterpret_cast<const char*>(text); }

/// No handler that declares, finds or loads an entity: the parser then has none to expand.
xmlSAXHandler handlers() noexcept {
  xmlSAXHandler handler{};
  handler.initialized = XML_SAX2_MAGIC;
  handler.startElementNs = [](void* context, const xmlChar* name, const xmlChar*, const xmlChar*,
                              int, const xmlChar**, int, int, const xmlChar**) noexcept {
    decoder(context).startElement(view(name));
  };
  handler.endElementNs = [](void* context, const xmlChar*, const xmlChar*,
                            const xmlChar*) noexcept { decoder(context).endElement(); };
  handler.characters = [](void* context, const xmlChar* text, int length) noexcept {
    decoder(context).characters(
        {reinterpret_cast<const char*>(text), static_cast<std::size_t>(length)});
  };
  handler.cdataBlock = handler.characters;
  handler.reference = [](void* context, const xmlChar*) noexcept { decoder(context).refuse(); };
  return handler;
}

}  // namespace

std::optional<PropertyDictionary> parsePropertyList(BytesView xml) {
  while (!xml.empty() && isAsciiSpace(xml.front())) xml.remove_prefix(1);
  if (xml.empty() || xml.size() > kMaxPropertyListBytes) return std::nullopt;
  xmlSAXHandler handler = handlers();
  Decoder state;
  const int status =
      xmlSAXUserParseMemory(&handler, &state, xml.data(), static_cast<int>(xml.size()));
  return status == 0 ? state.finish() : std::nullopt;
}

}  // namespace ambervane
