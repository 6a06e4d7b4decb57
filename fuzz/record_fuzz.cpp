#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "store/base64_recipe.h"
#include "store/deflate.h"
#include "store/message_record.h"
#include "store/pack_error.h"
#include "store/seed_dictionary.h"

// What a pack's payload passes through on its way back to a message. The first byte picks the step.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ambervane;
  if (size == 0) return 0;
  const BytesView input(reinterpret_cast<const char*>(data) + 1, size - 1);
  switch (data[0] % 4) {
    case 0:
      try {
        const MessageRecord record = MessageRecord::decode(input);
        // Encoding drops bytes behind the last literal and makes unknown kinds literals.
        if (MessageRecord::decode(record.encode()) != record) std::abort();
      } catch (const PackError&) {
      }
      break;
    case 1:
      if (const auto analysis = Base64Recipe::analyze(input)) {
        if (analysis->recipe.encode(analysis->decoded) != input) std::abort();
        if (Base64Recipe::fromJson(analysis->recipe.toJson()) != analysis->recipe) std::abort();
      }
      break;
    case 2:
      Deflate::decompress(input, seedDictionary(), input.size() * 4);
      break;
    default:
      if (const auto recipe = Base64Recipe::fromJson(input)) recipe->encode("four");
  }
  return 0;
}
