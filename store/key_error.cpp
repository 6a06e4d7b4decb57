#include "store/key_error.h"

#include "base/text.h"

namespace ambervane {
namespace {

struct Words {
  LocalizedMessage operator()(const KeyError::MasterKeyMissing& r) const {
    return {
        "The archive’s master key is missing (%@) but its messages are encrypted with it. Restore "
        "keys/master.key from your backup, or use Archive ▸ Import Keys from Keychain if this "
        "archive was made on this Mac by an earlier version. Without that key the message bodies "
        "cannot be read.",
        {printable(r.path)}};
  }
  LocalizedMessage operator()(const KeyError::WrapFailed&) const {
    return {"Could not wrap the content key", {}};
  }
  LocalizedMessage operator()(const KeyError::Shredded&) const {
    return {"This message was erased; its content key no longer exists", {}};
  }
  LocalizedMessage operator()(const KeyError::MasterKeyMismatch&) const {
    return {
        "The archive’s master key does not match the keys its messages were encrypted with. This "
        "happens when keys/master.key was replaced. Restore the original key file from backup.",
        {}};
  }
};

}  // namespace

LocalizedMessage KeyError::message() const { return std::visit(Words{}, reason_); }

}  // namespace ambervane
