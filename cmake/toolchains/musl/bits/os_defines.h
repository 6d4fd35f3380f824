// In place of what the C++ headers say of glibc. It has the type of a locale under two names, musl under one.
#pragma once

#define __locale_t locale_t
