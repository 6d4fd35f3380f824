// In place of what takes its numbers from glibc's <ctype.h>. Streams would need them to be those of the C++ library; the
// headers only need them to be there.
#pragma once

namespace std {

struct ctype_base {
    using __to_type = const int *;
    using mask = unsigned short;
    static const mask upper = 0x01;
    static const mask lower = 0x02;
    static const mask alpha = 0x04;
    static const mask digit = 0x08;
    static const mask xdigit = 0x10;
    static const mask space = 0x20;
    static const mask print = 0x40;
    static const mask cntrl = 0x80;
    static const mask punct = 0x100;
    static const mask blank = 0x200;
    static const mask alnum = alpha | digit;
    static const mask graph = alnum | punct;
};

} // namespace std
