#ifndef AMBERVANE_DOCTEXT_SPREADSHEET_TEXT_H_
#define AMBERVANE_DOCTEXT_SPREADSHEET_TEXT_H_

#include <string>
#include <vector>

#include "doctext/office_package.h"

namespace ambervane {

/// What the main part of a workbook or a presentation says of the others, in the order people see.
struct PartOutline {
  struct Sheet {
    std::string name, relation;
  };
  std::string root;  ///< the local name of the part's outermost element
  std::vector<Sheet> sheets;
  std::vector<std::string> slides;  ///< relations
  bool from1904 = false;            ///< days count from 1904
};

/// The sheets of a workbook (SpreadsheetML): names, then rows of cells as shown, then comments and
/// drawings. `relations` are those of the main part.
void readWorkbook(OfficePackage& package, const PartOutline& outline,
                  const std::vector<PartRelation>& relations);

}  // namespace ambervane

#endif  // AMBERVANE_DOCTEXT_SPREADSHEET_TEXT_H_
