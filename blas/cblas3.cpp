// The C interface, level 3.  A row-major product is the column-major
// product of the transposes: the operands of GEMM change places, sides and
// triangles swap, M and N swap; the transposition letters stay, since the
// transpose of op(A) is op of the stored transpose.
#include "blas/cblas_util.h"

using zva::c32;
using zva::c64;
using namespace zva::blas;
using I = const CBLAS_INT;

namespace {

// SYMM, HEMM: go(side, uplo, row).
template <class Go> void sy_mm(routine_id id, const char* rout, int layout, int side, int uplo, Go go) {
    const int row = layout_of(layout, rout);
    if (row < 0) return;
    char s = side_letter(side), u = uplo_letter(uplo);
    if (!s) return bad_option(2, rout, row, "Side", side);
    if (!u) return bad_option(3, rout, row, "Uplo", uplo);
    if (row) s = other_side(s), u = other_uplo(u);
    done(id, go(s, u, row), row);
}

// SYRK, HERK, SYR2K, HER2K: go(uplo, trans, row).  tr is the routine's own
// transposition (T for the symmetric, C for the Hermitian ones); row-major
// turns N into it and either transposition into N.
template <class Go> void sy_rk(routine_id id, const char* rout, int layout, int uplo, int trans, char tr, Go go) {
    const int row = layout_of(layout, rout);
    if (row < 0) return;
    char u = uplo_letter(uplo), t = trans_letter(trans);
    if (!u) return bad_option(2, rout, row, "Uplo", uplo);
    if (!t) return bad_option(3, rout, row, "Trans", trans);
    if (row) u = other_uplo(u), t = t == 'N' ? tr : 'N';
    done(id, go(u, t, row), row);
}

// TRMM, TRSM: go(side, uplo, trans, diag, row).
template <class Go>
void tr_mm(routine_id id, const char* rout, int layout, int side, int uplo, int trans, int diag, Go go) {
    const int row = layout_of(layout, rout);
    if (row < 0) return;
    char s = side_letter(side), u = uplo_letter(uplo), t = trans_letter(trans), d = diag_letter(diag);
    if (!s) return bad_option(2, rout, row, "Side", side);
    if (!u) return bad_option(3, rout, row, "Uplo", uplo);
    if (!t) return bad_option(4, rout, row, "TransA", trans);
    if (!d) return bad_option(5, rout, row, "Diag", diag);
    if (row) s = other_side(s), u = other_uplo(u);
    done(id, go(s, u, t, d, row), row);
}

template <class T> T conj_if(const T& v, bool c) {
    if constexpr (is_cplx<T>) return c ? conj(v) : v;
    else return v;
}

}  // namespace

// p, P the letters, T the element, V what the C list points to, S how it
// passes a scalar.
#define ZVA_L3_ALL(p, P, T, V, S)                                                                 \
    ZVA_CBLAS_API void cblas_##p##gemm(CBLAS_LAYOUT layout, CBLAS_TRANSPOSE ta, CBLAS_TRANSPOSE tb, \
                                       I m, I n, I k, S alpha, const V* a, I lda, const V* b, I ldb, \
                                       S beta, V* c, I ldc) {                                     \
        const char* rout = "cblas_" #p "gemm";                                                    \
        const int row = layout_of(layout, rout);                                                  \
        if (row < 0) return;                                                                      \
        const char cta = trans_letter(ta), ctb = trans_letter(tb);                                \
        if (!cta) return bad_option(2, rout, row, "TransA", ta);                                  \
        if (!ctb) return bad_option(3, rout, row, "TransB", tb);                                  \
        const T *A = (const T*)a, *B = (const T*)b;                                               \
        done(id_##P##GEMM,                                                                        \
             row ? f77::P##GEMM(&ctb, &cta, &n, &m, &k, sp<T>(alpha), B, &ldb, A, &lda, sp<T>(beta), \
                                (T*)c, &ldc, 1, 1)                                                \
                 : f77::P##GEMM(&cta, &ctb, &m, &n, &k, sp<T>(alpha), A, &lda, B, &ldb, sp<T>(beta), \
                                (T*)c, &ldc, 1, 1),                                               \
             row);                                                                                \
    }                                                                                             \
    ZVA_L3_SYMM(p, P, T, V, S, sy, SY)                                                            \
    ZVA_L3_RK(p, P, T, V, S, S, T, sy, SY, 'T')                                                      \
    ZVA_L3_TR(p, P, T, V, S, trmm, TRMM)                                                          \
    ZVA_L3_TR(p, P, T, V, S, trsm, TRSM)

