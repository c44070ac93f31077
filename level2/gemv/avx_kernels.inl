// The GEMV kernels of the 256-bit branches (6 and 7): the column blocks,
// the dot and update forms and the exported kernels. Included by avx.inl
// after the branch's primitives (ld, st, mul, add, madd, cmul, the
// n_tree8_v and n_tree8_s sum trees, ...), so that each branch compiles the
// same kernels over its own arithmetic.
// No include guard: every branch file includes it once.


template <class T>
NOI void n_block8(int m, int pe, bool vec, const T* a, int lda, const T* t, T* y) {
    constexpr int W = vt<T>::W;
    int i = 0;
    for (; i < pe; ++i) n_tree8_s(a + i, lda, t, y + i);
    if (vec) {
        // Columns 0-2, 3-5 and 6-7 from three pointers plus lda: the eight
        // streams, t and y fit the six free integer registers.
        const int nv = (m - i) / W;
        const T* p = a + i;
        const T* q = p + 3 * lda;
        const T* r = p + 6 * lda;
        T* yp = y + i;
        T* const ye = yp + nv * W;
        for (; yp != ye; yp += W, p += W, q += W, r += W) {
            n_tree8_v(LV{}, [&](int k) __attribute__((always_inline)) {
                const T* c = k < 3 ? p : k < 6 ? q : r;
                return ld(LV{}, c + (k % 3) * lda);
            }, t, yp);
        }
        i += nv * W;
        for (; i + 2 <= m; i += 2) {
            n_tree8_v(LH{}, [&](int k) __attribute__((always_inline)) {
                return ld(LH{}, a + i + k * lda);
            }, t, y + i);
        }
    }
    for (; i < m; ++i) n_tree8_s(a + i, lda, t, y + i);
}

// s + t0*a0 + t1*a1 + ... over NC columns, left to right, each step a madd.
template <int NC, class L, class T, class A>
ZI A n_chain(L l, A s, const T* p, int lda, const T* t) {
    each<NC>([&](int k) __attribute__((always_inline)) {
        s = madd(bc(l, t + k), ld(l, p + k * lda), s);
    });
    return s;
}

// Four vectors of rows: each column factor is broadcast once for all four.
template <int NC, class T>
ZI void n_chain4v(const T* p, int lda, const T* t, T* yp) {
    constexpr int W = vt<T>::W;
    auto y0 = ld(LV{}, yp), y1 = ld(LV{}, yp + W);
    auto y2 = ld(LV{}, yp + 2 * W), y3 = ld(LV{}, yp + 3 * W);
    each<NC>([&](int k) __attribute__((always_inline)) {
        const T* c = p + k * lda;
        const auto b = bc(LV{}, t + k);
        y0 = madd(b, ld(LV{}, c), y0);
        y1 = madd(b, ld(LV{}, c + W), y1);
        y2 = madd(b, ld(LV{}, c + 2 * W), y2);
        y3 = madd(b, ld(LV{}, c + 3 * W), y3);
    });
    st(LV{}, yp, y0);
    st(LV{}, yp + W, y1);
    st(LV{}, yp + 2 * W, y2);
    st(LV{}, yp + 3 * W, y3);
}

// Rows of an update block: scalar peel, four vectors a pass, then single
// vectors (so that up to 4W-1 rows do not all fall to the narrow steps),
// 2 lanes, scalar. Every row sums y + t0*a0 + t1*a1 + ... in column order,
// so the split does not change the result.
template <int NC, class T>
NOI void n_block(int m, int pe, bool vec, const T* a, int lda, const T* t, T* y) {
    constexpr int W = vt<T>::W;
    int i = 0;
    for (; i < pe; ++i) st(LS{}, y + i, n_chain<NC>(LS{}, ld(LS{}, y + i), a + i, lda, t));
    if (vec) {
        for (; i + 4 * W <= m; i += 4 * W) n_chain4v<NC>(a + i, lda, t, y + i);
        for (; i + W <= m; i += W) st(LV{}, y + i, n_chain<NC>(LV{}, ld(LV{}, y + i), a + i, lda, t));
        for (; i + 2 <= m; i += 2) st(LH{}, y + i, n_chain<NC>(LH{}, ld(LH{}, y + i), a + i, lda, t));
    }
    for (; i < m; ++i) st(LS{}, y + i, n_chain<NC>(LS{}, ld(LS{}, y + i), a + i, lda, t));
}

