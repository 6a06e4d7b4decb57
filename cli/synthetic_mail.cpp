// Sentences are patterns whose slots are filled from word lists and with numbers, which gives text
// that compresses about as well as real mail does. Everything is drawn from generators seeded with
// what it belongs to (a thread, a message, a file of the shared pool, a person), so that any
// message can be made without those before it.

#include "cli/synthetic_mail.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <span>
#include <utility>
#include <vector>

#include "base/calendar.h"
#include "base/text.h"
#include "mailcore/transfer_decoding.h"

namespace ambervane {
namespace {

using Words = std::span<const char* const>;

/// SplitMix64: the same numbers on every platform, from any seed.
class Random {
 public:
  /// What the draws are for, and of which thing.
  explicit Random(std::uint64_t purpose, std::uint64_t first, std::uint64_t second = 0) {
    for (const std::uint64_t part : {purpose, first, second}) state_ = next() ^ part;
  }
  std::uint64_t next() noexcept {
    std::uint64_t z = state_ += 0x9e3779b97f4a7c15U;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9U;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebU;
    return z ^ (z >> 31);
  }
  /// 0 to `limit` - 1.
  int below(int limit) noexcept {
    return static_cast<int>(next() % static_cast<std::uint64_t>(limit));
  }
  bool chance(int percent) noexcept { return below(100) < percent; }
  const char* pick(Words words) noexcept { return words[next() % words.size()]; }
  Bytes noise(std::size_t size) {
    Bytes bytes;
    bytes.reserve(size + 8);
    while (bytes.size() < size) {
      const std::uint64_t value = next();
      for (int shift = 0; shift < 64; shift += 8) {
        bytes += static_cast<char>((value >> shift) & 0xff);
      }
    }
    bytes.resize(size);
    return bytes;
  }

