// UCS-2 to UTF-8 over iconv(3).
#include "platform/ucs2.h"

#include <algorithm>
#include <iconv.h>

void ucs2_to_utf8(std::span<char> in, size_t length, std::span<char> out, size_t room) {
    const iconv_t converter = iconv_open("UTF-8", "UCS2");
    // iconv_open's failure is the all-ones value of its pointer type.
    if (converter == iconv_t(-1)) { // NOLINT(performance-no-int-to-ptr)
        return;
    }
    char *next_in = in.data();
    size_t left_in = std::min(length, in.size());
    char *next_out = out.data();
    size_t left_out = out.empty() ? 0 : std::min(room, out.size() - 1);
    iconv(converter, &next_in, &left_in, &next_out, &left_out);
    iconv_close(converter);
}
