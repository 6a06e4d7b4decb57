#ifndef AMBERVANE_IMAPKIT_CONNECTOR_H_
#define AMBERVANE_IMAPKIT_CONNECTOR_H_

#include <sys/socket.h>

#include <string>
#include <vector>

#include "base/file.h"
#include "imapkit/bounded_wait.h"
#include "imapkit/imap_server.h"

namespace ambervane {

/// Where a host can be reached.
struct SocketAddress {
  sockaddr_storage storage{};
  socklen_t size = 0;
};

/// The name under which a host is looked up and proves itself: ASCII (IDNA, UTS 46), without the
/// dot at its end. A name that has no such form stays as it is.
std::string asciiHostName(const std::string& host);

/// All addresses of a server, in the order in which they should be tried. Throws IMAPError
/// (Diagnosed, Cancelled).
std::vector<SocketAddress> lookUp(const IMAPServer& server, const std::string& hostName,
                                  const Deadline& deadline, const CancellationCheck& shouldCancel);

/// A socket connected to the first of `addresses` that answers; it does not block. The next address
/// is tried as soon as one fails, and beside it when it stays silent for a while, so that one that
/// leads nowhere does not use up the time. Throws IMAPError (Diagnosed, Cancelled).
FileHandle connectToAny(const std::vector<SocketAddress>& addresses, const IMAPServer& server,
                        const Deadline& deadline, const CancellationCheck& shouldCancel);

}  // namespace ambervane

#endif  // AMBERVANE_IMAPKIT_CONNECTOR_H_
