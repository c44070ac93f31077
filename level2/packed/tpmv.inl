// TPMV and TPSV, x := op(A)*x and the solve op(A)*x = b in place, with A a
// packed triangle, op(A) = A, A' or conj(A'), on every branch.
//
// Columns go in blocks of K = 4 (2 for STPMV, CTPMV, CTPSV and ZTPSV on
// branch 2), in the order that keeps the elements of x still needed: TPMV
// up the columns for upper N and lower T, down for the others, blocks first
// and the n mod K columns left over last; TPSV in the order of substitution,
// the left-over columns first. One walk over the rows outside a block serves
// all its columns:
//   not transposed  TPMV  x[i] += (t0*a0 + t1*a1 + t2*a2 + t3*a3), the
//                         bracket a product and three multiply-adds
//                   TPSV  x[i] -= t0*a0, then t1*a1, ... (fused on 7)
//   transposed      four dot products, products and sums apart on every
//                   branch, then subtracted (TPSV) or added (TPMV)
// and the K x K triangle on the diagonal goes by scalars: TPMV after the
// walk, TPSV before it (not transposed) or after the dots (transposed). A
// division is a division, not a multiply by a reciprocal; no x(j) is tested
// for zero, so 0/0 gives NaN where the reference keeps 0.
//
// Complex division: CTPSV widens to double and divides both parts at once
// (branches 3 to 7), or scales in single precision (branch 2); ZTPSV runs
// it on the x87 unit in its register width on every branch.
//
// Rows a pass by type and branch (7 / 6 / 2 to 5), the columns left over:
//   D  TPMV N block 8,4 upper and 16,4 lower / the same / 8,2; T block 4,2 /
//      4 / 8,2. TPSV block 16,4,2 / 16,4 / 8,2. Left over 16,4 / 16 / 8
//   S  block 16,8,4 / 16,8 / 8,4; left over 32,16,8 / 16 / 8
//   C  block 8,4,2 / 8,4 / 4,2; left over 8,4 / 8 / 8
//   Z  block 4,2 / 4,2 / 1; left over 8,2 / 8 / 1 (TPSV 2)
// Non-unit increments take the same blocks and passes by element moves; the
// TPSV vectors of reals on branch 7 by the gather instruction.
// Registers: four column factors and the row sum (four dot sums when
// transposed) stay in registers in the real types; the complex factors of a
// block partly come from the stack.
#include "level2/packed/lanes.inl"