 private:
  std::uint64_t state_ = 20260301;
};

/// What keeps the draws of different things apart.
enum Purpose : std::uint64_t { kThread = 1, kLetter, kFiles, kSharedFile, kPerson, kIdentifier };

constexpr const char* kFirstNames[] = {
    "Anna",  "Björn", "Céline", "Daniel", "Emily",  "Franz", "Greta",  "Hannes", "Irène", "Jürg",
    "Klaus", "Lucy",  "Marco",  "Nicole", "Oliver", "Petra", "Rachel", "Sabine", "Tom",   "Ursula"};
constexpr const char* kLastNames[] = {"Ammann", "Bühler",  "Clark", "Dubois",   "Eggli",
                                      "Frei",   "Größner", "Huber", "Iten",     "Jones",
                                      "Köhler", "Lüthi",   "Moser", "Niederer", "Oberholzer",
                                      "Porter", "Roth",    "Suter", "Taylor",   "Zellweger"};
constexpr const char* kCompanies[] = {
    "Aarebau AG",         "Bergglas GmbH",     "Colbert & Sons Ltd",  "Dorfdruck AG",
    "Elbe Logistik GmbH", "Feldmann Treuhand", "Grindel Systems Ltd", "Hofer Anlagenbau AG",
    "Ilmtal Papier KG",   "Jura Präzision SA", "Kestrel Trading Ltd", "Limmat Energie AG"};

/// The words of a language. Nouns are put together from two halves. In a pattern %n is a noun, %a
/// an adjective, %v a verb, %p a person, %c a company, %d a day, %m an amount and %i a number.
struct Language {
  Words firstHalves, secondHalves, adjectives, verbs, patterns;
  const char* greeting;
  const char* closing;
  const char* quoteLead;  ///< before and after the name of the one quoted
  const char* quoteTail;
};

constexpr const char* kGermanFirst[] = {
    "Rechnungs", "Liefer",   "Zahlungs", "Projekt",   "Kunden",    "Vertrags",  "Angebots",
    "Auftrags",  "Lager",    "Montage",  "Prüf",      "Personal",  "Steuer",    "Jahres",
    "Monats",    "Bestell",  "Versand",  "Bau",       "Geschäfts", "Reise",     "Wartungs",
    "Kosten",    "Material", "Anlagen",  "Beratungs", "Schulungs", "Qualitäts", "Mängel"};
constexpr const char* kGermanSecond[] = {
    "bericht",    "plan",       "liste",        "nummer",      "stelle",      "abteilung",
    "leitung",    "prüfung",    "freigabe",     "bestätigung", "frist",       "position",
    "übersicht",  "unterlagen", "anfrage",      "änderung",    "besprechung", "planung",
    "abrechnung", "menge",      "vereinbarung", "entwurf",     "gebühr",      "rückstellung"};
constexpr const char* kGermanAdjectives[] = {
    "aktuelle",        "nächste", "vollständige", "geänderte",     "vereinbarte", "zusätzliche",
    "unterschriebene", "offene",  "korrigierte",  "ursprüngliche", "fällige",     "interne",
    "gewünschte",      "letzte",  "schriftliche", "vorläufige",    "gemeinsame",  "genannte"};
constexpr const char* kGermanVerbs[] = {"prüfen",   "bestätigen",  "ergänzen",     "freigeben",
                                        "ablegen",  "verschieben", "besprechen",   "anpassen",
                                        "bezahlen", "nachliefern", "abschliessen", "weiterleiten"};
constexpr const char* kGermanPatterns[] = {
    "Können Sie bitte die %a %n bis zum Termin am %d %v?",
    "%p hat die %n für den Auftrag %i gestern erhalten und wird sie %v.",
    "Wir haben die %a %n der %c mit der %n verglichen; es fehlen noch %m.",
    "Der Termin vom %d passt uns nicht, weil die %n noch offen ist.",
    "Anbei die %a %n zu Projekt %i, wie mit %p besprochen.",
    "Der Betrag von %m ist gemäss %n am %d fällig.",
    "Die %n und die %a %n müssen wir vor dem nächsten Termin %v.",
    "Für die %n rechnen wir mit %m, die %n nicht eingeschlossen.",
    "Bitte %v Sie die %n direkt mit %p von der %c.",
    "Laut %n vom %d sind %i Stück geliefert, %i sind noch in der %n.",
    "Sobald die %a %n vorliegt, können wir die %n %v.",
    "Die %c meldet, dass die %n Nr. %i bei der %n liegen geblieben ist."};
constexpr const char* kEnglishFirst[] = {
    "delivery", "invoice", "payment", "project", "customer", "contract", "order",
    "stock",    "site",    "test",    "tax",     "year-end", "shipping", "travel",
    "service",  "cost",    "supply",  "plant",   "advisory", "training", "quality"};
constexpr const char* kEnglishSecond[] = {
    " report",   " schedule",  " list",      " number", " desk",    " review",   " approval",
    " deadline", " item",      " overview",  " file",   " inquiry", " change",   " meeting",
    " planning", " statement", " agreement", " draft",  " fee",     " forecast", " reserve"};
constexpr const char* kEnglishAdjectives[] = {
    "current", "next",     "complete", "revised",  "agreed",  "additional", "signed",
    "open",    "original", "overdue",  "internal", "written", "tentative",  "joint"};
constexpr const char* kEnglishVerbs[] = {"check",  "confirm", "amend",   "approve",
                                         "file",   "move",    "discuss", "adjust",
                                         "settle", "forward", "close",   "book"};
constexpr const char* kEnglishPatterns[] = {
    "Could you please %v the %a %n before %d?",
    "%p received the %n for order %i yesterday and is going to %v it.",
    "We compared the %a %n from %c with the %n; %m are still missing.",
    "The date of %d does not suit us because the %n is still open.",
    "Please find the %a %n for project %i, as discussed with %p.",
    "According to the %n the amount of %m is due on %d.",
    "We have to %v the %n and the %a %n before the next meeting.",
    "Our estimate for the %n is %m, not including the %n.",
    "As soon as the %a %n is there we can %v the %n.",
    "%c tells us that %n no. %i got stuck at the %n."};

constexpr Language kGerman{kGermanFirst,         kGermanSecond,        kGermanAdjectives,
                           kGermanVerbs,         kGermanPatterns,      "Guten Tag ",
                           "Freundliche Grüsse", "Am Vortag schrieb ", ":"};
constexpr Language kEnglish{kEnglishFirst,  kEnglishSecond,        kEnglishAdjectives,
                            kEnglishVerbs,  kEnglishPatterns,      "Dear ",
                            "Kind regards", "On the day before, ", " wrote:"};

std::string noun(const Language& language, Random& random) {
  return std::string(random.pick(language.firstHalves)) + random.pick(language.secondHalves);
}

std::string personName(int person) {
  Random random(kPerson, person);
  return std::string(random.pick(kFirstNames)) + " " + random.pick(kLastNames);
}

std::string personAddress(int person) {
  return fmt::format("person{}@{}", person, SyntheticMail::kDomain);
}

/// Few people write most of the mail.
int anyPerson(Random& random) { return random.below(1 + random.below(SyntheticMail::kPersons)); }

void appendSlot(std::string& out, char slot, const Language& language, Random& random) {
  switch (slot) {
    case 'n':
      out += noun(language, random);
      break;
    case 'a':
      out += random.pick(language.adjectives);
      break;
    case 'v':
      out += random.pick(language.verbs);
      break;
    case 'p':
      out += personName(anyPerson(random));
      break;
    case 'c':
      out += random.pick(kCompanies);
      break;
    case 'd':
      out += fmt::format("{}.{}.", 1 + random.below(28), 1 + random.below(12));
      break;
    case 'm':
      out += fmt::format("CHF {}.{:02}", random.below(90000), random.below(100));
      break;
    default:
      out += std::to_string(random.below(100000));
      break;
  }
}

std::string sentence(const Language& language, Random& random) {
  const std::string_view pattern = random.pick(language.patterns);
  std::string text;
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    if (pattern[i] == '%') {
      appendSlot(text, pattern[++i], language, random);
    } else {
      text += pattern[i];
    }
  }
  return text;
}

/// `text` in lines of at most about 72 bytes.
std::string wrapped(std::string_view text) {
  std::string lines;
  std::size_t column = 0;
  for (const std::string_view word : splitOmittingEmpty(text, " ")) {
    if (column > 0 && column + word.size() > 72) {
      lines += "\r\n";
      column = 0;
    }
    if (column > 0) lines += ' ';
    lines += word;
    column += word.size() + 1;
  }
  return lines + "\r\n";
}

std::string quotedPrintable(std::string_view text) {
  std::string out;
  std::size_t column = 0;
  for (const char c : text) {
    const bool isPlain = (c >= ' ' && c < 127 && c != '=') || c == '\r' || c == '\n';
    if (column >= 72 && c != '\r' && c != '\n') {
      out += "=\r\n";
      column = 0;
    }
    const std::size_t before = out.size();
    if (isPlain) {
      out += c;
    } else {
      out += fmt::format("={:02X}", static_cast<unsigned char>(c));
    }
    column = c == '\n' ? 0 : column + out.size() - before;
  }
  return out;
}

/// A header value, in encoded words (RFC 2047) where it needs them.
std::string headerText(std::string_view text) {
  if (isAscii(text)) return std::string(text);
  std::vector<std::string> words;
  while (!text.empty()) {
    const std::string_view piece = prefixCharacters(text, 18);
    words.push_back("=?utf-8?B?" + base64Encode(piece) + "?=");
    text.remove_prefix(piece.size());
  }
  return join(words, "\r\n ");
}

std::string mailbox(int person) {
  const std::string name = personName(person);
  const std::string shown = isAscii(name) ? "\"" + name + "\"" : headerText(name);
  return shown + " <" + personAddress(person) + ">";
}

struct File {
  std::string name, mimeType;
  Bytes content;
};

Bytes table(Random& random) {
  Bytes rows = "Position;Artikel;Menge;Preis;Lieferdatum\r\n";
  const int count = 60 + random.below(1500);
  for (int i = 1; i <= count; ++i) {
    rows += fmt::format("{};{};{};{}.{:02};2024-{:02}-{:02}\r\n", i, noun(kGerman, random),
                        random.below(500), random.below(9000), random.below(100),
                        1 + random.below(12), 1 + random.below(28));
  }
  return rows;
}

/// Most of a PDF, an office document or a picture is compressed already.
File file(Random& random) {
  const std::string number = std::to_string(random.below(100000));
  const auto size = static_cast<std::size_t>(4000 + random.below(4000 << random.below(6)));
  switch (random.below(8)) {
    case 0:
      return {"Preisliste-" + number + ".csv", "text/csv", table(random)};
    case 1:
    case 2:
      return {"Plan-" + number + ".png", "image/png", "\x89PNG\r\n\x1a\n" + random.noise(size)};
    case 3:
      return {"Protokoll-" + number + ".docx",
              "application/vnd.openxmlformats-officedocument.wordprocessingml.document",
              "PK\x03\x04" + random.noise(size)};
    default: {
      Bytes pdf = "%PDF-1.5\n";
      constexpr std::size_t kPageBytes = 12000;
      for (std::size_t page = 1; pdf.size() < size; ++page) {
        pdf += fmt::format(
            "{} 0 obj\n<< /Type /Page /Parent 1 0 R /MediaBox [0 0 595 842] /Contents {} 0 R >>\n"
            "endobj\n{} 0 obj\n<< /Length {} /Filter /FlateDecode >>\nstream\n",
            2 * page, 2 * page + 1, 2 * page + 1, kPageBytes);
        pdf += random.noise(kPageBytes) + "\nendstream\nendobj\n";
      }
      return {"Rechnung-" + number + ".pdf", "application/pdf", pdf + "%%EOF\n"};
    }
  }
}

std::vector<File> filesOf(Random& random) {
  constexpr int kSharedFiles = 200;
  std::vector<File> files;
  if (!random.chance(24)) return files;
  const int count = random.chance(75) ? 1 : 2 + random.below(2);
  for (int i = 0; i < count; ++i) {
    if (random.chance(40)) {
      Random shared(kSharedFile, random.below(1 + random.below(kSharedFiles)));
      files.push_back(file(shared));
    } else {
      files.push_back(file(random));
    }
  }
  return files;
}

std::string textPart(std::string_view subtype, std::string_view text, bool encodes) {
  return fmt::format(
             "Content-Type: text/{}; charset=utf-8\r\nContent-Transfer-Encoding: {}\r\n\r\n",
             subtype, encodes ? "quoted-printable" : "8bit") +
         (encodes ? quotedPrintable(text) : std::string(text));
}

std::string filePart(const File& file) {
  return fmt::format(
             "Content-Type: {}; name=\"{}\"\r\nContent-Transfer-Encoding: base64\r\n"
             "Content-Disposition: attachment; filename=\"{}\"\r\n\r\n",
             file.mimeType, file.name, file.name) +
         ContentTransferDecoder::encodeBase64Wrapped(file.content, 76);
}

std::string multipart(std::string_view subtype, const std::vector<std::string>& parts,
                      Random& random) {
  const std::string boundary = fmt::format("=_{:016x}", random.next());
  std::string body =
      fmt::format("Content-Type: multipart/{}; boundary=\"{}\"\r\n\r\n", subtype, boundary);
  for (const std::string& part : parts) body += "--" + boundary + "\r\n" + part + "\r\n";
  return body + "--" + boundary + "--\r\n";
}

std::string asHtml(const std::string& text) {
  std::string html =
      "<html><head><meta http-equiv=\"Content-Type\" content=\"text/html; charset=utf-8\">\r\n"
      "<style type=\"text/css\">\r\np.MsoNormal, li.MsoNormal { margin:0cm; font-size:11.0pt; "
      "font-family:\"Calibri\",sans-serif; }\r\na:link { color:#0563C1; }\r\n</style></head>\r\n"
      "<body lang=\"DE-CH\" link=\"#0563C1\"><div class=\"WordSection1\">\r\n";
  for (const std::string_view line : splitOmittingEmpty(text, "\r\n")) {
    html += "<p class=\"MsoNormal\"><span lang=\"DE-CH\">";
    html += line.starts_with('>') ? "&gt;" + std::string(line.substr(1)) : std::string(line);
    html += "</span></p>\r\n";
  }
  return html + "</div></body></html>\r\n";
}

/// How a mailbox's messages follow one another: for each of eight in a row, which of the eight it
/// answers, or -1 for the first of a thread.
constexpr std::array<int, 8> kAnswers = {-1, 0, -1, -1, 3, 4, -1, 2};

std::int64_t answeredBy(std::int64_t number) {
  const auto place = static_cast<std::size_t>(number % std::ssize(kAnswers));
  return kAnswers[place] < 0 ? -1 : number - number % std::ssize(kAnswers) + kAnswers[place];
}

/// A message every 20 minutes or so, from 7 January 2019 on.
Date sentAt(std::int64_t number, Random& random) {
  return Date{1546848000.0 + static_cast<double>(number) * 1200.0 + random.below(1000)};
}

}  // namespace

