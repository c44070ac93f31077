#include "frame/lock.h"
#include "frame/platform.h"

namespace zva {

static int lib_lock_word = 0;

void lib_lock() {
    for (;;) {
        int expected = 0;
        if (__atomic_compare_exchange_n(&lib_lock_word, &expected, 1, false,
                                        __ATOMIC_ACQUIRE, __ATOMIC_RELAXED))
            return;
        while (__atomic_load_n(&lib_lock_word, __ATOMIC_RELAXED) != 0)
            plat_pause();
    }
}

void lib_unlock() { __atomic_store_n(&lib_lock_word, 0, __ATOMIC_RELEASE); }

}  // namespace zva
