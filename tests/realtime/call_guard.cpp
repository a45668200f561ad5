// Counts calls that a real-time thread must not make.
// SPDX-License-Identifier: MIT
#include "tests/realtime/call_guard.h"

#include <dlfcn.h>
#include <pthread.h>
#include <semaphore.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>

namespace
{

constinit thread_local bool watching = false;
constinit thread_local tests::ForbiddenCalls counted;

[[maybe_unused]] void count(unsigned tests::ForbiddenCalls::*kind) noexcept
{
    if (watching) ++(counted.*kind);
}

/// Counts a call and forwards it to the C library.
template <auto kFunction, typename... Arguments>
int countedLock(const char* name, Arguments... arguments)
{
    static const auto next = reinterpret_cast<decltype(kFunction)>(dlsym(RTLD_NEXT, name));
    count(&tests::ForbiddenCalls::locks);
    return next(arguments...);
}

} // namespace

namespace tests
{

ForbiddenCalls forbiddenCallsOf(const std::function<void()>& work)
{
    counted = {};
    watching = true;
    work();
    watching = false;
    return counted;
}

} // namespace tests

#if !TARN_INSTRUMENTED

extern "C" {

// The C library's allocator, for programs that replace malloc.
void* __libc_malloc(std::size_t size) noexcept;
void* __libc_calloc(std::size_t count, std::size_t size) noexcept;
void* __libc_realloc(void* memory, std::size_t size) noexcept;
void* __libc_memalign(std::size_t alignment, std::size_t size) noexcept;
void __libc_free(void* memory) noexcept;

void* malloc(std::size_t size) noexcept
{
    count(&tests::ForbiddenCalls::allocations);
    return __libc_malloc(size);
}

void* calloc(std::size_t number, std::size_t size) noexcept
{
    count(&tests::ForbiddenCalls::allocations);
    return __libc_calloc(number, size);
}

void* realloc(void* memory, std::size_t size) noexcept
{
    count(&tests::ForbiddenCalls::allocations);
    return __libc_realloc(memory, size);
}

void* memalign(std::size_t alignment, std::size_t size) noexcept
{
    count(&tests::ForbiddenCalls::allocations);
    return __libc_memalign(alignment, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept
{
    return memalign(alignment, size);
}

int posix_memalign(void** memory, std::size_t alignment, std::size_t size) noexcept
{
    *memory = memalign(alignment, size);
    return *memory == nullptr ? ENOMEM : 0;
}

void free(void* memory) noexcept
{
    count(&tests::ForbiddenCalls::releases);
    __libc_free(memory);
}

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept
{
    return countedLock<&pthread_mutex_lock>("pthread_mutex_lock", mutex);
}

int pthread_mutex_trylock(pthread_mutex_t* mutex) noexcept
{
    return countedLock<&pthread_mutex_trylock>("pthread_mutex_trylock", mutex);
}

int pthread_mutex_timedlock(pthread_mutex_t* mutex, const timespec* until) noexcept
{
    return countedLock<&pthread_mutex_timedlock>("pthread_mutex_timedlock", mutex, until);
}

int pthread_rwlock_rdlock(pthread_rwlock_t* lock) noexcept
{
    return countedLock<&pthread_rwlock_rdlock>("pthread_rwlock_rdlock", lock);
}

int pthread_rwlock_wrlock(pthread_rwlock_t* lock) noexcept
{
    return countedLock<&pthread_rwlock_wrlock>("pthread_rwlock_wrlock", lock);
}

int pthread_spin_lock(pthread_spinlock_t* lock) noexcept
{
    return countedLock<&pthread_spin_lock>("pthread_spin_lock", lock);
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex)
{
    return countedLock<&pthread_cond_wait>("pthread_cond_wait", condition, mutex);
}

int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* until)
{
    return countedLock<&pthread_cond_timedwait>("pthread_cond_timedwait", condition, mutex, until);
}

int pthread_cond_signal(pthread_cond_t* condition) noexcept
{
    return countedLock<&pthread_cond_signal>("pthread_cond_signal", condition);
}

int pthread_cond_broadcast(pthread_cond_t* condition) noexcept
{
    return countedLock<&pthread_cond_broadcast>("pthread_cond_broadcast", condition);
}

int sem_wait(sem_t* semaphore)
{
    return countedLock<&sem_wait>("sem_wait", semaphore);
}

int sem_trywait(sem_t* semaphore) noexcept
{
    return countedLock<&sem_trywait>("sem_trywait", semaphore);
}

int sem_timedwait(sem_t* semaphore, const timespec* until)
{
    return countedLock<&sem_timedwait>("sem_timedwait", semaphore, until);
}

int sem_post(sem_t* semaphore) noexcept
{
    return countedLock<&sem_post>("sem_post", semaphore);
}

int pthread_once(pthread_once_t* flag, void (*work)())
{
    return countedLock<&pthread_once>("pthread_once", flag, work);
}

} // extern "C"

#endif
