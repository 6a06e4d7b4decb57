#include "mailcore/charset.h"

#include <unicode/ucnv.h>

#include <algorithm>
#include <array>
#include <memory>
#include <vector>

#include "base/text.h"

namespace ambervane::Charset {
namespace {

constexpr std::string_view kUtf8 = "UTF-8";
constexpr std::string_view kAscii = "US-ASCII";
constexpr std::string_view kLatin1 = "ISO-8859-1";
constexpr std::string_view kWindows1252 = "windows-1252";
constexpr std::string_view kUtf16 = "UTF-16";

struct Label {
  std::string_view label;
  std::string_view converter;
};

/// The labels most mail uses. They come before ICU's aliases because some of those differ: UTF-7
/// is not decoded, and Windows 1252 and Latin 1 are two sets.
constexpr Label kLabels[] = {
    {"utf-8", kUtf8},
    {"utf8", kUtf8},
    {"unicode-1-1-utf-8", kUtf8},
    {"utf-7", kUtf8},
    {"us-ascii", kAscii},
    {"ascii", kAscii},
    {"ansi_x3.4-1968", kAscii},
    {"iso646-us", kAscii},
    {"iso-8859-1", kLatin1},
    {"iso8859-1", kLatin1},
    {"latin1", kLatin1},
    {"iso-8859-2", "ISO-8859-2"},
    {"iso8859-2", "ISO-8859-2"},
    {"latin2", "ISO-8859-2"},
    {"cp1252", kWindows1252},
    {"windows-1252", kWindows1252},
    {"x-cp1252", kWindows1252},
    {"windows-1250", "windows-1250"},
    {"windows-1251", "windows-1251"},
    {"windows-1253", "windows-1253"},
    {"windows-1254", "windows-1254"},
    {"utf-16", kUtf16},
    {"utf-16le", "UTF-16LE"},
    {"utf-16be", "UTF-16BE"},
    {"macintosh", "macintosh"},
    {"mac", "macintosh"},
    {"x-mac-roman", "macintosh"},
    {"koi8-r", "KOI8-R"},
    {"shift_jis", "Shift_JIS"},
    {"sjis", "Shift_JIS"},
    {"x-sjis", "Shift_JIS"},
    {"euc-jp", "EUC-JP"},
    {"iso-2022-jp", "ISO-2022-JP"},
};

/// Larger sets that mail labelled with a smaller one often uses.
struct Widening {
  std::string_view label;
  std::string_view candidates[2];
};
constexpr Widening kWidenings[] = {
    {"gb2312", {"gbk", "gb18030"}},   {"gb_2312-80", {"gbk", "gb18030"}},
    {"csgb2312", {"gbk", "gb18030"}}, {"euc-cn", {"gbk", "gb18030"}},
    {"gbk", {"gb18030", ""}},         {"big5", {"big5-hkscs", ""}},
    {"euc-kr", {"windows-949", ""}},  {"iso-2022-jp", {"iso-2022-jp-2", ""}},
};

/// Code points of bytes 0x80 to 0x9f in Windows 1252; 0 where the set has none.
constexpr std::array<char32_t, 32> kWindows1252High = {
    0x20ac, 0,      0x201a, 0x0192, 0x201e, 0x2026, 0x2020, 0x2021, 0x02c6, 0x2030, 0x0160,
    0x2039, 0x0152, 0,      0x017d, 0,      0,      0x2018, 0x2019, 0x201c, 0x201d, 0x2022,
    0x2013, 0x2014, 0x02dc, 0x2122, 0x0161, 0x203a, 0x0153, 0,      0x017e, 0x0178,
};

/// Reads a set of one byte a character that has ASCII in its lower half.
template <class CharacterOf>
std::optional<std::string> decodeSingleBytes(BytesView data, CharacterOf characterOf) {
  std::string out;
  out.reserve(data.size() + data.size() / 8);
  std::size_t copied = 0;
  for (std::size_t at = 0; at < data.size(); ++at) {
    const auto byte = static_cast<unsigned char>(data[at]);
    if (byte < 0x80) continue;
    out.append(data, copied, at - copied);
    copied = at + 1;
    const std::optional<char32_t> c = characterOf(byte);
    if (!c) return std::nullopt;
    appendUtf8(out, *c);
  }
  out.append(data, copied);
  return out;
}

std::optional<std::string> decodeWindows1252(BytesView data) {
  return decodeSingleBytes(data, windows1252Character);
}

std::string decodeLatin1(BytesView data) {
  const auto same = [](unsigned char byte) { return std::optional<char32_t>(byte); };
  return decodeSingleBytes(data, same).value_or("");
}

struct ConverterCloser {
  void operator()(UConverter* converter) const { ucnv_close(converter); }
};
using Converter = std::unique_ptr<UConverter, ConverterCloser>;

/// A converter that stops at what it cannot read instead of substituting.
Converter openStrict(const std::string& name) {
  UErrorCode status = U_ZERO_ERROR;
  Converter converter(ucnv_open(name.c_str(), &status));
  if (U_FAILURE(status)) return nullptr;
  ucnv_setToUCallBack(converter.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
  if (U_FAILURE(status)) return nullptr;
  return converter;
}

std::optional<std::string> convert(BytesView data, UConverter& from, UConverter& to) {
  std::string out;
  std::array<UChar, 2048> pivot{};
  UChar* pivotSource = pivot.data();
  UChar* pivotTarget = pivot.data();
  const char* source = data.data();
  const char* const end = source + data.size();
  std::array<char, 4096> buffer{};
  UErrorCode status = U_ZERO_ERROR;
  UBool first = 1;
  do {
    status = U_ZERO_ERROR;
    char* target = buffer.data();
    ucnv_convertEx(&to, &from, &target, target + buffer.size(), &source, end, pivot.data(),
                   &pivotSource, &pivotTarget, pivot.data() + pivot.size(), first,
                   /*flush=*/1, &status);
    out.append(buffer.data(), static_cast<std::size_t>(target - buffer.data()));
    first = 0;
  } while (status == U_BUFFER_OVERFLOW_ERROR);
  if (U_FAILURE(status)) return std::nullopt;
  return out;
}

/// Whether UTF-8 text holds any of U+0080 to U+009F.
bool hasC1Control(std::string_view text) noexcept {
  for (std::size_t at = text.find('\xc2'); at < text.size(); at = text.find('\xc2', at + 1)) {
    if (static_cast<unsigned char>(text[at + 1]) < 0xa0) return true;
  }
  return false;
}

/// ICU gives bytes that a set leaves undefined a C1 control to read as, so those say nothing,
/// except in the ISO sets, which have all of them, and in those that can write any code point.
bool meansC1Controls(UConverter& from, UConverter& to) {
  switch (ucnv_getType(&from)) {
    case UCNV_MBCS: {
      UErrorCode status = U_ZERO_ERROR;
      return std::string_view(ucnv_getName(&from, &status)) == "gb18030";
    }
    case UCNV_SBCS: {
      std::string bytes;
      for (int byte = 0x80; byte < 0xa0; ++byte) bytes.push_back(static_cast<char>(byte));
      return convert(bytes, from, to) == decodeLatin1(bytes);
    }
    default:
      return true;
  }
}

std::optional<std::string> decodeWithIcu(BytesView data, const std::string& name) {
  const Converter from = openStrict(name);
  const Converter to = openStrict(std::string(kUtf8));
  if (!from || !to) return std::nullopt;
  auto text = convert(data, *from, *to);
  if (text && hasC1Control(*text) && !meansC1Controls(*from, *to)) return std::nullopt;
  return text;
}

/// Whether UTF-8 text holds a character of the private use area U+E000 to U+F8FF.
bool hasPrivateUse(std::string_view text) noexcept {
  for (std::size_t at = 0; at + 1 < text.size(); ++at) {
    const auto lead = static_cast<unsigned char>(text[at]);
    const auto next = static_cast<unsigned char>(text[at + 1]);
    if (lead == 0xee || (lead == 0xef && next < 0xa4)) return true;
  }
  return false;
}

/// Whether UTF-16 without a byte order mark is little-endian. It should not be (RFC 2781 section
/// 4.3), but is, and where ASCII is among the characters the zero bytes tell.
bool looksLittleEndian(BytesView data) noexcept {
  if (data.starts_with("\xfe\xff") || data.starts_with("\xff\xfe")) return false;
  constexpr std::size_t kExaminedBytes = 4096;
  std::array<std::size_t, 2> zeros{};
  for (std::size_t at = 0; at < std::min(data.size(), kExaminedBytes); ++at) {
    if (data[at] == '\0') ++zeros[at % 2];
  }
  return zeros[1] > zeros[0];
}

std::optional<std::string> decodeStrictly(BytesView data, const std::string& converter) {
  if (converter == kUtf8) {
    if (!isValidUtf8(data)) return std::nullopt;
    return std::string(data);
  }
  if (converter == kAscii) {
    if (!isAscii(data)) return std::nullopt;
    return std::string(data);
  }
  if (converter == kLatin1) return decodeLatin1(data);
  if (converter == kWindows1252) return decodeWindows1252(data);
  if (converter == kUtf16 && looksLittleEndian(data)) return decodeWithIcu(data, "UTF-16LE");
  return decodeWithIcu(data, converter);
}

/// ICU's own lookup. It goes through the alias table first, because opening a converter by a name
/// that is not in it makes ICU look for a file of that name.
std::optional<std::string> encodingByAlias(std::string_view label) {
  constexpr std::size_t kLongestName = 60;
  if (label.empty() || label.size() > kLongestName || label.find('\0') != label.npos) {
    return std::nullopt;
  }
  const std::string_view withoutPrefix = label.substr(label.starts_with("x-") ? 2 : 0);
  for (const std::string_view candidate : {label, withoutPrefix}) {
    UErrorCode status = U_ZERO_ERROR;
    const char* const canonical = ucnv_getAlias(std::string(candidate).c_str(), 0, &status);
    if (U_SUCCESS(status) && canonical != nullptr) return std::string(canonical);
  }
  return std::nullopt;
}

/// `label` is trimmed and lower-cased.
std::optional<std::string> encodingOf(std::string_view label) {
  for (const Label& entry : kLabels) {
    if (entry.label == label) return std::string(entry.converter);
  }
  return encodingByAlias(label);
}

/// All converters to try for a label, the label's own first.
std::vector<std::string> convertersFor(std::string_view label) {
  std::vector<std::string> converters;
  if (auto own = encodingOf(label)) converters.push_back(*std::move(own));
  for (const Widening& widening : kWidenings) {
    if (widening.label != label) continue;
    for (const std::string_view candidate : widening.candidates) {
      if (auto wider = encodingByAlias(candidate)) converters.push_back(*std::move(wider));
    }
  }
  return converters;
}

std::optional<std::string> decodeLabelled(BytesView data, std::string_view label) {
  const auto converters = convertersFor(lowercase(trim(label)));
  std::optional<std::string> fallback;
  for (const std::string& converter : converters) {
    auto text = decodeStrictly(data, converter);
    // Nothing left of something is no reading: a lone escape sequence, for one.
    if (!text || (text->empty() && !data.empty())) continue;
    // ICU reads what a smaller set lacks as private use; a larger set may have the character.
    if (converters.size() == 1 || !hasPrivateUse(*text)) return text;
    if (!fallback) fallback = std::move(text);
  }
  return fallback;
}

}  // namespace

std::optional<std::string> encoding(std::string_view label) {
  return encodingOf(lowercase(trim(label)));
}

std::string decode(BytesView data, std::optional<std::string_view> label) {
  if (label) {
    if (auto text = decodeLabelled(data, *label)) return *std::move(text);
  }
  return decodeUnlabelled(data);
}

std::string decodeUnlabelled(BytesView data) {
  if (isValidUtf8(data)) return std::string(data);
  if (auto text = decodeWindows1252(data)) return *std::move(text);
  return decodeLatin1(data);
}

std::optional<char32_t> windows1252Character(unsigned char byte) noexcept {
  if (byte < 0x80 || byte >= 0xa0) return byte;
  const char32_t c = kWindows1252High[byte - 0x80U];
  if (c == 0) return std::nullopt;
  return c;
}

}  // namespace ambervane::Charset
