// SPDX-License-Identifier: Apache-2.0
// Small owners: each releases in its destructor, on every path, and cannot be copied.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <unistd.h>
#include <utility>

namespace tavstrg {

class FileDesc {
public:
    explicit FileDesc(int fd) : fd_(fd) {}
    ~FileDesc()
    {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    FileDesc(const FileDesc &) = delete;
    FileDesc &operator=(const FileDesc &) = delete;
    int get() const { return fd_; }
    int handOver() { return std::exchange(fd_, -1); }
    explicit operator bool() const { return fd_ >= 0; }

private:
    int fd_;
};

class FilePtr {
public:
    explicit FilePtr(std::FILE *file) : file_(file) {}
    ~FilePtr() { static_cast<void>(close()); }
    FilePtr(const FilePtr &) = delete;
    FilePtr &operator=(const FilePtr &) = delete;
    std::FILE *get() const { return file_; }
    explicit operator bool() const { return file_ != nullptr; }
    // Closes before the end of the scope: 0, or EOF when what was buffered could not be written.
    int close()
    {
        std::FILE *const file = std::exchange(file_, nullptr);
        return file == nullptr ? 0 : std::fclose(file);
    }

private:
    std::FILE *file_;
};

// The sorted listing of a directory, as scandir with alphasort gives it.
class DirListing {
public:
    using Filter = int (*)(const dirent *entry); // 0: the entry is left out

    // Lists path. count() is -1, with errno as scandir left it in error(), when that failed.
    explicit DirListing(const char *path, Filter filter = nullptr);
    ~DirListing();
    DirListing(const DirListing &) = delete;
    DirListing &operator=(const DirListing &) = delete;
    int count() const { return count_; }
    int error() const { return error_; }
    const char *name(int i) const { return entries_[i]->d_name; }

private:
    struct dirent **entries_ = nullptr;
    int count_ = -1;
    int error_ = 0;
};

// An open directory, whose entries are read one by one, unsorted. For directories that may have very many.
class OpenDirectory {
public:
    explicit OpenDirectory(const char *path) : directory_(::opendir(path)) {}
    ~OpenDirectory()
    {
        if (directory_ != nullptr) {
            ::closedir(directory_);
        }
    }
    OpenDirectory(const OpenDirectory &) = delete;
    OpenDirectory &operator=(const OpenDirectory &) = delete;
    // Name of the next entry; null after the last one, or without a directory.
    const char *next() const
    {
        const dirent *const entry = directory_ == nullptr ? nullptr : ::readdir(directory_);
        return entry == nullptr ? nullptr : entry->d_name;
    }

private:
    DIR *directory_;
};

// An object that the broker made for the provider: CmpiHolder<CMPIObjectPath>. Released unless handed over.
template <class Object> class CmpiHolder {
public:
    explicit CmpiHolder(Object *object) : object_(object) {}
    ~CmpiHolder() { release(); }
    CmpiHolder(const CmpiHolder &) = delete;
    CmpiHolder &operator=(const CmpiHolder &) = delete;
    Object *get() const { return object_; }
    // Usable: the object is there and has a handle.
    explicit operator bool() const { return object_ != nullptr && object_->hdl != nullptr; }
    Object *handOver() { return std::exchange(object_, nullptr); }
    void release()
    {
        if (Object *const object = handOver()) {
            object->ft->release(object);
        }
    }

private:
    Object *object_;
};

// A block from memalloc that does not outlive its scope.
template <class T> class HeapBlock {
public:
    explicit HeapBlock(void *block) : block_(static_cast<T *>(block)) {}
    ~HeapBlock() { std::free(block_); }
    HeapBlock(const HeapBlock &) = delete;
    HeapBlock &operator=(const HeapBlock &) = delete;
    T *get() const { return block_; }
    T &operator[](size_t i) const { return block_[i]; }
    T *handOver() { return std::exchange(block_, nullptr); }
    // Frees the block and takes another one.
    void reset(void *block) { std::free(std::exchange(block_, static_cast<T *>(block))); }
    explicit operator bool() const { return block_ != nullptr; }

private:
    T *block_;
};

} // namespace tavstrg
