#include "doctext/document_helper.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>

#include "base/file.h"
#include "base/sanitized.h"
#include "doctext/helper_server.h"
#include "doctext/sandbox.h"
#include "tests/support/scratch_folder.h"

namespace ambervane {
namespace {

/// A helper in a process of its own that does with a document what its first letter says.
std::unique_ptr<DocumentHelper> startHelper(const DocumentReader& reader) {
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) return nullptr;
  const pid_t process = ::fork();
  if (process == 0) {
    ::setpgid(0, 0);
    ::close(ends[0]);
    ::_exit(serveDocuments(ends[1], reader));
  }
  ::setpgid(process, process);
  ::close(ends[1]);
  ::fcntl(ends[0], F_SETFL, O_NONBLOCK);
  return std::make_unique<DocumentHelper>(FileHandle(ends[0]), process);
}

DocumentReading misbehave(const HelperRequest&, BytesView document, TextCollector& collector) {
  collector.append("part");
  if (document != "lost") collector.checkpoint();
  collector.append("rest");
  if (document == "dies" || document == "lost") ::kill(::getpid(), SIGKILL);
  if (document == "leaves") std::exit(0);
  if (document == "sleeps") ::sleep(100);
  if (document == "stopsTheHelper") {
    ::kill(::getppid(), SIGSTOP);
    ::sleep(100);
  }
  if (document == "endsTheHelper") {
    ::kill(::getppid(), SIGKILL);
    ::sleep(100);
  }
  volatile bool forever = document == "loops";
  while (forever) continue;
  if (document == "writesALot") {
    for (int i = 0; i < 1000; ++i) collector.append(" more");
  }
  if (document == "takesMemory") {
    // Half a gigabyte, of which each page counts.
    void* const memory = std::calloc(std::size_t{1} << 29, 1);
    if (memory == nullptr) std::abort();
    std::free(memory);
  }
  return DocumentReading::complete;
}

HelperRequest smallRequest() {
  HelperRequest request;
  request.textBytes = 20;
  request.memoryBytes = std::uint64_t{1} << 28;
  request.processorMilliseconds = 200;
  request.totalMilliseconds = 500;
  return request;
}

TEST(DocumentHelper, outlivesWhatDocumentsDo) {
  static constexpr struct {
    const char *document, *text;
    DocumentReading reading;
  } kCases[] = {
      {"reads", "part\nrest", DocumentReading::complete},
      {"dies", "part", DocumentReading::damaged},
      {"lost", "", DocumentReading::damaged},
      {"leaves", "part", DocumentReading::damaged},
      {"loops", "part", DocumentReading::damaged},
      {"sleeps", "part", DocumentReading::damaged},
      {"writesALot", "part\nrest more more", DocumentReading::complete},
      {"takesMemory", "part", DocumentReading::damaged},
      {"reads", "part\nrest", DocumentReading::complete},
  };
  const auto helper = startHelper(misbehave);
  ASSERT_NE(helper, nullptr);
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.document);
    if (kIsSanitized && std::string_view(c.document) == "takesMemory") continue;
    const auto result = helper->read(smallRequest(), c.document);
    ASSERT_TRUE(result.has_value());
    EXPECT_EQ(result->reading, c.reading);
    EXPECT_EQ(result->text, c.text);
  }
}

TEST(DocumentHelper, tellsThatItIsOfNoUse) {
  static constexpr struct {
    const char* document;
    DocumentHelper::Failure failure;
  } kCases[] = {
      {"endsTheHelper", DocumentHelper::Failure::gone},
      {"stopsTheHelper", DocumentHelper::Failure::late},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.document);
    const auto helper = startHelper(misbehave);
    ASSERT_NE(helper, nullptr);
    EXPECT_EQ(helper->read(smallRequest(), c.document), std::nullopt);
    EXPECT_EQ(helper->failure(), c.failure);
  }
}

TEST(DocumentHelpers, makeDoWithWhatTheyGet) {
  for (const char* const program : {"", "/nonexistent/helper", "/bin/true"}) {
    SCOPED_TRACE(program);
    DocumentHelpers helpers{program};
    HelperRequest request = smallRequest();
    request.totalMilliseconds = 10;
    EXPECT_EQ(helpers.read(request, "document"), std::nullopt);
  }
}

TEST(Sandbox, leavesFilesAlone) {
  const ScratchFolder folder;
  const std::filesystem::path file = folder / "pack";
  writeFileAtomically(file, "kept");
  const pid_t process = ::fork();
  if (process == 0) {
    if (!giveUpWriting()) ::_exit(2);
    const bool changed = ::open(file.c_str(), O_WRONLY) >= 0 || ::unlink(file.c_str()) == 0 ||
                         ::rename(file.c_str(), (folder / "other").c_str()) == 0 ||
                         ::open((folder / "new").c_str(), O_CREAT | O_WRONLY, 0644) >= 0;
    ::_exit(!changed && ::open(file.c_str(), O_RDONLY) >= 0 ? 0 : 1);
  }
  int status = 0;
  ::waitpid(process, &status, 0);
  if (WEXITSTATUS(status) == 2) GTEST_SKIP() << "this system cannot";
  EXPECT_EQ(status, 0);
  EXPECT_EQ(readFile(file), "kept");
}

}  // namespace
}  // namespace ambervane
