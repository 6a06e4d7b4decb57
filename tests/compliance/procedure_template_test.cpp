#include "compliance/procedure_template.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "base/file.h"
#include "base/text.h"
#include "evidence/retention_policy.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/test_archive.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

TEST(ProcedureTemplate, knowsWhatTheProgramKnows) {
  const std::string text = procedureTemplateText(kTestTime, "archiv-1\n");
  EXPECT_THAT(text, HasSubstr("Erstellt am 01.03.2026 mit Ambervane "));
  EXPECT_THAT(text, HasSubstr("auf dem Rechner archiv-1\\n."));
  EXPECT_THAT(text, HasSubstr("Siegel mindestens alle 1000 Nachrichten"));
  EXPECT_THAT(text, HasSubstr("| `contract` | Vertrag | 10 | ab Ende des Jahrs |\n"
                              "| `personnel` | Personalunterlage | 10 | ab Ende des Jahrs |\n"
                              "| `transient` | Vorübergehend / ohne gesetzliche Pflicht | 1 | ab "
                              "Datum der Nachricht |\n\n"));
  EXPECT_THAT(text,
              HasSubstr("| Schweiz — GeBüV / OR 957–958f | `ch-gebuev` | 10 |\n| Deutschland"));
  EXPECT_THAT(text, HasSubstr("[AUSFÜLLEN: "));
  EXPECT_THAT(text, Not(HasSubstr("{{")));
  EXPECT_THAT(text, Not(HasSubstr("ß"))) << "not written so in Switzerland";
}

TEST(ProcedureTemplate, itsTablesAndReferencesHold) {
  const std::string text = procedureTemplateText(kTestTime, "host");
  std::set<std::string> chapters;
  std::size_t columns = 0;
  for (const std::string_view line : split(text, '\n')) {
    SCOPED_TRACE(line);
    if (line.starts_with("## ") || line.starts_with("### ")) {
      const auto words = splitOmittingEmpty(line, "# .");
      chapters.emplace(line.starts_with("## ")
                           ? std::string(words[0])
                           : std::string(words[0]) + "." + std::string(words[1]));
    }
    const auto bars = line.starts_with("|") ? split(line, '|').size() : 0;
    if (bars > 0 && columns > 0) EXPECT_EQ(bars, columns);
    columns = bars;
  }
  for (std::size_t at = text.find("Kapitel "); at != std::string::npos;
       at = text.find("Kapitel ", at + 1)) {
    const std::size_t begin = at + 8;
    const std::size_t end = text.find_first_not_of("0123456789.", begin);
    const std::string number(trimOf(std::string_view(text).substr(begin, end - begin), "."));
    if (!number.empty()) EXPECT_TRUE(chapters.contains(number)) << number;
  }
}

TEST(ProcedureTemplate, neverReplacesAnything) {
  const ScratchFolder folder;
  writeProcedureTemplate(folder / "new.md", "text");
  EXPECT_EQ(readFile(folder / "new.md"), "text");
  fs::create_symlink(folder / "nowhere", folder / "link.md");
  for (const fs::path& taken : {folder / "new.md", folder / "link.md", folder.path()}) {
    SCOPED_TRACE(taken);
    try {
      writeProcedureTemplate(taken, "other");
      FAIL();
    } catch (const TemplateError& error) {
      EXPECT_EQ(error.what(), "There is already a file at " + taken.native() +
                                  ". Choose another name; the template never replaces a file.");
    }
  }
  EXPECT_EQ(readFile(folder / "new.md"), "text");
  EXPECT_FALSE(fs::exists(folder / "nowhere"));
  EXPECT_THROW(writeProcedureTemplate(folder / "none/x.md", "text"), FileError);
}

}  // namespace
}  // namespace ambervane