/// A message before it is put into MIME.
struct SyntheticMail::Letter {
  Date date;
  int from = 0;
  std::vector<int> to;
  std::string subject;
  std::string text;  ///< without what it quotes
  std::string quoteLine;
  std::vector<std::int64_t> references;  ///< message numbers, the answered one last
};

std::string SyntheticMail::messageID(std::int64_t number) const {
  return fmt::format("<{:016x}.{}.{}@{}>", Random(kIdentifier, mailbox_, number).next(), mailbox_,
                     number, kDomain);
}

SyntheticMail::Letter SyntheticMail::letter(std::int64_t number) const {
  Letter letter;
  for (std::int64_t at = answeredBy(number); at >= 0; at = answeredBy(at)) {
    letter.references.insert(letter.references.begin(), at);
  }
  const std::int64_t root = letter.references.empty() ? number : letter.references.front();
  Random thread(kThread, mailbox_, root);
  const Language& language = thread.chance(60) ? kGerman : kEnglish;
  std::vector<int> people = {static_cast<int>(mailbox_ % kPersons)};
  for (int i = 0, others = 1 + thread.below(3); i < others; ++i)
    people.push_back(anyPerson(thread));
  letter.subject = noun(language, thread) + " " + std::to_string(thread.below(10000));
  if (!letter.references.empty()) letter.subject.insert(0, "Re: ");

  Random random(kLetter, mailbox_, number);
  letter.date = sentAt(number, random);
  // The owner and the others take turns.
  const bool isOwn = (letter.references.size() + (thread.chance(30) ? 1 : 0)) % 2 == 1;
  if (!isOwn) std::swap(people[0], people[1]);
  letter.from = people[0];
  letter.to.assign(people.begin() + 1, people.end());

  letter.text = language.greeting + personName(letter.to.front()) + "\r\n";
  const int paragraphs = 1 + random.below(4);
  for (int p = 0; p < paragraphs; ++p) {
    std::string paragraph = sentence(language, random);
    for (int s = random.below(6); s > 0; --s) paragraph += " " + sentence(language, random);
    letter.text += "\r\n" + wrapped(paragraph);
  }
  if (number % kRarePhraseEvery == kRarePhraseEvery / 2) {
    letter.text += "\r\n" + wrapped("Es gelten die bisherigen " + std::string(kRarePhrase) + ".");
  }
  Random signature(kPerson, letter.from);
  letter.text +=
      fmt::format("\r\n{}\r\n{}\r\n\r\n-- \r\n{}\r\nTel. +41 44 555 {:02} {:02}\r\n{}\r\n",
                  language.closing, personName(letter.from), signature.pick(kCompanies),
                  signature.below(100), signature.below(100), personAddress(letter.from));
  letter.quoteLine = language.quoteLead + personName(letter.from) + language.quoteTail + "\r\n";
  return letter;
}

