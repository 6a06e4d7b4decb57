#ifndef AMBERVANE_MAILCORE_PARAMETERIZED_HEADER_H_
#define AMBERVANE_MAILCORE_PARAMETERIZED_HEADER_H_

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace ambervane {

/// Pieces between semicolons that are read of one field, to bound the memory a hostile one takes.
inline constexpr std::size_t kMaxParameters = 10'000;

/// A field such as Content-Type: a value and its parameters (RFC 2045 section 5.1), continuations
/// and character sets read (RFC 2231), encoded words too, since many mailers write file names so.
struct ParameterizedHeader {
  std::string value;                                           ///< trimmed and lower-cased
  std::map<std::string, std::string, std::less<>> parameters;  ///< by lower-cased name

  /// Absent for absent or blank text, else the best reading; parameters behind `kMaxParameters` are
  /// not looked at. Linear.
  static std::optional<ParameterizedHeader> parse(std::optional<std::string_view> text);

  /// The text before the first "/" of `value`, or all of it.
  std::string_view mediaType() const noexcept;
  /// The text behind the first "/", or nothing.
  std::string_view subtype() const noexcept;
  /// The value of a parameter, its name in any case. The view lives as long as this record.
  std::optional<std::string_view> parameter(std::string_view name) const;
  std::optional<std::string_view> charset() const { return parameter("charset"); }
  std::optional<std::string_view> boundary() const { return parameter("boundary"); }
  friend bool operator==(const ParameterizedHeader&, const ParameterizedHeader&) = default;
};

}  // namespace ambervane

#endif  // AMBERVANE_MAILCORE_PARAMETERIZED_HEADER_H_
