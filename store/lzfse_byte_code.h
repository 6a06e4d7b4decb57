#ifndef AMBERVANE_STORE_LZFSE_BYTE_CODE_H_
#define AMBERVANE_STORE_LZFSE_BYTE_CODE_H_

#include <cstddef>

#include "base/bytes.h"

namespace ambervane::lzfse {

/// Appends the content of the byte code ("LZVN") `code` to `out`, exactly `size` bytes; copies may
/// reach back to the first byte of `out`. False for damage: `out` then holds part of the content.
/// Allocates in step with `code`. docs/format/lzfse.md, "Byte code".
bool appendByteCode(Bytes& out, BytesView code, std::size_t size);

}  // namespace ambervane::lzfse

#endif  // AMBERVANE_STORE_LZFSE_BYTE_CODE_H_
