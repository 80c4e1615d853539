/*
 * Loaded with LD_PRELOAD, it counts the calls by which one program changes the world - files, folders, sockets - and
 * kills the program at the n-th of them, or makes that call fail. The driver beside it tells what the variables mean
 * by using them:
 *
 *   DRILL_PROGRAM=name        the only program that is counted: the file name behind /proc/self/exe
 *   DRILL_COUNT=file          the total is appended at the end, also at an _exit
 *   DRILL_TRACE=file          one line for every counted call, written before it is made
 *   DRILL_KILL_BEFORE=n       SIGKILL instead of the n-th call; DRILL_KILL_AFTER=n: right after it
 *   DRILL_FAIL=n:ERRNO        the n-th call fails; DRILL_FAIL_EVERY=n:ERRNO: every n-th
 *   DRILL_SHORT=n             the n-th call, where it writes, writes half
 *   DRILL_FULL_DISK=n         from the n-th call on there is no more space than what is given back
 *
 * An error is only given to a call that can return it in life: no rename is interrupted and no socket is full. Calls
 * on standard output and standard error are not counted, nor is anything between a fork and an exec. Most calls go to
 * the kernel directly, so that they need no look-up and are as safe in a signal handler as before.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdarg.h>
#include <stdatomic.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

/* What a call may fail with, and how it is treated on a full disk. */
enum Trait {
    takesSpace = 1,    /* ENOSPC */
    touchesDisk = 2,   /* EIO */
    interruptible = 4, /* EINTR */
    writesBytes = 8,   /* can be short */
};

struct Fault {
    long number;
    int code;
};

static bool counting;
static pid_t process;
static atomic_long calls;
static long killBefore, killAfter, shortCall, fullFrom;
static struct Fault failOnce, failEvery;
static atomic_long space; /* Bytes given back on a disk that is full. */
static int traceFile = -1;
static char countPath[PATH_MAX];
static int (*realMkostemp)(char*, int);
static int (*realPosixFallocate)(int, off_t, off_t);

