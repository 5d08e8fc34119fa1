/// @file
/// What a test must leave out because a sanitizer does not stand it.
#ifndef HBBTV_RYN_TESTS_SUPPORT_SANITIZERS_H
#define HBBTV_RYN_TESTS_SUPPORT_SANITIZERS_H

namespace hbbtv_ryn::test {

/// The address sanitizer does not see a cancelled thread's stack being unwound, and takes what the thread does
/// last for an overflow.
#ifdef __SANITIZE_ADDRESS__
inline constexpr bool kRequestersMayBeCancelled = false;
#else
inline constexpr bool kRequestersMayBeCancelled = true;
#endif

/// The thread sanitizer lets no forked child start a thread. It has one of its own that wakes now and then.
#ifdef __SANITIZE_THREAD__
inline constexpr bool kForkedChildrenMayStartThreads = false;
#else
inline constexpr bool kForkedChildrenMayStartThreads = true;
#endif

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TESTS_SUPPORT_SANITIZERS_H
