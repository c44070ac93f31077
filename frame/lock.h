// lib_lock: the library's one spin lock.  It guards lazy set-up only, so it
// is held for microseconds; it is not recursive.
#pragma once

namespace zva {
void lib_lock();
void lib_unlock();

// Plain aligned 32-bit reads and writes of the cached decisions; every
// writer stores the same final value, so relaxed order is enough.
template <class T> inline T cached_load(const T& v) {
    return __atomic_load_n(&v, __ATOMIC_ACQUIRE);
}
template <class T> inline void cached_store(T& v, T x) {
    __atomic_store_n(&v, x, __ATOMIC_RELEASE);
}
}  // namespace zva
