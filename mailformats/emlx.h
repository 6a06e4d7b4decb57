#ifndef AMBERVANE_MAILFORMATS_EMLX_H_
#define AMBERVANE_MAILFORMATS_EMLX_H_

#include <optional>
#include <set>
#include <string>

#include "base/bytes.h"
#include "base/date.h"
#include "mailcore/message_flag.h"
#include "mailformats/property_list.h"

/// The message files of Apple Mail: a line with a length, a message of so many bytes, and an XML
/// property list with what the program knows about it.
namespace ambervane::EMLX {

struct Parsed {
  ByteRange message;         ///< in the file
  PropertyDictionary plist;  ///< empty when it is damaged or missing
  std::set<MessageFlag> flags;
  std::optional<Date> dateReceived;
  std::optional<std::string> remoteID;  ///< the server's number for it
};

/// Absent when the first line is no length. A message cut short is what the file still has.
std::optional<Parsed> parse(BytesView file);

}  // namespace ambervane::EMLX

#endif  // AMBERVANE_MAILFORMATS_EMLX_H_