template <class T>
void n_unit(int m, int n, T alpha, const T* a, int lda, const T* x, T* y) {
    // y's peel is the same for every column block.
    const int p = peel_to_32(y, sizeof(T));
    const bool vec = p >= 0;
    const int pe = !vec ? 0 : p < m ? p : m;
    T t[8];
    int j = 0;
    auto fold = [&](int nc) __attribute__((always_inline)) {
        for (int k = 0; k < nc; ++k) t[k] = alpha * x[j + k];
    };
    if constexpr (sizeof(T) == 8) {
        for (; j + 8 <= n; j += 8) {
            fold(8);
            n_block8(m, pe, vec, a + j * lda, lda, t, y);
        }
        if (j + 4 <= n) {
            fold(4);
            n_block<4>(m, pe, vec, a + j * lda, lda, t, y);
            j += 4;
        }
        if (j + 2 <= n) {
            fold(2);
            n_block<2>(m, pe, vec, a + j * lda, lda, t, y);
            j += 2;
        }
    } else {
        for (; j + 4 <= n; j += 4) {
            fold(4);
            n_block<4>(m, pe, vec, a + j * lda, lda, t, y);
        }
    }
    for (; j < n; ++j) {
        fold(1);
        n_block<1>(m, pe, vec, a + j * lda, lda, t, y);
    }
}

// ---- not transposed, other increments ----------------------------------------

template <class T>
void n_strided(int m, int n, T alpha, const T* a, int lda, const T* x, int incx, T* y, int incy) {
    x += vec_start(n, incx);
    y += vec_start(m, incy);
    T t[4];
    int j = 0;
    for (; j + 4 <= n; j += 4, x += 4 * incx, a += 4 * lda) {
        for (int k = 0; k < 4; ++k) t[k] = alpha * x[k * incx];
        const auto t0 = bc(LS{}, t), t1 = bc(LS{}, t + 1);
        const auto t2 = bc(LS{}, t + 2), t3 = bc(LS{}, t + 3);
        const T *a0 = a, *a1 = a + lda, *a2 = a + 2 * lda, *a3 = a + 3 * lda;
        T* yp = y;
        for (int i = 0; i < m; ++i, yp += incy) {
            auto s = madd(t0, ld(LS{}, a0 + i), ld(LS{}, yp));
            s = madd(t1, ld(LS{}, a1 + i), s);
            s = madd(t2, ld(LS{}, a2 + i), s);
            st(LS{}, yp, madd(t3, ld(LS{}, a3 + i), s));
        }
    }
    for (; j < n; ++j, x += incx, a += lda) {
        t[0] = alpha * x[0];
        const auto t0 = bc(LS{}, t);
        T* yp = y;
        int i = 0;
        for (; i + 2 <= m; i += 2, yp += 2 * incy) {
            st(LS{}, yp, madd(t0, ld(LS{}, a + i), ld(LS{}, yp)));
            st(LS{}, yp + incy, madd(t0, ld(LS{}, a + i + 1), ld(LS{}, yp + incy)));
        }
        if (i < m) st(LS{}, yp, madd(t0, ld(LS{}, a + i), ld(LS{}, yp)));
    }
}

// ---- transposed: the dot form ------------------------------------------------

