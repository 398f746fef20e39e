/* Preloaded into the tool: steps the wall clock forward once, as time sync does at boot on a host without
   a real-time clock. AIC_CLOCK_STEP_S (default 3600) seconds, AIC_CLOCK_STEP_AFTER_MS (default 100) ms
   after the process started; the monotonic clock is left alone. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdlib.h>
#include <sys/time.h>
#include <time.h>

typedef int (*clock_gettime_fn)(clockid_t, struct timespec*);
typedef int (*gettimeofday_fn)(struct timeval*, void*);

static clock_gettime_fn real_clock_gettime;
static gettimeofday_fn real_gettimeofday;
static long long step_at_ms;
static long long step_s = 3600;

static long long monotonic_ms(void)
{
    struct timespec now;
    real_clock_gettime(CLOCK_MONOTONIC, &now);
    return (long long)now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

static long long env_number(const char* name, long long fallback)
{
    const char* text = getenv(name);
    return text != NULL && *text != '\0' ? atoll(text) : fallback;
}

__attribute__((constructor)) static void clock_step_init(void)
{
    real_clock_gettime = (clock_gettime_fn)dlsym(RTLD_NEXT, "clock_gettime");
    real_gettimeofday = (gettimeofday_fn)dlsym(RTLD_NEXT, "gettimeofday");
    step_s = env_number("AIC_CLOCK_STEP_S", 3600);
    step_at_ms = monotonic_ms() + env_number("AIC_CLOCK_STEP_AFTER_MS", 100);
}

static long long offset_s(void)
{
    return monotonic_ms() >= step_at_ms ? step_s : 0;
}

int clock_gettime(clockid_t clock, struct timespec* now)
{
    const int result = real_clock_gettime(clock, now);
    if (result == 0 && (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE)) {
        now->tv_sec += offset_s();
    }
    return result;
}

int gettimeofday(struct timeval* now, void* zone)
{
    const int result = real_gettimeofday(now, zone);
    if (result == 0) {
        now->tv_sec += offset_s();
    }
    return result;
}
