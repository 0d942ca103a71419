// SPDX-License-Identifier: Apache-2.0
// Streams: fopen and its variants, reading and writing.
#include "sim/interpose.h"

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/types.h>

using namespace sim;

namespace {

using OpenFunction = FILE *(const char *, const char *);
using ReopenFunction = FILE *(const char *, const char *, FILE *);
using ReadFunction = size_t(void *, size_t, size_t, FILE *);

constinit Real<OpenFunction> realFopen{"fopen"};
constinit Real<OpenFunction> realFopen64{"fopen64"};
constinit Real<ReopenFunction> realFreopen{"freopen"};
constinit Real<ReopenFunction> realFreopen64{"freopen64"};
constinit Real<int(FILE *)> realFclose{"fclose"};
constinit Real<int(FILE *)> realFileno{"fileno"};
constinit Real<ReadFunction> realFread{"fread"};
constinit Real<size_t(void *, size_t, size_t, size_t, FILE *)> realFreadChk{"__fread_chk"};
constinit Real<char *(char *, int, FILE *)> realFgets{"fgets"};
constinit Real<char *(char *, size_t, int, FILE *)> realFgetsChk{"__fgets_chk"};
constinit Real<ssize_t(char **, size_t *, FILE *)> realGetline{"getline"};
constinit Real<ssize_t(char **, size_t *, int, FILE *)> realGetdelim{"__getdelim"};
constinit Real<size_t(const void *, size_t, size_t, FILE *)> realFwrite{"fwrite"};
constinit Real<int(FILE *)> realFflush{"fflush"};

int flagsOf(const char *mode)
{
    return std::strchr(mode, '+') != nullptr ? O_RDWR : *mode == 'r' ? O_RDONLY : O_WRONLY;
}

// Opens a stream by a translated path. ioctls on the stream of a device node reach the device.
template <class OpenCall> FILE *openThrough(const char *path, const char *mode, bool product, OpenCall call)
{
    followDescription();
    const Translated translated(path);
    if (const int error = beginOpening(translated, flagsOf(mode)); error != 0) {
        return failedWith<FILE *>(error, nullptr);
    }
    FILE *stream = call(translated.c_str());
    if (stream != nullptr) {
        noteOpened(realFileno(stream), translated, product);
    }
    return stream;
}

template <class OpenCall>
FILE *reopenThrough(const char *path, const char *mode, FILE *stream, bool product, OpenCall call)
{
    if (stream != nullptr) {
        closed(realFileno(stream));
    }
    return openThrough(path, mode, product, call);
}

// As the C library does for a failed read or write, so that ferror() reports it.
void setErrorFlag(FILE *stream)
{
    constexpr int kErrorSeen = 0x20; // _IO_ERR_SEEN of the C library's stream flags
    if (stream != nullptr) {
        stream->_flags |= kErrorSeen;
    }
}

} // namespace

SIM_EXPORT FILE *simFopen(const char *path, const char *mode) __asm__("fopen");
SIM_EXPORT FILE *simFopen64(const char *path, const char *mode) __asm__("fopen64");
SIM_EXPORT FILE *simFreopen(const char *path, const char *mode, FILE *stream) __asm__("freopen");
SIM_EXPORT FILE *simFreopen64(const char *path, const char *mode, FILE *stream) __asm__("freopen64");
SIM_EXPORT int simFclose(FILE *stream) __asm__("fclose");
SIM_EXPORT size_t simFread(void *to, size_t size, size_t count, FILE *stream) __asm__("fread");
SIM_EXPORT size_t simFreadChk(void *to, size_t room, size_t size, size_t count, FILE *stream) __asm__("__fread_chk");
SIM_EXPORT char *simFgets(char *to, int size, FILE *stream) __asm__("fgets");
SIM_EXPORT char *simFgetsChk(char *to, size_t room, int size, FILE *stream) __asm__("__fgets_chk");
SIM_EXPORT ssize_t simGetline(char **line, size_t *size, FILE *stream) __asm__("getline");
SIM_EXPORT ssize_t simGetdelim(char **line, size_t *size, int delimiter, FILE *stream) __asm__("getdelim");
SIM_EXPORT ssize_t simGetdelimInner(char **line, size_t *size, int delimiter, FILE *stream) __asm__("__getdelim");
SIM_EXPORT size_t simFwrite(const void *from, size_t size, size_t count, FILE *stream) __asm__("fwrite");
SIM_EXPORT int simFflush(FILE *stream) __asm__("fflush");

