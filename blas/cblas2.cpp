// The C interface, level 2.  A row-major matrix is the column-major
// transpose: dimensions, triangles and the transposition swap.  Complex
// conjugate forms that a transpose cannot express are written with
// conjugated vectors instead, as the reference CBLAS does.
#include "blas/cblas_util.h"

using zva::c32;
using zva::c64;
using namespace zva::blas;
using I = const CBLAS_INT;

namespace {

// GEMV, GBMV.  go(trans, row, alpha, x, incx, beta) calls the routine with
// the dimensions of its layout.  m is the length of x for a transposed call.
template <class T, class Go>
void ge_mv(routine_id id, const char* rout, int layout, int trans, int m, int n, const T* alpha,
           const T* x, int incx, const T* beta, T* y, int incy, Go go) {
    const int row = layout_of(layout, rout);
    if (row < 0) return;
    char t = trans_letter(trans);
    if (!t) return bad_option(2, rout, row, "TransA", trans);
    if (!row) return done(id, go(t, false, alpha, x, incx, beta), false);
    if (t != 'C' || !is_cplx<T>) {
        t = t == 'N' ? 'T' : 'N';
        return done(id, go(t, true, alpha, x, incx, beta), true);
    }
    // y = alpha conj(A) x + beta y, conjugated throughout.
    if constexpr (is_cplx<T>) {
        const T ca = conj(*alpha), cb = conj(*beta);
        const conj_vec<T> xc = conj_copy(m, x, incx);
        if (!xc.p) return no_memory(rout);
        conj_in_place(y, n, incy);
        const int p = go('N', true, &ca, xc.p, xc.inc, &cb);
        conj_in_place(y, n, incy);
        free(xc.owned);
        done(id, p, true);
    }
}

// SYMV, SBMV, SPMV and the Hermitian forms: go(uplo, alpha, x, incx, beta).
template <class T, class Go>
void sy_mv(routine_id id, const char* rout, int layout, int uplo, int n, const T* alpha, const T* x,
           int incx, const T* beta, T* y, int incy, Go go) {
    const int row = layout_of(layout, rout);
    if (row < 0) return;
    char u = uplo_letter(uplo);
    if (!u) return bad_option(2, rout, row, "Uplo", uplo);
    if (!row) return done(id, go(u, alpha, x, incx, beta), false);
    u = other_uplo(u);
    if constexpr (!is_cplx<T>) {
        done(id, go(u, alpha, x, incx, beta), true);
    } else {
        // The stored triangle is conj(A): conjugate everything else.
        const T ca = conj(*alpha), cb = conj(*beta);
        const conj_vec<T> xc = conj_copy(n, x, incx);
        if (!xc.p) return no_memory(rout);
        conj_in_place(y, n, incy);
        const int p = go(u, &ca, xc.p, xc.inc, &cb);
        conj_in_place(y, n, incy);
        free(xc.owned);
        done(id, p, true);
    }
}

// TRMV, TBMV, TPMV, TRSV, TBSV, TPSV: go(uplo, trans, diag).
template <class T, class Go>
void tr_v(routine_id id, const char* rout, int layout, int uplo, int trans, int diag, int n, T* x,
          int incx, Go go) {
    const int row = layout_of(layout, rout);
    if (row < 0) return;
    char u = uplo_letter(uplo), t = trans_letter(trans), d = diag_letter(diag);
    if (!u) return bad_option(2, rout, row, "Uplo", uplo);
    if (!t) return bad_option(3, rout, row, "TransA", trans);
    if (!d) return bad_option(4, rout, row, "Diag", diag);
    if (!row) return done(id, go(u, t, d), false);
    u = other_uplo(u);
    if (t == 'C' && is_cplx<T>) {
        // conj(A) x as the conjugate of A conj(x).
        if constexpr (is_cplx<T>) {
            conj_in_place(x, n, incx);
            const int p = go(u, 'N', d);
            conj_in_place(x, n, incx);
            done(id, p, true);
        }
        return;
    }
    done(id, go(u, t == 'N' ? 'T' : 'N', d), true);
}

// GER, GERU, GERC: go(row, u, incu, v, incv) updates with u v' in the
// routine's own layout; GERC's row-major form is GERU on conj(y).
template <class T, class Go>
void ge_r(routine_id id, const char* rout, int layout, int n, const T* x, int incx, const T* y,
          int incy, bool conj_y, Go go) {
    const int row = layout_of(layout, rout);
    if (row < 0) return;
    if (!row) return done(id, go(false, x, incx, y, incy), false);
    if constexpr (is_cplx<T>) {
        if (conj_y) {
            const conj_vec<T> yc = conj_copy(n, y, incy);
            if (!yc.p) return no_memory(rout);
            const int p = go(true, yc.p, yc.inc, x, incx);
            free(yc.owned);
            return done(id, p, true);
        }
    }
    done(id, go(true, y, incy, x, incx), true);
}

// SYR, SPR, HER, HPR: go(uplo, x, incx); HER's row-major form takes conj(x).
template <class T, class Go>
void sy_r(routine_id id, const char* rout, int layout, int uplo, int n, const T* x, int incx, Go go) {
    const int row = layout_of(layout, rout);
    if (row < 0) return;
    char u = uplo_letter(uplo);
    if (!u) return bad_option(2, rout, row, "Uplo", uplo);
    if (!row) return done(id, go(u, x, incx), false);
    u = other_uplo(u);
    if constexpr (is_cplx<T>) {
        const conj_vec<T> xc = conj_copy(n, x, incx);
        if (!xc.p) return no_memory(rout);
        const int p = go(u, xc.p, xc.inc);
        free(xc.owned);
        done(id, p, true);
    } else {
        done(id, go(u, x, incx), true);
    }
}

// SYR2, SPR2, HER2, HPR2: go(uplo, u, incu, v, incv); the Hermitian
// row-major form takes conj(y), conj(x).
template <class T, class Go>
void sy_r2(routine_id id, const char* rout, int layout, int uplo, int n, const T* x, int incx,
           const T* y, int incy, Go go) {
    const int row = layout_of(layout, rout);
    if (row < 0) return;
    char u = uplo_letter(uplo);
    if (!u) return bad_option(2, rout, row, "Uplo", uplo);
    if (!row) return done(id, go(u, x, incx, y, incy), false);
    u = other_uplo(u);
    if constexpr (is_cplx<T>) {
        const conj_vec<T> xc = conj_copy(n, x, incx);
        const conj_vec<T> yc = conj_copy(n, y, incy);
        int p = 0;
        if (xc.p && yc.p) p = go(u, yc.p, yc.inc, xc.p, xc.inc);
        else no_memory(rout);
        free(xc.owned);
        free(yc.owned);
        done(id, p, true);
    } else {
        done(id, go(u, x, incx, y, incy), true);
    }
}

}  // namespace

