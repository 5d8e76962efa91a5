/* SPDX-License-Identifier: MIT */
/* Preloaded into a program (LD_PRELOAD): makes the n-th call of one function fail.
 *
 *   FAIL_CALL=write FAIL_AT=3 FAIL_ERRNO=28   the third write fails with ENOSPC; errno -1: a short
 *                                             one
 *   FAIL_FOREVER=1                            and every later call of it
 *   FAIL_COUNTS=FILE                          at the end, one line "NAME COUNT" for each function
 *
 * Counted from the start of main on. Only calls through the dynamic linker are seen: those of the
 * program and of the C++ library, and those of the C library to malloc.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <spawn.h>
#include <stdarg.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

enum {
  OPEN,
  READ,
  WRITE,
  FSYNC,
  FDATASYNC,
  RENAME,
  FTRUNCATE,
  MMAP,
  POLL,
  CLONE,
  ACCEPT,
  RECEIVE,
  SEND,
  MALLOC,
  FUNCTIONS
};

static const char* const names[FUNCTIONS] = {
    "open", "read",  "write",  "fsync",   "fdatasync", "rename", "ftruncate",
    "mmap", "poll",  "clone",  "accept",  "receive",   "send",   "malloc"};
static atomic_long counts[FUNCTIONS];
static int failing = -1;
static long failing_at;
static int failing_errno;
static int failing_forever;
static const char* counts_path;
static int running;

__attribute__((constructor)) static void begin(void) {
  const char* call = getenv("FAIL_CALL");
  for (int i = 0; call != NULL && i < FUNCTIONS; ++i) {
    if (strcmp(call, names[i]) == 0) failing = i;
  }
  failing_at = call == NULL ? 0 : atol(getenv("FAIL_AT"));
  failing_errno = call == NULL ? 0 : atoi(getenv("FAIL_ERRNO"));
  failing_forever = getenv("FAIL_FOREVER") != NULL;
  counts_path = getenv("FAIL_COUNTS");
  /* Not for the programs that this one starts. */
  static const char* const own[] = {"LD_PRELOAD", "FAIL_CALL",    "FAIL_AT",
                                    "FAIL_ERRNO", "FAIL_FOREVER", "FAIL_COUNTS"};
  for (size_t i = 0; i < sizeof own / sizeof *own; ++i) unsetenv(own[i]);
}

__attribute__((destructor)) static void end(void) {
  running = 0;
  if (counts_path == NULL) return;
  FILE* file = fopen(counts_path, "w");
  if (file == NULL) return;
  for (int i = 0; i < FUNCTIONS; ++i) fprintf(file, "%s %ld\n", names[i], atomic_load(&counts[i]));
  fclose(file);
}

/* Whether this call fails; sets errno. */
static int fails(int function) {
  if (!running) return 0;
  const long number = atomic_fetch_add(&counts[function], 1) + 1;
  if (function != failing || number < failing_at) return 0;
  if (number > failing_at && !failing_forever) return 0;
  errno = failing_errno;
  return 1;
}

/* The same for a function that returns the number of the error. */
static int error_of(int function) { return fails(function) ? failing_errno : 0; }

typedef FILE* (*open_file)(const char*, const char*);
typedef size_t (*write_file)(const void*, size_t, size_t, FILE*);

static void* next_of(const char* name) { return dlsym(RTLD_NEXT, name); }

int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  if (fails(OPEN)) return -1;
  return (int)syscall(SYS_openat, AT_FDCWD, path, flags, mode);
}

int open64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  if (fails(OPEN)) return -1;
  return (int)syscall(SYS_openat, AT_FDCWD, path, flags | O_LARGEFILE, mode);
}

FILE* fopen64(const char* path, const char* mode) {
  static open_file real;
  if (real == NULL) real = (open_file)next_of("fopen64");
  return fails(OPEN) ? NULL : real(path, mode);
}

ssize_t read(int descriptor, void* bytes, size_t count) {
  if (fails(READ)) return -1;
  return syscall(SYS_read, descriptor, bytes, count);
}

ssize_t pread64(int descriptor, void* bytes, size_t count, off64_t offset) {
  if (fails(READ)) return -1;
  return syscall(SYS_pread64, descriptor, bytes, count, offset);
}

ssize_t pread(int descriptor, void* bytes, size_t count, off_t offset) {
  return pread64(descriptor, bytes, count, offset);
}

ssize_t write(int descriptor, const void* bytes, size_t count) {
  if (fails(WRITE)) {
    if (errno != -1) return -1;
    count = (count + 1) / 2;
  }
  return syscall(SYS_write, descriptor, bytes, count);
}

size_t fwrite(const void* bytes, size_t size, size_t count, FILE* file) {
  static write_file real;
  if (real == NULL) real = (write_file)next_of("fwrite");
  if (fails(WRITE)) return 0;
  return real(bytes, size, count, file);
}

