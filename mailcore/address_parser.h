#ifndef AMBERVANE_MAILCORE_ADDRESS_PARSER_H_
#define AMBERVANE_MAILCORE_ADDRESS_PARSER_H_

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ambervane {

/// One address of a From or To field (RFC 5322 section 3.4), all strings UTF-8.
struct MailAddress {
  std::optional<std::string> displayName;  ///< never empty
  std::string address;                     ///< as written; empty for a group's empty member
  std::optional<std::string> group;        ///< the group it was listed under

  /// Behind the "@", lower-cased; absent where there is none.
  std::optional<std::string> domain() const;
  std::string normalizedAddress() const;
  /// "name <address>" without any quoting, or the address alone.
  std::string formatted() const;
  friend bool operator==(const MailAddress&, const MailAddress&) = default;
};

/// Reads what mail really holds: total and linear, with bounds against lists made to fill memory.
namespace AddressParser {

/// Addresses behind this many in one field are not read.
inline constexpr std::size_t kMaxAddresses = 1'000'000;
/// Every member carries its group's name, so a longer one is cut to this many code points.
inline constexpr std::size_t kMaxGroupCharacters = 255;

/// All addresses of a field. Encoded words are read first, so a comma inside one separates too.
std::vector<MailAddress> parseList(std::optional<std::string_view> text);
/// One item of a list, encoded words read. Absent where it holds no address, but inside a group an
/// empty item is a member without address.
std::optional<MailAddress> parseSingle(std::string_view text,
                                       const std::optional<std::string>& group = std::nullopt);

/// Trimmed; a text in double quotes loses them, and its backslash pairs become plain characters.
std::string unquote(std::string_view text);

}  // namespace AddressParser
}  // namespace ambervane

#endif  // AMBERVANE_MAILCORE_ADDRESS_PARSER_H_
