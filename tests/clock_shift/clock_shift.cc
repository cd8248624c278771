// A clock the tests can move: preloaded into a program, it adds an offset to every
// monotonic clock reading.  The offset is a signed 64-bit count of milliseconds, in host
// order, at the start of the file that OVD_TEST_CLOCK_FILE names; the file is mapped
// shared, so a test that rewrites it moves the program's time at once.  Without the
// variable, or when the file can't be mapped, the clocks are untouched.
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

namespace {

using clock_gettime_fn = int (*)(clockid_t, struct timespec *);

clock_gettime_fn g_real = nullptr;
const volatile int64_t *g_offset_ms = nullptr;
pthread_once_t g_once = PTHREAD_ONCE_INIT;

void clock_shift_init()
{
    g_real = reinterpret_cast<clock_gettime_fn>(dlsym(RTLD_NEXT, "clock_gettime"));
    const char *path = getenv("OVD_TEST_CLOCK_FILE");
    if (path == nullptr || *path == '\0') {
        return;
    }
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return;
    }
    void *map = mmap(nullptr, sizeof(int64_t), PROT_READ, MAP_SHARED, fd, 0);
    close(fd);
    if (map != MAP_FAILED) {
        g_offset_ms = static_cast<const volatile int64_t *>(map);
    }
}

bool is_monotonic(clockid_t id)
{
    return id == CLOCK_MONOTONIC || id == CLOCK_MONOTONIC_COARSE || id == CLOCK_MONOTONIC_RAW ||
           id == CLOCK_BOOTTIME;
}

}  // namespace

extern "C" int clock_gettime(clockid_t id, struct timespec *ts)
{
    pthread_once(&g_once, clock_shift_init);
    if (g_real == nullptr) {
        return -1;
    }
    const int res = g_real(id, ts);
    if (res != 0 || g_offset_ms == nullptr || !is_monotonic(id)) {
        return res;
    }
    const int64_t offset = *g_offset_ms;
    int64_t nsec = static_cast<int64_t>(ts->tv_nsec) + (offset % 1000) * 1000000;
    int64_t sec = static_cast<int64_t>(ts->tv_sec) + offset / 1000;
    if (nsec >= 1000000000) {
        nsec -= 1000000000;
        ++sec;
    } else if (nsec < 0) {
        nsec += 1000000000;
        --sec;
    }
    ts->tv_sec = static_cast<time_t>(sec);
    ts->tv_nsec = static_cast<long>(nsec);
    return res;
}
