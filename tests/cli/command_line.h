#ifndef AMBERVANE_TESTS_CLI_COMMAND_LINE_H_
#define AMBERVANE_TESTS_CLI_COMMAND_LINE_H_

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "base/file.h"
#include "cli/commands.h"
#include "tests/support/mail_builder.h"
#include "tests/support/scratch_folder.h"

namespace ambervane {

struct Result {
  int status;
  std::string out, err;
};

inline Result run(const std::vector<std::string>& words, bool terminal = false) {
  std::ostringstream out;
  std::ostringstream err;
  Console console{out, err, terminal};
  const int status = runCommandLine(words, console);
  return {status, out.str(), err.str()};
}

/// A folder with an archive and a few mail stores.
class CommandLine : public testing::Test {
 protected:
  CommandLine() {
    std::filesystem::create_directories(folder_ / "mails/sub folder");
    write("mails/one.eml", plainMail(1));
    write("mails/sub folder/two #2?.eml", mailWithFiles(2, {{"a.pdf", file_}, {"a.pdf", other_}}));
    write("mails/sub folder/three.eml", mailWithFiles(3, {{"../../evil.pdf", file_}}));
    EXPECT_EQ(run({"create", archive(), "--name", "Büro"}).status, 0);
  }
  void write(const std::string& name, BytesView bytes) {
    writeFileAtomically(folder_ / name, bytes);
  }
  std::string at(const std::string& name) const { return (folder_ / name).native(); }
  std::string archive() const { return at("a.ambervane"); }
  Result import(const std::string& name) { return run({"import", archive(), at(name)}); }

  const ScratchFolder folder_;
  const Bytes file_ = noise(9000, 1);
  const Bytes other_ = noise(9000, 2);
};

}  // namespace ambervane

#endif  // AMBERVANE_TESTS_CLI_COMMAND_LINE_H_
