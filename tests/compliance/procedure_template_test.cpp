#include "compliance/procedure_template.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/file.h"
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
