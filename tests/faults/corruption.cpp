#include "tests/faults/corruption.h"

#include <algorithm>
#include <random>

#include "base/digest.h"
#include "base/file.h"
#include "base/json.h"
#include "base/text.h"
#include "platform/immutable_flag.h"
#include "store/pack_format.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

/// Whether the byte is one of a record header's fields that no checksum covers: flags, dictionary
/// and original length may change without any effect on how the record is read.
bool isUncheckedField(const Bytes& pack, std::size_t at) {
  for (std::size_t start = kPackHeaderBytes; start <= at;) {
    if (at >= start + kRecordFlagsOffset && at < start + kRecordStoredLengthOffset) return true;
    if (start + kRecordHeaderBytes > pack.size()) return false;
    start += kRecordHeaderBytes + readLittleEndian32(pack, start + kRecordStoredLengthOffset);
  }
  return false;
}

/// White space at the end of a journal, or anywhere in a seal, says nothing.
bool saysTheSame(const Bytes& damaged, const Bytes& original) {
  if (trim(damaged) == trim(original)) return true;
  const auto seal = nlohmann::json::parse(original, nullptr, false);
  return seal.is_object() && seal == nlohmann::json::parse(damaged, nullptr, false);
}

/// One thing that goes wrong with one file.
class Damage {
 public:
  Damage(const fs::path& archive, std::uint64_t seed) : random_(seed) {
    // Folders first, so that one with many files or long ones does not get all the damage.
    std::map<std::string, std::vector<fs::path>> files;
    for (const auto& entry : fs::recursive_directory_iterator(archive)) {
      if (!entry.is_regular_file() || entry.file_size() == 0) continue;
      const fs::path& path = entry.path();
      files[path.parent_path().native() + path.extension().native()].push_back(path);
    }
    auto group = std::next(files.begin(), below(files.size()))->second;
    std::ranges::sort(group);
    path_ = group[static_cast<std::size_t>(below(group.size()))];
    name_ = path_.lexically_relative(archive);
  }

  void inflict() {
    Bytes bytes = readFile(path_);
    const auto at = static_cast<std::size_t>(below(bytes.size()));
    const std::size_t block = below(2) == 0 ? 512 : 4096;
    switch (below(5)) {
      case 0:
        what_ = name_ + " cut to " + std::to_string(at);
        isSevere_ = bytes.size() - at > 512;
        bytes.resize(at);
        break;
      case 1: {
        const std::size_t from = at / block * block;
        const std::size_t size = std::min(block, bytes.size() - from);
        const bool zeroes = below(2) == 0;
        isSevere_ = true;
        what_ = name_ + " overwritten with " + (zeroes ? "zeroes" : "noise") + " from " +
                std::to_string(from) + ", " + std::to_string(size) + " bytes";
        for (std::size_t i = from; i < from + size; ++i) {
          bytes[i] = zeroes ? '\0' : static_cast<char>(below(256));
        }
        break;
      }
      default:
        what_ = name_ + " one byte changed at " + std::to_string(at);
        isUnchecked_ = path_.extension() == ".pack" && isUncheckedField(bytes, at);
        bytes[at] = static_cast<char>(bytes[at] ^ (1 + below(255)));
    }
    hasChanged_ = !saysTheSame(bytes, readFile(path_));
    const bool wasImmutable = isImmutable(path_);
    clearImmutable(path_);
    // In place: the mode of the file is none of the damage.
    const auto mode = fs::status(path_).permissions();
    fs::permissions(path_, fs::perms::owner_all, fs::perm_options::add);
    fs::resize_file(path_, 0);
    AppendFile::open(path_, 0600).append(bytes);
    fs::permissions(path_, mode);
    if (wasImmutable) setImmutable(path_);
  }

  long below(std::size_t limit) { return static_cast<long>(random_() % limit); }
  /// Of the file, below the archive's folder.
  const std::string& name() const { return name_; }
  const std::string& what() const { return what_; }
  bool hasChanged() const { return hasChanged_; }
  /// More than one byte, or the last few.
  bool isSevere() const { return isSevere_; }
  bool isUnchecked() const { return isUnchecked_; }

 private:
  std::mt19937_64 random_;
  fs::path path_;
  std::string name_, what_;
  bool hasChanged_ = false;
  bool isSevere_ = false;
  bool isUnchecked_ = false;
};

/// What a report must say of damage to the file: "[FAIL]", or words of its own where the damage
/// takes nothing from the evidence and no content. Nothing (empty) is asked for databases, which
/// have unused pages and bytes, for "FORMAT.md", which is written anew, for "lock", which says
/// nothing, and for the manifest, most words of which are its owner's.
std::string expectedWords(const Damage& damage, bool hasKeys) {
  const std::string& name = damage.name();
  if (name.ends_with(".idx")) {
    // The lines have no checksum: that one is lost shows, that a mailbox is misspelt does not.
    return damage.isSevere() ? "some packs have no recovery sidecar" : "";
  }
  if (name == "keys/master.key") return hasKeys ? "[FAIL]" : "";
  if (name == "keys/seal.key") return "Signing key continuity";
  if (damage.isUnchecked()) return "";
  const bool isEvidence =
      name.starts_with("packs/") || name.starts_with("chain/") || name.starts_with("dict/");
  return isEvidence ? "[FAIL]" : "";
}

}  // namespace

Problems judgeDamage(const Template& archive, std::uint64_t seed, std::string& what) {
  Problems problems;
  const ScratchFolder folder;
  const fs::path place = folder / "a";
  archive.copyTo(place);
  Damage damage(place, seed);
  damage.inflict();
  what = damage.what();
  const Program program(folder.path());

  const auto run = [&](const std::vector<std::string>& words) {
    const Outcome outcome = program.run(words);
    if (outcome.signal != 0) problems.push_back(words.front() + " crashed: " + outcome.text());
    if (!outcome.succeeded() && outcome.err.empty() && words.front() != "verify") {
      problems.push_back(words.front() + " fails without a word");
    }
    return outcome;
  };
  const auto show = [&](const std::string& digest) {
    const Outcome shown = run({"show", place, digest, "--raw"});
    if (shown.succeeded() && sha256Hex(shown.out) != digest) {
      problems.push_back("another message for " + digest);
    }
  };
  const Outcome verified = run({"verify", place, "--deep"});
  const std::string words = expectedWords(damage, !archive.holdings().keys.empty());
  if (verified.succeeded() && damage.hasChanged() &&
      (words == "[FAIL]" || verified.out.find(words) == std::string::npos)) {
    problems.push_back("verify does not see it");
  }
  std::vector<std::string> digests(archive.holdings().messages.begin(),
                                   archive.holdings().messages.end());
  for (int i = 0; i < 3; ++i) show(digests[static_cast<std::size_t>(damage.below(digests.size()))]);
  run({"search", place, "geheim" + std::to_string(1 + damage.below(8)) + "x"});
  run({"stats", place});
  run(archive.command({"import", "", {"import", "@", "@new"}}, place));
  show(sha256Hex(corpusMail(static_cast<int>(9 + damage.below(12)))));
  return problems;
}

}  // namespace ambervane