int fsync(int descriptor) { return fails(FSYNC) ? -1 : (int)syscall(SYS_fsync, descriptor); }

int fdatasync(int descriptor) {
  return fails(FDATASYNC) ? -1 : (int)syscall(SYS_fdatasync, descriptor);
}

int rename(const char* from, const char* to) {
  return fails(RENAME) ? -1 : (int)syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0);
}

int renameat2(int from_folder, const char* from, int to_folder, const char* to, unsigned flags) {
  return fails(RENAME) ? -1 : (int)syscall(SYS_renameat2, from_folder, from, to_folder, to, flags);
}

int ftruncate(int descriptor, off_t length) {
  return fails(FTRUNCATE) ? -1 : (int)syscall(SYS_ftruncate, descriptor, length);
}

void* mmap(void* address, size_t length, int protection, int flags, int descriptor, off_t offset) {
  if (fails(MMAP)) return MAP_FAILED;
  return (void*)syscall(SYS_mmap, address, length, protection, flags, descriptor, offset);
}

int poll(struct pollfd* descriptors, nfds_t count, int timeout) {
  if (fails(POLL)) return -1;
  const struct timespec limit = {timeout / 1000, timeout % 1000 * 1000000L};
  return (int)syscall(SYS_ppoll, descriptors, count, timeout < 0 ? NULL : &limit, NULL, 0);
}

int epoll_wait(int descriptor, struct epoll_event* events, int count, int timeout) {
  if (fails(POLL)) return -1;
  return (int)syscall(SYS_epoll_pwait, descriptor, events, count, timeout, NULL, 0);
}

int accept(int descriptor, struct sockaddr* address, socklen_t* length) {
  if (fails(ACCEPT)) return -1;
  return (int)syscall(SYS_accept4, descriptor, address, length, 0);
}

ssize_t recv(int descriptor, void* bytes, size_t count, int flags) {
  if (fails(RECEIVE)) return -1;
  return syscall(SYS_recvfrom, descriptor, bytes, count, flags, NULL, NULL);
}

ssize_t recvmsg(int descriptor, struct msghdr* message, int flags) {
  return fails(RECEIVE) ? -1 : syscall(SYS_recvmsg, descriptor, message, flags);
}

ssize_t send(int descriptor, const void* bytes, size_t count, int flags) {
  if (fails(SEND)) return -1;
  return syscall(SYS_sendto, descriptor, bytes, count, flags, NULL, 0);
}

ssize_t sendmsg(int descriptor, const struct msghdr* message, int flags) {
  return fails(SEND) ? -1 : syscall(SYS_sendmsg, descriptor, message, flags);
}

typedef int (*create_thread)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
typedef int (*spawn_program)(pid_t*, const char*, const posix_spawn_file_actions_t*,
                             const posix_spawnattr_t*, char* const*, char* const*);

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) {
  static create_thread real;
  if (real == NULL) real = (create_thread)next_of("pthread_create");
  const int error = error_of(CLONE);
  return error != 0 ? error : real(thread, attributes, body, argument);
}

int posix_spawnp(pid_t* child, const char* file, const posix_spawn_file_actions_t* actions,
                 const posix_spawnattr_t* attributes, char* const arguments[],
                 char* const environment[]) {
  static spawn_program real;
  if (real == NULL) real = (spawn_program)next_of("posix_spawnp");
  const int error = error_of(CLONE);
  return error != 0 ? error : real(child, file, actions, attributes, arguments, environment);
}

typedef int (*main_function)(int, char**, char**);
typedef int (*start_function)(main_function, int, char**, void (*)(void), void (*)(void),
                              void (*)(void), void*);
static main_function program;

static int counted_main(int count, char** arguments, char** environment) {
  running = 1;
  return program(count, arguments, environment);
}

int __libc_start_main(main_function main, int count, char** arguments, void (*init)(void),
                      void (*fini)(void), void (*unload)(void), void* stack) {
  program = main;
  const start_function start = (start_function)next_of("__libc_start_main");
  return start(counted_main, count, arguments, init, fini, unload, stack);
}

extern void* __libc_malloc(size_t size);
extern void* __libc_calloc(size_t count, size_t size);
extern void* __libc_realloc(void* memory, size_t size);
extern void* __libc_memalign(size_t alignment, size_t size);

void* malloc(size_t size) { return fails(MALLOC) ? NULL : __libc_malloc(size); }

void* calloc(size_t count, size_t size) {
  return fails(MALLOC) ? NULL : __libc_calloc(count, size);
}

void* realloc(void* memory, size_t size) {
  return fails(MALLOC) ? NULL : __libc_realloc(memory, size);
}

void* aligned_alloc(size_t alignment, size_t size) {
  return fails(MALLOC) ? NULL : __libc_memalign(alignment, size);
}
