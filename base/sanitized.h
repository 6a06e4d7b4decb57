#ifndef AMBERVANE_BASE_SANITIZED_H_
#define AMBERVANE_BASE_SANITIZED_H_

namespace ambervane {

/// Whether this build has a sanitizer in it that reserves address space for itself, so that limits
/// on it cannot be set.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kIsSanitized = true;
#elif defined(__has_feature)
inline constexpr bool kIsSanitized =
    __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
inline constexpr bool kIsSanitized = false;
#endif

}  // namespace ambervane

#endif  // AMBERVANE_BASE_SANITIZED_H_
