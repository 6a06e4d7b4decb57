#include "pdf/drawing_library.h"

#include "base/shared_library.h"
#include "pdf/pdf_error.h"

namespace ambervane {
namespace {

/// The file that brings all the others with it; its name holds the version of the binary interface.
#ifdef __APPLE__
constexpr const char* kFile = "libpangocairo-1.0.0.dylib";
#else
constexpr const char* kFile = "libpangocairo-1.0.so.0";
#endif

DrawingLibrary load() {
  try {
    const SharedLibrary file(kFile);
    DrawingLibrary found;
#define AMBERVANE_FIND(name) file.find(#name, found.name);
    AMBERVANE_DRAWING_FUNCTIONS(AMBERVANE_FIND)
#undef AMBERVANE_FIND
    return found;
  } catch (const SharedLibrary::Missing& error) {
    throw PdfError(PdfError::Library{error.what()});
  }
}

}  // namespace

const DrawingLibrary& library() {
  static const DrawingLibrary kLibrary = load();
  return kLibrary;
}

}  // namespace ambervane