// The vector loop of the dot form: nv >= 1 vectors of rows from a (row i of
// x), one accumulator per column, started with the first product. On its
// own so that nothing else competes for the eight registers.
template <int NC, class T, class X>
NOI int t_vec(int nv, const T* a, int lda, X x, int i, typename vt<T>::V* out) {
    using V = typename vt<T>::V;
    constexpr int W = vt<T>::W;
    V c[NC];
    V xv = x.v(i);
    each<NC>([&](int k) __attribute__((always_inline)) { c[k] = mul(ld(LV{}, a + k * lda), xv); });
    for (int v = 1; v < nv; ++v) {
        a += W;
        xv = x.v(i + v * W);
        each<NC>([&](int k) __attribute__((always_inline)) {
            c[k] = add(c[k], mul(ld(LV{}, a + k * lda), xv));
        });
    }
    each<NC>([&](int k) __attribute__((always_inline)) { out[k] = c[k]; });
    return nv;
}

// y[k*incy] += alpha * (sum over rows of x[i]*a[i, k]) for NC columns.
// Each sum is x[0]*a[0, k], then the scalar peel rows, then the lanes of the
// vector accumulator in lane order, then the 2-lane and scalar tail rows.
// The vector loop runs first, while nothing else is live: its partial sums
// do not depend on the scalar ones, so the result is the same as in place.
template <int NC, class T, class X>
NOI void t_block(int m, const T* a, int lda, X x, T alpha, T* y, int incy) {
    using V = typename vt<T>::V;
    constexpr int W = vt<T>::W;
    int i0 = 1;  // rows [1, i0) are the peel
    bool vec = true;
    if (m - 1 >= W) {
        // Align the last column of the block; the others follow when lda
        // allows it. An address off the element grid never aligns: all
        // rows then go scalar.
        const int p = peel_to_32(a + (NC - 1) * lda + 1, sizeof(T));
        vec = p >= 0;
        if (vec) i0 += p;
    }
    const bool hv = vec && m - i0 >= W;
    int i = i0;
    V c[NC];
    if (hv) i += W * t_vec<NC>((m - i) / W, a + i, lda, x, i, c);
    T t[NC];
    const T x0 = x.s(0);
    each<NC>([&](int k) __attribute__((always_inline)) {
        const T* ak = a + k * lda;
        T s = x0 * ak[0];
        for (int r = 1; r < i0; ++r) s = s + x.s(r) * ak[r];
        if (hv) s = lanesum(s, c[k]);
        t[k] = s;
    });
    if (vec) {
        for (; i + 2 <= m; i += 2) {
            const auto xh = x.h(i);
            each<NC>([&](int k) __attribute__((always_inline)) {
                t[k] = lanesum(t[k], mul(xh, ld(LH{}, a + k * lda + i)));
            });
        }
    }
    for (; i < m; ++i) {
        const T xi = x.s(i);
        each<NC>([&](int k) __attribute__((always_inline)) { t[k] = t[k] + xi * a[k * lda + i]; });
    }
    each<NC>([&](int k) __attribute__((always_inline)) {
        T* yk = y + k * incy;
        *yk = madd(alpha, t[k], *yk);
    });
}

template <class T, class X>
void t_unit(int m, int n, T alpha, const T* a, int lda, const X& x, T* y) {
    int j = 0;
    for (; j + 4 <= n; j += 4) t_block<4>(m, a + j * lda, lda, x, alpha, y + j, 1);
    if constexpr (sizeof(T) == 8) {
        if (j + 2 <= n) {
            t_block<2>(m, a + j * lda, lda, x, alpha, y + j, 1);
            j += 2;
        }
    }
    for (; j < n; ++j) t_block<1>(m, a + j * lda, lda, x, alpha, y + j, 1);
}

template <class T>
void t_strided(int m, int n, T alpha, const T* a, int lda, const T* x, int incx, T* y, int incy) {
    const XGath<T> xg{x + vec_start(m, incx), incx};
    y += vec_start(n, incy);
    int j = 0;
    for (; j + 4 <= n; j += 4) t_block<4>(m, a + j * lda, lda, xg, alpha, y + j * incy, incy);
    for (; j < n; ++j) t_block<1>(m, a + j * lda, lda, xg, alpha, y + j * incy, incy);
}

