#include "evidence/finding.h"

#include <gtest/gtest.h>

#include "evidence/sync_schedule.h"

namespace ambervane {
namespace {

using Fixed = Finding::Fixed;

TEST(Finding, wordsAndJson) {
  const SyncSchedule weekly{.enabled = true,
                            .interval = SyncSchedule::Interval::weekly,
                            .hour = 7,
                            .minute = 5,
                            .weekday = 6};
  static const struct {
    const char* name;
    Finding::Value finding;
    std::string english, german, json;
  } kCases[] = {
      {"labelled", Finding::ChainSequenceGap{2, 5}, "Sequence gap: expected 2, found 5",
       "Lücke in der Nummernfolge: erwartet 2, gefunden 5",
       R"({"chainSequenceGap":{"expected":2,"found":5}})"},
      {"unlabelled", Finding::PacksWritable{2}, "2 sealed packs are writable",
       "2 abgeschlossene Pack-Dateien sind beschreibbar", R"({"packsWritable":{"_0":2}})"},
      {"fixed", Fixed::noSealYet, "No seal has been written yet",
       "Es wurde noch kein Siegel geschrieben", R"({"noSealYet":{}})"},
      {"textAsItIs", Finding::PackDigestFailures{"50%@ 00000001.pack: digest changed"},
       "50%@ 00000001.pack: digest changed", "50%@ 00000001.pack: digest changed",
       R"({"packDigestFailures":{"_0":"50%@ 00000001.pack: digest changed"}})"},
      {"translatedDetail",
       Finding::CatalogDatabase{std::string(Finding::databaseConsistent), "ext4", false},
       "SQLite reports the database is consistent on ext4 — some packs have no recovery sidecar; a "
       "rebuild would recover their messages but not their mailbox membership",
       "SQLite meldet eine widerspruchsfreie Datenbank auf ext4 – zu einigen Pack-Dateien fehlt "
       "die Wiederherstellungsdatei; ein Neuaufbau brächte ihre Nachrichten zurück, nicht aber "
       "deren Zuordnung zu Postfächern",
       R"({"catalogDatabase":{"detail":"SQLite reports the database is consistent",)"
       R"("fileSystem":"ext4","recoverable":false}})"},
      {"withoutOption", Finding::MessagesRehashed{7, 0},
       "7 messages reassembled from storage and re-hashed byte-for-byte against the digest taken "
       "at ingest",
       "7 Nachrichten aus dem Speicher wieder zusammengesetzt und Byte für Byte mit dem bei der "
       "Aufnahme gebildeten Hashwert verglichen",
       R"({"messagesRehashed":{"checked":7,"deduplicated":0}})"},
      {"namedDay", Finding::CaptureScheduled{weekly.summary(), "2024-02-05 10:00 UTC"},
       "Mail is collected automatically (every Friday at 07:05); the last successful run was "
       "2024-02-05 10:00 UTC.",
       "Post wird automatisch abgeholt (jeden Freitag um 07:05); der letzte erfolgreiche Lauf war "
       "2024-02-05 10:00 UTC.",
       R"({"captureScheduled":{"lastSuccess":"2024-02-05 10:00 UTC",)"
       R"("schedule":"every Friday at 07:05"}})"},
      {"absentIsLeftOut", Finding::CaptureScheduledButStale{{"every hour", {}}, {}, {}},
       "Automatic collection is configured (every hour) but has never succeeded. An archive that "
       "appears to be tended and is not is worse than one nobody claims to tend.",
       "Das automatische Abholen ist eingerichtet (jede Stunde), aber noch nie gelungen. Ein "
       "Archiv, das gepflegt scheint und es nicht ist, ist schlimmer als eines, das zu pflegen "
       "niemand behauptet.",
       R"({"captureScheduledButStale":{"schedule":"every hour"}})"},
      {"mixedLabels", Finding::PublisherIdentified{"Example AG", true},
       "The program that wrote to this archive is signed by Example AG. A third party can check "
       "that signature for themselves; it is not a claim the archive makes about itself.",
       "Das Programm, das in dieses Archiv geschrieben hat, ist signiert von Example AG. Dritte "
       "können diese Signatur selbst prüfen; sie ist keine Behauptung des Archivs über sich "
       "selbst.",
       R"({"publisherIdentified":{"_0":"Example AG","distribution":true}})"},
      {"verbatim",
       Finding::Verbatim({{"Chain break at entry %@", {"3"}}, {"no translation %@", {"x"}}}),
       "Chain break at entry 3; no translation x",
       "Bruch der Kette bei Eintrag 3; no translation x",
       R"({"verbatim":{"_0":"Chain break at entry 3; no translation x"}})"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const Finding finding(c.finding);
    EXPECT_EQ(finding.text(), c.english);
    EXPECT_EQ(finding.text(ReportLanguage::german), c.german);
    EXPECT_EQ(finding.json(), c.json);
  }
}

TEST(SyncSchedule, reading) {
  EXPECT_EQ(SyncSchedule::fromJson(
                R"({"enabled":true,"interval":"weekly","hour":7,"minute":5,"weekday":9})")
                .value()
                .summary()
                .text(),
            "every Monday at 07:05");
  const auto daily = SyncSchedule::fromJson(R"({"enabled":true,"interval":"daily","hour":"x"})");
  EXPECT_EQ(daily.value().summary().text(), "every day at 03:00");
  EXPECT_EQ(daily.value().staleAfter(), 259200);
  EXPECT_EQ(SyncSchedule::fromJson("{}").value().summary().text(), "off");
  EXPECT_EQ(SyncSchedule::fromJson("[1"), std::nullopt);
}

}  // namespace
}  // namespace ambervane
