#include <algorithm>
#include <vector>

#include "fuzz/fuzz_input.h"
#include "mailformats/container_mbox.h"
#include "mailformats/mbox_format.h"

namespace {

using namespace ambervane;

/// Hands out its bytes in pieces of one size.
class PieceStream : public InputStream {
 public:
  PieceStream(BytesView bytes, std::size_t size) : rest_(bytes), size_(size) {}
  BytesView next() override {
    const BytesView piece = rest_.substr(0, size_);
    rest_.remove_prefix(piece.size());
    return piece;
  }

 private:
  BytesView rest_;
  std::size_t size_;
};

}  // namespace

/// The first byte is the size of the pieces in which the rest, an mbox, arrives: what comes out is
/// what comes out of all of it at once.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const BytesView mbox = fuzzInput(data, size).substr(1);
  std::vector<Bytes> expected;
  for (std::size_t start = nextMboxStart(mbox, 0); start != mbox.npos;) {
    const std::size_t next = nextMboxStart(mbox, start + 1);
    expected.push_back(
        readMboxSegment(mbox.substr(start, next - start), MboxVariant::detected).raw);
    start = next;
  }
  std::vector<Bytes> found;
  PieceStream stream(mbox, std::max<std::size_t>(data[0], 1));
  ContainerMbox("m", "f").read(
      stream.next(), stream,
      [&](SourceMessage&& message) {
        found.push_back(std::move(message.raw));
        return true;
      },
      requireUtf8);
  require(found == expected);
  return 0;
}
