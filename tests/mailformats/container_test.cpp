#include "mailformats/container.h"

#include <gmock/gmock.h>
#include <zlib.h>

#include <string>
#include <vector>

#include "mailformats/container_mbox.h"
#include "mailformats/container_reader.h"
#include "mailformats/import_error.h"
#include "mailformats/mbox_reader.h"
#include "mailformats/source_detector.h"
#include "tests/mailformats/file_tree.h"

namespace ambervane {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr int kGzip = 15 + 16;
constexpr int kRawDeflate = -15;

Bytes deflated(BytesView bytes, int window) {
  z_stream stream{};
  EXPECT_EQ(deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, window, 8, Z_DEFAULT_STRATEGY),
            Z_OK);
  Bytes out(deflateBound(&stream, static_cast<uLong>(bytes.size())) + 32, '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
  stream.avail_in = static_cast<uInt>(bytes.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

Bytes gzip(BytesView bytes) { return deflated(bytes, kGzip); }

struct ZipMember {
  std::string name;
  Bytes content;
  std::uint16_t flags = 0;       ///< 1: encrypted, 0x800: the name is UTF-8
  std::uint16_t method = 8;      ///< what the directory says; 0: stored, 8: deflated
  std::uint32_t attributes = 0;  ///< of Unix
  bool damaged = false;
};

/// A ZIP file field by field, so that each of them can be wrong. With `zip64` sizes and places
/// stand where ZIP64 has them.
class ZipWriter {
 public:
  explicit ZipWriter(bool zip64 = false) : zip64_(zip64) {}

  /// Returns the packed size.
  std::size_t add(const ZipMember& member) {
    const std::uint64_t offset = file_.size();
    Bytes packed = member.method == 8 ? deflated(member.content, kRawDeflate) : member.content;
    if (member.damaged) packed[packed.size() / 2] = static_cast<char>(~packed[packed.size() / 2]);
    appendLittleEndian32(file_, 0x04034b50);
    putCommon(file_, member, packed.size(), /*local=*/true);
    putName(file_, member, packed.size(), 0, /*local=*/true);
    file_ += packed;
    addToDirectory(member, packed.size(), offset);
    return packed.size();
  }
  /// A member that is the bytes of another one, as in a bomb of overlapping files.
  void addToDirectory(const ZipMember& member, std::size_t packed, std::uint64_t offset) {
    ++count_;
    appendLittleEndian32(directory_, 0x02014b50);
    appendLittleEndian16(directory_, 0x0300 | 45);  // made by Unix
    putCommon(directory_, member, packed, /*local=*/false);
    putName(directory_, member, packed, offset, /*local=*/false);
  }

  Bytes finish() {
    const std::uint64_t at = file_.size();
    file_ += directory_;
    const std::uint64_t end = file_.size();
    if (zip64_) {
      appendLittleEndian32(file_, 0x06064b50);
      put64(file_, 44);
      appendLittleEndian16(file_, 45);
      appendLittleEndian16(file_, 45);
      put64(file_, 0);
      for (const std::uint64_t value : {count_, count_, directory_.size(), at}) put64(file_, value);
      appendLittleEndian32(file_, 0x07064b50);
      appendLittleEndian32(file_, 0);
      put64(file_, end);
      appendLittleEndian32(file_, 1);
    }
    appendLittleEndian32(file_, 0x06054b50);
    appendLittleEndian32(file_, 0);
    for (int i = 0; i < 2; ++i) {
      appendLittleEndian16(file_, zip64_ ? 0xffff : static_cast<std::uint16_t>(count_));
    }
    for (const std::uint64_t value : {directory_.size(), at}) {
      appendLittleEndian32(file_, zip64_ ? 0xffffffff : static_cast<std::uint32_t>(value));
    }
    appendLittleEndian16(file_, 0);
    return std::move(file_);
  }

 private:
  static void put64(Bytes& out, std::uint64_t value) {
    appendLittleEndian32(out, static_cast<std::uint32_t>(value));
    appendLittleEndian32(out, static_cast<std::uint32_t>(value >> 32));
  }
  void putCommon(Bytes& out, const ZipMember& member, std::size_t packed, bool local) const {
    const auto* const bytes = reinterpret_cast<const Bytef*>(member.content.data());
    appendLittleEndian16(out, 45);
    appendLittleEndian16(out, member.flags);
    appendLittleEndian16(out, member.method);
    appendLittleEndian32(out, 0x58450000);  // 5 February 2024
    appendLittleEndian32(
        out, static_cast<std::uint32_t>(crc32(0, bytes, static_cast<uInt>(member.content.size()))));
    for (const std::size_t size : {packed, member.content.size()}) {
      appendLittleEndian32(out, zip64_ ? 0xffffffff : static_cast<std::uint32_t>(size));
    }
    appendLittleEndian16(out, static_cast<std::uint16_t>(member.name.size()));
    appendLittleEndian16(out, zip64_ ? (local ? 20 : 28) : 0);
  }
  void putName(Bytes& out, const ZipMember& member, std::size_t packed, std::uint64_t offset,
               bool local) const {
    if (!local) {
      appendLittleEndian16(out, 0);
      appendLittleEndian32(out, 0);
      appendLittleEndian32(out, member.attributes);
      appendLittleEndian32(out, zip64_ ? 0xffffffff : static_cast<std::uint32_t>(offset));
    }
    out += member.name;
    if (!zip64_) return;
    appendLittleEndian16(out, 1);
    appendLittleEndian16(out, local ? 16 : 24);
    put64(out, member.content.size());
    put64(out, packed);
    if (!local) put64(out, offset);
  }

  bool zip64_;
  Bytes file_;
  Bytes directory_;
  std::uint64_t count_ = 0;
};

Bytes zip(const std::vector<ZipMember>& members, bool zip64 = false) {
  ZipWriter writer(zip64);
  for (const ZipMember& member : members) writer.add(member);
  return writer.finish();
}

/// What comes out of a file of that name and content; the failure that ends it goes last.
Harvest harvestOf(const std::string& name, const Bytes& content) {
  const FileTree tree{{name, content}};
  Harvest found;
  const auto importer = SourceDetector::importer(tree / name, SourceDetector::detect(tree / name));
  const auto relative = [&](std::string text) {
    const std::size_t at = text.find(tree.root().string() + "/");
    return at == text.npos ? text : text.erase(at, tree.root().string().size() + 1);
  };
  try {
    importer->forEachMessage(
        [&](SourceMessage&& message) {
          found.messages.push_back(std::move(message));
          found.messages.back().originPath = relative(*found.messages.back().originPath);
          return true;
        },
        [&](const std::string& item) { found.unreadable.push_back(relative(item)); });
  } catch (const ImportError& error) {
    found.unreadable.push_back(relative(error.message().text()));
  }
  return found;
}

const std::string kMbox = "From a\nTo: x\n\none\n\nFrom b\nTo: y\n\ntwo\n";

TEST(Container, detection) {
  const FileTree tree{
      {"a", gzip("x")}, {"b", zip({})}, {"c", zip({{"n", "x"}})}, {"d", "\x1f\x8b"}};
  EXPECT_EQ(SourceDetector::detect(tree / "a"), MailSourceKind::gzipFile);
  EXPECT_EQ(SourceDetector::detect(tree / "b"), MailSourceKind::zipFile);
  EXPECT_EQ(SourceDetector::detect(tree / "c"), MailSourceKind::zipFile);
  EXPECT_EQ(SourceDetector::detect(tree / "d"), MailSourceKind::emlFile);
}

TEST(Container, gzipFiles) {
  const Bytes whole = gzip(kMbox);
  const Bytes noise = [] {
    Bytes bytes = "From a\nTo: x\n\none\n\nFrom b\nTo: y\n\n";
    for (unsigned i = 1; bytes.size() < 400'000; i = i * 1664525U + 1013904223U) {
      bytes.push_back(static_cast<char>(i >> 24));
    }
    return bytes;
  }();
  const std::string one = "Inbox|To: x\n\none\n";
  const std::string two = "Inbox|To: y\n\ntwo\n";
  static const struct {
    const char* name;
    std::string file;
    Bytes content;
    std::vector<std::string> texts, problems;
  } kCases[] = {
      {"mbox", "Inbox.mbox.gz", whole, {one, two}, {}},
      {"mailmanName", "Inbox.txt.GZ", whole, {one, two}, {}},
      {"message", "a.eml.gz", gzip("To: x\n\none"), {"a|To: x\n\none"}, {}},
      {"noExtension", "Inbox", gzip("To: x\n\none"), {"Inbox|To: x\n\none"}, {}},
      {"severalFiles",
       "Inbox.mbox.gz",
       gzip(kMbox.substr(0, 20)) + gzip(kMbox.substr(20)),
       {one, two},
       {}},
      {"zerosAsPadding", "Inbox.mbox.gz", whole + Bytes(9000, '\0'), {one, two}, {}},
      {"otherBytesBehind",
       "Inbox.mbox.gz",
       whole + "x",
       {one},
       {"Cannot read Inbox.mbox.gz: its compressed data is damaged (other bytes follow behind "
        "it)"}},
      {"cutShort",
       "Inbox.mbox.gz",
       gzip(noise).substr(0, 200'000),
       {one},
       {"Cannot read Inbox.mbox.gz: its compressed data ends early"}},
      {"damagedChecksum",
       "Inbox.mbox.gz",
       Bytes(whole).replace(whole.size() - 8, 1, "x"),
       {one},
       {"Cannot read Inbox.mbox.gz: its compressed data is damaged (incorrect data check)"}},
      {"blanksBeforeMbox", "Inbox.mbox.gz", gzip("\n\n" + kMbox), {one, two}, {}},
      {"tarInside",
       "mail.tar.gz",
       gzip(Bytes(257, 'x') + "ustar"),
       {},
       {"Cannot read mail.tar.gz: a tar file is in it, unpack it and import what comes out"}},
      {"empty", "a.mbox.gz", gzip(""), {}, {}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const Harvest found = harvestOf(c.file, c.content);
    EXPECT_EQ(found.texts(), c.texts);
    EXPECT_EQ(found.unreadable, c.problems);
  }
}

TEST(Container, zipMembers) {
  static const struct {
    const char* name;
    ZipMember member;
    std::vector<std::string> texts, problems;
  } kCases[] = {
      {"message", {"a.eml", "To: x\n\n1"}, {"Mail|To: x\n\n1"}, {}},
      {"inFolder", {"In/Box/a.EML", "To: x\n\n1"}, {"In/Box|To: x\n\n1"}, {}},
      {"stored", {"a.eml", "To: x\n\n1", 0, 0}, {"Mail|To: x\n\n1"}, {}},
      {"mbox",
       {"Takeout/Mail/All mail.mbox", kMbox},
       {"Takeout/Mail/All mail|To: x\n\none\n", "Takeout/Mail/All mail|To: y\n\ntwo\n"},
       {}},
      {"applePackage", {"Sent.mbox/mbox", "From a\nx"}, {"Sent|x"}, {}},
      {"mboxOfAnyName", {"Archive", "From a\nx"}, {"Archive|x"}, {}},
      {"gzipInside", {"L/a.mbox.gz", gzip("From a\nx")}, {"L/a|x"}, {}},
      {"utf8Name", {"Entw\xc3\xbcrfe/a.eml", "1", 0x800}, {"Entwürfe|1"}, {}},
      {"codePage437Name", {"Entw\x81rfe/a.eml", "1"}, {"Entwürfe|1"}, {}},
      {"unmarkedUtf8Name", {"Entw\xc3\xbcrfe/a.eml", "1"}, {"Entwürfe|1"}, {}},
      {"backslashes", {"In\\Box\\a.eml", "1"}, {"In/Box|1"}, {}},
      {"escape", {"../../../etc/a.eml", "1"}, {"etc|1"}, {}},
      {"absolute", {"/C:/./a.eml", "1"}, {"Mail|1"}, {}},
      {"drive", {"C:\\..\\In\\a.eml", "1"}, {"In|1"}, {}},
      {"numbered", {"inbox/7", "To: x\n\n1"}, {"inbox|To: x\n\n1"}, {}},
      {"link",
       {"a.eml", "/etc/passwd", 0, 0, 0xa1ff0000},
       {},
       {"Mail.zip: no file in it has the name of a message"}},
      {"besideMacFiles",
       {"__MACOSX/._a.eml", "x"},
       {},
       {"Mail.zip: no file in it has the name of a message"}},
      {"picture", {"a.png", "x"}, {}, {"Mail.zip: no file in it has the name of a message"}},
      {"encrypted",
       {"b/a.eml", "secret secret", 1},
       {},
       {"Mail.zip/b/a.eml: it is encrypted, unpack it with its password and import what comes "
        "out"}},
      {"unknownMethod",
       {"a.eml", "x", 0, 97},
       {},
       {"Mail.zip/a.eml: it is compressed by a method that cannot be read here (number 97)"}},
      {"wrongChecksum",
       {"a.eml", "To: x\n\n1", 0, 0, 0, true},
       {},
       {"Mail.zip/a.eml: its compressed data is damaged (CRC error)"}},
      {"otherStore",
       {"a.pst", "x"},
       {},
       {"Mail.zip: mail of another format in 1 of its entries (a.pst) was passed over, import it "
        "separately"}},
      {"maildir",
       {"In/cur/1.a.b:2,S", "x"},
       {},
       {"Mail.zip: mail of another format in 1 of its entries (In/cur/1.a.b:2,S) was passed over, "
        "import it separately"}},
      {"zipInside",
       {"x/b.eml", zip({})},
       {},
       {"Mail.zip: mail of another format in 1 of its entries (x/b.eml) was passed over, import it "
        "separately"}},
  };
  for (const auto& c : kCases) {
    for (const bool zip64 : {false, true}) {
      SCOPED_TRACE(std::string(c.name) + (zip64 ? ", ZIP64" : ""));
      Harvest found = harvestOf("Mail.zip", zip({c.member}, zip64));
      EXPECT_EQ(found.texts(), c.texts);
      EXPECT_EQ(found.unreadable, c.problems);
      // What is wrong with one member does not touch the next one, and order is kept.
      found = harvestOf("Mail.zip", zip({c.member, {"last.eml", "To: z\n\n"}}, zip64));
      ASSERT_EQ(found.messages.size(), c.texts.size() + 1);
      EXPECT_EQ(found.messages.back().originPath, "Mail.zip/last.eml");
      EXPECT_EQ(found.messages.back().sourceIdentifier, "last.eml");
    }
  }
  const Bytes cut = zip({{"a.eml", "To: x\n\n1"}}).substr(0, 60);
  EXPECT_THAT(harvestOf("Mail.zip", cut).unreadable,
              ElementsAre("Cannot read Mail.zip: it is damaged or cut short: the directory at its "
                          "end is missing"));
}

TEST(Container, bombsEndAtTheLimit) {
  const Bytes zeros(kFreeUnpackedBytes + (std::size_t{24} << 20), '\0');
  const std::string words = "it unpacks to more than 200 times its size, as a ZIP bomb does";
  EXPECT_THAT(harvestOf("a.gz", gzip(zeros)).unreadable, ElementsAre(HasSubstr("a.gz: " + words)));

  // One member is passed over; many that share its bytes end the reading.
  const Harvest one = harvestOf("a.zip", zip({{"bomb.eml", zeros}, {"a.eml", "To: x\n\n1"}}));
  EXPECT_EQ(one.messages.size(), 1U);
  EXPECT_THAT(one.unreadable, ElementsAre(HasSubstr("a.zip/bomb.eml: " + words)));
  ZipWriter writer;
  const ZipMember half{"half.eml", zeros.substr(0, zeros.size() / 2)};
  const std::size_t packed = writer.add(half);
  for (int i = 0; i < 9; ++i) writer.addToDirectory(half, packed, 0);
  const Harvest shared = harvestOf("a.zip", writer.finish());
  EXPECT_LT(shared.messages.size(), 9U);
  EXPECT_THAT(shared.unreadable, ElementsAre(HasSubstr("Cannot read a.zip: " + words)));
}

/// Hands out its bytes in pieces of one size.
class PieceStream : public InputStream {
 public:
  PieceStream(BytesView bytes, std::size_t size) : rest_(bytes), size_(size) {}
  BytesView next() override {
    const BytesView piece = rest_.substr(0, size_);
    rest_.remove_prefix(piece.size());
    return piece;
  }

 private:
  BytesView rest_;
  std::size_t size_;
};

TEST(ContainerMbox, readsAsTheFileReaderDoes) {
  static const struct {
    const char* name;
    std::string mbox;
  } kCases[] = {
      {"plain", kMbox},
      {"empty", ""},
      {"crlf", "From a\r\nA: b\r\n\r\nx\r\nFrom c\r\n\r\nFrom d\r\nE: f\r\n"},
      {"startBehindFirstLineFeed", "\nFrom a\nA: b\n\nx\n"},
      {"bytesBefore", "some words, xFrom \nFrom x\n\nFrom a\nA: b\n\nx"},
      {"noStart", "words\nFrom a\nFrom b\n"},
      {"fromBehindText", "From a\n\ntext\nFrom b\n>From c\n\n\nFrom d\n\nx\n\nFrom "},
      {"contentLength", "From a\nContent-Length: 2\n\nabc\n\nFrom b\nStatus: R\n\n"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const FileTree tree{{"m", c.mbox}};
    MboxReader reader(tree / "m", "f");
    const Harvest expected = harvest(reader);
    for (std::size_t size = 1; size <= 9; ++size) {
      SCOPED_TRACE(size);
      PieceStream stream(c.mbox, size);
      Harvest found;
      const auto take = [&](SourceMessage&& message) {
        found.messages.push_back(std::move(message));
        return true;
      };
      ContainerMbox((tree / "m").string(), "f")
          .read(stream.next(), stream, take,
                [&](const std::string& item) { found.unreadable.push_back(item); });
      EXPECT_EQ(found.texts(), expected.texts());
      EXPECT_EQ(found.unreadable, expected.unreadable);
    }
  }
}

}  // namespace
}  // namespace ambervane
