#include "pdf/drawing_library.h"

#include <dlfcn.h>

#include "pdf/pdf_error.h"

namespace ambervane {
namespace {

/// The file that brings all the others with it; its name holds the version of the binary interface.
#ifdef __APPLE__
constexpr const char* kFile = "libpangocairo-1.0.0.dylib";
#else
constexpr const char* kFile = "libpangocairo-1.0.so.0";
#endif

[[noreturn]] void refuse() {
  const char* reason = ::dlerror();  // NOLINT(concurrency-mt-unsafe): it is of this thread
  throw PdfError(PdfError::Library{reason == nullptr ? kFile : reason});
}

template <typename Function>
void find(void* file, const char* name, Function& function) {
  function = reinterpret_cast<Function>(::dlsym(file, name));
  if (function == nullptr) refuse();
}

DrawingLibrary load() {
  // Never closed: the libraries keep types and caches for as long as the process lives.
  void* const file = ::dlopen(kFile, RTLD_NOW | RTLD_LOCAL);
  if (file == nullptr) refuse();
  DrawingLibrary found;
#define AMBERVANE_FIND(name) find(file, #name, found.name);
  AMBERVANE_DRAWING_FUNCTIONS(AMBERVANE_FIND)
#undef AMBERVANE_FIND
  return found;
}

}  // namespace

const DrawingLibrary& library() {
  static const DrawingLibrary kLibrary = load();
  return kLibrary;
}

}  // namespace ambervane
