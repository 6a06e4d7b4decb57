#include "base/file.h"
#include "base/text.h"
#include "cli/commands.h"
#include "compliance/procedure_template.h"
#include "platform/host.h"

namespace ambervane {

int procedureTemplate(const Arguments& arguments, Console& console) {
  if (arguments.positional.empty() || arguments.positional[0].empty()) {
    throw CLIError::usage("ambervane procedure-template <file.md>");
  }
  const std::filesystem::path path = standardizedPath(arguments.positional[0]);
  writeProcedureTemplate(path, procedureTemplateText(systemNow(), localHostName()));
  const std::string shown = printable(path.native());
  console.out << "Template written to " << shown << "\n"
              << "Fill it in, keep it with the archive, and record where it is:\n"
              << "  ambervane policy <archive> --procedure \"" << shown << "\" --by <name>\n";
  return kExitSuccess;
}

}  // namespace ambervane