SourceMessage SyntheticMail::message(std::int64_t number) const {
  const Letter letter = this->letter(number);
  Random random(kFiles, mailbox_, number);
  std::string text = letter.text;
  if (!letter.references.empty()) {
    const Letter answered = this->letter(letter.references.back());
    text += "\r\n" + answered.quoteLine;
    for (const std::string_view line : split(answered.text, '\n')) {
      text += "> " + std::string(line) + "\n";
    }
  }
  std::string body = textPart("plain", text, random.chance(40));
  if (random.chance(45)) {
    body = multipart("alternative", {body, textPart("html", asHtml(text), true)}, random);
  }
  std::vector<std::string> parts = {std::move(body)};
  for (const File& file : filesOf(random)) parts.push_back(filePart(file));
  body = parts.size() == 1 ? std::move(parts.front()) : multipart("mixed", parts, random);

  SourceMessage source;
  std::vector<std::string> to;
  for (const int person : letter.to) to.push_back(mailbox(person));
  source.raw = fmt::format(
      "Received: from mx{}.{} by mail.{} with ESMTPS id {:016x};\r\n {}\r\n"
      "From: {}\r\nTo: {}\r\nSubject: {}\r\nDate: {}\r\nMessage-ID: {}\r\n",
      random.below(4), kDomain, kDomain, random.next(),
      formatDate(letter.date, "EEE, d MMM yyyy HH:mm:ss Z"), mailbox(letter.from),
      join(to, ",\r\n "), headerText(letter.subject),
      formatDate(letter.date, "EEE, d MMM yyyy HH:mm:ss Z"), messageID(number));
  if (!letter.references.empty()) {
    std::vector<std::string> identifiers;
    for (const std::int64_t each : letter.references) identifiers.push_back(messageID(each));
    source.raw += "In-Reply-To: " + identifiers.back() +
                  "\r\nReferences: " + join(identifiers, "\r\n ") + "\r\n";
  }
  source.raw += "MIME-Version: 1.0\r\nX-Mailer: Bench 1.0\r\n" + body;

  const bool isOwn = letter.from == mailbox_ % kPersons;
  source.folderPath = isOwn               ? "Sent"
                      : random.chance(40) ? "INBOX"
                      : random.chance(50) ? fmt::format("Projekte/{}", random.pick(kCompanies))
                                          : "Archiv/" + formatDate(letter.date, "yyyy");
  if (random.chance(85)) source.flags.insert(MessageFlag::seen);
  if (random.chance(10)) source.flags.insert(MessageFlag::flagged);
  source.internalDate = letter.date;
  source.sourceIdentifier = std::to_string(number + 1);
  return source;
}

void SyntheticImporter::forEachMessage(const Body& body, const Unreadable& /*unreadable*/) {
  for (std::int64_t number = 0; number < count_; ++number) {
    SourceMessage message = mail_.message(number);
    bytes_ += static_cast<std::int64_t>(message.raw.size());
    if (!body(std::move(message))) return;
  }
}

}  // namespace ambervane
