#pragma once

// What compilers spell differently; nothing else may ask which compiler or system this is.

// MinGW's plain printf means the MS runtime's, which has no %zu; clang knows no other name than printf.
#if defined(__clang__)
#define CVN_THREAD_ATTRIBUTE(x) __attribute__((x))
#define CVN_PRINTF(text, first) __attribute__((format(printf, text, first)))
#else
#define CVN_THREAD_ATTRIBUTE(x)
#define CVN_PRINTF(text, first) __attribute__((format(gnu_printf, text, first)))
#endif
