// TRSM inside a branch: the letters of one call, decoded once, and the
// pieces that the family's recipes hand to one another.
//
//   trsm.inl   the kernel behind each TRSM dispatch point: alpha, the nested
//              blocks with multiply updates between them
//   dleft.inl  D with side "L": four walks, triangle kernels of fixed shapes
//   base.inl   the smallest blocks: the column sweep of D and S on the right,
//              the four-row solve of S, C and Z
#pragma once
#include "frame/signatures.h"

namespace zva {

struct trsm_case {
    bool left;     // inv(op(A))*B; otherwise B*inv(op(A))
    bool upper;    // A is upper triangular
    bool trans;    // op(A) = A**T or A**H
    bool conj;     // op(A) = A**H
    bool unit;     // the diagonal is taken as ones and never read
    bool forward;  // the substitution runs from the first index up
};

// One block of a solve, B(m x n) overwritten by the solution, alpha taken
// as 1: the signature of every level of the nested blocks.
template <class T>
using trsm_part = void(const trsm_case& c, int m, int n, const T* a, int lda, T* b, int ldb);

}  // namespace zva

ZVA_IN_EVERY_BRANCH(
    // D, side "L": the walks over the rows of B (dleft.inl).
    trsm_part<double> dtrsm_left;
    // D and S, side "R", up to 64 columns: the column sweep (base.inl).
    template <class T> trsm_part<T> trsm_sweep;
    // S, C and Z: blocks of four triangle rows, up to 64 (base.inl).
    template <class T> trsm_part<T> trsm_rows4;)