static long raw(long number, long a, long b, long c, long d, long e, long f) {
    return syscall(number, a, b, c, d, e, f); /* Sets errno. */
}
#define RAW(number, ...) RAW_(number, __VA_ARGS__, 0, 0, 0, 0, 0, 0)
#define RAW_(number, a, b, c, d, e, f, ...)                                                                            \
    raw(SYS_##number, (long)(a), (long)(b), (long)(c), (long)(d), (long)(e), (long)(f))

static long numberFrom(const char* name) {
    const char* value = getenv(name);
    return value ? strtol(value, NULL, 10) : 0;
}

static struct Fault faultFrom(const char* name) {
    struct Fault fault = {0, 0};
    const char* value = getenv(name);
    if (!value) return fault;
    char* rest = NULL;
    fault.number = strtol(value, &rest, 10);
    if (strcmp(rest, ":ENOSPC") == 0) fault.code = ENOSPC;
    if (strcmp(rest, ":EIO") == 0) fault.code = EIO;
    if (strcmp(rest, ":EINTR") == 0) fault.code = EINTR;
    if (fault.code == 0) fault.number = 0;
    return fault;
}

__attribute__((constructor)) static void start(void) {
    const char* wanted = getenv("DRILL_PROGRAM");
    char own[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", own, sizeof own - 1);
    if (!wanted || length <= 0) return;
    own[length] = '\0';
    const char* slash = strrchr(own, '/');
    if (!slash || strcmp(slash + 1, wanted) != 0) return;
    *(void**)&realMkostemp = dlsym(RTLD_NEXT, "mkostemp");
    *(void**)&realPosixFallocate = dlsym(RTLD_NEXT, "posix_fallocate");
    killBefore = numberFrom("DRILL_KILL_BEFORE");
    killAfter = numberFrom("DRILL_KILL_AFTER");
    shortCall = numberFrom("DRILL_SHORT");
    fullFrom = numberFrom("DRILL_FULL_DISK");
    failOnce = faultFrom("DRILL_FAIL");
    failEvery = faultFrom("DRILL_FAIL_EVERY");
    const char* path = getenv("DRILL_COUNT");
    if (path && strlen(path) < sizeof countPath) strcpy(countPath, path);
    path = getenv("DRILL_TRACE");
    if (path) traceFile = (int)RAW(openat, AT_FDCWD, path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    process = getpid();
    counting = true;
}

static void reportTotal(void) {
    if (!counting || !countPath[0] || getpid() != process) return;
    char line[32];
    const int length = snprintf(line, sizeof line, "%ld\n", atomic_load(&calls));
    const int file = (int)RAW(openat, AT_FDCWD, countPath, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    countPath[0] = '\0'; /* An exit ends in an _exit. */
    if (file < 0) return;
    (void)!RAW(write, file, line, length);
    RAW(close, file);
}

__attribute__((destructor)) static void end(void) { reportTotal(); }

static void killSelf(void) {
    for (;;) RAW(kill, process, SIGKILL);
}

/* What can happen to a call on this descriptor: what is no file or folder has no disk below it, and an event counter
 * or a timer takes its eight bytes whole and at once. */
static unsigned onFile(int file, unsigned traits) {
    struct stat info;
    if (fstat(file, &info) != 0 || (info.st_mode & S_IFMT) == 0) return 0;
    const bool onDisk = S_ISREG(info.st_mode) || S_ISDIR(info.st_mode);
    return onDisk ? traits : traits & ~(unsigned)(takesSpace | touchesDisk);
}

static void trace(long number, const char* name, unsigned traits, int file, const char* path) {
    if (traceFile < 0) return;
    char line[PATH_MAX + 128];
    char link[32];
    char target[PATH_MAX] = "";
    if (!path && file >= 0) {
        snprintf(link, sizeof link, "/proc/self/fd/%d", file);
        const ssize_t length = readlink(link, target, sizeof target - 1);
        target[length > 0 ? length : 0] = '\0';
        path = target;
    }
    const int length =
        snprintf(line, sizeof line, "%ld %s %s%s%s%s- %.*s\n", number, name, traits & takesSpace ? "n" : "",
                 traits & touchesDisk ? "i" : "", traits & interruptible ? "r" : "", traits & writesBytes ? "w" : "",
                 PATH_MAX - 1, path ? path : "");
    (void)!RAW(write, traceFile, line, length);
}

static bool mayFailWith(unsigned traits, int code) {
    return (code == ENOSPC && traits & takesSpace) || (code == EIO && traits & touchesDisk)
           || (code == EINTR && traits & interruptible);
}

struct Call {
    long number; /* 0 where nothing is counted. */
    int code;    /* The error it is to fail with. */
    bool halved;
};

static struct Call begin(const char* name, unsigned traits, int file, const char* path) {
    struct Call call = {0, 0, false};
    if (!counting || file == STDOUT_FILENO || file == STDERR_FILENO || getpid() != process) return call;
    const int before = errno;
    if (file >= 0) traits = onFile(file, traits);
    call.number = atomic_fetch_add(&calls, 1) + 1;
    trace(call.number, name, traits, file, path);
    errno = before;
    if (call.number == killBefore) killSelf();
    if (call.number == failOnce.number && mayFailWith(traits, failOnce.code)) call.code = failOnce.code;
    if (failEvery.number && call.number % failEvery.number == 0 && mayFailWith(traits, failEvery.code))
        call.code = failEvery.code;
    call.halved = call.number == shortCall && traits & writesBytes;
    return call;
}

static long finish(struct Call call, long result) {
    if (call.number && call.number == killAfter) killSelf();
    return result;
}

static long fail(struct Call call, int code) {
    errno = code;
    return finish(call, -1);
}

static bool isDiskFull(struct Call call) { return fullFrom && call.number >= fullFrom; }

/* What a new name costs on a disk where also that takes a block. */
static const long entrySize = 4096;

static bool takeSpace(long bytes) {
    long left = atomic_load(&space);
    do
        if (left < bytes) return false;
    while (!atomic_compare_exchange_weak(&space, &left, left - bytes));
    return true;
}

static void giveBack(const struct stat* info) {
    if (S_ISREG(info->st_mode) && info->st_nlink <= 1) atomic_fetch_add(&space, info->st_blocks * 512L);
}

/* How many of the bytes find room; the others would make the file longer than it is. `at` is -1 for the position that
 * the descriptor stands at. */
static size_t roomFor(struct Call call, int file, off_t at, size_t bytes) {
    struct stat info;
    if (!isDiskFull(call) || fstat(file, &info) != 0 || !S_ISREG(info.st_mode)) return bytes;
    if (at < 0) at = fcntl(file, F_GETFL) & O_APPEND ? info.st_size : lseek(file, 0, SEEK_CUR);
    const off_t grown = at + (off_t)bytes - info.st_size;
    if (grown <= 0 || takeSpace(grown)) return bytes;
    return grown >= (off_t)bytes ? 0 : bytes - (size_t)grown;
}

/* The vector cut to so many bytes. */
enum { mostPieces = 64 };
static int cut(struct iovec* to, const struct iovec* from, int count, size_t bytes) {
    int used = 0;
    for (; used < count && used < mostPieces && bytes > 0; ++used) {
        to[used] = from[used];
        if (to[used].iov_len > bytes) to[used].iov_len = bytes;
        bytes -= to[used].iov_len;
    }
    return used;
}

static size_t total(const struct iovec* pieces, size_t count) {
    size_t bytes = 0;
    for (size_t i = 0; i < count; ++i) bytes += pieces[i].iov_len;
    return bytes;
}

/* How many bytes the call is to write; 0 when the disk takes none of them. */
static size_t allowed(struct Call call, int file, off_t at, size_t bytes) {
    return call.halved && bytes > 1 ? bytes / 2 : roomFor(call, file, at, bytes);
}

static const unsigned writing = takesSpace | touchesDisk | interruptible | writesBytes;

ssize_t write(int file, const void* bytes, size_t length) {
    const struct Call call = begin("write", writing, file, NULL);
    if (call.code) return fail(call, call.code);
    const size_t fits = call.number ? allowed(call, file, -1, length) : length;
    if (fits == 0 && length > 0) return fail(call, ENOSPC);
    return finish(call, RAW(write, file, bytes, fits));
}

ssize_t pwrite64(int file, const void* bytes, size_t length, off64_t at) {
    const struct Call call = begin("pwrite", writing, file, NULL);
    if (call.code) return fail(call, call.code);
    const size_t fits = call.number ? allowed(call, file, at, length) : length;
    if (fits == 0 && length > 0) return fail(call, ENOSPC);
    return finish(call, RAW(pwrite64, file, bytes, fits, at));
}
ssize_t pwrite(int file, const void* bytes, size_t length, off_t at) { return pwrite64(file, bytes, length, at); }

static ssize_t writePieces(const char* name, int file, const struct iovec* pieces, int count, off_t at, bool placed) {
    const struct Call call = begin(name, writing, file, NULL);
    if (call.code) return fail(call, call.code);
    struct iovec shorter[mostPieces];
    if (call.number) {
        const size_t bytes = total(pieces, (size_t)count);
        const size_t fits = allowed(call, file, placed ? at : -1, bytes);
        if (fits == 0 && bytes > 0) return fail(call, ENOSPC);
        if (fits < bytes) {
            count = cut(shorter, pieces, count, fits);
            pieces = shorter;
        }
    }
    return finish(call, placed ? RAW(pwritev, file, pieces, count, at, 0) : RAW(writev, file, pieces, count));
}
ssize_t writev(int file, const struct iovec* pieces, int count) {
    return writePieces("writev", file, pieces, count, 0, false);
}
ssize_t pwritev(int file, const struct iovec* pieces, int count, off_t at) {
    return writePieces("pwritev", file, pieces, count, at, true);
}
ssize_t pwritev64(int file, const struct iovec* pieces, int count, off64_t at) {
    return writePieces("pwritev", file, pieces, count, at, true);
}

int fsync(int file) {
    const struct Call call = begin("fsync", takesSpace | touchesDisk | interruptible, file, NULL);
    if (call.code) return (int)fail(call, call.code);
    return (int)finish(call, RAW(fsync, file));
}
int fdatasync(int file) {
    const struct Call call = begin("fdatasync", takesSpace | touchesDisk | interruptible, file, NULL);
    if (call.code) return (int)fail(call, call.code);
    return (int)finish(call, RAW(fdatasync, file));
}

int ftruncate64(int file, off64_t length) {
    const struct Call call = begin("ftruncate", touchesDisk | interruptible, file, NULL);
    if (call.code) return (int)fail(call, call.code);
    struct stat info;
    if (isDiskFull(call) && fstat(file, &info) == 0 && length < info.st_size)
        atomic_fetch_add(&space, info.st_size - length);
    return (int)finish(call, RAW(ftruncate, file, length)); /* Growing by it takes no space: a hole. */
}
int ftruncate(int file, off_t length) { return ftruncate64(file, length); }

int renameat(int fromFolder, const char* from, int toFolder, const char* to) {
    const struct Call call = begin("rename", takesSpace | touchesDisk, -1, to);
    if (call.code) return (int)fail(call, call.code);
    struct stat replaced;
    const bool replaces = isDiskFull(call) && fstatat(toFolder, to, &replaced, AT_SYMLINK_NOFOLLOW) == 0;
    const long result = RAW(renameat2, fromFolder, from, toFolder, to, 0);
    if (result == 0 && replaces) giveBack(&replaced);
    return (int)finish(call, result);
}
int rename(const char* from, const char* to) { return renameat(AT_FDCWD, from, AT_FDCWD, to); }

int unlink(const char* path) {
    const struct Call call = begin("unlink", touchesDisk, -1, path);
    if (call.code) return (int)fail(call, call.code);
    struct stat removed;
    const bool known = isDiskFull(call) && lstat(path, &removed) == 0;
    const long result = RAW(unlinkat, AT_FDCWD, path, 0);
    if (result == 0 && known) giveBack(&removed);
    return (int)finish(call, result);
}

static bool isWriting(int flags) {
    return flags & O_CREAT || (flags & O_ACCMODE) != O_RDONLY || (flags & O_TMPFILE) == O_TMPFILE;
}

static int openFile(int folder, const char* path, int flags, mode_t mode) {
    if (!isWriting(flags)) return (int)RAW(openat, folder, path, flags, mode);
    const bool creates = flags & O_CREAT || (flags & O_TMPFILE) == O_TMPFILE;
    /* A pipe or a device has no disk; a file that is only opened again takes no space. */
    struct stat info;
    const bool known = counting && fstatat(folder, path, &info, 0) == 0;
    unsigned traits = touchesDisk | interruptible | (creates ? takesSpace : 0u);
    if (known && S_ISREG(info.st_mode)) traits &= ~(unsigned)takesSpace;
    if (known && !S_ISREG(info.st_mode) && !S_ISDIR(info.st_mode)) traits = interruptible;
    const struct Call call = begin("open", traits, -1, path);
    if (call.code) return (int)fail(call, call.code);
    if (isDiskFull(call) && traits & takesSpace && !takeSpace(entrySize)) return (int)fail(call, ENOSPC);
    const long result = RAW(openat, folder, path, flags, mode);
    if (result >= 0 && isDiskFull(call) && known && flags & O_TRUNC) giveBack(&info);
    return (int)finish(call, result);
}

/* The mode stands there only where a file may be made. */
static mode_t modeOf(int flags, va_list* rest) {
    return flags & O_CREAT || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(*rest, mode_t) : 0;
}
int open(const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = modeOf(flags, &rest);
    va_end(rest);
    return openFile(AT_FDCWD, path, flags, mode);
}
int open64(const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = modeOf(flags, &rest);
    va_end(rest);
    return openFile(AT_FDCWD, path, flags, mode);
}
int openat(int folder, const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = modeOf(flags, &rest);
    va_end(rest);
    return openFile(folder, path, flags, mode);
}
int openat64(int folder, const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = modeOf(flags, &rest);
    va_end(rest);
    return openFile(folder, path, flags, mode);
}
/* What open becomes in a program that was built with checks. */
int __open_2(const char* path, int flags) { return openFile(AT_FDCWD, path, flags, 0); }
int __open64_2(const char* path, int flags) { return openFile(AT_FDCWD, path, flags, 0); }
int __openat_2(int folder, const char* path, int flags) { return openFile(folder, path, flags, 0); }
int __openat64_2(int folder, const char* path, int flags) { return openFile(folder, path, flags, 0); }
int creat(const char* path, mode_t mode) { return openFile(AT_FDCWD, path, O_CREAT | O_WRONLY | O_TRUNC, mode); }
int creat64(const char* path, mode_t mode) { return openFile(AT_FDCWD, path, O_CREAT | O_WRONLY | O_TRUNC, mode); }

/* A new name in a folder: no interruption there, and on a full disk no room. */
static bool isRefused(struct Call* call, const char* name, const char* path) {
    *call = begin(name, takesSpace | touchesDisk, -1, path);
    if (!call->code && isDiskFull(*call) && !takeSpace(entrySize)) call->code = ENOSPC;
    return call->code != 0;
}

int mkdirat(int folder, const char* path, mode_t mode) {
    struct Call call;
    if (isRefused(&call, "mkdir", path)) return (int)fail(call, call.code);
    return (int)finish(call, RAW(mkdirat, folder, path, mode));
}
int mkdir(const char* path, mode_t mode) { return mkdirat(AT_FDCWD, path, mode); }

int mkostemp(char* pattern, int flags) {
    struct Call call;
    if (isRefused(&call, "mkostemp", pattern)) return (int)fail(call, call.code);
    /* Not looked up yet, or another program: there the look-up can do no harm. */
    if (!realMkostemp) *(void**)&realMkostemp = dlsym(RTLD_NEXT, "mkostemp");
    return (int)finish(call, realMkostemp(pattern, flags));
}
int mkostemp64(char* pattern, int flags) { return mkostemp(pattern, flags); }
int mkstemp(char* pattern) { return mkostemp(pattern, 0); }
int mkstemp64(char* pattern) { return mkostemp(pattern, 0); }

int linkat(int fromFolder, const char* from, int toFolder, const char* to, int flags) {
    struct Call call;
    if (isRefused(&call, "link", to)) return (int)fail(call, call.code);
    return (int)finish(call, RAW(linkat, fromFolder, from, toFolder, to, flags));
}
int link(const char* from, const char* to) { return linkat(AT_FDCWD, from, AT_FDCWD, to, 0); }
int symlink(const char* target, const char* path) {
    struct Call call;
    if (isRefused(&call, "symlink", path)) return (int)fail(call, call.code);
    return (int)finish(call, RAW(symlinkat, target, AT_FDCWD, path));
}

int fallocate(int file, int mode, off_t from, off_t length) {
    const struct Call call = begin("fallocate", takesSpace | touchesDisk | interruptible, file, NULL);
    if (call.code) return (int)fail(call, call.code);
    if (isDiskFull(call) && roomFor(call, file, from, (size_t)length) < (size_t)length) return (int)fail(call, ENOSPC);
    return (int)finish(call, RAW(fallocate, file, mode, from, length));
}
int fallocate64(int file, int mode, off64_t from, off64_t length) { return fallocate(file, mode, from, length); }
/* This one returns its error. */
int posix_fallocate(int file, off_t from, off_t length) {
    const struct Call call = begin("posix_fallocate", takesSpace | touchesDisk | interruptible, file, NULL);
    if (call.code) return (int)finish(call, call.code);
    if (isDiskFull(call) && roomFor(call, file, from, (size_t)length) < (size_t)length)
        return (int)finish(call, ENOSPC);
    if (!realPosixFallocate) *(void**)&realPosixFallocate = dlsym(RTLD_NEXT, "posix_fallocate");
    return (int)finish(call, realPosixFallocate(file, from, length));
}
int posix_fallocate64(int file, off64_t from, off64_t length) { return posix_fallocate(file, from, length); }

ssize_t sendto(int file, const void* bytes, size_t length, int flags, const struct sockaddr* to, socklen_t size) {
    const struct Call call = begin("send", interruptible | writesBytes, file, NULL);
    if (call.code) return fail(call, call.code);
    if (call.halved && length > 1) length /= 2;
    return finish(call, RAW(sendto, file, bytes, length, flags, to, size));
}
ssize_t send(int file, const void* bytes, size_t length, int flags) {
    return sendto(file, bytes, length, flags, NULL, 0);
}
ssize_t sendmsg(int file, const struct msghdr* message, int flags) {
    const struct Call call = begin("sendmsg", interruptible | writesBytes, file, NULL);
    if (call.code) return fail(call, call.code);
    struct msghdr shorter = *message;
    struct iovec pieces[mostPieces];
    const size_t bytes = total(message->msg_iov, message->msg_iovlen);
    if (call.halved && bytes > 1) {
        shorter.msg_iovlen = (size_t)cut(pieces, message->msg_iov, (int)message->msg_iovlen, bytes / 2);
        shorter.msg_iov = pieces;
    }
    return finish(call, RAW(sendmsg, file, &shorter, flags));
}
int connect(int file, const struct sockaddr* to, socklen_t size) {
    const struct Call call = begin("connect", interruptible, file, NULL);
    if (call.code) return (int)fail(call, call.code);
    return (int)finish(call, RAW(connect, file, to, size));
}

void _exit(int status) {
    reportTotal();
    for (;;) RAW(exit_group, status);
}
void _Exit(int status) { _exit(status); }
