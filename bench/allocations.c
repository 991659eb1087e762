/* SPDX-License-Identifier: Apache-2.0
 *
 * Preloaded into a server: counts in /run/allocations, in 8 bytes, what its first thread allocates.
 */
#include <fcntl.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/mman.h>
#include <unistd.h>

void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);

static __thread uint64_t* allocations __attribute__((tls_model("initial-exec")));

__attribute__((constructor)) static void count(void) {
    const int file = open("/run/allocations", O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (ftruncate(file, sizeof *allocations) == 0) {
        void* mapped = mmap(NULL, sizeof *allocations, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        allocations = mapped != MAP_FAILED ? mapped : NULL;
    }
    close(file);
}

static void note(void) {
    if (allocations != NULL) {
        ++*allocations;
    }
}

void* malloc(size_t size) {
    note();
    return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
    note();
    return __libc_calloc(count, size);
}

void* realloc(void* block, size_t size) {
    note();
    return __libc_realloc(block, size);
}
