#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

#include "doctext/helper_server.h"
#include "doctext/pdf_text.h"
#include "doctext/sandbox.h"

/// The document helper: reads the documents that come over its standard input, a socket. Started by
/// the programs it belongs to, never by people.
int main() {
  using namespace ambervane;
  // Libraries write of what they meet; nobody at the terminal asked for it.
  const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (nowhere < 0 || ::dup2(nowhere, STDOUT_FILENO) < 0) return EXIT_FAILURE;
#ifdef NDEBUG
  if (::dup2(nowhere, STDERR_FILENO) < 0) return EXIT_FAILURE;
#endif
  if (::chdir("/") != 0) return EXIT_FAILURE;
  prepareForPdf();
  giveUpWriting();
  return serveDocuments(STDIN_FILENO, readDocument);
}
