#include "base/shared_library.h"

#include <dlfcn.h>

namespace ambervane {
namespace {

[[noreturn]] void fail(const char* file) {
  const char* reason = ::dlerror();  // NOLINT(concurrency-mt-unsafe): it is of this thread
  throw SharedLibrary::Missing(reason == nullptr ? file : reason);
}

}  // namespace

SharedLibrary::SharedLibrary(const char* file)
    : file_(file), handle_(::dlopen(file, RTLD_NOW | RTLD_LOCAL)) {
  if (handle_ == nullptr) fail(file_);
}

void* SharedLibrary::address(const char* name) const {
  void* const found = ::dlsym(handle_, name);
  if (found == nullptr) fail(file_);
  return found;
}

}  // namespace ambervane
