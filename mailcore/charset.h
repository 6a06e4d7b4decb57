#ifndef AMBERVANE_MAILCORE_CHARSET_H_
#define AMBERVANE_MAILCORE_CHARSET_H_

#include <optional>
#include <string>
#include <string_view>

#include "base/bytes.h"

/// Character sets by the labels mail gives them. Safe from any thread.
namespace ambervane::Charset {

/// The converter a label names, or absent for an unknown label. The result is a name of ICU's.
std::optional<std::string> encoding(std::string_view label);

/// `data` as UTF-8: by its label, else as UTF-8, else as Windows 1252, else as Latin 1. A reading
/// counts only if every byte has a meaning in it. Never fails; the result is well-formed.
std::string decode(BytesView data, std::optional<std::string_view> label);

/// What `decode` does without a label.
std::string decodeUnlabelled(BytesView data);
/// The character of a byte in Windows 1252; absent for the five bytes that have none.
std::optional<char32_t> windows1252Character(unsigned char byte) noexcept;

}  // namespace ambervane::Charset

#endif  // AMBERVANE_MAILCORE_CHARSET_H_