extern "C" FILE *simFopen(const char *path, const char *mode)
{
    if (SIM_FAILS(open, "fopen")) {
        return failedWith<FILE *>(EMFILE, nullptr);
    }
    return openThrough(path, mode, SIM_IS_PRODUCT("fopen"), [&](const char *to) { return realFopen(to, mode); });
}

extern "C" FILE *simFopen64(const char *path, const char *mode)
{
    if (SIM_FAILS(open, "fopen64")) {
        return failedWith<FILE *>(EMFILE, nullptr);
    }
    return openThrough(path, mode, SIM_IS_PRODUCT("fopen64"), [&](const char *to) { return realFopen64(to, mode); });
}

extern "C" FILE *simFreopen(const char *path, const char *mode, FILE *stream)
{
    return reopenThrough(path, mode, stream, SIM_IS_PRODUCT("freopen"),
                         [&](const char *to) { return realFreopen(to, mode, stream); });
}

extern "C" FILE *simFreopen64(const char *path, const char *mode, FILE *stream)
{
    return reopenThrough(path, mode, stream, SIM_IS_PRODUCT("freopen64"),
                         [&](const char *to) { return realFreopen64(to, mode, stream); });
}

extern "C" int simFclose(FILE *stream)
{
    if (stream != nullptr) {
        closed(realFileno(stream));
    }
    return realFclose(stream);
}

extern "C" size_t simFread(void *to, size_t size, size_t count, FILE *stream)
{
    if (SIM_FAILS(read, "fread")) {
        setErrorFlag(stream);
        return failedWith<size_t>(EIO, 0);
    }
    return realFread(to, size, count, stream);
}

extern "C" size_t simFreadChk(void *to, size_t room, size_t size, size_t count, FILE *stream)
{
    if (SIM_FAILS(read, "__fread_chk")) {
        setErrorFlag(stream);
        return failedWith<size_t>(EIO, 0);
    }
    return realFreadChk(to, room, size, count, stream);
}

extern "C" char *simFgets(char *to, int size, FILE *stream)
{
    if (SIM_FAILS(read, "fgets")) {
        setErrorFlag(stream);
        return failedWith<char *>(EIO, nullptr);
    }
    return realFgets(to, size, stream);
}

extern "C" char *simFgetsChk(char *to, size_t room, int size, FILE *stream)
{
    if (SIM_FAILS(read, "__fgets_chk")) {
        setErrorFlag(stream);
        return failedWith<char *>(EIO, nullptr);
    }
    return realFgetsChk(to, room, size, stream);
}

extern "C" ssize_t simGetline(char **line, size_t *size, FILE *stream)
{
    if (SIM_FAILS(read, "getline")) {
        setErrorFlag(stream);
        return failedWith<ssize_t>(EIO);
    }
    return realGetline(line, size, stream);
}

extern "C" ssize_t simGetdelim(char **line, size_t *size, int delimiter, FILE *stream)
{
    if (SIM_FAILS(read, "getdelim")) {
        setErrorFlag(stream);
        return failedWith<ssize_t>(EIO);
    }
    return realGetdelim(line, size, delimiter, stream);
}

extern "C" ssize_t simGetdelimInner(char **line, size_t *size, int delimiter, FILE *stream)
{
    if (SIM_FAILS(read, "__getdelim")) {
        setErrorFlag(stream);
        return failedWith<ssize_t>(EIO);
    }
    return realGetdelim(line, size, delimiter, stream);
}

extern "C" size_t simFwrite(const void *from, size_t size, size_t count, FILE *stream)
{
    if (SIM_FAILS(write, "fwrite")) {
        setErrorFlag(stream);
        return failedWith<size_t>(ENOSPC, 0);
    }
    return realFwrite(from, size, count, stream);
}

extern "C" int simFflush(FILE *stream)
{
    if (SIM_FAILS(write, "fflush")) {
        setErrorFlag(stream);
        return failedWith(ENOSPC);
    }
    return realFflush(stream);
}
