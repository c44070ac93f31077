// The message formatter in a module of its own, so that a test can load it
// from a folder with a catalogue beside it.
#include "frame/msg.h"

extern "C" __attribute__((visibility("default"))) void msg_probe() {
    zva::msg_print(6, 2, 4, "DGEMM ");
    zva::msg_print(9, 1, "DGEMM ");
    zva::msg_print(7, 2, 3, "DGEMM ");
}
