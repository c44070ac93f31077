// COPY and SWAP in the four types through the exports, on the branch this
// run was forced to. Both only move elements, so every result is compared
// bit for bit with a reference that moves them one at a time in logical
// order (the BLAS start rule; a zero increment repeats one element), and
// every byte around and between the strided elements keeps its sentinel.
#include <omp.h>

#include <vector>

#include "zva.h"

namespace {

template <class T> struct api {
    typedef void(ZVA_STDCALL* copy)(const int*, const T*, const int*, T*, const int*);
    typedef void(ZVA_STDCALL* swap)(const int*, T*, const int*, T*, const int*);
};

enum op { COPY, SWAP };

// Random bits for every real part, but never a signalling NaN: the x87
// paths would hand it back quiet (SignallingNaN covers that).
template <class R> R random_part(lcg& g) {
    g.next();
    const uint32_t hi = g.state;
    g.next();
    uint64_t b = (uint64_t)hi << 32 | g.state;
    R r;
    if constexpr (sizeof(R) == 4) {
        uint32_t u = (uint32_t)b;
        if ((u & 0x7f800000u) == 0x7f800000u && (u & 0x7fffffu)) u |= 0x400000u;
        memcpy(&r, &u, 4);
    } else {
        if ((b & 0x7ff0000000000000ull) == 0x7ff0000000000000ull && (b & 0xfffffffffffffull))
            b |= 1ull << 51;
        memcpy(&r, &b, 8);
    }
    return r;
}
template <class T> T random_elem(lcg& g) {
    using R = typename elem<T>::R;
    T v;
    R* p = (R*)&v;
    for (size_t i = 0; i < sizeof(T) / sizeof(R); ++i) p[i] = random_part<R>(g);
    return v;
}

constexpr int guard = 5;  // sentinel elements before and after each operand

// A vector of n elements at increment inc, starting `off` bytes past a
// 64-byte boundary (any multiple of 4, so also off its element), inside a
// buffer of sentinels.
template <class T> struct operand {
    std::vector<unsigned char> raw;
    T* base;  // first sentinel
    int len;  // sentinels and elements
    operand(int n, int inc, int off, lcg& g) {
        const int span = n > 0 ? 1 + (n - 1) * abs(inc) : 0;
        len = span + 2 * guard;
        raw.resize(len * sizeof(T) + 128);
        base = (T*)(((uintptr_t)raw.data() + 63) / 64 * 64 + off);
        for (int i = 0; i < len; ++i) base[i] = random_elem<T>(g);
    }
    T* v() { return base + guard; }
    std::vector<T> bits() const { return std::vector<T>(base, base + len); }
};

// One call against the reference on copies of the operands; x and y are
// separate buffers unless `same` asks for y to be x itself.
template <class T>
void check(op o, int n, int incx, int incy, int xo, int yo, bool same = false) {
    lcg g{(uint32_t)(n * 7919 + incx * 131 + incy * 17 + xo * 3 + yo)};
    operand<T> x(n, incx, xo, g), y(n, incy, yo, g);
    operand<T>& yy = same ? x : y;
    std::vector<T> rx = x.bits(), ry = yy.bits();
    std::vector<T>& rys = same ? rx : ry;
    if (n > 0) {
        long long ix = guard + zva::vec_start(n, incx), iy = guard + zva::vec_start(n, incy);
        for (int i = 0; i < n; ++i, ix += incx, iy += incy) {
            const T a = rx[ix], b = rys[iy];
            rys[iy] = a;
            if (o == SWAP) rx[ix] = b;
        }
    }
    const std::string name = routine<T>(o == COPY ? "COPY" : "SWAP");
    if (o == COPY) zva_export<typename api<T>::copy>(name.c_str())(&n, x.v(), &incx, yy.v(), &incy);
    else zva_export<typename api<T>::swap>(name.c_str())(&n, x.v(), &incx, yy.v(), &incy);
    for (int i = 0; i < x.len; ++i)
        ASSERT_TRUE(same_bits(x.base[i], rx[i])) << name << " n=" << n << " incx=" << incx << " incy="
                                                 << incy << " xo=" << xo << " yo=" << yo << ": x[" << i - guard << "]";
    for (int i = 0; i < yy.len; ++i)
        ASSERT_TRUE(same_bits(yy.base[i], rys[i])) << name << " n=" << n << " incx=" << incx << " incy="
                                                   << incy << " xo=" << xo << " yo=" << yo << ": y[" << i - guard << "]";
}

// Around every unroll, peel and switch-over size of the branches: the
// block move from 13 doubles or 25 singles, passes of 4 to 64 elements,
// the 256-byte pass of branch 5 with its carried load.
const int sizes[] = {-1, 0, 1, 2, 3, 4, 5, 7, 8, 9, 12, 13, 15, 16, 17, 24, 25, 31, 32, 33,
                     35, 63, 64, 65, 67, 68, 71, 100, 129, 255, 257, 271, 300, 1001};

template <class T> void sweep(op o) {
    // Unit stride at every phase of x and y within 32 bytes, also off the
    // element for the real types.
    const int offs[] = {0, 4, 8, 12, 16, 20, 24, 28};
    for (int n : sizes)
        for (int xo : offs)
            for (int yo : offs) {
                if (elem<T>::cplx && ((xo | yo) % 8)) continue;
                check<T>(o, n, 1, 1, xo, yo);
            }
    const int incs[][2] = {{-1, -1}, {2, 3}, {-2, 1}, {1, -3}, {0, 1}, {1, 0}, {0, 0},
                           {-1, 1}, {3, -2}, {-3, -3}, {0, -2}, {-2, 0}};
    for (int n : sizes)
        for (auto& inc : incs) {
            check<T>(o, n, inc[0], inc[1], 8, 0);
            check<T>(o, n, inc[0], inc[1], 4, 12);
        }
    // The same vector for x and y: a copy changes nothing, a swap neither.
    for (int n : {1, 16, 40, 300})
        for (int inc : {1, -1, 2}) check<T>(o, n, inc, inc, 8, 8, true);
}

}  // namespace

