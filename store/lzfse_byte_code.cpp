#include "store/lzfse_byte_code.h"

#include <array>
#include <cstdint>

#include "store/lzfse_format.h"

namespace ambervane::lzfse {
namespace {

enum class Form : std::uint8_t {
  undefined,
  end,
  nothing,
  smallDistance,
  mediumDistance,
  largeDistance,
  previousDistance,
  literals,
  longLiterals,
  match,
  longMatch,
};

constexpr Form formOf(unsigned opcode) {
  if (opcode >= 0xf0) return opcode == 0xf0 ? Form::longMatch : Form::match;
  if (opcode >= 0xe0) return opcode == 0xe0 ? Form::longLiterals : Form::literals;
  if (opcode >= 0xd0 || (opcode >= 0x70 && opcode < 0x80)) return Form::undefined;
  if (opcode >= 0xa0 && opcode < 0xc0) return Form::mediumDistance;
  if (opcode % 8 == 7) return Form::largeDistance;
  if (opcode % 8 != 6) return Form::smallDistance;
  if (opcode >= 0x40) return Form::previousDistance;
  if (opcode == 0x06) return Form::end;
  return opcode == 0x0e || opcode == 0x16 ? Form::nothing : Form::undefined;
}
consteval std::array<Form, 256> allForms() {
  std::array<Form, 256> forms{};
  for (unsigned opcode = 0; opcode < forms.size(); ++opcode) forms[opcode] = formOf(opcode);
  return forms;
}
constexpr std::array<Form, 256> kForms = allForms();

/// Bytes of an opcode of each form, without the literals behind it.
constexpr std::size_t opcodeBytes(Form form) noexcept {
  switch (form) {
    case Form::end:
      return 8;
    case Form::mediumDistance:
    case Form::largeDistance:
      return 3;
    case Form::smallDistance:
    case Form::longLiterals:
    case Form::longMatch:
      return 2;
    case Form::undefined:
    case Form::nothing:
    case Form::previousDistance:
    case Form::literals:
    case Form::match:
      return 1;
  }
  return 1;
}

/// No opcode yields more than 271 bytes for its two.
constexpr std::size_t kMaxYield = 136;

/// Reads the fields of an opcode other than `end`, whose bytes begin `code`.
struct Step {
  Step(BytesView code, Form form, std::size_t distanceBefore) noexcept : distance(distanceBefore) {
    const auto byte = [&](std::size_t i) -> std::size_t {
      return static_cast<unsigned char>(code[i]);
    };
    const std::size_t first = byte(0);
    literals = first >> 6;
    match = (first >> 3 & 7) + 3;
    switch (form) {
      case Form::smallDistance:
        distance = (first & 7) << 8 | byte(1);
        break;
      case Form::mediumDistance:
        literals = first >> 3 & 3;
        match = ((first & 7) << 2 | (byte(1) & 3)) + 3;
        distance = byte(1) >> 2 | byte(2) << 6;
        break;
      case Form::largeDistance:
        distance = byte(1) | byte(2) << 8;
        break;
      case Form::previousDistance:
        break;
      case Form::literals:
      case Form::longLiterals:
        literals = form == Form::literals ? first & 15 : byte(1) + 16;
        match = 0;
        break;
      case Form::match:
      case Form::longMatch:
        literals = 0;
        match = form == Form::match ? first & 15 : byte(1) + 16;
        break;
      case Form::undefined:
      case Form::end:
      case Form::nothing:
        literals = match = 0;
        break;
    }
  }
  std::size_t literals = 0, match = 0;
  std::size_t distance = 0;  ///< 0: none so far
};

}  // namespace

bool appendByteCode(Bytes& out, BytesView code, std::size_t size) {
  if (size / kMaxYield > code.size()) return false;
  out.reserve(out.size() + size);
  std::size_t room = size;
  std::size_t distance = 0;
  while (!code.empty()) {
    const Form form = kForms[static_cast<unsigned char>(code[0])];
    const std::size_t bytes = opcodeBytes(form);
    if (form == Form::undefined || code.size() < bytes) return false;
    if (form == Form::end) return room == 0 && code.size() == bytes;
    const Step step(code, form, distance);
    code.remove_prefix(bytes);
    if (step.literals > code.size() || step.literals + step.match > room) return false;
    room -= step.literals + step.match;
    out.append(code.substr(0, step.literals));
    code.remove_prefix(step.literals);
    distance = step.distance;
    if (step.match == 0) continue;
    if (distance == 0 || distance > out.size()) return false;
    for (std::size_t i = 0; i < step.match; ++i) out.push_back(out[out.size() - distance]);
  }
  return false;
}

}  // namespace ambervane::lzfse