template <class T>
void real_gemv(const char* trans, const int* pm, const int* pn, const T* palpha, const T* a,
               const int* plda, const T* x, const int* pincx, const T* pbeta, T* y,
               const int* pincy) {
    const int m = *pm, n = *pn;
    if (m <= 0 || n <= 0) return;
    const T alpha = *palpha, beta = *pbeta;
    if (is_zero(alpha) && is_one(beta)) return;
    const bool nt = *trans == 'N' || *trans == 'n';
    const int lda = *plda, incx = *pincx, incy = *pincy;
    const int leny = nt ? m : n;
    if (beta != T(1)) {
        if (is_zero(beta))
            zero_y(y, leny, incy);
        else
            scale_real(y, leny, incy, beta);
    }
    if (alpha == T(0)) return;
    if (nt) {
        if (incx == 1 && incy == 1)
            n_unit(m, n, alpha, a, lda, x, y);
        else
            n_strided(m, n, alpha, a, lda, x, incx, y, incy);
    } else {
        if (incx == 1 && incy == 1)
            t_unit(m, n, alpha, a, lda, XUnit<T>{x}, y);
        else
            t_strided(m, n, alpha, a, lda, x, incx, y, incy);
    }
}

// ---- complex: not transposed, unit increments --------------------------------

// s + t0*a0 + t1*a1 + ... over NC columns; t holds the folded alpha*x.
template <int NC, class L, class CT, class A>
ZI A cn_chain(L l, A s, const CT* p, int lda, const CT* t) {
    each<NC>([&](int k) __attribute__((always_inline)) {
        s = add(s, cmul(ld(l, p + k * lda), bre(l, t + k), bim(l, t + k)));
    });
    return s;
}

// All four-vector passes of a complex update block: nb passes over nc
// columns. The column loop must stay rolled, or the compiler broadcasts
// every column's factors up front and runs out of registers; noipa keeps it
// from turning nc into a constant and unrolling the loop anyway.
template <class CT>
__attribute__((noipa)) void cn_rows4(int nb, const CT* a, int lda, const CT* t, int nc, CT* y) {
    constexpr int W = vt<CT>::W;
    for (; nb > 0; --nb, a += 4 * W, y += 4 * W) {
        auto y0 = ld(LV{}, y), y1 = ld(LV{}, y + W);
        auto y2 = ld(LV{}, y + 2 * W), y3 = ld(LV{}, y + 3 * W);
        const CT* p = a;
        for (int k = 0; k < nc; ++k, p += lda) {
            const auto br = bre(LV{}, t + k), bi = bim(LV{}, t + k);
            y0 = add(y0, cmul(ld(LV{}, p), br, bi));
            y1 = add(y1, cmul(ld(LV{}, p + W), br, bi));
            y2 = add(y2, cmul(ld(LV{}, p + 2 * W), br, bi));
            y3 = add(y3, cmul(ld(LV{}, p + 3 * W), br, bi));
        }
        st(LV{}, y, y0);
        st(LV{}, y + W, y1);
        st(LV{}, y + 2 * W, y2);
        st(LV{}, y + 3 * W, y3);
    }
}

// Rows of a complex update block, shaped as n_block.
template <int NC, class CT>
NOI void cn_block(int m, int pe, bool vec, const CT* a, int lda, const CT* t, CT* y) {
    constexpr int W = vt<CT>::W;
    int i = 0;
    for (; i < pe; ++i) st(LS{}, y + i, cn_chain<NC>(LS{}, ld(LS{}, y + i), a + i, lda, t));
    if (vec) {
        if (const int nb = (m - i) / (4 * W)) {
            cn_rows4(nb, a + i, lda, t, NC, y + i);
            i += nb * 4 * W;
        }
        for (; i + W <= m; i += W)
            st(LV{}, y + i, cn_chain<NC>(LV{}, ld(LV{}, y + i), a + i, lda, t));
        if constexpr (W == 4) {  // C: two complex in 128 bits; in Z that is one
            for (; i + 2 <= m; i += 2)
                st(LH{}, y + i, cn_chain<NC>(LH{}, ld(LH{}, y + i), a + i, lda, t));
        }
    }
    for (; i < m; ++i) st(LS{}, y + i, cn_chain<NC>(LS{}, ld(LS{}, y + i), a + i, lda, t));
}

