#ifndef AMBERVANE_STORE_XZ_CODEC_H_
#define AMBERVANE_STORE_XZ_CODEC_H_

#include <cstddef>
#include <optional>

#include "base/bytes.h"

namespace ambervane {

/// LZMA in the `.xz` container (The .xz File Format 1.0.4), through liblzma. Safe from any thread.

/// One stream of preset 6 with a CRC-32 of the content. Absent when it would not be smaller than
/// `data`, and when there is no memory for it (about twelve times `data`, at most 100 MB).
std::optional<Bytes> xzEncode(BytesView data);

/// The content of any `.xz` file whose decoder needs at most 512 MiB. Absent for a damaged or cut
/// file and for content above `limit` bytes. The memory of the content follows what the file
/// yields.
std::optional<Bytes> xzDecode(BytesView file, std::size_t limit);

}  // namespace ambervane

#endif  // AMBERVANE_STORE_XZ_CODEC_H_
