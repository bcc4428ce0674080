// ApiLock on POSIX: a recursive pthread mutex, so the thread that holds it
// can call back into other exported functions.
#include <pthread.h>

#include <new>

#include "platform/platform.h"

namespace qv::platform {

namespace {
pthread_mutex_t* MutexOf(unsigned char* storage) {
  return reinterpret_cast<pthread_mutex_t*>(storage);
}
}  // namespace

static_assert(sizeof(pthread_mutex_t) <= 64, "RecursiveLock storage too small");

void RecursiveLock::Init() {
  pthread_mutexattr_t attr;
  pthread_mutexattr_init(&attr);
  pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_init(new (storage_) pthread_mutex_t, &attr);
  pthread_mutexattr_destroy(&attr);
}

void RecursiveLock::Destroy() { pthread_mutex_destroy(MutexOf(storage_)); }

void RecursiveLock::Enter() { pthread_mutex_lock(MutexOf(storage_)); }

void RecursiveLock::Leave() { pthread_mutex_unlock(MutexOf(storage_)); }

}  // namespace qv::platform
