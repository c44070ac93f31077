// A message catalogue for the tests: message 6 in other words, and a text
// for message 9 without the record ending, which must be ignored.
#include <string.h>

extern "C" __attribute__((visibility("default"))) unsigned zva_msg_lookup(
    unsigned id, unsigned lang, char* out, unsigned size) {
    const char* text = nullptr;
    if (lang != 0x409) return 0;
    if (id == 0x80000000u + 6) text = "Catalogue: parameter %d of %s.\r\n";
    if (id == 0x80000000u + 9) text = "Catalogue text without its ending";
    if (!text || strlen(text) >= size) return 0;
    strcpy(out, text);
    return (unsigned)strlen(text);
}
