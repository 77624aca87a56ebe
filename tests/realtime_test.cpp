// Real-time safety: the entry points and every kernel allocate nothing, take
// no lock and make no system call. This program replaces the allocation
// functions (malloc, calloc, realloc, free, posix_memalign, aligned_alloc,
// memalign, operator new and delete), pthread_mutex_lock/trylock and the
// system call wrappers a library could reach (read, write, mmap, munmap,
// syscall, which futex goes through, nanosleep, clock_nanosleep, usleep,
// sched_yield) with versions that count while armed and otherwise pass on
// to the C library. Each library call runs armed, nothing else does. In
// sanitizer builds the sanitizer owns those names: there the allocation
// hooks of the sanitizer runtime count allocations, and locks and system
// calls are left to the other builds.
//
// The static side, that the shared library imports nothing but memcpy,
// memmove and memset, is tests/check_exports.py's.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "support/session_runner.h"

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
void* __libc_memalign(size_t, size_t);
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
void* memalign(size_t alignment, size_t n) noexcept {
    note(g_allocations);
    return __libc_memalign(alignment, n);
}
void* aligned_alloc(size_t alignment, size_t n) noexcept {
    note(g_allocations);
    return __libc_memalign(alignment, n);
}
int posix_memalign(void** out, size_t alignment, size_t n) noexcept {
    note(g_allocations);
    void* p = __libc_memalign(alignment, n);
    if (!p) return 12;  // ENOMEM
    *out = p;
    return 0;
}
}  // extern "C"

