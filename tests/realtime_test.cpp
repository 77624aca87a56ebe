// Real-time safety: the entry points allocate nothing, take no lock and make
// no system call. This program replaces malloc, calloc, realloc and free
// (operator new comes through malloc), pthread_mutex_lock and the system call
// wrappers a library could reach (read, write, mmap, syscall, which futex
// goes through, nanosleep, sched_yield) with versions that count while armed
// and otherwise pass on to the C library. Each library call runs armed,
// nothing else does. In sanitizer builds the sanitizer owns those names:
// there its allocation hooks count, and locks and system calls are left to
// the other builds. That the shared library imports nothing but memcpy,
// memmove and memset is tests/check_exports.py's.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "support/host_run.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define TVL_RT_SANITIZED 1
#endif
#endif
#if (defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)) && !defined(TVL_RT_SANITIZED)
#define TVL_RT_SANITIZED 1
#endif

namespace {
std::atomic<bool> g_armed{false};
std::atomic<int> g_allocations{0}, g_locks{0}, g_syscalls{0};
inline void note(std::atomic<int>& counter) {
    if (g_armed.load(std::memory_order_relaxed)) counter.fetch_add(1, std::memory_order_relaxed);
}
}  // namespace

#if defined(TVL_RT_SANITIZED)

#include <sanitizer/allocator_interface.h>

namespace {
void on_malloc(const volatile void*, size_t) { note(g_allocations); }
void on_free(const volatile void*) { note(g_allocations); }
[[maybe_unused]] const bool g_hooks = (__sanitizer_install_malloc_and_free_hooks(on_malloc, on_free), true);
}  // namespace
constexpr bool kLocksAndSyscallsWatched = false;

#else  // interposition

#include <dlfcn.h>
#include <pthread.h>
#include <sched.h>
#include <stdarg.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void __libc_free(void*);

void* malloc(size_t n) noexcept {
    note(g_allocations);
    return __libc_malloc(n);
}
void* calloc(size_t n, size_t size) noexcept {
    note(g_allocations);
    return __libc_calloc(n, size);
}
void* realloc(void* p, size_t n) noexcept {
    note(g_allocations);
    return __libc_realloc(p, n);
}
void free(void* p) noexcept {
    if (p) note(g_allocations);
    __libc_free(p);
}
}  // extern "C"

namespace {
// The C library's own function behind a name this program replaces.
template <typename F>
F next(const char* name) {
    static_assert(sizeof(F) == sizeof(void*));
    void* p = dlsym(RTLD_NEXT, name);
    if (!p) std::abort();
    F f;
    std::memcpy(&f, &p, sizeof f);
    return f;
}
struct Real {
    int (*mutex_lock)(pthread_mutex_t*) = next<int (*)(pthread_mutex_t*)>("pthread_mutex_lock");
    ssize_t (*read)(int, void*, size_t) = next<ssize_t (*)(int, void*, size_t)>("read");
    ssize_t (*write)(int, const void*, size_t) = next<ssize_t (*)(int, const void*, size_t)>("write");
    void* (*mmap)(void*, size_t, int, int, int, off_t) = next<void* (*)(void*, size_t, int, int, int, off_t)>("mmap");
    long (*syscall)(long, long, long, long, long, long, long) =
        next<long (*)(long, long, long, long, long, long, long)>("syscall");
    int (*nanosleep)(const timespec*, timespec*) = next<int (*)(const timespec*, timespec*)>("nanosleep");
    int (*sched_yield)() = next<int (*)()>("sched_yield");
};
const Real& real() {
    static const Real r;
    return r;
}
[[maybe_unused]] const bool g_resolved = (real(), true);  // before main, never while armed
}  // namespace

