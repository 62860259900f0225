/* Portable threads, mutexes, conditions, thread-local storage and process
   priority classes over POSIX threads, for host programs. Times are in
   milliseconds. Each handle is a small heap record holding the platform
   object; handles are freed with their Delete_ call. */
#ifndef QUORVEL_THREADS_UNIX_H
#define QUORVEL_THREADS_UNIX_H

#include "quorvel.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct KThreadRecord { void *thread; } *KThread;
typedef struct KMutexRecord { void *mutex; } *KMutex;
typedef struct KConditionRecord { void *condition; } *KCondition;
typedef struct KThreadLocalStorageRecord { void *key; } *KThreadLocalStorage;

/* A thread body; its result is ignored. */
typedef void *(*KThreadFunc)(void *arg);

/* Starts a joinable thread. priority 0 asks for one step above the default,
   1 the default, 2 one step below (anything else: the default); where the
   platform refuses the step the thread starts with default attributes.
   NULL when the thread could not be started. */
QV_API KThread KThreadCreate(KThreadFunc func, void *arg, int priority);
/* Joins the thread; answers 1. */
QV_API int KThreadWaitForExit(KThread thread);
/* Frees the handle only (neither joins nor detaches). */
QV_API void Delete_KThread(KThread thread);
QV_API void KThreadRawExit(void) __attribute__((noreturn));
QV_API unsigned long KThreadID(void);
/* One sleep; a signal may cut it short; a negative time returns at once. */
QV_API void KThread_Sleep(int ms);

/* New_KMutex and New_KMutexTryable are recursive: the owner may lock again
   and unlocks as often. NULL when memory ran out. */
QV_API KMutex New_KMutex(void);
QV_API KMutex New_KMutexTryable(void);
QV_API KMutex New_KMutex_NonRecursive(void);
QV_API void Delete_KMutex(KMutex mutex);
QV_API void KMutexLock(KMutex mutex);
QV_API void KMutexUnlock(KMutex mutex);
/* 1 when taken, 0 when busy or on failure. */
QV_API int KMutexTryLock(KMutex mutex);

QV_API KCondition New_KCondition(void);
QV_API void Delete_KCondition(KCondition condition);
QV_API void KConditionWait(KCondition condition, KMutex mutex);
/* Waits at most ms on the wall clock; 1 exactly when the time ran out. */
QV_API int KConditionTimedWait(KCondition condition, KMutex mutex, int ms);
QV_API void KConditionSignal(KCondition condition);

QV_API KThreadLocalStorage New_KThreadLocalStorage(void);
QV_API void Delete_KThreadLocalStorage(KThreadLocalStorage tls);
QV_API void KThreadLocalStorageSet(KThreadLocalStorage tls, void *value);
/* The calling thread's value; NULL if it never set one. */
QV_API void *KThreadLocalStorageGet(KThreadLocalStorage tls);

/* Process priority as a class from -2 (least processor time) to 2. */
QV_API int getProcessPriorityClass(void);
/* 1 when the nice value was set; 0 when refused or the class is outside
   -2..2 (then nothing is changed). */
QV_API int setProcessPriorityClass(int priorityClass);

#ifdef __cplusplus
}
#endif

#endif
