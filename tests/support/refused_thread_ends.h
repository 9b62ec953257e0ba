// Being told of a thread's end, refused as when memory runs out. To be included by one source of a
// program: what it defines stands in for the system's in the whole of it.
#pragma once

#include <dlfcn.h>
#include <pthread.h>

#include <cerrno>
#include <cstdlib>

// Of this thread: from now on there is no memory for what a thread's end is told through.
inline thread_local bool refuses_thread_ends = false;

#ifndef LUM_SANITIZERS_NEW

// What is freed by AddressSanitizer is to come from it.
#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define LUM_CALLOC_BEHIND __interceptor_calloc
// Its own key is the first of the process, and must not be refused.
#define LUM_IS_SANITIZERS_KEY(key) ((key) == 0)
#endif
#endif
#ifndef LUM_CALLOC_BEHIND
#define LUM_CALLOC_BEHIND __libc_calloc
#define LUM_IS_SANITIZERS_KEY(key) false
#endif

extern "C" void *LUM_CALLOC_BEHIND(size_t count, size_t size);

extern "C" void *calloc(size_t count, size_t size) noexcept {
  return refuses_thread_ends ? nullptr : LUM_CALLOC_BEHIND(count, size);
}

extern "C" int pthread_setspecific(pthread_key_t key, const void *value) noexcept {
  using setter = int (*)(pthread_key_t, const void *);
  static const auto real = reinterpret_cast<setter>(dlsym(RTLD_NEXT, "pthread_setspecific"));
  return refuses_thread_ends && !LUM_IS_SANITIZERS_KEY(key) ? ENOMEM : real(key, value);
}

#endif
