#ifndef AMBERVANE_DOCTEXT_SANDBOX_H_
#define AMBERVANE_DOCTEXT_SANDBOX_H_

namespace ambervane {

/// Takes from this process and its later children, for good, the right to write, create, remove or
/// rename files and to gain rights by starting programs: a document that takes over its reader must
/// not reach the archive. False where the system cannot do that (Linux before 5.13, other systems).
bool giveUpWriting() noexcept;

}  // namespace ambervane

#endif  // AMBERVANE_DOCTEXT_SANDBOX_H_
