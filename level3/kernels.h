// Level-3 kernels other than the multiply's, declared once for every branch
// namespace; each family's recipe defines them.
#pragma once
#include "frame/signatures.h"

ZVA_IN_EVERY_BRANCH(
    // one block of declarations per family
    // TRMM: the kernel behind the four TRMM dispatch points (the export's list)
    template <class T> sig_trmm<T> trmm;
)
