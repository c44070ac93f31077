// Gives the exports their decorated stdcall names after linking.
//
// The assembler and the linker read '@' in a symbol as a version mark, so
// the library is linked with "_DGEMM$60" and this step rewrites '$' to '@'
// in the string tables (same length, nothing moves), then rebuilds the SysV
// symbol hash table that the dynamic loader searches.  The library is linked
// with --hash-style=sysv: a GNU hash table would force the symbol order.
//
//   elf_decorate <library> <expected number of exports>
#include <elf.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

static std::vector<unsigned char> image;

static void fail(const char* what) {
    fprintf(stderr, "elf_decorate: %s\n", what);
    exit(1);
}

template <class T> static T* at(size_t off) {
    if (off + sizeof(T) > image.size()) fail("truncated file");
    return (T*)(image.data() + off);
}

static bool is_placeholder(const char* s) {
    if (*s++ != '_') return false;
    const char* name = s;
    while ((*s >= 'A' && *s <= 'Z') || (*s >= '0' && *s <= '9')) ++s;
    if (s == name || *s != '$') return false;
    const char* digits = ++s;
    while (*s >= '0' && *s <= '9') ++s;
    return s != digits && *s == 0;
}

static int rewrite_strings(const Elf32_Shdr& sh) {
    int count = 0;
    char* p = (char*)at<char>(sh.sh_offset);
    char* end = p + sh.sh_size;
    if (sh.sh_offset + sh.sh_size > image.size()) fail("bad string table");
    while (p < end) {
        size_t len = strnlen(p, end - p);
        if (is_placeholder(p)) {
            *strchr(p, '$') = '@';
            ++count;
        }
        p += len + 1;
    }
    return count;
}

static uint32_t elf_hash(const unsigned char* name) {
    uint32_t h = 0;
    while (*name) {
        h = (h << 4) + *name++;
        uint32_t g = h & 0xf0000000u;
        if (g) h ^= g >> 24;
        h &= ~g;
    }
    return h;
}

int main(int argc, char** argv) {
    if (argc != 3) fail("usage: elf_decorate <library> <exports>");
    FILE* f = fopen(argv[1], "rb");
    if (!f) fail("cannot open the library");
    fseek(f, 0, SEEK_END);
    image.resize(ftell(f));
    fseek(f, 0, SEEK_SET);
    if (fread(image.data(), 1, image.size(), f) != image.size()) fail("read");
    fclose(f);

    Elf32_Ehdr* eh = at<Elf32_Ehdr>(0);
    if (memcmp(eh->e_ident, ELFMAG, SELFMAG) != 0 ||
        eh->e_ident[EI_CLASS] != ELFCLASS32)
        fail("not a 32-bit ELF file");
    Elf32_Shdr* sh = at<Elf32_Shdr>(eh->e_shoff);
    const Elf32_Shdr* dynsym = nullptr;
    const Elf32_Shdr* hash = nullptr;
    int renamed_dyn = 0;
    for (int i = 0; i < eh->e_shnum; ++i) {
        if (sh[i].sh_type == SHT_GNU_HASH) fail("GNU hash present: link with --hash-style=sysv");
        if (sh[i].sh_type == SHT_HASH) hash = &sh[i];
        if (sh[i].sh_type == SHT_DYNSYM) dynsym = &sh[i];
    }
    if (!dynsym || !hash) fail("no dynamic symbols or no hash table");
    for (int i = 0; i < eh->e_shnum; ++i) {
        if (sh[i].sh_type == SHT_SYMTAB)  // keep nm's view in step
            rewrite_strings(sh[sh[i].sh_link]);
    }
    const Elf32_Shdr& dynstr = sh[dynsym->sh_link];
    renamed_dyn = rewrite_strings(dynstr);
    if (renamed_dyn != atoi(argv[2])) {
        fprintf(stderr, "elf_decorate: %d exports renamed, %s expected\n",
                renamed_dyn, argv[2]);
        return 1;
    }

    uint32_t* words = at<uint32_t>(hash->sh_offset);
    uint32_t nbucket = words[0], nchain = words[1];
    uint32_t nsym = dynsym->sh_size / sizeof(Elf32_Sym);
    if (nchain != nsym || nbucket == 0) fail("hash table does not match the symbols");
    uint32_t* bucket = words + 2;
    uint32_t* chain = bucket + nbucket;
    memset(bucket, 0, 4 * (nbucket + nchain));
    const Elf32_Sym* syms = at<Elf32_Sym>(dynsym->sh_offset);
    const unsigned char* strs = at<unsigned char>(dynstr.sh_offset);
    for (uint32_t i = nsym; i-- > 1;) {
        uint32_t b = elf_hash(strs + syms[i].st_name) % nbucket;
        chain[i] = bucket[b];
        bucket[b] = i;
    }

    f = fopen(argv[1], "wb");
    if (!f || fwrite(image.data(), 1, image.size(), f) != image.size()) fail("write");
    fclose(f);
    return 0;
}
