#ifndef AMBERVANE_PLATFORM_SECRET_H_
#define AMBERVANE_PLATFORM_SECRET_H_

#include <cstddef>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

namespace ambervane {

/// A password, a token, or text that holds one. Its bytes are overwritten when they are given up,
/// it is copied only by `clone`, and the first one that is not empty keeps the process from leaving
/// a core dump. It has no output operator: nothing but `view` hands the bytes out.
class Secret {
 public:
  Secret() = default;
  /// Takes the text over; the string it came in is overwritten and left empty.
  explicit Secret(std::string&& text);
  /// The pieces in a row.
  static Secret joined(std::initializer_list<std::string_view> pieces);
  Secret(Secret&& other) noexcept;
  Secret& operator=(Secret&& other) noexcept;
  ~Secret() { clear(); }
  Secret clone() const { return joined({view()}); }

  /// Valid until the secret is changed, moved or destroyed.
  std::string_view view() const noexcept { return {bytes_.get(), size_}; }
  bool empty() const noexcept { return size_ == 0; }
  void append(std::string_view text);
  void clear() noexcept;

 private:
  void grow(std::size_t room);

  std::unique_ptr<char[]> bytes_;
  std::size_t size_ = 0;
  std::size_t room_ = 0;
};

/// Overwrites bytes that held a secret, such as an argument of the program.
void eraseBytes(char* bytes, std::size_t count) noexcept;

/// Standard base64, without a copy of it left behind.
Secret base64Secret(const Secret& secret);

/// `text` with each occurrence of `secret` replaced by six bullets; unchanged when `secret` is
/// empty. For all that is shown or kept.
std::string maskSecret(std::string_view text, std::string_view secret);

}  // namespace ambervane

#endif  // AMBERVANE_PLATFORM_SECRET_H_
