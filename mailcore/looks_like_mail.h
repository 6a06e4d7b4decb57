#ifndef AMBERVANE_MAILCORE_LOOKS_LIKE_MAIL_H_
#define AMBERVANE_MAILCORE_LOOKS_LIKE_MAIL_H_

#include "base/bytes.h"

namespace ambervane {

/// Whether any line among the first 64 KiB, behind a UTF-8 byte order mark, is a header field that
/// mail usually has. Cheap; takes any bytes.
bool looksLikeMail(BytesView data);

}  // namespace ambervane

#endif  // AMBERVANE_MAILCORE_LOOKS_LIKE_MAIL_H_
