// SPDX-License-Identifier: MIT
#include <tests/schedules/files.h>

#include <tests/schedules/virtual_time.h>

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace {

using schedules::FileFaults;

bool isFaulty(int descriptor) {
  if (FileFaults::full + FileFaults::interrupted + FileFaults::shortened == 0) return false;
  struct stat status {};
  return schedules::VirtualTime::driving() && ::fstat(descriptor, &status) == 0 &&
         S_ISREG(status.st_mode);
}

bool interrupts(int descriptor) {
  if (FileFaults::interrupted == 0 || !isFaulty(descriptor)) return false;
  --FileFaults::interrupted;
  errno = EINTR;
  return true;
}

// The power is never lost here, and a disk takes longer than the rest of a schedule.
int synchronized(long call, int descriptor) {
  if (schedules::VirtualTime::started()) return 0;
  return static_cast<int>(::syscall(call, descriptor));
}

}  // namespace

extern "C" {

ssize_t write(int descriptor, const void* bytes, std::size_t count) {
  if (interrupts(descriptor)) return -1;
  if (FileFaults::full > 0 && isFaulty(descriptor)) {
    errno = ENOSPC;
    return -1;
  }
  if (FileFaults::shortened > 0 && count > 1 && isFaulty(descriptor)) {
    --FileFaults::shortened;
    count /= 2;
  }
  return ::syscall(SYS_write, descriptor, bytes, count);
}

int fdatasync(int descriptor) {
  if (interrupts(descriptor)) return -1;
  return synchronized(SYS_fdatasync, descriptor);
}

int fsync(int descriptor) {
  if (interrupts(descriptor)) return -1;
  return synchronized(SYS_fsync, descriptor);
}

int ftruncate(int descriptor, off_t length) noexcept {
  if (interrupts(descriptor)) return -1;
  return static_cast<int>(::syscall(SYS_ftruncate, descriptor, length));
}

}  // extern "C"
