#include "store/transport_archive.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <zip.h>

#include <csignal>
#include <map>

#include "base/digest.h"
#include "base/file.h"
#include "tests/support/mail_builder.h"
#include "tests/support/scratch_folder.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

struct Member {
  Bytes content;
  mode_t mode = 0;
  friend bool operator==(const Member&, const Member&) = default;
};

std::map<std::string, Member> membersOf(const fs::path& path) {
  std::map<std::string, Member> members;
  zip_t* const zip = ::zip_open(path.c_str(), ZIP_RDONLY | ZIP_CHECKCONS, nullptr);
  if (zip == nullptr) return members;
  for (zip_int64_t i = 0; i < ::zip_get_num_entries(zip, 0); ++i) {
    const auto index = static_cast<zip_uint64_t>(i);
    zip_stat_t facts{};
    ::zip_stat_index(zip, index, 0, &facts);
    zip_uint8_t system = 0;
    zip_uint32_t attributes = 0;
    ::zip_file_get_external_attributes(zip, index, 0, &system, &attributes);
    Member member{Bytes(facts.size, '\0'), attributes >> 16};
    zip_file_t* const file = ::zip_fopen_index(zip, index, 0);
    ::zip_fread(file, member.content.data(), facts.size);
    ::zip_fclose(file);
    members[facts.name] = member;
  }
  ::zip_close(zip);
  return members;
}

std::string failureOf(const fs::path& folder, const fs::path& to) {
  try {
    TransportArchive::zip(folder, to);
  } catch (const TransportError& error) {
    return error.what();
  }
  return "";
}

class TransportArchiveTest : public testing::Test {
 protected:
  TransportArchiveTest() {
    fs::create_directories(folder_ / "Müller/in/empty");
    writeFileAtomically(folder_ / "Müller/one.txt", "eins");
    writeFileAtomically(folder_ / "Müller/in/noise", file_, 0600);
    fs::create_symlink("../one.txt", folder_ / "Müller/in/link");
    fs::create_symlink("/", folder_ / "Müller/loop");
    ::mkfifo((folder_ / "Müller/pipe").c_str(), 0600);
  }
  const ScratchFolder folder_;
  const Bytes file_ = noise(300000);
};

TEST_F(TransportArchiveTest, wrapsWhatIsThere) {
  const fs::path zip = folder_ / "m.zip";
  std::vector<std::string> phases;
  for (int again = 0; again < 2; ++again) {
    const auto made =
        TransportArchive::zip(folder_ / "Müller/", zip,
                              [&](const std::string& phase, std::int64_t done, std::int64_t total) {
                                EXPECT_LE(done, std::max<std::int64_t>(total, 0));
                                if (phases.empty() || phases.back() != phase)
                                  phases.push_back(phase);
                              });
    EXPECT_EQ(made.digest, sha256Hex(readFile(zip)));
    EXPECT_EQ(made.bytes, static_cast<std::int64_t>(fs::file_size(zip)));
    EXPECT_EQ(readFile(folder_ / "m.zip.sha256"), made.digest + "  m.zip\n");
  }
  phases.resize(3);
  EXPECT_EQ(phases, (std::vector<std::string>{"Measuring Müller", "Writing Müller",
                                              "Checksumming Müller"}));
  const std::map<std::string, Member> wanted = {
      {"Müller/", {"", S_IFDIR | 0755}},
      {"Müller/in/", {"", S_IFDIR | 0755}},
      {"Müller/in/empty/", {"", S_IFDIR | 0755}},
      {"Müller/in/link", {"../one.txt", S_IFLNK | 0777}},
      {"Müller/in/noise", {file_, S_IFREG | 0600}},
      {"Müller/loop", {"/", S_IFLNK | 0777}},
      {"Müller/one.txt", {"eins", S_IFREG | 0644}},
  };
  EXPECT_EQ(membersOf(zip), wanted);
}

TEST_F(TransportArchiveTest, failuresLeaveNothing) {
  const fs::path zip = folder_ / "out/m.zip";
  EXPECT_EQ(
      failureOf(folder_ / "Müller/one.txt", zip),
      (folder_ / "Müller/one.txt").native() + " is not a folder, so there is nothing to wrap");
  EXPECT_TRUE(
      failureOf(folder_ / "Müller", zip).starts_with("Could not write the .zip (ditto exited "))
      << "there is no such folder to write into";
  fs::create_directory(folder_ / "out");
  writeFileAtomically(zip, "old");

  rlimit usual{};
  ::getrlimit(RLIMIT_FSIZE, &usual);
  const rlimit small{100000, usual.rlim_max};
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  ::setrlimit(RLIMIT_FSIZE, &small);
  const std::string reason = failureOf(folder_ / "Müller", zip);
  ::setrlimit(RLIMIT_FSIZE, &usual);
  std::signal(SIGXFSZ, handler);
  EXPECT_TRUE(reason.starts_with("Could not write the .zip (ditto exited 6): ")) << reason;
  EXPECT_EQ(readFile(zip), "old");
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_ / "out"), {}), 1) << "no part is left";
}

}  // namespace
}  // namespace ambervane
