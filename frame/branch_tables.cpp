// The kernel tables of branches 2 to 7, each compiled with its branch.
#include "frame/dispatch.h"

namespace zva {

const kernel_table* const branch_tables[6] = {&b2::table, &b3::table, &b4::table,
                                              &b5::table, &b6::table, &b7::table};

}  // namespace zva