namespace zva::ZVA_NS {
namespace {

template <class T, bool Solve>
constexpr int tri_k = branch == 2 && (__is_same(T, c32) || (Solve ? __is_same(T, c64) : __is_same(T, float))) ? 2 : 4;

enum { f_upper, f_lower, f_trans, f_alone };

template <class T, bool Solve, int Form>
constexpr passes tri_rows() {
    constexpr bool b7 = branch == 7, b6 = branch == 6;
    if constexpr (__is_same(T, double)) {
        if (Form == f_alone) return b7 ? passes{16, 4, 0} : b6 ? passes{16, 0, 0} : passes{8, 0, 0};
        if (branch < 6) return {8, 2, 0};
        if (Solve) return b7 ? passes{16, 4, 2} : passes{16, 4, 0};
        if (Form == f_trans) return b7 ? passes{4, 2, 0} : passes{4, 0, 0};
        return {Form == f_upper ? 8 : 16, 4, 0};
    } else if constexpr (__is_same(T, float)) {
        if (Form == f_alone) return b7 ? passes{32, 16, 8} : passes{b6 ? 16 : 8, 0, 0};
        return b7 ? passes{16, 8, 4} : b6 ? passes{16, 8, 0} : passes{8, 4, 0};
    } else if constexpr (__is_same(T, c32)) {
        if (Form == f_alone) return b7 ? passes{8, 4, 0} : passes{8, 0, 0};
        return b7 ? passes{8, 4, 2} : b6 ? passes{8, 4, 0} : passes{4, 2, 0};
    } else {
        if (Form == f_alone) return b7 ? passes{8, 2, 0} : b6 ? passes{8, 0, 0} : passes{Solve ? 2 : 1, 0, 0};
        return branch >= 6 ? passes{4, 2, 0} : passes{1, 0, 0};
    }
}

// x / a. Complex: x*conj(a) / |a|^2, without scaling or comparing the parts
// (branch 2's single-precision form scales by the larger part).
template <class T>
T s_div(T x, T a) {
    if constexpr (!cplx<T>) {
        return x / a;
    } else if constexpr (__is_same(T, c64)) {
        const long double ar = a.re, ai = a.im, xr = x.re, xi = x.im;
        const long double den = ar * ar + ai * ai;
        return {static_cast<double>((xr * ar + xi * ai) / den), static_cast<double>((xi * ar - xr * ai) / den)};
    } else if constexpr (branch >= 3) {
        const double ar = a.re, ai = a.im, xr = x.re, xi = x.im;
        const __m128d q = _mm_div_pd(_mm_setr_pd(xr * ar + xi * ai, xi * ar - xr * ai), _mm_set1_pd(ar * ar + ai * ai));
        T r;
        _mm_storel_pi(reinterpret_cast<__m64*>(&r), _mm_cvtpd_ps(q));
        return r;
    } else {
        const float m = __builtin_fabsf(a.re) > __builtin_fabsf(a.im) ? __builtin_fabsf(a.re) : __builtin_fabsf(a.im);
        const float s = 1.0f / m;
        const float den = (a.re * a.re + a.im * a.im) * s;
        return {((x.re * a.re + x.im * a.im) * s) / den, ((x.im * a.re - x.re * a.im) * s) / den};
    }
}

template <class T>
struct tri_m {
    int n;
    bool upper, trans, conj, nounit;
    const T* ap;
};

// Columns j .. j+K-1 (`col` the first one's entries): the walk over the rows
// outside the block and the triangle on its diagonal.
template <class T, bool Solve, int K, bool Unit>
void tri_group(const tri_m<T>& m, int j, const T* col, vec<T, Unit> x) {
    const bool up = m.upper;
    const T* a[K];
    for (int k = 0; k < K; ++k) {
        a[k] = by_row(col, up, j + k);
        col += col_len(up, m.n, j + k);
    }
    // Entry (r, c) of the block, a stored one, conjugated for op = C.
    auto e = [&](int r, int c) PK_ZL { return m.conj ? s_conj(a[c][j + r]) : a[c][j + r]; };
    auto above = [&](int r, int c) PK_ZL { return up ? r < c : r > c; };  // (r, c) off the diagonal, stored
    const int r0 = up ? 0 : j + K, r1 = up ? j : m.n;
    T t[K];

    if (!m.trans) {
        if constexpr (Solve) {
            for (int q = 0; q < K; ++q) {
                const int r = up ? K - 1 - q : q;
                T v = x[j + r];
                for (int c = 0; c < K; ++c)
                    if (above(r, c)) v = s_sub(v, s_mul(e(r, c), x[j + c]));
                x[j + r] = m.nounit ? s_div(v, e(r, r)) : v;
            }
        }
        fac<T> f[K];
        for (int k = 0; k < K; ++k) t[k] = x[j + k];
        each<K>([&](auto k) PK_ZL { f[k] = fac_of(t[k]); });
        auto upd = [&](auto w, int i, auto) PK_ZL {
            V<T> xv = ldv<w>(x, i);
            auto col_k = [&](int k) PK_ZL { return ld<w>(a[k] + i); };
            if constexpr (Solve) {
                each<K>([&](auto k) PK_ZL {
                    if constexpr (cplx<T>) xv = sub(xv, times(col_k(k), f[k]));
                    else xv = nmadd(xv, col_k(k), f[k].r);
                });
            } else if constexpr (K == 1) {
                if constexpr (cplx<T>) xv = add(xv, times(col_k(0), f[0]));
                else xv = madd(xv, col_k(0), f[0].r);
            } else {
                V<T> s = times(col_k(0), f[0]);
                each<K - 1>([&](auto k) PK_ZL {
                    if constexpr (cplx<T>) s = add(s, times(col_k(k + 1), f[k + 1]));
                    else s = madd(s, col_k(k + 1), f[k + 1].r);
                });
                xv = add(xv, s);
            }
            stv<w>(x, i, xv);
        };
        constexpr passes pu = tri_rows<T, Solve, K == 1 ? f_alone : f_upper>();
        constexpr passes pl = tri_rows<T, Solve, K == 1 ? f_alone : f_lower>();
        if constexpr (pu == pl) walk<T, pu>(r0, r1, x.align_at(r0), upd);
        else if (up) walk<T, pu>(r0, r1, x.align_at(r0), upd);
        else walk<T, pl>(r0, r1, x.align_at(r0), upd);
        if constexpr (!Solve) {
            for (int r = 0; r < K; ++r) {
                T v = m.nounit ? s_mul(e(r, r), t[r]) : t[r];
                for (int c = 0; c < K; ++c)
                    if (above(r, c)) v = s_add(v, s_mul(e(r, c), t[c]));
                x[j + r] = v;
            }
        }
        return;
    }

    // Transposed: dot products of the columns with the rows outside.
    V<T> acc[K];
    each<K>([&](auto k) PK_ZL { acc[k] = zero<T>(); });
    const V<T> cm = m.conj ? splat<T>(-R_<T>(0)) : zero<T>();
    walk<T, tri_rows<T, Solve, K == 1 ? f_alone : f_trans>()>(r0, r1, x.align_at(r0), [&](auto w, int i, auto) PK_ZL {
        const V<T> xv = ldv<w>(x, i);
        V<T> xr, xi;
        if constexpr (cplx<T>) xr = dre(xv), xi = vxor(dim(xv), cm);  // x or conj(x)
        each<K>([&](auto k) PK_ZL {
            const V<T> av = ld<w>(a[k] + i);
            if constexpr (cplx<T>) acc[k] = add(acc[k], cmul(av, xr, xi));
            else acc[k] = add(acc[k], mul(av, xv));
        });
    });
    T d[K];
    each<K>([&](auto k) PK_ZL {
        d[k] = hsum<T>(acc[k]);
        if (m.conj) d[k] = s_conj(d[k]);  // sum a*conj(x) is conj of sum conj(a)*x
    });
    if constexpr (Solve) {
        for (int q = 0; q < K; ++q) {
            const int r = up ? q : K - 1 - q;
            T v = s_sub(x[j + r], d[r]);
            for (int c = 0; c < K; ++c)
                if (above(c, r)) v = s_sub(v, s_mul(e(c, r), x[j + c]));
            x[j + r] = m.nounit ? s_div(v, e(r, r)) : v;
        }
    } else {
        for (int k = 0; k < K; ++k) t[k] = x[j + k];
        for (int r = 0; r < K; ++r) {
            T v = s_add(d[r], m.nounit ? s_mul(e(r, r), t[r]) : t[r]);
            for (int c = 0; c < K; ++c)
                if (above(c, r)) v = s_add(v, s_mul(e(c, r), t[c]));
            x[j + r] = v;
        }
    }
}

template <class T, bool Solve, bool Unit>
void tri_run(const tri_m<T>& m, vec<T, Unit> x) {
    constexpr int K = tri_k<T, Solve>;
    const int n = m.n;
    const bool up = m.upper;
    // TPMV climbs for upper N and lower T; TPSV goes the other way.
    const bool fwd = (up != m.trans) != Solve;
    // A running column and offset of its entries in ap.
    int j = fwd ? 0 : n;
    int off = fwd ? 0 : static_cast<int>(static_cast<long long>(n) * (n + 1) / 2);
    auto group = [&](auto kk) PK_ZL {
        constexpr int k = kk;
        if (fwd) {
            tri_group<T, Solve, k>(m, j, m.ap + off, x);
            for (int q = 0; q < k; ++q) off += col_len(up, n, j + q);
            j += k;
        } else {
            j -= k;
            for (int q = 0; q < k; ++q) off -= col_len(up, n, j + q);
            tri_group<T, Solve, k>(m, j, m.ap + off, x);
        }
    };
    const int blocks = n / K, rest = n % K;
    if constexpr (Solve)
        for (int q = 0; q < rest; ++q) group(cnt<1>{});
    for (int b = 0; b < blocks; ++b) group(cnt<K>{});
    if constexpr (!Solve)
        for (int q = 0; q < rest; ++q) group(cnt<1>{});
}

template <class T, bool Solve>
void tri_entry(const char* uplo, const char* trans, const char* diag, int n, const T* ap, T* px, int incx) {
    if (n == 0) return;
    const char tr = letter(trans);
    const tri_m<T> m{n, letter(uplo) == 'U', tr != 'N', cplx<T> && tr == 'C', letter(diag) == 'N', ap};
    if (incx == 1) tri_run<T, Solve>(m, vec_at<T, true>(px, n, 1));
    else tri_run<T, Solve>(m, vec_at<T, false>(px, n, incx));
}

}  // namespace

template <class T>
void tpmv(const char* uplo, const char* trans, const char* diag, const int* n, const T* ap, T* x, const int* incx,
          int, int, int) {
    tri_entry<T, false>(uplo, trans, diag, *n, ap, x, *incx);
}

template <class T>
void tpsv(const char* uplo, const char* trans, const char* diag, const int* n, const T* ap, T* x, const int* incx,
          int, int, int) {
    tri_entry<T, true>(uplo, trans, diag, *n, ap, x, *incx);
}

ZVA_INSTANTIATE_TYPES(tpmv)
ZVA_INSTANTIATE_TYPES(tpsv)

}  // namespace zva::ZVA_NS
