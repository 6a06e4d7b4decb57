#ifndef AMBERVANE_CLI_CONSOLE_H_
#define AMBERVANE_CLI_CONSOLE_H_

#include <ostream>
#include <string>

#include "base/date.h"
#include "base/localized_message.h"

namespace ambervane {

/// Where a command prints: results on `out`; progress and notices on `err`.
struct Console {
  std::ostream& out;
  std::ostream& err;
  bool errorIsTerminal = false;  ///< progress is shown only to a person
};

/// A line on a terminal that is written over and over; silent when nobody is looking.
class ProgressLine {
 public:
  explicit ProgressLine(Console& console) : console_(console) {}
  ~ProgressLine() { clear(); }
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;
  bool isShown() const noexcept { return console_.errorIsTerminal; }
  /// Whether it is shown and has stood long enough to be replaced; then the time starts anew.
  bool isDue();
  /// Replaces the line by two blanks and `text`.
  void show(const std::string& text);
  void clear();

 private:
  Console& console_;
  bool drawn_ = false;
  Date drawnAt_;
};

/// The tool's own failures; both carry the words that are shown.
class CLIError final : public TranslatableError {
 public:
  enum class Kind { usage, access };
  CLIError(Kind kind, std::string text) : kind_(kind), text_(std::move(text)) {}
  static CLIError usage(std::string text) { return {Kind::usage, std::move(text)}; }
  static CLIError access(std::string text) { return {Kind::access, std::move(text)}; }
  Kind kind() const noexcept { return kind_; }
  LocalizedMessage message() const override { return {text_, {}}; }

 private:
  Kind kind_;
  std::string text_;
};

}  // namespace ambervane

#endif  // AMBERVANE_CLI_CONSOLE_H_