// Each family in every type: p, P the letters, T the element, V what the C
// list points to, S how it passes a scalar.
#define ZVA_L2_ALL(p, P, T, V, S)                                                                \
    ZVA_CBLAS_API void cblas_##p##gemv(CBLAS_LAYOUT layout, CBLAS_TRANSPOSE ta, I m, I n, S alpha, \
                                       const V* a, I lda, const V* x, I incx, S beta, V* y, I incy) { \
        ge_mv<T>(id_##P##GEMV, "cblas_" #p "gemv", layout, ta, m, n, sp<T>(alpha), (const T*)x, incx, \
                 sp<T>(beta), (T*)y, incy,                                                       \
                 [&](char t, bool row, const T* al, const T* xx, int ix, const T* be) {          \
                     return f77::P##GEMV(&t, row ? &n : &m, row ? &m : &n, al, (const T*)a, &lda, xx, \
                                         &ix, be, (T*)y, &incy, 1);                              \
                 });                                                                             \
    }                                                                                            \
    ZVA_CBLAS_API void cblas_##p##gbmv(CBLAS_LAYOUT layout, CBLAS_TRANSPOSE ta, I m, I n, I kl, I ku, \
                                       S alpha, const V* a, I lda, const V* x, I incx, S beta, V* y, \
                                       I incy) {                                                 \
        ge_mv<T>(id_##P##GBMV, "cblas_" #p "gbmv", layout, ta, m, n, sp<T>(alpha), (const T*)x, incx, \
                 sp<T>(beta), (T*)y, incy,                                                       \
                 [&](char t, bool row, const T* al, const T* xx, int ix, const T* be) {          \
                     return f77::P##GBMV(&t, row ? &n : &m, row ? &m : &n, row ? &ku : &kl,      \
                                         row ? &kl : &ku, al, (const T*)a, &lda, xx, &ix, be,    \
                                         (T*)y, &incy, 1);                                       \
                 });                                                                             \
    }                                                                                            \
    ZVA_L2_TRI(p, P, T, V, mv, MV) ZVA_L2_TRI(p, P, T, V, sv, SV)

