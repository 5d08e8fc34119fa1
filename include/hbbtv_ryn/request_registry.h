/// @file
/// A process-wide registry in which a host remembers requests it has issued and finds them again.
///
/// An entry is keyed by a flag, a name and an owner pointer and stores one opaque value pointer. The
/// library's endpoints never call it. Neither owner nor value is ever dereferenced or freed.
///
/// The registry takes no lock: a host that uses it from several threads serialises the calls itself.
/// No call blocks; none lets an exception out.
#ifndef HBBTV_RYN_REQUEST_REGISTRY_H
#define HBBTV_RYN_REQUEST_REGISTRY_H

#include <string>

#include "hbbtv_ryn/export.h"

/// Adds an entry after the others, unless a look-up of its key already yields this value.
///
/// A null value is therefore added only where the look-up yields another value, and is then hidden behind
/// it. A key that is registered with another value gets a second entry; look-ups keep yielding the older
/// one until it is deleted.
///
/// @param flag   first part of the key.
/// @param name   second part, copied; compared byte by byte, embedded NULs included.
/// @param owner  third part, compared by address.
/// @param value  what look-ups return; stays the caller's.
/// @return 0, also when nothing had to be added; -1 out of memory, with the registry unchanged.
HBBTV_RYN_EXPORT int addRequest(bool flag, const std::string& name, const void* owner, void* value);

/// @return the value of the oldest entry with this key; null when there is none.
HBBTV_RYN_EXPORT void* findRequest(bool flag, const std::string& name, const void* owner);

/// Removes the oldest entry with this key.
/// @return 0; -1 when there is none.
HBBTV_RYN_EXPORT int deleteRequest(bool flag, const std::string& name, const void* owner);

/// @return the number of entries.
HBBTV_RYN_EXPORT int getRequestSize();

/// @return the value of the oldest entry; null when the registry is empty.
HBBTV_RYN_EXPORT void* getRequestFirstItem();

/// Removes every entry.
/// @return 0.
HBBTV_RYN_EXPORT int deleteAllRequest();

#endif  // HBBTV_RYN_REQUEST_REGISTRY_H
