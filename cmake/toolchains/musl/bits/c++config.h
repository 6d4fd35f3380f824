// The compiler's C++ headers are configured for glibc. Without threads, which the product has none of, they need nothing
// that musl lacks.
#include_next <bits/c++config.h>
#undef _GLIBCXX_HAS_GTHREADS
