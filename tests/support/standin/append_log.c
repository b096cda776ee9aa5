/*
 * Preloaded into the wineserver (LD_PRELOAD), which opens all files of a prefix. On Windows a handle with append access
 * writes at the end of the file as one step; Wine seeks and writes as two, so lines of two processes can overwrite each
 * other. Opening the log with O_APPEND lets the Linux kernel give the Windows promise.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <stdarg.h>
#include <string.h>
#include <strings.h>
#include <sys/types.h>

static int with_append(const char* path, int flags) {
    static const char suffix[] = "trace.log";
    const size_t suffix_length = sizeof suffix - 1;
    const size_t length = path ? strlen(path) : 0;
    if ((flags & O_ACCMODE) == O_RDONLY || length < suffix_length)
        return flags;
    return strcasecmp(path + length - suffix_length, suffix) == 0 ? flags | O_APPEND : flags;
}

static mode_t mode_of(int flags, va_list arguments) {
    return flags & (O_CREAT | O_TMPFILE) ? va_arg(arguments, mode_t) : 0;
}

#define DEFINE_OPEN(name)                                  \
    int name(const char* path, int flags, ...) {           \
        static int (*real)(const char*, int, ...);         \
        va_list arguments;                                 \
        mode_t mode;                                       \
        if (!real)                                         \
            *(void**)&real = dlsym(RTLD_NEXT, #name);      \
        va_start(arguments, flags);                        \
        mode = mode_of(flags, arguments);                  \
        va_end(arguments);                                 \
        return real(path, with_append(path, flags), mode); \
    }

#define DEFINE_OPENAT(name)                                           \
    int name(int directory, const char* path, int flags, ...) {       \
        static int (*real)(int, const char*, int, ...);               \
        va_list arguments;                                            \
        mode_t mode;                                                  \
        if (!real)                                                    \
            *(void**)&real = dlsym(RTLD_NEXT, #name);                 \
        va_start(arguments, flags);                                   \
        mode = mode_of(flags, arguments);                             \
        va_end(arguments);                                            \
        return real(directory, path, with_append(path, flags), mode); \
    }

DEFINE_OPEN(open)
DEFINE_OPEN(open64)
DEFINE_OPENAT(openat)
DEFINE_OPENAT(openat64)