template <class CT>
void cn_unit(int m, int n, const CT& alpha, const CT* a, int lda, const CT* x, CT* y) {
    const int p = peel_to_32(y, sizeof(CT));
    const bool vec = p >= 0;
    const int pe = !vec ? 0 : p < m ? p : m;
    const auto ar = bre(LS{}, &alpha), ai = bim(LS{}, &alpha);
    CT t[4];
    int j = 0;
    auto fold = [&](int nc) __attribute__((always_inline)) {
        for (int k = 0; k < nc; ++k) st(LS{}, t + k, cmul(ld(LS{}, x + j + k), ar, ai));
    };
    for (; j + 4 <= n; j += 4) {
        fold(4);
        cn_block<4>(m, pe, vec, a + j * lda, lda, t, y);
    }
    if (j + 2 <= n) {
        fold(2);
        cn_block<2>(m, pe, vec, a + j * lda, lda, t, y);
        j += 2;
    }
    if (j < n) {
        fold(1);
        cn_block<1>(m, pe, vec, a + j * lda, lda, t, y);
    }
}

// ---- complex: not transposed, other increments --------------------------------

template <class CT>
void cn_strided(int m, int n, const CT& alpha, const CT* a, int lda, const CT* x, int incx,
                CT* y, int incy) {
    x += vec_start(n, incx);
    y += vec_start(m, incy);
    const auto ar = bre(LS{}, &alpha), ai = bim(LS{}, &alpha);
    CT t[2];
    int j = 0;
    for (; j + 2 <= n; j += 2, x += 2 * incx, a += 2 * lda) {
        st(LS{}, t, cmul(ld(LS{}, x), ar, ai));
        st(LS{}, t + 1, cmul(ld(LS{}, x + incx), ar, ai));
        const auto t0r = bre(LS{}, t), t0i = bim(LS{}, t);
        const auto t1r = bre(LS{}, t + 1), t1i = bim(LS{}, t + 1);
        const CT* a1 = a + lda;
        CT* yp = y;
        for (int i = 0; i < m; ++i, yp += incy) {
            auto s = add(ld(LS{}, yp), cmul(ld(LS{}, a + i), t0r, t0i));
            st(LS{}, yp, add(s, cmul(ld(LS{}, a1 + i), t1r, t1i)));
        }
    }
    if (j < n) {
        st(LS{}, t, cmul(ld(LS{}, x), ar, ai));
        CT* yp = y;
        int i = 0;
        if constexpr (sizeof(CT) == 8) {
            // Two rows in one 128-bit register.
            const auto tr = bre(LH{}, t), ti = bim(LH{}, t);
            for (; i + 2 <= m; i += 2, yp += 2 * incy) {
                __m128 yv = _mm_loadh_pi(ld(LS{}, yp), reinterpret_cast<const __m64*>(yp + incy));
                yv = add(yv, cmul(ld(LH{}, a + i), tr, ti));
                _mm_storel_pi(reinterpret_cast<__m64*>(yp), yv);
                _mm_storeh_pi(reinterpret_cast<__m64*>(yp + incy), yv);
            }
        } else {
            const auto tr = bre(LS{}, t), ti = bim(LS{}, t);
            for (; i + 2 <= m; i += 2, yp += 2 * incy) {
                st(LS{}, yp, add(ld(LS{}, yp), cmul(ld(LS{}, a + i), tr, ti)));
                st(LS{}, yp + incy, add(ld(LS{}, yp + incy), cmul(ld(LS{}, a + i + 1), tr, ti)));
            }
        }
        if (i < m) {
            const auto tr = bre(LS{}, t), ti = bim(LS{}, t);
            st(LS{}, yp, add(ld(LS{}, yp), cmul(ld(LS{}, a + i), tr, ti)));
        }
    }
}

// ---- complex: transposed and conjugate transposed, the dot form ---------------

