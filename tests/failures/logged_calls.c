/* SPDX-License-Identifier: MIT */
/* Preloaded into a program (LD_PRELOAD): logs what it does to the files below a folder.
 *
 *   LOG_FOLDER=/tmp/folder LOG_FILE=/tmp/log
 *
 * Each entry is a line, followed by as many bytes as it says:
 *
 *   open FD CREATED PATH      write FD BYTES      truncate FD LENGTH     close FD
 *   sync FD BYTES             the content at that time; 0 bytes for a directory
 *   rename FROM TO            exchange FROM TO    unlink PATH            mkdir PATH
 *
 * Only calls through the dynamic linker are seen. What the C library's streams write is known from
 * the content at the next sync.
 */
#define _GNU_SOURCE
#include <fcntl.h>
#include <linux/fs.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

enum { DESCRIPTORS = 1024 };

static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
static int log_descriptor = -1;
static const char* folder;
static char ours[DESCRIPTORS]; /* descriptors of files below the folder */

__attribute__((constructor)) static void begin(void) {
  folder = getenv("LOG_FOLDER");
  const char* log = getenv("LOG_FILE");
  if (folder == NULL || log == NULL) return;
  const int low = (int)syscall(SYS_openat, AT_FDCWD, log, O_WRONLY | O_CREAT | O_TRUNC, 0600);
  log_descriptor = fcntl(low, F_DUPFD_CLOEXEC, 900); /* out of the way */
  syscall(SYS_close, low);
}

static int is_ours(const char* path) {
  return log_descriptor >= 0 && strncmp(path, folder, strlen(folder)) == 0;
}

static int is_open(int descriptor) {
  return log_descriptor >= 0 && descriptor >= 0 && descriptor < DESCRIPTORS && ours[descriptor];
}

static void put(const void* bytes, size_t count) {
  syscall(SYS_write, log_descriptor, bytes, count);
}

static void note(const char* format, ...) __attribute__((format(printf, 1, 2)));
static void note(const char* format, ...) {
  char line[9000];
  va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  put(line, (size_t)length);
}

static int logged_open(const char* path, int flags, mode_t mode) {
  const int ours_now = is_ours(path);
  if (ours_now) pthread_mutex_lock(&mutex);
  const int existed = ours_now && access(path, F_OK) == 0;
  const int descriptor = (int)syscall(SYS_openat, AT_FDCWD, path, flags, mode);
  if (ours_now && descriptor >= 0 && descriptor < DESCRIPTORS) {
    ours[descriptor] = 1;
    note("open %d %d %s\n", descriptor, !existed, path);
  }
  if (ours_now) pthread_mutex_unlock(&mutex);
  return descriptor;
}

int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return logged_open(path, flags, mode);
}

int open64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return logged_open(path, flags, mode);
}

int close(int descriptor) {
  if (is_open(descriptor)) {
    pthread_mutex_lock(&mutex);
    ours[descriptor] = 0;
    note("close %d\n", descriptor);
    pthread_mutex_unlock(&mutex);
  }
  return (int)syscall(SYS_close, descriptor);
}

ssize_t write(int descriptor, const void* bytes, size_t count) {
  if (!is_open(descriptor)) return syscall(SYS_write, descriptor, bytes, count);
  pthread_mutex_lock(&mutex);
  const ssize_t written = syscall(SYS_write, descriptor, bytes, count);
  if (written > 0) {
    note("write %d %zd\n", descriptor, written);
    put(bytes, (size_t)written);
  }
  pthread_mutex_unlock(&mutex);
  return written;
}

int ftruncate(int descriptor, off_t length) {
  const int result = (int)syscall(SYS_ftruncate, descriptor, length);
  if (result == 0 && is_open(descriptor)) {
    pthread_mutex_lock(&mutex);
    note("truncate %d %ld\n", descriptor, (long)length);
    pthread_mutex_unlock(&mutex);
  }
  return result;
}

static int logged_sync(int number, int descriptor) {
  if (!is_open(descriptor)) return (int)syscall(number, descriptor);
  pthread_mutex_lock(&mutex);
  const int result = (int)syscall(number, descriptor);
  struct stat status;
  if (result == 0 && fstat(descriptor, &status) == 0) {
    const size_t size = S_ISREG(status.st_mode) ? (size_t)status.st_size : 0;
    char name[64];
    snprintf(name, sizeof name, "/proc/self/fd/%d", descriptor);
    const int again = (int)syscall(SYS_openat, AT_FDCWD, name, O_RDONLY, 0);
    char* content = malloc(size + 1);
    const ssize_t read_back = size == 0 ? 0 : syscall(SYS_pread64, again, content, size, 0);
    note("sync %d %zd\n", descriptor, read_back);
    put(content, (size_t)read_back);
    free(content);
    syscall(SYS_close, again);
  }
  pthread_mutex_unlock(&mutex);
  return result;
}

int fsync(int descriptor) { return logged_sync(SYS_fsync, descriptor); }

int fdatasync(int descriptor) { return logged_sync(SYS_fdatasync, descriptor); }

static int logged_rename(const char* from, const char* to, unsigned flags) {
  pthread_mutex_lock(&mutex);
  const int result = (int)syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, flags);
  if (result == 0 && is_ours(to)) {
    note("%s %s %s\n", (flags & RENAME_EXCHANGE) != 0 ? "exchange" : "rename", from, to);
  }
  pthread_mutex_unlock(&mutex);
  return result;
}

int rename(const char* from, const char* to) { return logged_rename(from, to, 0); }

int renameat2(int from_folder, const char* from, int to_folder, const char* to, unsigned flags) {
  (void)from_folder; /* the program uses AT_FDCWD */
  (void)to_folder;
  return logged_rename(from, to, flags);
}

int unlink(const char* path) {
  pthread_mutex_lock(&mutex);
  const int result = (int)syscall(SYS_unlinkat, AT_FDCWD, path, 0);
  if (result == 0 && is_ours(path)) note("unlink %s\n", path);
  pthread_mutex_unlock(&mutex);
  return result;
}

int mkdir(const char* path, mode_t mode) {
  pthread_mutex_lock(&mutex);
  const int result = (int)syscall(SYS_mkdirat, AT_FDCWD, path, mode);
  if (result == 0 && is_ours(path)) note("mkdir %s\n", path);
  pthread_mutex_unlock(&mutex);
  return result;
}
