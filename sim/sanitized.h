// Whether this build is one that a sanitizer slows down.
#pragma once

namespace sim {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif

}  // namespace sim
