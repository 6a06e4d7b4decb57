#include "search/notes.h"

#include "base/text.h"
#include "store/archive_error.h"
#include "store/recorded_change.h"

namespace ambervane {
namespace {

std::string requiredText(std::string_view body) {
  if (trim(body).empty()) throw NoteError(NoteError::Reason::empty);
  return repairedUtf8(body);
}

}  // namespace

LocalizedMessage NoteError::message() const {
  switch (reason_) {
    case Reason::empty:
      break;
  }
  return {"A note needs some text.", {}};
}

MessageNote addNote(MailArchive& archive, std::int64_t messageID, std::string_view body,
                    const std::string& author) {
  RecordedChange change(archive);
  const std::string text = requiredText(body);
  const auto digest = archive.catalog().messageDigest(messageID);
  if (!digest) throw ArchiveError(ArchiveError::MessageMissing{messageID});
  const Date now = archive.now();
  MessageNote note{0, messageID, text, author, now, now};
  note.id = CatalogAnnotations(archive.catalog()).addNote(messageID, text, author, now);
  archive.journal().append(
      AuditAction::noteAdded, digest,
      {{"author", author}, {"note", text}, {"message_id", std::to_string(messageID)}}, author);
  change.finish();
  return note;
}

bool editNote(MailArchive& archive, const MessageNote& note, std::string_view body) {
  RecordedChange change(archive);
  const std::string text = requiredText(body);
  CatalogAnnotations annotations(archive.catalog());
  const auto stored = annotations.note(note.id);
  if (!stored) return false;
  annotations.updateNote(note.id, text, archive.now());
  archive.journal().append(AuditAction::noteEdited,
                           archive.catalog().messageDigest(stored->messageID),
                           {{"author", stored->author}, {"note", text}, {"was", stored->body}});
  change.finish();
  return true;
}

bool removeNote(MailArchive& archive, const MessageNote& note) {
  RecordedChange change(archive);
  CatalogAnnotations annotations(archive.catalog());
  const auto stored = annotations.note(note.id);
  if (!stored) return false;
  annotations.deleteNote(note.id);
  archive.journal().append(
      AuditAction::noteRemoved, archive.catalog().messageDigest(stored->messageID),
      {{"author", stored->author}, {"note", stored->body}, {"was", stored->body}});
  change.finish();
  return true;
}

}  // namespace ambervane
