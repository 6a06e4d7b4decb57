#include "imapkit/imap_server.h"

namespace ambervane {

std::string IMAPServer::text() const {
  return host + ":" + std::to_string(port) + (useTLS ? " (TLS)" : " (no TLS)");
}

std::string accessModeText(IMAPAccessMode mode) {
  return mode == IMAPAccessMode::readOnly ? "read-only" : "read-write";
}

}  // namespace ambervane
