/* Notes which places of a library run: built into each of the two when KQNET_REACH is on, for scripts/mutants. The compiler
 * puts a call of __sanitizer_cov_trace_pc before each straight piece of code; the call sets the bit of its place in the
 * file $KQNET_REACH_FILE.<library>, which every process of a test shares, also one that ends by a signal. Nothing is noted
 * without that variable. Any thread. */
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#define MAP_BYTES ((uintptr_t)4 << 20) /* a bit for each byte of 32 MB of code; a sparse file */

/* Where this library begins in memory; given by the linker. */
extern const char __ehdr_start[] __attribute__((visibility("hidden")));

static unsigned char* s_map;

__attribute__((constructor(101))) static void OpenMap(void)
{
    const char* const file = getenv("KQNET_REACH_FILE");
    char path[4096];
    if (file == NULL || snprintf(path, sizeof path, "%s.%s", file, KQNET_REACH_NAME) >= (int)sizeof path)
        return;
    const int handle = open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (handle < 0)
        return;
    if (ftruncate(handle, (off_t)MAP_BYTES) == 0) {
        void* const map = mmap(NULL, MAP_BYTES, PROT_READ | PROT_WRITE, MAP_SHARED, handle, 0);
        if (map != MAP_FAILED)
            s_map = map;
    }
    close(handle);
}

__attribute__((visibility("hidden"))) void __sanitizer_cov_trace_pc(void)
{
    const uintptr_t place = (uintptr_t)__builtin_return_address(0) - (uintptr_t)__ehdr_start;
    if (s_map == NULL || place / 8 >= MAP_BYTES)
        return;
    const unsigned char bit = (unsigned char)(1u << place % 8);
    unsigned char* const byte = s_map + place / 8;
    if ((__atomic_load_n(byte, __ATOMIC_RELAXED) & bit) == 0)
        __atomic_fetch_or(byte, bit, __ATOMIC_RELAXED);
}
