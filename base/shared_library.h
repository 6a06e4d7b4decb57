#ifndef AMBERVANE_BASE_SHARED_LIBRARY_H_
#define AMBERVANE_BASE_SHARED_LIBRARY_H_

#include <stdexcept>

namespace ambervane {

/// A library that is loaded when it is needed and stays for as long as the process lives. Linking
/// with one that brings dozens of others makes every command slower to start.
class SharedLibrary {
 public:
  /// It is not installed, or lacks a function; `what` is the system's text.
  class Missing : public std::runtime_error {
    using std::runtime_error::runtime_error;
  };

  /// `file` is found by the system's rules. Throws Missing.
  explicit SharedLibrary(const char* file);

  /// Sets `function` to the one called `name`. Throws Missing.
  template <typename Function>
  void find(const char* name, Function*& function) const {
    function = reinterpret_cast<Function*>(address(name));
  }

 private:
  void* address(const char* name) const;

  const char* file_;
  void* handle_;
};

}  // namespace ambervane

#endif  // AMBERVANE_BASE_SHARED_LIBRARY_H_
