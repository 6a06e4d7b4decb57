#ifndef AMBERVANE_STORE_COMPRESSIBILITY_H_
#define AMBERVANE_STORE_COMPRESSIBILITY_H_

#include "base/bytes.h"

namespace ambervane {

/// True when trying to compress `data` is in vain: what the frequencies of its bytes and the runs
/// that it repeats could save together is far from the share that makes compression worthwhile.
/// Photographs, archives and most PDF are like that, and they are most of the bytes of business
/// mail. Linear, some twenty times quicker than deflate at its best level; text is told apart
/// after its first block.
bool looksIncompressible(BytesView data);

}  // namespace ambervane

#endif  // AMBERVANE_STORE_COMPRESSIBILITY_H_
