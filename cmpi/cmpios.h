/*
 * Operating-system glue of the provider interface for Linux and other POSIX systems: the
 * handle types the broker's thread services hand out and the linkage markers a provider library
 * puts on the entry points the object manager looks up with dlsym.
 */
#ifndef DIAGCORE_CMPI_CMPIOS_H
#define DIAGCORE_CMPI_CMPIOS_H

/* Only the GNU/Linux flavour is supported; declare it so that code testing for it sees it. */
#if !defined(CMPI_PLATFORM_LINUX_GENERIC_GNU) && defined(__linux__)
#define CMPI_PLATFORM_LINUX_GENERIC_GNU 1
#endif

#include <pthread.h>
#include <stddef.h>
#include <stdlib.h>

/* Threads, mutexes and conditions are opaque pointers owned by the broker. */
#define CMPI_THREAD_TYPE void*
#define CMPI_MUTEX_TYPE void*
#define CMPI_COND_TYPE void*

/* A thread body returns a pointer, exactly like a pthread start routine. */
#define CMPI_THREAD_RETURN void*

/* No special calling convention on this platform. */
#define CMPI_THREAD_CDECL

/* Thread-local keys are plain pthread keys. */
#define CMPI_THREAD_KEY_TYPE pthread_key_t

/* Makes a symbol visible outside the provider library even when it is built with
   -fvisibility=hidden. */
#if defined(__GNUC__) && (__GNUC__ >= 4)
#define CMPI_EXPORT __attribute__((visibility("default")))
#define CMPI_IMPORT __attribute__((visibility("default")))
#else
#define CMPI_EXPORT
#define CMPI_IMPORT
#endif

/* Marks the MI factory functions: C linkage so that the object manager finds the unmangled name,
   and exported. */
#ifdef __cplusplus
#define CMPI_EXTERN_C extern "C" CMPI_EXPORT
#else
#define CMPI_EXTERN_C CMPI_EXPORT
#endif

#endif /* DIAGCORE_CMPI_CMPIOS_H */
