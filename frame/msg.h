// Messages on standard output, by number.
#pragma once

namespace zva {
// Prints message num formatted with argc printf-style arguments.
void msg_print(int num, int argc, ...);
// Tries the catalogue as the first message does; 1 when it was adopted.
int msg_catalogue_found();
}  // namespace zva
