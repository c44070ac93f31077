#!/usr/bin/env python3
"""Compares the machine code of two sets of object files, function by
function, regardless of names: every function body of the first set (with
addresses and symbol names stripped) must appear in the second.  Used to
show that a rearrangement of sources left the generated code alone.

    tools/same_code.py OLD.o... -- NEW.o...
Prints the functions of OLD whose code is nowhere in NEW, and exits 1 if
there are any.  With --loops the units compared are the loops (from a
backward jump's target to the jump) rather than whole functions."""
import re
import subprocess
import sys


def bodies(files):
    out = subprocess.run(['objdump', '-d', '--no-show-raw-insn', '-C', *files],
                         capture_output=True, text=True, check=True).stdout
    funcs, name, body = {}, None, []
    for line in out.splitlines():
        m = re.match(r'^[0-9a-f]+ <(.*)>:$', line)
        if m:
            if name:
                funcs.setdefault(name, []).append(tuple(body))
            name, body = m.group(1), []
            continue
        m = re.match(r'^\s+([0-9a-f]+):\t(.*)$', line)
        if m and name:
            body.append((int(m.group(1), 16), m.group(2)))
    if name:
        funcs.setdefault(name, []).append(tuple(body))
    return funcs


def loops(body):
    """The instruction runs from a backward jump's target to the jump."""
    out = []
    for end, (addr, ins) in enumerate(body):
        m = re.match(r'j\w+\s+([0-9a-f]+) <', ins)
        if m and int(m.group(1), 16) <= addr:
            start = next((i for i, (a, _) in enumerate(body)
                          if a == int(m.group(1), 16)), None)
            if start is not None:
                out.append(tuple(norm(i) for _, i in body[start:end + 1]))
    return out


def norm(ins):
    ins = re.sub(r'[0-9a-f]+ <.*>', 'T', ins)
    return re.sub(r'0x[0-9a-f]+', 'N', ins).strip()


# Alignment padding between blocks: not code that runs.
PADDING = re.compile(r'^(\S+\s+)*(nop\w*|xchg\s+%ax,%ax|lea\s+N?\((%e[sd]i)(,%eiz,1)?\),%e[sd]i|'
                     r'lea\s+N\((%e[sd]i)(,%eiz,1)?\),%e[sd]i)\b')


def code(body):
    return [(a, i) for a, i in body if not PADDING.match(norm(i))]


def main():
    args = sys.argv[1:]
    loops_only = '--loops' in args
    args = [a for a in args if a != '--loops']
    cut = args.index('--')
    old, new = bodies(args[:cut]), bodies(args[cut + 1:])
    if loops_only:
        unit = lambda b: loops(code(b))
        what = 'loops'
    else:
        unit = lambda b: [tuple(norm(i) for _, i in code(b))]
        what = 'functions'
    have = {u for bs in new.values() for b in bs for u in unit(b)}
    missing, total = [], 0
    for n, bs in old.items():
        for b in bs:
            for u in unit(b):
                total += 1
                if u not in have:
                    missing.append((n, u))
    for n, u in missing:
        print(f'changed: {n} ({len(u)} instructions)')
    print(f'{total - len(missing)} of {total} {what} unchanged')
    return 1 if missing else 0


if __name__ == '__main__':
    sys.exit(main())