#define ZVA_L3_SYMM(p, P, T, V, S, h, H)                                                          \
    ZVA_CBLAS_API void cblas_##p##h##mm(CBLAS_LAYOUT layout, CBLAS_SIDE sd, CBLAS_UPLO ul, I m, I n, \
                                        S alpha, const V* a, I lda, const V* b, I ldb, S beta, V* c, \
                                        I ldc) {                                                  \
        sy_mm(id_##P##H##MM, "cblas_" #p #h "mm", layout, sd, ul, [&](char s, char u, bool row) {  \
            return f77::P##H##MM(&s, &u, row ? &n : &m, row ? &m : &n, sp<T>(alpha), (const T*)a,  \
                                 &lda, (const T*)b, &ldb, sp<T>(beta), (T*)c, &ldc, 1, 1);        \
        });                                                                                       \
    }

// SK is how the C list passes the beta (and, for HERK, the alpha) of a
// rank-k update, K the type they point to: real for the Hermitian ones.
// HER2K's row-major form takes conj(alpha).
#define ZVA_L3_RK(p, P, T, V, S, SK, K, h, H, tr)                                                 \
    ZVA_CBLAS_API void cblas_##p##h##rk(CBLAS_LAYOUT layout, CBLAS_UPLO ul, CBLAS_TRANSPOSE tt, I n, \
                                        I k, SK alpha, const V* a, I lda, SK beta, V* c, I ldc) {  \
        sy_rk(id_##P##H##RK, "cblas_" #p #h "rk", layout, ul, tt, tr, [&](char u, char t, bool) { \
            return f77::P##H##RK(&u, &t, &n, &k, sp<K>(alpha), (const T*)a, &lda, sp<K>(beta),    \
                                 (T*)c, &ldc, 1, 1);                                              \
        });                                                                                       \
    }                                                                                             \
    ZVA_CBLAS_API void cblas_##p##h##r2k(CBLAS_LAYOUT layout, CBLAS_UPLO ul, CBLAS_TRANSPOSE tt,   \
                                         I n, I k, S alpha, const V* a, I lda, const V* b, I ldb,  \
                                         SK beta, V* c, I ldc) {                                  \
        sy_rk(id_##P##H##R2K, "cblas_" #p #h "r2k", layout, ul, tt, tr, [&](char u, char t, bool row) { \
            const T al = conj_if(*sp<T>(alpha), row && (tr) == 'C');                              \
            return f77::P##H##R2K(&u, &t, &n, &k, &al, (const T*)a, &lda, (const T*)b, &ldb,      \
                                  sp<K>(beta), (T*)c, &ldc, 1, 1);                                \
        });                                                                                       \
    }

#define ZVA_L3_TR(p, P, T, V, S, op, OP)                                                          \
    ZVA_CBLAS_API void cblas_##p##op(CBLAS_LAYOUT layout, CBLAS_SIDE sd, CBLAS_UPLO ul,            \
                                     CBLAS_TRANSPOSE ta, CBLAS_DIAG dg, I m, I n, S alpha,        \
                                     const V* a, I lda, V* b, I ldb) {                            \
        tr_mm(id_##P##OP, "cblas_" #p #op, layout, sd, ul, ta, dg,                                \
              [&](char s, char u, char t, char d, bool row) {                                     \
                  return f77::P##OP(&s, &u, &t, &d, row ? &n : &m, row ? &m : &n, sp<T>(alpha),   \
                                    (const T*)a, &lda, (T*)b, &ldb, 1, 1, 1, 1);                  \
              });                                                                                 \
    }

ZVA_L3_ALL(s, S, float, float, const float)
ZVA_L3_ALL(d, D, double, double, const double)
ZVA_L3_ALL(c, C, c32, void, const void*)
ZVA_L3_ALL(z, Z, c64, void, const void*)
ZVA_L3_SYMM(c, C, c32, void, const void*, he, HE)
ZVA_L3_SYMM(z, Z, c64, void, const void*, he, HE)
ZVA_L3_RK(c, C, c32, void, const void*, const float, float, he, HE, 'C')
ZVA_L3_RK(z, Z, c64, void, const void*, const double, double, he, HE, 'C')
