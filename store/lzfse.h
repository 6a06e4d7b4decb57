#ifndef AMBERVANE_STORE_LZFSE_H_
#define AMBERVANE_STORE_LZFSE_H_

#include <cstddef>
#include <optional>

#include "base/bytes.h"

namespace ambervane {

/// The LZFSE stream of docs/format/lzfse.md. Both functions are safe from any thread and linear in
/// what they read and write.

/// One whole stream that yields `data` and is smaller than it. Absent when it would not be, when
/// after 256 KiB or more it saves less than three per cent, for no data, and from 4 GiB.
std::optional<Bytes> lzfseEncode(BytesView data);

/// The content of the stream `stream`, which has nothing behind its end. Absent for a damaged or
/// cut stream and for content above `limit` bytes. Allocates in step with what sound blocks yield.
std::optional<Bytes> lzfseDecode(BytesView stream, std::size_t limit);

}  // namespace ambervane

#endif  // AMBERVANE_STORE_LZFSE_H_
