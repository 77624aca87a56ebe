/*
 * Link-time stand-in for the C library in the freestanding Android build,
 * the way the NDK links against stub libraries: it gives
 * libtaviklimiter_vendor.so its DT_NEEDED entry on libc.so, and lets the
 * linker's --no-undefined prove that the library needs nothing but these
 * three. Never shipped and never run: the device's libc.so provides them.
 */
typedef __SIZE_TYPE__ size_t;

void *memcpy(void *dst, const void *src, size_t n) { (void)src; (void)n; return dst; }
void *memmove(void *dst, const void *src, size_t n) { (void)src; (void)n; return dst; }
void *memset(void *dst, int c, size_t n) { (void)c; (void)n; return dst; }