void* operator new(size_t n) {
    void* p = malloc(n ? n : 1);
    if (!p) throw std::bad_alloc();
    return p;
}
void* operator new[](size_t n) { return operator new(n); }
void* operator new(size_t n, const std::nothrow_t&) noexcept { return malloc(n ? n : 1); }
void* operator new[](size_t n, const std::nothrow_t&) noexcept { return malloc(n ? n : 1); }
void operator delete(void* p) noexcept { free(p); }
void operator delete[](void* p) noexcept { free(p); }
void operator delete(void* p, size_t) noexcept { free(p); }
void operator delete[](void* p, size_t) noexcept { free(p); }

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
    int (*mutex_trylock)(pthread_mutex_t*) = next<int (*)(pthread_mutex_t*)>("pthread_mutex_trylock");
    ssize_t (*read)(int, void*, size_t) = next<ssize_t (*)(int, void*, size_t)>("read");
    ssize_t (*write)(int, const void*, size_t) = next<ssize_t (*)(int, const void*, size_t)>("write");
    void* (*mmap)(void*, size_t, int, int, int, off_t) = next<void* (*)(void*, size_t, int, int, int, off_t)>("mmap");
    int (*munmap)(void*, size_t) = next<int (*)(void*, size_t)>("munmap");
    long (*syscall)(long, long, long, long, long, long, long) =
        next<long (*)(long, long, long, long, long, long, long)>("syscall");
    int (*nanosleep)(const timespec*, timespec*) = next<int (*)(const timespec*, timespec*)>("nanosleep");
    int (*clock_nanosleep)(clockid_t, int, const timespec*, timespec*) =
        next<int (*)(clockid_t, int, const timespec*, timespec*)>("clock_nanosleep");
    int (*usleep)(useconds_t) = next<int (*)(useconds_t)>("usleep");
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
int pthread_mutex_trylock(pthread_mutex_t* m) noexcept {
    note(g_locks);
    return real().mutex_trylock(m);
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
int munmap(void* addr, size_t n) noexcept {
    note(g_syscalls);
    return real().munmap(addr, n);
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
int clock_nanosleep(clockid_t clock, int flags, const timespec* req, timespec* rem) {
    note(g_syscalls);
    return real().clock_nanosleep(clock, flags, req, rem);
}
int usleep(useconds_t us) {
    note(g_syscalls);
    return real().usleep(us);
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

// A representative workload: sessions in every format and channel mode,
// limiting and bypass, with switches, format changes and resets, periods of
// every size, in place and apart; every entry point call armed on its own.
TEST(Realtime, EntryPointsAllocateNothingLockNothingCallNothing) {
    Counts total{0, 0, 0};
    size_t calls = 0, bytes = 0;
    auto watch = [&](auto&& call) {
        const Counts c = armed(call);
        total.allocations += c.allocations, total.locks += c.locks, total.syscalls += c.syscalls;
        ++calls;
    };
    std::vector<unsigned char> instance(LMTR_INSTANCE_SIZE + 8), scratch(LMTR_SCRATCH_SIZE + 8);
    for (uint32_t fmt : {0u, 1u, 2u}) {
        for (bool stereo : {false, true}) {
            for (uint32_t state : {0u, 1u}) {
                const SessionSpec s{fmt, stereo, state, fmt * 4 + stereo * 2 + state, (fmt + state) % 2 == 0,
                                    session_schedule(fmt * 100 + stereo * 10 + state, 40, true)};
                std::string error;
                bytes += run_session(s, instance.data() + 3, scratch.data() + 5, watch, &error).size();
                ASSERT_EQ(error, "");
            }
        }
    }
    watch([] {
        uint32_t a = 0, b = 0;
        (void)Limiter_GetBufferSize(&a, &b, 1);
        (void)Limiter_GetVersion();
        (void)Limiter_Get_Version();
        (void)limiter_check_pcm_format(5);
        (void)limiter_check_state(5);
    });
    EXPECT_GT(calls, 400u);
    EXPECT_GT(bytes, 1000000u);
    EXPECT_EQ(total.allocations, 0);
    EXPECT_EQ(total.locks, 0);
    EXPECT_EQ(total.syscalls, 0);
}

// Every exported kernel, mono and stereo, full blocks and odd counts.
TEST(Realtime, KernelsAllocateNothingLockNothingCallNothing) {
    std::vector<int64_t> q33(512), q33b(512);
    std::vector<int32_t> w32(512), g(512);
    std::vector<float> f32(512);
    for (size_t i = 0; i < 512; ++i) {
        q33[i] = int64_t(session_mix(i)) >> (i % 40);
        w32[i] = int32_t(session_mix(i + 1000));
        f32[i] = float(int32_t(session_mix(i + 2000))) * 0x1p-30f;
    }
    for (uint32_t count : {1u, 7u, 64u, 128u}) {
        for (int32_t stereo : {0, 1}) {
            const uint32_t ramp = count > 64 ? 64 : count;
            const Counts c = armed([&] {
                derive_gain(q33.data(), g.data(), count, 32767, 1);
                (void)calculate_block_min_gain(stereo, g.data(), int32_t(count), 1);
                no_limiter(q33.data(), w32.data(), count, stereo ? 1 : 2);
                apply_fix_gain(20000, q33.data(), w32.data(), int32_t(count), 1);
                apply_makeup_gain(w32.data(), count, 30000);
                (void)apply_step_gain_without_saturation(stereo, 16000, 4, q33.data(), w32.data(), ramp, 1);
                (void)apply_targ_gain(stereo, 32767, 1000, q33.data(), w32.data(), LMTR_RAMP_TABLE, ramp, 1);
                (void)apply_ramp_gain_for_q33p31(stereo, 20000, 32767, q33b.data(), q33b.data(), LMTR_RAMP_TABLE, ramp, 1);
                (void)apply_ramp_gain_for_float32(stereo, 20000, 32767, f32.data(), f32.data(), LMTR_RAMP_TABLE, ramp, 1);
                (void)apply_ramp_gain_for_q5p27(stereo, 20000, 32767, w32.data(), w32.data(), LMTR_RAMP_TABLE, ramp, 1);
                clipping_limiter(q33.data(), w32.data(), count, 1);
                copy_float32_to_q33p31(f32.data(), q33b.data(), count);
                copy_q1p31_to_float32(w32.data(), f32.data(), count);
                copy_q5p27_to_q33p31(w32.data(), q33b.data(), count);
                copy_q1p31_to_q5p27(w32.data(), w32.data(), count);
                convert_from_float32_to_q33p31(q33b.data(), count);
                convert_from_q33p31_to_float32(q33b.data(), count);
                convert_from_float32_to_q5p27(q33b.data(), count);
                convert_from_q5p27_to_q33p31(q33b.data(), count);
                convert_from_q33p31_to_q5p27(q33b.data(), count);
                convert_from_q5p27_to_float32(q33b.data(), count);
                move_from_q33p31_to_q1p31(q33.data(), w32.data(), count);
                clip_from_q33p31_to_q1p31(q33.data(), w32.data(), count);
            });
            EXPECT_EQ(c.allocations, 0) << "count " << count;
            EXPECT_EQ(c.locks, 0) << "count " << count;
            EXPECT_EQ(c.syscalls, 0) << "count " << count;
        }
    }
}

}  // namespace