#define ZVA_L2_TRI(p, P, T, V, op, OP)                                                               \
    ZVA_CBLAS_API void cblas_##p##tr##op(CBLAS_LAYOUT layout, CBLAS_UPLO ul, CBLAS_TRANSPOSE ta,  \
                                         CBLAS_DIAG dg, I n, const V* a, I lda, V* x, I incx) {  \
        tr_v<T>(id_##P##TR##OP, "cblas_" #p "tr" #op, layout, ul, ta, dg, n, (T*)x, incx,        \
                [&](char u, char t, char d) {                                                    \
                    return f77::P##TR##OP(&u, &t, &d, &n, (const T*)a, &lda, (T*)x, &incx, 1, 1, 1); \
                });                                                                              \
    }                                                                                            \
    ZVA_CBLAS_API void cblas_##p##tb##op(CBLAS_LAYOUT layout, CBLAS_UPLO ul, CBLAS_TRANSPOSE ta,  \
                                         CBLAS_DIAG dg, I n, I k, const V* a, I lda, V* x, I incx) { \
        tr_v<T>(id_##P##TB##OP, "cblas_" #p "tb" #op, layout, ul, ta, dg, n, (T*)x, incx,        \
                [&](char u, char t, char d) {                                                    \
                    return f77::P##TB##OP(&u, &t, &d, &n, &k, (const T*)a, &lda, (T*)x, &incx, 1, 1, 1); \
                });                                                                              \
    }                                                                                            \
    ZVA_CBLAS_API void cblas_##p##tp##op(CBLAS_LAYOUT layout, CBLAS_UPLO ul, CBLAS_TRANSPOSE ta,  \
                                         CBLAS_DIAG dg, I n, const V* ap, V* x, I incx) {        \
        tr_v<T>(id_##P##TP##OP, "cblas_" #p "tp" #op, layout, ul, ta, dg, n, (T*)x, incx,        \
                [&](char u, char t, char d) {                                                    \
                    return f77::P##TP##OP(&u, &t, &d, &n, (const T*)ap, (T*)x, &incx, 1, 1, 1);  \
                });                                                                              \
    }

// The symmetric (real) or Hermitian (complex) family: h, H its letters
// (sy/SY, he/HE), b, pk those of its band and packed forms, RT the real type
// of HER's alpha.
#define ZVA_L2_SYM(p, P, T, V, S, RT, h, H, b, B, pk, PK)                                         \
    ZVA_CBLAS_API void cblas_##p##h##mv(CBLAS_LAYOUT layout, CBLAS_UPLO ul, I n, S alpha, const V* a, \
                                        I lda, const V* x, I incx, S beta, V* y, I incy) {       \
        sy_mv<T>(id_##P##H##MV, "cblas_" #p #h "mv", layout, ul, n, sp<T>(alpha), (const T*)x, incx, \
                 sp<T>(beta), (T*)y, incy,                                                       \
                 [&](char u, const T* al, const T* xx, int ix, const T* be) {                    \
                     return f77::P##H##MV(&u, &n, al, (const T*)a, &lda, xx, &ix, be, (T*)y, &incy, 1); \
                 });                                                                             \
    }                                                                                            \
    ZVA_CBLAS_API void cblas_##p##b##mv(CBLAS_LAYOUT layout, CBLAS_UPLO ul, I n, I k, S alpha,    \
                                        const V* a, I lda, const V* x, I incx, S beta, V* y, I incy) { \
        sy_mv<T>(id_##P##B##MV, "cblas_" #p #b "mv", layout, ul, n, sp<T>(alpha), (const T*)x, incx, \
                 sp<T>(beta), (T*)y, incy,                                                       \
                 [&](char u, const T* al, const T* xx, int ix, const T* be) {                    \
                     return f77::P##B##MV(&u, &n, &k, al, (const T*)a, &lda, xx, &ix, be, (T*)y, &incy, 1); \
                 });                                                                             \
    }                                                                                            \
    ZVA_CBLAS_API void cblas_##p##pk##mv(CBLAS_LAYOUT layout, CBLAS_UPLO ul, I n, S alpha, const V* ap, \
                                         const V* x, I incx, S beta, V* y, I incy) {             \
        sy_mv<T>(id_##P##PK##MV, "cblas_" #p #pk "mv", layout, ul, n, sp<T>(alpha), (const T*)x, incx, \
                 sp<T>(beta), (T*)y, incy,                                                       \
                 [&](char u, const T* al, const T* xx, int ix, const T* be) {                    \
                     return f77::P##PK##MV(&u, &n, al, (const T*)ap, xx, &ix, be, (T*)y, &incy, 1); \
                 });                                                                             \
    }                                                                                            \
    ZVA_CBLAS_API void cblas_##p##h##r(CBLAS_LAYOUT layout, CBLAS_UPLO ul, I n, const RT alpha,     \
                                       const V* x, I incx, V* a, I lda) {                        \
        sy_r<T>(id_##P##H##R, "cblas_" #p #h "r", layout, ul, n, (const T*)x, incx,              \
                [&](char u, const T* xx, int ix) {                                               \
                    return f77::P##H##R(&u, &n, &alpha, xx, &ix, (T*)a, &lda, 1);                \
                });                                                                              \
    }                                                                                            \
    ZVA_CBLAS_API void cblas_##p##pk##r(CBLAS_LAYOUT layout, CBLAS_UPLO ul, I n, const RT alpha,    \
                                        const V* x, I incx, V* ap) {                             \
        sy_r<T>(id_##P##PK##R, "cblas_" #p #pk "r", layout, ul, n, (const T*)x, incx,            \
                [&](char u, const T* xx, int ix) {                                               \
                    return f77::P##PK##R(&u, &n, &alpha, xx, &ix, (T*)ap, 1);                    \
                });                                                                              \
    }                                                                                            \
    ZVA_CBLAS_API void cblas_##p##h##r2(CBLAS_LAYOUT layout, CBLAS_UPLO ul, I n, S alpha, const V* x, \
                                        I incx, const V* y, I incy, V* a, I lda) {               \
        sy_r2<T>(id_##P##H##R2, "cblas_" #p #h "r2", layout, ul, n, (const T*)x, incx, (const T*)y, incy, \
                 [&](char u, const T* uu, int iu, const T* vv, int iv) {                         \
                     return f77::P##H##R2(&u, &n, sp<T>(alpha), uu, &iu, vv, &iv, (T*)a, &lda, 1); \
                 });                                                                             \
    }                                                                                            \
    ZVA_CBLAS_API void cblas_##p##pk##r2(CBLAS_LAYOUT layout, CBLAS_UPLO ul, I n, S alpha, const V* x, \
                                         I incx, const V* y, I incy, V* ap) {                    \
        sy_r2<T>(id_##P##PK##R2, "cblas_" #p #pk "r2", layout, ul, n, (const T*)x, incx, (const T*)y, \
                 incy, [&](char u, const T* uu, int iu, const T* vv, int iv) {                   \
                     return f77::P##PK##R2(&u, &n, sp<T>(alpha), uu, &iu, vv, &iv, (T*)ap, 1);   \
                 });                                                                             \
    }