extern "C" {
int pthread_mutex_lock(pthread_mutex_t* m) noexcept {
    note(g_locks);
    return real().mutex_lock(m);
}
ssize_t read(int fd, void* buf, size_t n) {
    note(g_syscalls);
    return real().read(fd, buf, n);
}
ssize_t write(int fd, const void* buf, size_t n) {
    note(g_syscalls);
    return real().write(fd, buf, n);
}
void* mmap(void* addr, size_t n, int prot, int flags, int fd, off_t off) noexcept {
    note(g_syscalls);
    return real().mmap(addr, n, prot, flags, fd, off);
}
long syscall(long number, ...) noexcept {
    note(g_syscalls);
    va_list ap;
    va_start(ap, number);
    long a[6];
    for (long& x : a) x = va_arg(ap, long);
    va_end(ap);
    return real().syscall(number, a[0], a[1], a[2], a[3], a[4], a[5]);
}
int nanosleep(const timespec* req, timespec* rem) {
    note(g_syscalls);
    return real().nanosleep(req, rem);
}
int sched_yield() noexcept {
    note(g_syscalls);
    return real().sched_yield();
}
}  // extern "C"

constexpr bool kLocksAndSyscallsWatched = true;

#endif  // TVL_RT_SANITIZED

namespace {

using namespace tvl_test;

struct Counts {
    int allocations, locks, syscalls;
};

// Runs fn armed and returns what the counters saw.
Counts armed(const std::function<void()>& fn) {
    g_allocations = g_locks = g_syscalls = 0;
    g_armed = true;
    fn();
    g_armed = false;
    return {g_allocations.load(), g_locks.load(), g_syscalls.load()};
}

// The counters must see what they watch, or a clean run proves nothing.
TEST(Realtime, TheWatchSeesAllocations) {
    void* (*volatile do_malloc)(size_t) = std::malloc;
    void (*volatile do_free)(void*) = std::free;
    Counts c = armed([&] { do_free(do_malloc(24)); });
    EXPECT_GE(c.allocations, 2);
    c = armed([] {
        std::string* volatile p = new std::string(100, 'x');
        delete p;
    });
    EXPECT_GE(c.allocations, 2);
}

TEST(Realtime, TheWatchSeesLocksAndSystemCalls) {
    if (!kLocksAndSyscallsWatched) GTEST_SKIP() << "watched in the builds without sanitizers";
#if !defined(TVL_RT_SANITIZED)
    pthread_mutex_t m = PTHREAD_MUTEX_INITIALIZER;
    const Counts c = armed([&] {
        pthread_mutex_lock(&m);
        pthread_mutex_unlock(&m);
        (void)write(-1, "", 0);
        (void)syscall(SYS_getpid);
        const timespec zero{0, 0};
        nanosleep(&zero, nullptr);
    });
    EXPECT_EQ(c.locks, 1);
    EXPECT_EQ(c.syscalls, 3);
#endif
}

// Runs in every format and channel mode, limiting and bypass, with
// switches, format changes and resets, periods of every size, in place and
// apart: every entry point call armed on its own.
TEST(Realtime, EntryPointsAllocateNothingLockNothingCallNothing) {
    Counts total{0, 0, 0};
    size_t calls = 0, bytes = 0;
    auto watch = [&](auto&& call) {
        const Counts c = armed(call);
        total.allocations += c.allocations, total.locks += c.locks, total.syscalls += c.syscalls;
        ++calls;
    };
    Gen g(7);
    for (uint32_t fmt : {0u, 1u, 2u}) {
        for (uint32_t mode = 0; mode < 4; ++mode) {
            HostRun s;
            s.fmt = fmt, s.stereo = mode & 1, s.state = mode >> 1, s.in_place = (fmt + mode) % 2, s.seed = g.next();
            s.steps = random_steps(g, 20, true);
            const RunResult r = run_host(s, watch);
            ASSERT_EQ(r.error, "");
            bytes += r.out.size();
        }
    }
    EXPECT_GT(calls, 200u);
    EXPECT_GT(bytes, 300000u);
    EXPECT_EQ(total.allocations, 0);
    EXPECT_EQ(total.locks, 0);
    EXPECT_EQ(total.syscalls, 0);
}

}  // namespace
