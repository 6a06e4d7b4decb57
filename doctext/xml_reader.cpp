#include "doctext/xml_reader.h"

#include <libxml/parser.h>

#include <algorithm>

namespace ambervane {
namespace {

std::string_view view(const xmlChar* text) {
  return text == nullptr ? std::string_view() : reinterpret_cast<const char*>(text);
}

std::string_view view(const xmlChar* text, int length) {
  return {reinterpret_cast<const char*>(text), static_cast<std::size_t>(length)};
}

/// libxml2's own pieces are not larger either.
constexpr std::size_t kPiece = 16 * 1024;

}  // namespace

std::string_view XmlAttributes::value(std::string_view name, std::string_view space) const {
  for (int i = 0; i < count_; ++i) {
    const unsigned char** const field = fields_ + std::ptrdiff_t{5} * i;
    if (view(field[0]) != name || !view(field[2]).ends_with(space)) continue;
    return view(field[3], static_cast<int>(field[4] - field[3]));
  }
  return {};
}

struct XmlReader::State {
  explicit State(XmlHandler& given) : handler(given) {
    xmlSAXHandler sax{};
    sax.initialized = XML_SAX2_MAGIC;
    sax.internalSubset = [](void* self, const xmlChar*, const xmlChar*, const xmlChar*) {
      of(self).refuseDefinitions();
    };
    sax.startElementNs = [](void* self, const xmlChar* name, const xmlChar*, const xmlChar*, int,
                            const xmlChar**, int count, int, const xmlChar** fields) {
      of(self).start(view(name), XmlAttributes(fields, count));
    };
    sax.endElementNs = [](void* self, const xmlChar* name, const xmlChar*, const xmlChar*) {
      of(self).end(view(name));
    };
    sax.characters = [](void* self, const xmlChar* text, int length) {
      of(self).text(view(text, length));
    };
    sax.ignorableWhitespace = sax.characters;
    sax.cdataBlock = sax.characters;
    sax.serror = [](void*, xmlErrorPtr) {};
    parser = xmlCreatePushParserCtxt(&sax, this, nullptr, 0, nullptr);
    // After damage the rest is read as well as may be: a reader of text wants its words.
    if (parser != nullptr) xmlCtxtUseOptions(parser, XML_PARSE_NONET | XML_PARSE_RECOVER);
  }
  ~State() {
    if (parser != nullptr) xmlFreeParserCtxt(parser);
  }
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  static State& of(void* self) { return *static_cast<State*>(self); }

  void stop() noexcept {
    stopped = true;
    xmlStopParser(parser);
  }

  /// The parser stands behind the name and the identifiers of a document type.
  void refuseDefinitions() noexcept {
    if (parser->input->cur < parser->input->end && *parser->input->cur == '[') stop();
  }

  void start(std::string_view name, const XmlAttributes& attributes) noexcept {
    if (skippedDepth > 0 || !handler.startElement(name, attributes)) ++skippedDepth;
  }
  void end(std::string_view name) noexcept {
    if (skippedDepth > 0) {
      --skippedDepth;
    } else {
      handler.endElement(name);
    }
  }
  void text(std::string_view piece) noexcept {
    if (skippedDepth == 0) handler.characters(piece);
  }

  XmlHandler& handler;
  xmlParserCtxtPtr parser = nullptr;
  std::size_t skippedDepth = 0;
  bool stopped = false;
};

XmlReader::XmlReader(XmlHandler& handler) : state_(std::make_unique<State>(handler)) {}
XmlReader::~XmlReader() = default;

bool XmlReader::feed(BytesView piece) {
  if (state_->parser == nullptr) return false;
  while (!piece.empty() && !state_->stopped) {
    const BytesView part = piece.substr(0, kPiece);
    piece.remove_prefix(part.size());
    xmlParseChunk(state_->parser, part.data(), static_cast<int>(part.size()), 0);
    const auto* const input = state_->parser->input;
    if (input == nullptr || input->end - input->cur > std::ptrdiff_t{kLongestTag}) state_->stop();
    if (state_->parser->disableSAX != 0) state_->stopped = true;
  }
  return !state_->stopped;
}

bool XmlReader::finish() {
  if (state_->parser == nullptr || state_->stopped) return false;
  xmlParseChunk(state_->parser, nullptr, 0, 1);
  return !state_->stopped && state_->parser->wellFormed != 0;
}

namespace {

/// Files inside XML, in base64.
constexpr std::string_view kBinaryElements[] = {"EmbeddedDocumentBinaryObject",
                                                "AttachmentBinaryObject", "binary-data", "binData"};

class AllText final : public XmlHandler {
 public:
  explicit AllText(TextCollector& collector) : collector_(collector) {}

  bool startElement(std::string_view name, const XmlAttributes&) override {
    collector_.breakWord();
    return std::find(std::begin(kBinaryElements), std::end(kBinaryElements), name) ==
           std::end(kBinaryElements);
  }
  void endElement(std::string_view) override { collector_.breakWord(); }
  void characters(std::string_view text) override { collector_.append(text); }

 private:
  TextCollector& collector_;
};

}  // namespace

bool readXmlText(BytesView bytes, TextCollector& collector) {
  AllText handler(collector);
  XmlReader reader(handler);
  while (!bytes.empty() && !collector.isFull()) {
    const BytesView piece = bytes.substr(0, kPiece);
    bytes.remove_prefix(piece.size());
    if (!reader.feed(piece)) return false;
  }
  return collector.isFull() || reader.finish();
}

}  // namespace ambervane