// x's real and imaginary parts, each duplicated over its pair; with CJ the
// imaginary part negated.
template <bool CJ, class A>
ZI void xparts(A xv, A& r, A& im) {
    r = dre(xv);
    im = CJ ? neg(dim(xv)) : dim(xv);
}

// The complex dot form's vector loop, as t_vec.
template <int NC, bool CJ, class CT, class X>
NOI int ct_vec(int nv, const CT* a, int lda, X x, int i, typename vt<CT>::V* out) {
    using V = typename vt<CT>::V;
    constexpr int W = vt<CT>::W;
    V c[NC];
    V vr, vi;
    xparts<CJ>(x.v(i), vr, vi);
    each<NC>([&](int k) __attribute__((always_inline)) { c[k] = cmul(ld(LV{}, a + k * lda), vr, vi); });
    for (int v = 1; v < nv; ++v) {
        a += W;
        xparts<CJ>(x.v(i + v * W), vr, vi);
        each<NC>([&](int k) __attribute__((always_inline)) {
            c[k] = add(c[k], cmul(ld(LV{}, a + k * lda), vr, vi));
        });
    }
    each<NC>([&](int k) __attribute__((always_inline)) { out[k] = c[k]; });
    return nv;
}

// CJ: conj(a)*x is summed as conj(a*conj(x)): the sign goes on x's imaginary
// part once per row instead of on every element of A, and the sum is
// conjugated once at the end. Sum order and loop order as in t_block.
template <int NC, bool CJ, class CT, class X>
NOI void ct_block(int m, const CT* a, int lda, X x, const CT& alpha, CT* y, int incy) {
    using V = typename vt<CT>::V;
    using E = typename vt<CT>::E;
    constexpr int W = vt<CT>::W;
    int i0 = 1;
    bool vec = true;
    if (m - 1 >= W) {
        const int p = peel_to_32(a + (NC - 1) * lda + 1, sizeof(CT));
        vec = p >= 0;
        if (vec) i0 += p;
    }
    const bool hv = vec && m - i0 >= W;
    int i = i0;
    V c[NC];
    if (hv) i += W * ct_vec<NC, CJ>((m - i) / W, a + i, lda, x, i, c);
    E t[NC];
    each<NC>([&](int k) __attribute__((always_inline)) {
        const CT* ak = a + k * lda;
        E xr, xi;
        xparts<CJ>(x.s(0), xr, xi);
        E s = cmul(ld(LS{}, ak), xr, xi);
        for (int r = 1; r < i0; ++r) {
            xparts<CJ>(x.s(r), xr, xi);
            s = add(s, cmul(ld(LS{}, ak + r), xr, xi));
        }
        if (hv) s = csum(s, c[k]);
        t[k] = s;
    });
    if constexpr (W == 4) {  // C: a 128-bit step of two rows
        if (vec) {
            for (; i + 2 <= m; i += 2) {
                E hr, hi;
                xparts<CJ>(x.h(i), hr, hi);
                each<NC>([&](int k) __attribute__((always_inline)) {
                    t[k] = csum(t[k], cmul(ld(LH{}, a + k * lda + i), hr, hi));
                });
            }
        }
    }
    for (; i < m; ++i) {
        E xr, xi;
        xparts<CJ>(x.s(i), xr, xi);
        each<NC>([&](int k) __attribute__((always_inline)) {
            t[k] = add(t[k], cmul(ld(LS{}, a + k * lda + i), xr, xi));
        });
    }
    const E ar = bre(LS{}, &alpha), ai = bim(LS{}, &alpha);
    each<NC>([&](int k) __attribute__((always_inline)) {
        CT* yk = y + k * incy;
        const E tk = CJ ? conj(t[k]) : t[k];
        st(LS{}, yk, add(ld(LS{}, yk), cmul(tk, ar, ai)));
    });
}

