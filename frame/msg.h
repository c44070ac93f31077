// Messages on standard output, by number.
#pragma once

namespace zva {
// Prints message num formatted with argc printf-style arguments.
void msg_print(int num, int argc, ...);
}  // namespace zva
