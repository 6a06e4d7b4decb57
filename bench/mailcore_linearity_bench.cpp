#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "mailcore/html_text.h"
#include "mailcore/looks_like_mail.h"
#include "mailcore/parsed_message.h"
#include "mailcore/preview.h"
#include "mailcore/transfer_decoding.h"

// Input made to be expensive, in sizes that double. What is reported is the fit to O(N): a reader
// that searches the rest of the message again for each of its openings shows at once, as a rate
// that halves with each size and a large deviation from the fit.

namespace ambervane::bench {
namespace {

/// `unit` over and over, up to `size` bytes.
std::string repeated(std::string_view unit, std::size_t size) {
  std::string text;
  text.reserve(size + unit.size());
  while (text.size() < size) text += unit;
  text.resize(size);
  return text;
}

/// Input of `size` bytes.
using Generator = std::string (*)(std::size_t size);
/// What is to be linear in its input.
using Reader = void (*)(const std::string& input);

/// All that ingest asks of a message.
void readMessage(const std::string& raw) {
  const ParsedMessage message(raw);
  benchmark::DoNotOptimize(message.normalizedSubject());
  for (const auto& list : {message.from(), message.sender(), message.replyTo(), message.to(),
                           message.cc(), message.bcc()}) {
    benchmark::DoNotOptimize(list.size());
  }
  benchmark::DoNotOptimize(message.date());
  benchmark::DoNotOptimize(message.references());
  benchmark::DoNotOptimize(message.attachments());
  benchmark::DoNotOptimize(collapsedForPreview(message.texts().plainTextBody, 300));
}

void readHtml(const std::string& html) { benchmark::DoNotOptimize(HTMLText::strip(html)); }
void readMailTest(const std::string& raw) { benchmark::DoNotOptimize(looksLikeMail(raw)); }
void readQuotedPrintable(const std::string& body) {
  benchmark::DoNotOptimize(ContentTransferDecoder::decodeQuotedPrintable(body));
}

void linear(benchmark::State& state, Reader read, Generator generate) {
  const auto size = static_cast<std::size_t>(state.range(0));
  const std::string input = generate(size);
  for ([[maybe_unused]] auto _ : state) read(input);
  state.SetBytesProcessed(static_cast<std::int64_t>(size) *
                          static_cast<std::int64_t>(state.iterations()));
  state.SetComplexityN(state.range(0));
}

/// A message whose field `name` has a value of `unit` over and over.
std::string field(std::string_view name, std::string_view unit, std::size_t size) {
  return std::string(name) + ": " + repeated(unit, size) + "\n\nbody";
}

std::string multipart(std::string_view body) {
  return "Content-Type: multipart/mixed; boundary=b\n\n" + std::string(body);
}

/// Each level opens the next one, far beyond the depth that is read.
std::string deepMultiparts(std::size_t size) {
  std::string text;
  for (std::size_t i = 0; text.size() < size; ++i) {
    const std::string boundary = "b" + std::to_string(i) + "x";
    text += "Content-Type: multipart/mixed; boundary=" + boundary + "\n\n--" + boundary + "\n";
  }
  return text;
}

std::string continuations(std::size_t size) {
  std::string text = "Content-Type: text/plain";
  for (std::size_t i = 0; text.size() < size; ++i) {
    text += "; name*" + std::to_string(i) + (i % 2 == 0 ? "*=utf-8''%c3%a9" : "=x");
  }
  return text + "\n\nbody";
}

/// A case in sizes that double up to `largest` bytes.
#define AMBERVANE_LINEAR_UP_TO(largest, name, reader, ...)                                \
  BENCHMARK_CAPTURE(                                                                      \
      linear, name, reader, +[](std::size_t size) -> std::string { return __VA_ARGS__; }) \
      ->RangeMultiplier(2)                                                                \
      ->Range((largest) >> 5, largest)                                                    \
      ->Unit(benchmark::kMillisecond)                                                     \
      ->Complexity(benchmark::oN)
#define AMBERVANE_LINEAR(name, reader, ...) \
  AMBERVANE_LINEAR_UP_TO(1 << 20, name, reader, __VA_ARGS__)

// Only the first 64 KiB are looked at.
AMBERVANE_LINEAR_UP_TO(1 << 16, mailTestNoField, readMailTest, repeated("no field ", size));
AMBERVANE_LINEAR_UP_TO(1 << 16, mailTestManyLines, readMailTest, repeated("x:\n", size));

AMBERVANE_LINEAR(longHeader, readMessage, field("Subject", "x", size));
AMBERVANE_LINEAR(longFoldedHeader, readMessage, field("Subject", "\n x", size));
AMBERVANE_LINEAR(manyHeaders, readMessage, repeated("a:\n", size));
AMBERVANE_LINEAR(manySubjects, readMessage, repeated("Subject: a\n", size));
AMBERVANE_LINEAR(headersWithoutColon, readMessage, repeated("a\n", size));
AMBERVANE_LINEAR(replyPrefixes, readMessage, field("Subject", "Re: [a] Re: ", size));
AMBERVANE_LINEAR(references, readMessage, field("References", "<a> ", size));

AMBERVANE_LINEAR(deepMultiparts, readMessage, deepMultiparts(size));
AMBERVANE_LINEAR(deepMessages, readMessage, repeated("Content-Type: message/rfc822\n\n", size));
AMBERVANE_LINEAR(manyParts, readMessage, multipart(repeated("--b\n\nx\n", size)));
AMBERVANE_LINEAR(emptyParts, readMessage, multipart(repeated("--b\n", size)));
AMBERVANE_LINEAR(manyAttachments, readMessage,
                 multipart(repeated("--b\nContent-Type: a/b; name=c\n\nx\n", size)));
AMBERVANE_LINEAR(longerDelimiters, readMessage, multipart(repeated("\n--bb", size)));
AMBERVANE_LINEAR(delimitersBehindBlanks, readMessage, multipart(repeated("\n--b      x", size)));
AMBERVANE_LINEAR(delimiterStarts, readMessage, multipart(repeated("-", size)));

AMBERVANE_LINEAR(unterminatedWords, readMessage, field("Subject", "=?utf-8?q?a", size));
AMBERVANE_LINEAR(unterminatedBase64Words, readMessage, field("Subject", "=?utf-8?b?YQ", size));
AMBERVANE_LINEAR(spoiltBase64Words, readMessage, field("Subject", "=?utf-8?b?Y=Q", size) + "?=");
AMBERVANE_LINEAR(wordStarts, readMessage, field("Subject", "=?", size));
AMBERVANE_LINEAR(smallWords, readMessage, field("Subject", "=?utf-8?q?a?= ", size));
AMBERVANE_LINEAR(wordsInLegacySet, readMessage, field("Subject", "=?koi8-u?b?1A?= ", size));

AMBERVANE_LINEAR(nestedComments, readMessage, field("From", "(", size));
AMBERVANE_LINEAR(openedComments, readMessage, field("From", "a(b,", size));
AMBERVANE_LINEAR(openedAngles, readMessage, field("From", "a<b,", size));
AMBERVANE_LINEAR(addresses, readMessage, field("To", "a@b,", size));
AMBERVANE_LINEAR(groups, readMessage, field("To", "a:b;", size));
AMBERVANE_LINEAR(quotes, readMessage, field("To", "\"\\\"", size));
AMBERVANE_LINEAR(dateComments, readMessage, field("Date", "(", size));
AMBERVANE_LINEAR(dateWords, readMessage, field("Date", "1 Jan 2024 ", size));

AMBERVANE_LINEAR(continuations, readMessage, continuations(size));
AMBERVANE_LINEAR(parameters, readMessage, field("Content-Type", "a=b;", size));
AMBERVANE_LINEAR(parameterQuotes, readMessage, field("Content-Type", "a=\";", size));
AMBERVANE_LINEAR(apostrophes, readMessage, field("Content-Type", "a*='';", size));

AMBERVANE_LINEAR(softLineBreaks, readQuotedPrintable, repeated("=0D=\n=\n=\n", size));
AMBERVANE_LINEAR(oneCrManySoftBreaks, readQuotedPrintable, "=0D" + repeated("=\n", size));

AMBERVANE_LINEAR(htmlOpenings, readHtml, repeated("<", size));
AMBERVANE_LINEAR(htmlTags, readHtml, repeated("<div>", size));
AMBERVANE_LINEAR(htmlUnclosedTags, readHtml, repeated("<a ", size));
AMBERVANE_LINEAR(htmlUnclosedQuotes, readHtml, repeated("<a b='", size));
AMBERVANE_LINEAR(htmlBothQuotes, readHtml, repeated("<a b=\"'c='\">", size));
AMBERVANE_LINEAR(htmlComments, readHtml, repeated("<!--", size));
AMBERVANE_LINEAR(htmlDashes, readHtml, "<!--" + repeated("--x", size));
AMBERVANE_LINEAR(htmlScripts, readHtml, repeated("<script>", size));
AMBERVANE_LINEAR(htmlScriptEnds, readHtml, "<script>" + repeated("</scripts", size));
AMBERVANE_LINEAR(htmlReferences, readHtml, repeated("&amp", size));
AMBERVANE_LINEAR(htmlAmpersands, readHtml, repeated("&", size));
AMBERVANE_LINEAR(htmlLongNumber, readHtml, "&#" + repeated("1", size));
AMBERVANE_LINEAR(htmlDeepPre, readHtml, repeated("<pre>\n", size));
AMBERVANE_LINEAR(htmlIllFormed, readHtml, repeated("\xe2\x80<", size));

#undef AMBERVANE_LINEAR
#undef AMBERVANE_LINEAR_UP_TO

}  // namespace
}  // namespace ambervane::bench
