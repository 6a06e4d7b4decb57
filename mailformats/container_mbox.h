#ifndef AMBERVANE_MAILFORMATS_CONTAINER_MBOX_H_
#define AMBERVANE_MAILFORMATS_CONTAINER_MBOX_H_

#include <cstdint>
#include <string>

#include "mailformats/container.h"
#include "mailformats/message_importer.h"

namespace ambervane {

/// Cuts an mbox into messages while its bytes arrive, and holds no more than the message at hand.
/// Where messages start and what they hold is what MboxReader says of the same file.
class ContainerMbox {
 public:
  /// `originPath` (UTF-8) stands for the mbox in messages and reports.
  ContainerMbox(std::string originPath, std::string folderPath);

  /// Reads `head`, which was already taken from `stream`, and the rest of `stream`. Returns false
  /// when `body` has stopped. What the stream throws comes through when every message that arrived
  /// whole was handed out; the last one, which may be cut, is not.
  bool read(BytesView head, InputStream& stream, const MessageImporter::Body& body,
            const MessageImporter::Unreadable& unreadable);

 private:
  bool takeWhole(const MessageImporter::Body& body, const MessageImporter::Unreadable& unreadable);
  bool takeLast(const MessageImporter::Body& body, const MessageImporter::Unreadable& unreadable);
  bool handOut(BytesView segment, const MessageImporter::Body& body,
               const MessageImporter::Unreadable& unreadable);
  void passOver(BytesView head);
  void reportHead(const MessageImporter::Unreadable& unreadable, bool isWhole) const;

  std::string originPath_;
  std::string folderPath_;
  Bytes held_;              ///< from the start of the message at hand
  std::size_t search_ = 0;  ///< where in `held_` the next start may lie
  bool inMessage_ = false;
  bool tooLarge_ = false;        ///< the message at hand, which is not held
  std::uint64_t headBytes_ = 0;  ///< passed over before the first message
  bool headIsBlank_ = true;
  std::uint64_t ordinal_ = 0;
};

}  // namespace ambervane

#endif  // AMBERVANE_MAILFORMATS_CONTAINER_MBOX_H_
