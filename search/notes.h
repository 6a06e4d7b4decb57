#ifndef AMBERVANE_SEARCH_NOTES_H_
#define AMBERVANE_SEARCH_NOTES_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "base/localized_message.h"
#include "store/catalog_annotations.h"
#include "store/mail_archive.h"

namespace ambervane {

// Notes about messages. The journal keeps every text a note has had. All throw ArchiveError
// (ReadOnly), SQLiteError, FileError; nothing has changed then.

class NoteError final : public TranslatableError {
 public:
  enum class Reason { empty };
  explicit NoteError(Reason reason) : reason_(reason) {}
  Reason reason() const noexcept { return reason_; }
  LocalizedMessage message() const override;

 private:
  Reason reason_;
};

/// Throws NoteError for a text of blanks, ArchiveError (MessageMissing).
MessageNote addNote(MailArchive& archive, std::int64_t messageID, std::string_view body,
                    const std::string& author);
/// False when the note is not there any more. Throws NoteError for a text of blanks.
bool editNote(MailArchive& archive, const MessageNote& note, std::string_view body);
/// False when the note is not there any more.
bool removeNote(MailArchive& archive, const MessageNote& note);

}  // namespace ambervane

#endif  // AMBERVANE_SEARCH_NOTES_H_
