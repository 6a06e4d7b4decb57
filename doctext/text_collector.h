#ifndef AMBERVANE_DOCTEXT_TEXT_COLLECTOR_H_
#define AMBERVANE_DOCTEXT_TEXT_COLLECTOR_H_

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace ambervane {

/// Gathers the words of a document for an index: white space and control characters collapsed to
/// one blank, or to one LF at an end of line; ligatures spelled out; soft hyphens and other
/// characters without width left out, since they would split a word; encoded data (letters and
/// digits without an end) dropped. The text never exceeds its limit.
class TextCollector {
 public:
  /// Unbroken letters and digits longer than this, in bytes, are data and not a word.
  static constexpr std::size_t kLongestWord = 256;

  /// `limit` is in bytes of UTF-8.
  explicit TextCollector(std::size_t limit) : limit_(limit) {}

  /// Adds UTF-8, of which a word may come in several calls. Ill-formed bytes become U+FFFD.
  void append(std::string_view text);
  void breakWord() noexcept { endRun(Gap::blank); }
  void breakLine() noexcept { endRun(Gap::line); }

  /// Whether the limit is reached; what is appended afterwards is ignored.
  bool isFull() const noexcept { return full_; }
  const std::string& text() const noexcept { return text_; }
  std::string take() { return std::move(text_); }

  /// From then on `checkpoint` hands the text so far to `observer`, which may see it grow only.
  void setObserver(std::function<void(std::string_view text)> observer) {
    observer_ = std::move(observer);
  }
  /// A part of the document is complete. Ends the line.
  void checkpoint();

 private:
  enum class Gap { none, blank, line };

  void endRun(Gap gap) noexcept;
  void put(std::string_view piece);
  /// Adds letters and digits of ASCII.
  void putRun(std::string_view piece);
  void putCodePoint(std::string_view bytes, char32_t c);

  std::size_t limit_;
  std::string text_;
  Gap gap_ = Gap::none;
  std::size_t runStart_ = 0;  ///< where the unbroken letters and digits at the end begin
  bool inRun_ = false;
  bool skipping_ = false;  ///< the run was found to be data
  bool full_ = false;
  std::function<void(std::string_view)> observer_;
};

}  // namespace ambervane

#endif  // AMBERVANE_DOCTEXT_TEXT_COLLECTOR_H_
