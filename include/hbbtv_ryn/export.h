/// @file
/// Marks the functions and data that the shared library exports; everything else in it is hidden.
#ifndef HBBTV_RYN_EXPORT_H
#define HBBTV_RYN_EXPORT_H

#if defined(__GNUC__)
#define HBBTV_RYN_EXPORT __attribute__((visibility("default")))
#else
#define HBBTV_RYN_EXPORT
#endif

#endif  // HBBTV_RYN_EXPORT_H