template <bool CJ, class CT>
void ct_unit(int m, int n, const CT& alpha, const CT* a, int lda, const CT* x, CT* y) {
    const XUnit<CT> xu{x};
    int j = 0;
    // Conjugate Z goes two columns a pass.
    if constexpr (!(CJ && sizeof(CT) == 16)) {
        for (; j + 4 <= n; j += 4) ct_block<4, CJ>(m, a + j * lda, lda, xu, alpha, y + j, 1);
        if (j + 2 <= n) {
            ct_block<2, CJ>(m, a + j * lda, lda, xu, alpha, y + j, 1);
            j += 2;
        }
    } else {
        for (; j + 2 <= n; j += 2) ct_block<2, CJ>(m, a + j * lda, lda, xu, alpha, y + j, 1);
    }
    if (j < n) ct_block<1, CJ>(m, a + j * lda, lda, xu, alpha, y + j, 1);
}

template <bool CJ, class CT>
void ct_strided(int m, int n, const CT& alpha, const CT* a, int lda, const CT* x, int incx,
                CT* y, int incy) {
    const XGath<CT> xg{x + vec_start(m, incx), incx};
    y += vec_start(n, incy);
    int j = 0;
    for (; j + 2 <= n; j += 2)
        ct_block<2, CJ>(m, a + j * lda, lda, xg, alpha, y + j * incy, incy);
    if (j < n) ct_block<1, CJ>(m, a + j * lda, lda, xg, alpha, y + j * incy, incy);
}

template <class CT>
void cplx_gemv(const char* trans, const int* pm, const int* pn, const CT* palpha, const CT* a,
               const int* plda, const CT* x, const int* pincx, const CT* pbeta, CT* y,
               const int* pincy) {
    const int m = *pm, n = *pn;
    if (m <= 0 || n <= 0) return;
    const CT alpha = *palpha, beta = *pbeta;
    const bool alpha0 = is_zero(alpha);
    const bool beta1 = is_one(beta);
    if (alpha0 && beta1) return;
    const char c = *trans;
    const int lda = *plda, incx = *pincx, incy = *pincy;
    const int leny = c == 'N' || c == 'n' ? m : n;
    if (!beta1) {
        if (is_zero(beta))
            zero_y(y, leny, incy);
        else
            scale_cplx(y, leny, incy, beta);
    }
    if (alpha0) return;
    const bool unit = incx == 1 && incy == 1;
    if (c == 'N' || c == 'n') {
        if (unit)
            cn_unit(m, n, alpha, a, lda, x, y);
        else
            cn_strided(m, n, alpha, a, lda, x, incx, y, incy);
    } else if (c == 'T' || c == 't') {
        if (unit)
            ct_unit<false>(m, n, alpha, a, lda, x, y);
        else
            ct_strided<false>(m, n, alpha, a, lda, x, incx, y, incy);
    } else {
        if (unit)
            ct_unit<true>(m, n, alpha, a, lda, x, y);
        else
            ct_strided<true>(m, n, alpha, a, lda, x, incx, y, incy);
    }
}

}  // namespace

template <> void gemv<float>(const char* trans, const int* m, const int* n, const float* alpha, const float* a,
           const int* lda, const float* x, const int* incx, const float* beta, float* y,
           const int* incy) {
    real_gemv(trans, m, n, alpha, a, lda, x, incx, beta, y, incy);
}

template <> void gemv<double>(const char* trans, const int* m, const int* n, const double* alpha, const double* a,
           const int* lda, const double* x, const int* incx, const double* beta, double* y,
           const int* incy) {
    real_gemv(trans, m, n, alpha, a, lda, x, incx, beta, y, incy);
}

template <> void gemv<c32>(const char* trans, const int* m, const int* n, const c32* alpha, const c32* a,
           const int* lda, const c32* x, const int* incx, const c32* beta, c32* y,
           const int* incy) {
    cplx_gemv(trans, m, n, alpha, a, lda, x, incx, beta, y, incy);
}

template <> void gemv<c64>(const char* trans, const int* m, const int* n, const c64* alpha, const c64* a,
           const int* lda, const c64* x, const int* incx, const c64* beta, c64* y,
           const int* incy) {
    cplx_gemv(trans, m, n, alpha, a, lda, x, incx, beta, y, incy);
}

