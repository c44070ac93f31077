// Stack words of an export, by its byte count: ZVA_WORDS_24 declares six
// 32-bit words, ZVA_NAMES_24 lists them.  And the one layout rule that ties
// the stack words to the internal argument list.
#pragma once
#include <type_traits>

namespace zva {

// The argument list A... of an internal list: on the stack each character
// argument's hidden length follows it directly; internally the lengths come
// last.  Character arguments lead every published list, so the lengths are
// exactly the trailing arguments that are not pointers.
template <class... A> struct word_layout {
    static constexpr int n = sizeof...(A);
    static constexpr int nc = [] {
        const bool ptr[] = {std::is_pointer_v<A>...};
        int c = 0;
        for (int i = n - 1; i >= 0 && !ptr[i]; --i) ++c;
        return c;
    }();
    // Stack word that holds internal argument j.
    static constexpr int word_of(int j) {
        if (j < nc) return 2 * j;
        if (j < n - nc) return j + nc;
        return 2 * (j - (n - nc)) + 1;
    }
    // Internal argument held by stack word s.
    static constexpr int internal_of(int s) {
        if (s < 2 * nc) return s % 2 ? n - nc + s / 2 : s / 2;
        return s - nc;
    }
};

}  // namespace zva

#define ZVA_WORDS_12 uint32_t w0, uint32_t w1, uint32_t w2
#define ZVA_NAMES_12 w0, w1, w2
#define ZVA_WORDS_16 uint32_t w0, uint32_t w1, uint32_t w2, uint32_t w3
#define ZVA_NAMES_16 w0, w1, w2, w3
#define ZVA_WORDS_20 uint32_t w0, uint32_t w1, uint32_t w2, uint32_t w3, uint32_t w4
#define ZVA_NAMES_20 w0, w1, w2, w3, w4
#define ZVA_WORDS_24 uint32_t w0, uint32_t w1, uint32_t w2, uint32_t w3, uint32_t w4, uint32_t w5
#define ZVA_NAMES_24 w0, w1, w2, w3, w4, w5
#define ZVA_WORDS_28 uint32_t w0, uint32_t w1, uint32_t w2, uint32_t w3, uint32_t w4, uint32_t w5, uint32_t w6
#define ZVA_NAMES_28 w0, w1, w2, w3, w4, w5, w6
#define ZVA_WORDS_32 uint32_t w0, uint32_t w1, uint32_t w2, uint32_t w3, uint32_t w4, uint32_t w5, uint32_t w6, uint32_t w7
#define ZVA_NAMES_32 w0, w1, w2, w3, w4, w5, w6, w7
#define ZVA_WORDS_36 uint32_t w0, uint32_t w1, uint32_t w2, uint32_t w3, uint32_t w4, uint32_t w5, uint32_t w6, uint32_t w7, uint32_t w8
#define ZVA_NAMES_36 w0, w1, w2, w3, w4, w5, w6, w7, w8
#define ZVA_WORDS_40 uint32_t w0, uint32_t w1, uint32_t w2, uint32_t w3, uint32_t w4, uint32_t w5, uint32_t w6, uint32_t w7, uint32_t w8, uint32_t w9
#define ZVA_NAMES_40 w0, w1, w2, w3, w4, w5, w6, w7, w8, w9
#define ZVA_WORDS_44 uint32_t w0, uint32_t w1, uint32_t w2, uint32_t w3, uint32_t w4, uint32_t w5, uint32_t w6, uint32_t w7, uint32_t w8, uint32_t w9, uint32_t w10
#define ZVA_NAMES_44 w0, w1, w2, w3, w4, w5, w6, w7, w8, w9, w10
#define ZVA_WORDS_48 uint32_t w0, uint32_t w1, uint32_t w2, uint32_t w3, uint32_t w4, uint32_t w5, uint32_t w6, uint32_t w7, uint32_t w8, uint32_t w9, uint32_t w10, uint32_t w11
#define ZVA_NAMES_48 w0, w1, w2, w3, w4, w5, w6, w7, w8, w9, w10, w11
#define ZVA_WORDS_52 uint32_t w0, uint32_t w1, uint32_t w2, uint32_t w3, uint32_t w4, uint32_t w5, uint32_t w6, uint32_t w7, uint32_t w8, uint32_t w9, uint32_t w10, uint32_t w11, uint32_t w12
#define ZVA_NAMES_52 w0, w1, w2, w3, w4, w5, w6, w7, w8, w9, w10, w11, w12
#define ZVA_WORDS_56 uint32_t w0, uint32_t w1, uint32_t w2, uint32_t w3, uint32_t w4, uint32_t w5, uint32_t w6, uint32_t w7, uint32_t w8, uint32_t w9, uint32_t w10, uint32_t w11, uint32_t w12, uint32_t w13
#define ZVA_NAMES_56 w0, w1, w2, w3, w4, w5, w6, w7, w8, w9, w10, w11, w12, w13
#define ZVA_WORDS_60 uint32_t w0, uint32_t w1, uint32_t w2, uint32_t w3, uint32_t w4, uint32_t w5, uint32_t w6, uint32_t w7, uint32_t w8, uint32_t w9, uint32_t w10, uint32_t w11, uint32_t w12, uint32_t w13, uint32_t w14
#define ZVA_NAMES_60 w0, w1, w2, w3, w4, w5, w6, w7, w8, w9, w10, w11, w12, w13, w14