TEST(Copy, Single) { sweep<float>(COPY); }
TEST(Copy, Double) { sweep<double>(COPY); }
TEST(Copy, SingleComplex) { sweep<cfloat>(COPY); }
TEST(Copy, DoubleComplex) { sweep<cdouble>(COPY); }
TEST(Swap, Single) { sweep<float>(SWAP); }
TEST(Swap, Double) { sweep<double>(SWAP); }
TEST(Swap, SingleComplex) { sweep<cfloat>(SWAP); }
TEST(Swap, DoubleComplex) { sweep<cdouble>(SWAP); }

// A signalling NaN keeps its payload; where the x87 unit carries it, it
// arrives quiet.
TEST(CopySwap, SignallingNaN) {
    const uint64_t snan = 0x7ff4000000000123ull, qnan = snan | 1ull << 51;
    for (int n : {1, 5, 40})
        for (int inc : {1, 2}) {
            std::vector<double> x(n * inc, 1.0), y(n * inc, 2.0);
            memcpy(&x[(n - 1) * inc], &snan, 8);
            zva_export<api<double>::copy>("DCOPY")(&n, x.data(), &inc, y.data(), &inc);
            uint64_t got;
            memcpy(&got, &y[(n - 1) * inc], 8);
            EXPECT_TRUE(got == snan || got == qnan) << n << " " << inc;
            zva_export<api<double>::swap>("DSWAP")(&n, x.data(), &inc, y.data(), &inc);
            memcpy(&got, &x[(n - 1) * inc], 8);
            EXPECT_TRUE(got == snan || got == qnan) << n << " " << inc;
        }
}

// Above the size limits the vectors are cut among threads (branches 4, 5
// and 6 fork; ZVA_DYNAMIC=FALSE takes the OpenMP count as given): 1, 2 and
// 3 threads give the reference's bits, and so each other's.
TEST(CopySwapThreads, SlicesKeepTheBits) {
    const int sizes[] = {1601, 2001, 2501, 3001, 5001, 6007, 8191};
    const int incs[][2] = {{1, 1}, {-1, -1}, {2, -3}, {-1, 2}};
    for (int threads : {1, 2, 3}) {
        omp_set_num_threads(threads);
        for (op o : {COPY, SWAP})
            for (int n : sizes)
                for (auto& inc : incs) {
                    check<float>(o, n, inc[0], inc[1], 4, 0);
                    check<double>(o, n, inc[0], inc[1], 8, 0);
                    check<cfloat>(o, n, inc[0], inc[1], 8, 0);
                    check<cdouble>(o, n, inc[0], inc[1], 16, 8);
                }
    }
}

// Once x and y together outgrow the last-level cache, the block move of
// branches 6 and 7 streams y past the caches: one call of 20 MB a vector,
// y off its 32-byte boundary and a partial last vector. Kept with the
// thread cases, out of the sanitizer runs, for its size; one thread.
TEST(CopySwapThreads, OneThreadStreamsPastTheCache) {
    omp_set_num_threads(1);
    check<double>(COPY, 2500003, 1, 1, 0, 8);
    check<cfloat>(COPY, 2500003, 1, 1, 8, 16);
}
