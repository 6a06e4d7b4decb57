#ifndef AMBERVANE_STORE_BROTLI_CODEC_H_
#define AMBERVANE_STORE_BROTLI_CODEC_H_

#include <cstddef>
#include <optional>

#include "base/bytes.h"

namespace ambervane {

/// Brotli streams (RFC 7932) without a container, through libbrotli. Safe from any thread.

/// One whole stream. Absent when it would not be smaller than `data` or there is no memory for it.
std::optional<Bytes> brotliEncode(BytesView data);

/// The content of the stream `stream`, which has nothing behind its end. Absent for a damaged or
/// cut stream and for content above `limit` bytes. The memory of the content follows what the
/// stream yields; the decoder's own is at most 16 MiB and a little.
std::optional<Bytes> brotliDecode(BytesView stream, std::size_t limit);

}  // namespace ambervane

#endif  // AMBERVANE_STORE_BROTLI_CODEC_H_
