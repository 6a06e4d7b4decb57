#ifndef AMBERVANE_MAILFORMATS_CONTAINER_H_
#define AMBERVANE_MAILFORMATS_CONTAINER_H_

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "base/bytes.h"
#include "base/localized_message.h"

namespace ambervane {

/// Why a member of a container, or all of it, cannot be read. The words are the reason behind
/// "<path>: ".
class ContainerError final : public TranslatableError {
 public:
  struct Damaged {
    std::string detail;  ///< what the decompressor found
  };
  struct CutShort {};
  struct NoDirectory {};  ///< a ZIP file without the list of its members at its end
  struct Encrypted {};
  struct UnknownMethod {
    int method;  ///< of compression, by the number ZIP gives it
  };
  /// The bytes unpack to more than `kMaxExpansion` allows.
  struct Expands {
    bool wholeContainer;  ///< all that was read of the container taken together, not one member
  };
  struct System {
    int error;  ///< an errno value
  };
  using Reason =
      std::variant<Damaged, CutShort, NoDirectory, Encrypted, UnknownMethod, Expands, System>;

  explicit ContainerError(Reason reason) : reason_(std::move(reason)) {}
  const Reason& reason() const noexcept { return reason_; }
  LocalizedMessage message() const override;

 private:
  Reason reason_;
};

/// How many times its packed size mail may have unpacked. Mail reaches 30; a mailbox of machines
/// that report the same every minute gets to 100. What is made to fill a disk is near the 1032 that
/// deflate can do, or beyond where members share their bytes.
inline constexpr std::uint64_t kMaxExpansion = 200;
/// Unpacked bytes that are allowed whatever they were packed into: a message with an empty disk
/// image attached shrinks as well as a bomb does, and this much harms nobody.
inline constexpr std::uint64_t kFreeUnpackedBytes = std::uint64_t{64} << 20;

/// Counts what is unpacked, to end the reading of what was made to fill a disk.
class ExpansionLimit {
 public:
  /// `container`: of all members together, counts along; null for that one itself.
  explicit ExpansionLimit(std::uint64_t packedBytes, ExpansionLimit* container = nullptr) noexcept;
  /// Throws ContainerError (Expands).
  void add(std::uint64_t unpackedBytes);

 private:
  std::uint64_t left_;
  ExpansionLimit* container_;
};

/// The bytes of a file or a member, from the first to the last.
class InputStream {
 public:
  virtual ~InputStream() = default;
  /// The next bytes: `kPieceBytes`, fewer only at the end or before damage, none behind the end.
  /// The view is valid until the next call. Throws ContainerError once all before it was handed
  /// out.
  virtual BytesView next() = 0;

  static constexpr std::size_t kPieceBytes = std::size_t{1} << 17;
};

/// A file with other files in it, read in order and without unpacking it anywhere. What it holds in
/// memory does not depend on how large its members are.
class Container {
 public:
  struct Member {
    std::string path;  ///< UTF-8, "/" between names; none of them is empty, "." or ".."
    std::uint64_t packedBytes = 0;
  };

  virtual ~Container() = default;
  /// The next file in it; absent behind the last.
  virtual std::optional<Member> next() = 0;
  /// The bytes of the member `next` returned last; must be gone before `next` is called again.
  /// Throws ContainerError.
  virtual std::unique_ptr<InputStream> open() = 0;
  /// Whether it holds members in folders, as ZIP files do, and not just one file.
  virtual bool isTree() const noexcept = 0;
  /// The limit of all that is unpacked from this container.
  virtual ExpansionLimit& limit() = 0;
};

/// What the first bytes of a file tell.
bool looksLikeGzip(BytesView start) noexcept;
/// Word and other programs store their documents as ZIP files too.
bool looksLikeZip(BytesView start) noexcept;

/// Opens a gzip or ZIP file, told by its first bytes. Throws ContainerError.
std::unique_ptr<Container> openContainer(const std::filesystem::path& file);

/// A path as a container gives it, made harmless: both slashes separate, and names that lead
/// elsewhere (empty, ".", "..", a drive letter) are left out. UTF-8.
std::string memberPath(std::string_view path);

}  // namespace ambervane

#endif  // AMBERVANE_MAILFORMATS_CONTAINER_H_
