#ifndef AMBERVANE_MAILFORMATS_MESSAGE_IMPORTER_H_
#define AMBERVANE_MAILFORMATS_MESSAGE_IMPORTER_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "mailcore/source_message.h"

namespace ambervane {

/// A local mail store, read from its beginning to its end.
class MessageImporter {
 public:
  /// Takes one message; returns false to stop the source.
  using Body = std::function<bool(SourceMessage&&)>;
  /// Told of each item that could not be read: "<path>: <reason>". May be empty.
  using Unreadable = std::function<void(const std::string&)>;

  virtual ~MessageImporter() = default;
  /// Shown to the user.
  virtual std::string displayName() const = 0;
  /// Cheap and approximate, for progress; absent when it cannot be told cheaply.
  virtual std::optional<std::int64_t> estimatedCount() const = 0;
  /// Hands every message to `body` in the source's order. One damaged item goes to `unreadable` and
  /// the rest follow. Throws ImportError when the store itself cannot be read, and what `body`
  /// throws.
  virtual void forEachMessage(const Body& body, const Unreadable& unreadable) = 0;
};

}  // namespace ambervane

#endif  // AMBERVANE_MAILFORMATS_MESSAGE_IMPORTER_H_
