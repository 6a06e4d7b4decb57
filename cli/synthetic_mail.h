#ifndef AMBERVANE_CLI_SYNTHETIC_MAIL_H_
#define AMBERVANE_CLI_SYNTHETIC_MAIL_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "mailformats/message_importer.h"

namespace ambervane {

/// Made-up German and English business mail to measure with: conversations in threads, with quoted
/// text, HTML and attachments, some of which many messages share. A message depends on its mailbox
/// and its number alone, so a longer run begins with the messages of a shorter one.
class SyntheticMail {
 public:
  static constexpr std::string_view kDomain = "bench.example.com";  ///< of every sender
  static constexpr int kPersons = 400;                       ///< senders are person0 to person399
  static constexpr std::string_view kCommonWord = "Termin";  ///< in most German messages
  static constexpr std::string_view kRarePhrase = "Zahlungsziel Konditionen";
  static constexpr std::int64_t kRarePhraseEvery = 997;  ///< messages of a mailbox

  /// The mailbox of person number `mailbox`, counted from 0.
  explicit SyntheticMail(std::int64_t mailbox = 0) : mailbox_(mailbox) {}
  /// Message `number`, counted from 0.
  SourceMessage message(std::int64_t number) const;

 private:
  struct Letter;
  Letter letter(std::int64_t number) const;
  std::string messageID(std::int64_t number) const;

  std::int64_t mailbox_;
};

/// The first `count` messages of one synthetic mailbox.
class SyntheticImporter final : public MessageImporter {
 public:
  SyntheticImporter(std::int64_t mailbox, std::int64_t count) : mail_(mailbox), count_(count) {}
  std::string displayName() const override { return "synthetic mail"; }
  std::optional<std::int64_t> estimatedCount() const override { return count_; }
  void forEachMessage(const Body& body, const Unreadable& unreadable) override;
  /// The bytes of all messages handed out; to be asked when that has ended.
  std::int64_t bytes() const noexcept { return bytes_; }

 private:
  SyntheticMail mail_;
  std::int64_t count_;
  std::int64_t bytes_ = 0;
};

}  // namespace ambervane

#endif  // AMBERVANE_CLI_SYNTHETIC_MAIL_H_
