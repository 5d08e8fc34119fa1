/// @file
/// What a test must leave out because a sanitizer, or an emulator, does not stand it.
#ifndef HBBTV_RYN_TOOLS_SUPPORT_SANITIZERS_H
#define HBBTV_RYN_TOOLS_SUPPORT_SANITIZERS_H

#include <cstdlib>

namespace hbbtv_ryn::test {

/// The address sanitizer does not see a cancelled thread's stack being unwound, and takes what the thread
/// does last for an overflow.
#ifdef __SANITIZE_ADDRESS__
inline constexpr bool kRequestersMayBeCancelled = false;
#else
inline constexpr bool kRequestersMayBeCancelled = true;
#endif

/// The thread sanitizer has a thread of its own, which wakes now and then.
#ifdef __SANITIZE_THREAD__
inline constexpr bool kAllThreadsAreOurs = false;
#else
inline constexpr bool kAllThreadsAreOurs = true;
#endif

/// A sanitizer opens descriptors when it has something to look up.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kFewDescriptorsSuffice = false;
#else
inline constexpr bool kFewDescriptorsSuffice = true;
#endif

/// Neither the thread sanitizer nor the emulator lets a forked child start a thread.
inline bool forkedChildrenMayStartThreads() {
  return kAllThreadsAreOurs && std::getenv("HBBTV_RYN_EMULATOR") == nullptr;
}

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TOOLS_SUPPORT_SANITIZERS_H