// RG is the routine of the row-major form: GERC's is GERU on conj(y).
#define ZVA_L2_GER(p, P, T, V, S, g, G, RG, conj_y)                                                  \
    ZVA_CBLAS_API void cblas_##p##g(CBLAS_LAYOUT layout, I m, I n, S alpha, const V* x, I incx,   \
                                    const V* y, I incy, V* a, I lda) {                           \
        ge_r<T>(id_##P##G, "cblas_" #p #g, layout, n, (const T*)x, incx, (const T*)y, incy, conj_y, \
                [&](bool row, const T* uu, int iu, const T* vv, int iv) {                        \
                    auto f = row ? f77::P##RG : f77::P##G;                                       \
                    return f(row ? &n : &m, row ? &m : &n, sp<T>(alpha), uu, &iu, vv, &iv, (T*)a, &lda); \
                });                                                                              \
    }

ZVA_L2_ALL(s, S, float, float, const float)
ZVA_L2_ALL(d, D, double, double, const double)
ZVA_L2_ALL(c, C, c32, void, const void*)
ZVA_L2_ALL(z, Z, c64, void, const void*)
ZVA_L2_SYM(s, S, float, float, const float, float, sy, SY, sb, SB, sp, SP)
ZVA_L2_SYM(d, D, double, double, const double, double, sy, SY, sb, SB, sp, SP)
ZVA_L2_SYM(c, C, c32, void, const void*, float, he, HE, hb, HB, hp, HP)
ZVA_L2_SYM(z, Z, c64, void, const void*, double, he, HE, hb, HB, hp, HP)
ZVA_L2_GER(s, S, float, float, const float, ger, GER, GER, false)
ZVA_L2_GER(d, D, double, double, const double, ger, GER, GER, false)
ZVA_L2_GER(c, C, c32, void, const void*, geru, GERU, GERU, false)
ZVA_L2_GER(c, C, c32, void, const void*, gerc, GERC, GERU, true)
ZVA_L2_GER(z, Z, c64, void, const void*, geru, GERU, GERU, false)
ZVA_L2_GER(z, Z, c64, void, const void*, gerc, GERC, GERU, true)
