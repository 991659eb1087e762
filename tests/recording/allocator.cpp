// SPDX-License-Identifier: Apache-2.0
#include "allocation.hpp"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

// Preloaded into the daemon: one allocation of its threads fails, on demand. Operator new and
// strdup come through here as well. A child that it forks is let alone.

extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
}

namespace {

AllocationControl* control = nullptr;
pid_t daemon = 0;
// Found in the thread's own block: nothing is allocated for it.
__attribute__((tls_model("initial-exec"))) thread_local int standIns = 0;

__attribute__((constructor)) void takeControl() {
    const int file = open(AllocationControl::path, O_RDWR | O_CLOEXEC);
    if (file >= 0) {
        auto* mapped = mmap(nullptr, sizeof *control, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        close(file);
        daemon = getpid();
        control = mapped != MAP_FAILED ? static_cast<AllocationControl*>(mapped) : nullptr;
    }
}

bool fails() {
    if (control == nullptr || standIns != 0 || control->left.load() <= 0 || getpid() != daemon ||
        control->left.fetch_sub(1) != 1) {
        return false;
    }
    errno = ENOMEM;
    return true;
}

} // namespace

extern "C" {

void standInsOnThread(int change) {
    standIns += change;
}

void* malloc(std::size_t size) {
    return fails() ? nullptr : __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
    return fails() ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size) {
    return fails() ? nullptr : __libc_realloc(block, size);
}

void* memalign(std::size_t alignment, std::size_t size) {
    return fails() ? nullptr : __libc_memalign(alignment, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return memalign(alignment, size);
}

int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
    void* made = memalign(alignment, size);
    if (made == nullptr) {
        return ENOMEM;
    }
    *block = made;
    return 0;
}
}
