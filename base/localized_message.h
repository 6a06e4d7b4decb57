#ifndef AMBERVANE_BASE_LOCALIZED_MESSAGE_H_
#define AMBERVANE_BASE_LOCALIZED_MESSAGE_H_

#include <exception>
#include <string>
#include <vector>

namespace ambervane {

/// An English text kept apart from its arguments, so that a translation can be looked up by the
/// English format. Placeholders are "%@", filled in order, or "%1$@" to "%9$@".
struct LocalizedMessage {
  std::string format;
  std::vector<std::string> arguments;

  /// The English text. Without arguments the format as it stands, so it may hold a bare "%".
  std::string text() const;
  friend bool operator==(const LocalizedMessage&, const LocalizedMessage&) = default;
};

/// Every failure of the system: a closed list of reasons with all its words in `message`.
class TranslatableError : public std::exception {
 public:
  virtual LocalizedMessage message() const = 0;
  /// The English text; valid as long as the error.
  const char* what() const noexcept override;

 private:
  mutable std::string text_;
};

}  // namespace ambervane

#endif  // AMBERVANE_BASE_LOCALIZED_MESSAGE_H_
