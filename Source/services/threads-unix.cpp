// Threads, mutexes, conditions, thread-local storage and process priority
// classes over POSIX threads.
#include "threads-unix.h"

#include <cerrno>
#include <cstdlib>
#include <ctime>

#include <pthread.h>
#include <sys/resource.h>
#include <sys/time.h>

#include "qv_assert.h"

static_assert(sizeof(pthread_t) <= sizeof(unsigned long), "thread ids fit an unsigned long");

namespace {

// What the new thread needs, owned and released by it. The creation
// attributes stay with the creating thread: pthread_create may still read
// them after the new thread has started, and even after it has ended.
struct ThreadRunArg {
    KThreadFunc func;
    void *arg;
};

ThreadRunArg *New_ThreadRunArg(KThreadFunc func, void *arg) {
    auto *run = static_cast<ThreadRunArg *>(malloc(sizeof(ThreadRunArg)));
    if (!run) return nullptr;
    run->func = func;
    run->arg = arg;
    return run;
}

void Delete_ThreadRunArg(ThreadRunArg *run) { free(run); }

void *threadRun(void *p) {
    auto *run = static_cast<ThreadRunArg *>(p);
    run->func(run->arg);
    Delete_ThreadRunArg(run);
    return nullptr;
}

KThread New_KThread(pthread_t id) {
    auto *handle = static_cast<KThread>(malloc(sizeof(KThreadRecord)));
    auto *tid = static_cast<pthread_t *>(malloc(sizeof(pthread_t)));
    if (!handle || !tid) {
        free(handle);
        free(tid);
        return nullptr;
    }
    *tid = id;
    handle->thread = tid;
    return handle;
}

int priority_step(int code) {
    switch (code) {
    case 0: return 1;
    case 2: return -1;
    default: return 0;
    }
}

pthread_mutex_t *mutex_of(KMutex m) { return static_cast<pthread_mutex_t *>(m->mutex); }
pthread_cond_t *cond_of(KCondition c) { return static_cast<pthread_cond_t *>(c->condition); }
pthread_key_t *key_of(KThreadLocalStorage t) { return static_cast<pthread_key_t *>(t->key); }

KMutex make_mutex(bool recursive) {
    auto *handle = static_cast<KMutex>(malloc(sizeof(KMutexRecord)));
    auto *mutex = static_cast<pthread_mutex_t *>(malloc(sizeof(pthread_mutex_t)));
    if (!handle || !mutex) {
        free(handle);
        free(mutex);
        return nullptr;
    }
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    if (recursive) pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    const int r = pthread_mutex_init(mutex, &attr);
    pthread_mutexattr_destroy(&attr);
    if (r != 0) {
        free(handle);
        free(mutex);
        return nullptr;
    }
    handle->mutex = mutex;
    return handle;
}

} // namespace

// ---------------------------------------------------------------------------
// Threads

KThread KThreadCreate(KThreadFunc func, void *arg, int priority) {
    ThreadRunArg *run = New_ThreadRunArg(func, arg);
    if (!run) return nullptr;
    pthread_attr_t attr;
    const bool have_attr = pthread_attr_init(&attr) == 0;
    // Under the default time-sharing policy only priority 0 is valid, so a
    // step is refused there and the thread starts with default attributes.
    struct sched_param param;
    bool prepared = have_attr && pthread_attr_getschedparam(&attr, &param) == 0;
    if (prepared) {
        param.sched_priority += priority_step(priority);
        prepared = pthread_attr_setschedparam(&attr, &param) == 0;
    }
    pthread_t id;
    const int r = pthread_create(&id, prepared ? &attr : nullptr, threadRun, run);
    if (have_attr) pthread_attr_destroy(&attr);
    if (r != 0) {
        Delete_ThreadRunArg(run);
        return nullptr;
    }
    return New_KThread(id);
}

int KThreadWaitForExit(KThread thread) {
    pthread_join(*static_cast<pthread_t *>(thread->thread), nullptr);
    return 1;
}

void Delete_KThread(KThread thread) {
    if (!thread) return;
    free(thread->thread);
    free(thread);
}

void KThreadRawExit(void) { pthread_exit(nullptr); }

unsigned long KThreadID(void) { return static_cast<unsigned long>(pthread_self()); }

void KThread_Sleep(int ms) {
    if (ms < 0) return;
    struct timespec ts;
    ts.tv_sec = ms / 1000;
    ts.tv_nsec = static_cast<long>(ms % 1000) * 1000000L;
    nanosleep(&ts, nullptr);
}

