#include "mailformats/portable_manifest.h"

#include <utility>

#include "base/json.h"

// The manifest of a large archive has a line for each of its messages, so it is read value by value
// and never held as a whole document.

namespace ambervane {
namespace {

class ManifestReader final : public nlohmann::json_sax<nlohmann::json> {
 public:
  explicit ManifestReader(const std::function<void(PortableManifest::Entry&&)>& visit)
      : visit_(visit) {}

  bool isComplete() const noexcept { return place_ == Place::behind; }

  bool null() override { return scalar(isOptional()); }
  bool boolean(bool /*value*/) override { return scalar(false); }
  bool number_integer(number_integer_t value) override {
    return number(static_cast<double>(value));
  }
  bool number_unsigned(number_unsigned_t value) override {
    return number(static_cast<double>(value));
  }
  bool number_float(number_float_t value, const string_t& /*text*/) override {
    return number(value);
  }
  bool binary(binary_t& /*value*/) override { return false; }

  bool string(string_t& value) override {
    if (depth_ == kFlagsDepth && place_ == Place::flags) {
      entry_.flags->push_back(std::move(value));
      return true;
    }
    const bool inEntry = isInEntry();
    if (inEntry && key_ == "file") file_ = std::move(value);
    if (inEntry && key_ == "folder") folder_ = std::move(value);
    return scalar(inEntry && (key_ == "file" || key_ == "folder"));
  }

  bool start_object(std::size_t /*count*/) override {
    if (++depth_ > kMaxJsonDepth) return false;
    if (depth_ == kRootDepth) {
      place_ = Place::root;
      return true;
    }
    if (depth_ == kEntryDepth && place_ == Place::messages) {
      entry_ = {};
      file_.reset();
      folder_.reset();
      place_ = Place::entry;
      return true;
    }
    return isUnknownPlace(depth_ - 1);
  }

  bool key(string_t& name) override {
    if (depth_ == kRootDepth || depth_ == kEntryDepth) key_ = std::move(name);
    return true;
  }

  bool end_object() override {
    --depth_;
    if (depth_ == kRootDepth - 1) {
      if (!hasMessages_) return false;
      place_ = Place::behind;
    } else if (depth_ == kMessagesDepth && place_ == Place::entry) {
      if (!file_ || !folder_) return false;
      entry_.file = *std::move(file_);
      entry_.folder = *std::move(folder_);
      visit_(std::move(entry_));
      place_ = Place::messages;
    }
    return true;
  }

  bool start_array(std::size_t /*count*/) override {
    if (++depth_ > kMaxJsonDepth || depth_ == kRootDepth) return false;
    if (depth_ == kMessagesDepth && key_ == "messages") {
      place_ = Place::messages;
      return !std::exchange(hasMessages_, true);
    }
    if (depth_ == kFlagsDepth && place_ == Place::entry && key_ == "flags") {
      place_ = Place::flags;
      entry_.flags.emplace();
      return true;
    }
    return isUnknownPlace(depth_ - 1);
  }

  bool end_array() override {
    --depth_;
    if (depth_ == kRootDepth && place_ == Place::messages) place_ = Place::root;
    if (depth_ == kEntryDepth && place_ == Place::flags) place_ = Place::entry;
    return true;
  }

  bool parse_error(std::size_t /*at*/, const std::string& /*token*/,
                   const nlohmann::detail::exception& /*error*/) override {
    return false;
  }

 private:
  // Around the root there is nothing, so that its members stand at 1, and so on.
  static constexpr int kRootDepth = 1;
  static constexpr int kMessagesDepth = 2;
  static constexpr int kEntryDepth = 3;
  static constexpr int kFlagsDepth = 4;
  /// The innermost part of the manifest that is known; `depth_` may be deeper, in what is not.
  enum class Place { before, root, messages, entry, flags, behind };

  bool isInEntry() const noexcept { return depth_ == kEntryDepth && place_ == Place::entry; }
  bool isOptional() const noexcept {
    return isInEntry() && (key_ == "flags" || key_ == "internalDate");
  }

  bool number(double value) {
    const bool isDate = isInEntry() && key_ == "internalDate";
    if (isDate) entry_.internalDate = value;
    return scalar(isDate);
  }

  /// Whether a value that is no array or object may stand here; `expected` when it has to be one
  /// that this place knows.
  bool scalar(bool expected) const { return expected || isUnknownPlace(depth_); }

  /// Whether what stands at `depth` is of no meaning here.
  bool isUnknownPlace(int depth) const {
    switch (place_) {
      case Place::root:
        return depth > kRootDepth || key_ != "messages";
      case Place::entry:
        return depth > kEntryDepth ||
               (key_ != "file" && key_ != "folder" && key_ != "flags" && key_ != "internalDate");
      default:
        return false;
    }
  }

  const std::function<void(PortableManifest::Entry&&)>& visit_;
  int depth_ = 0;
  Place place_ = Place::before;
  std::string key_;  // the last one of the root or of an entry
  bool hasMessages_ = false;
  PortableManifest::Entry entry_;
  std::optional<std::string> file_;
  std::optional<std::string> folder_;
};

}  // namespace

bool PortableManifest::read(BytesView json, const std::function<void(Entry&&)>& visit) {
  ManifestReader reader(visit);
  return readJsonEvents(json, reader) && reader.isComplete();
}

std::optional<PortableManifest> PortableManifest::decode(BytesView json) {
  PortableManifest manifest;
  const auto add = [&](Entry&& entry) { manifest.messages.push_back(std::move(entry)); };
  if (!read(json, add)) return std::nullopt;
  return manifest;
}

}  // namespace ambervane