// ---------------------------------------------------------------------------
// Mutexes

KMutex New_KMutex(void) { return make_mutex(true); }
KMutex New_KMutexTryable(void) { return make_mutex(true); }
KMutex New_KMutex_NonRecursive(void) { return make_mutex(false); }

void Delete_KMutex(KMutex mutex) {
    if (!mutex) return;
    pthread_mutex_destroy(mutex_of(mutex));
    free(mutex->mutex);
    free(mutex);
}

void KMutexLock(KMutex mutex) { pthread_mutex_lock(mutex_of(mutex)); }
void KMutexUnlock(KMutex mutex) { pthread_mutex_unlock(mutex_of(mutex)); }
int KMutexTryLock(KMutex mutex) { return pthread_mutex_trylock(mutex_of(mutex)) == 0 ? 1 : 0; }

// ---------------------------------------------------------------------------
// Conditions

KCondition New_KCondition(void) {
    auto *handle = static_cast<KCondition>(malloc(sizeof(KConditionRecord)));
    auto *cond = static_cast<pthread_cond_t *>(malloc(sizeof(pthread_cond_t)));
    if (!handle || !cond || pthread_cond_init(cond, nullptr) != 0) {
        free(handle);
        free(cond);
        return nullptr;
    }
    handle->condition = cond;
    return handle;
}

void Delete_KCondition(KCondition condition) {
    if (!condition) return;
    pthread_cond_destroy(cond_of(condition));
    free(condition->condition);
    free(condition);
}

void KConditionWait(KCondition condition, KMutex mutex) {
    pthread_cond_wait(cond_of(condition), mutex_of(mutex));
}

int KConditionTimedWait(KCondition condition, KMutex mutex, int ms) {
    struct timeval now;
    gettimeofday(&now, nullptr);
    struct timespec deadline;
    deadline.tv_sec = now.tv_sec + ms / 1000;
    deadline.tv_nsec = now.tv_usec * 1000L + static_cast<long>(ms % 1000) * 1000000L;
    if (deadline.tv_nsec > 999999999L) {
        deadline.tv_sec += 1;
        deadline.tv_nsec -= 1000000000L;
    }
    return pthread_cond_timedwait(cond_of(condition), mutex_of(mutex), &deadline) == ETIMEDOUT
               ? 1
               : 0;
}

void KConditionSignal(KCondition condition) { pthread_cond_signal(cond_of(condition)); }

// ---------------------------------------------------------------------------
// Thread-local storage

KThreadLocalStorage New_KThreadLocalStorage(void) {
    auto *handle = static_cast<KThreadLocalStorage>(malloc(sizeof(KThreadLocalStorageRecord)));
    auto *key = static_cast<pthread_key_t *>(malloc(sizeof(pthread_key_t)));
    if (!handle || !key || pthread_key_create(key, nullptr) != 0) {
        free(handle);
        free(key);
        return nullptr;
    }
    handle->key = key;
    return handle;
}

void Delete_KThreadLocalStorage(KThreadLocalStorage tls) {
    if (!tls) return;
    pthread_key_delete(*key_of(tls));
    free(tls->key);
    free(tls);
}

void KThreadLocalStorageSet(KThreadLocalStorage tls, void *value) {
    pthread_setspecific(*key_of(tls), value);
}

void *KThreadLocalStorageGet(KThreadLocalStorage tls) { return pthread_getspecific(*key_of(tls)); }

// ---------------------------------------------------------------------------
// Process priority

int getProcessPriorityClass(void) {
    errno = 0;
    const int ret = getpriority(PRIO_PROCESS, 0);
    QV_ASSERT(errno == 0);
    if (ret == 0) return 0;
    if (ret >= -9 && ret <= -1) return 1;
    if (ret < -9) return 2;
    if (ret >= 1 && ret <= 18) return -1;
    QV_ASSERT(ret >= 19);
    return -2;
}

int setProcessPriorityClass(int priorityClass) {
    static constexpr int kNice[] = {19, 4, 0, -4, -10};
    // A caller's mistake is answered, not punished with an abort.
    if (priorityClass < -2 || priorityClass > 2) return 0;
    return setpriority(PRIO_PROCESS, 0, kNice[priorityClass + 2]) == 0 ? 1 : 0;
}
