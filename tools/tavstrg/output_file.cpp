// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/output_file.h"

#include "tavstrg/failure.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tool {

void checkReplaceable(const std::string &path)
{
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        if (errno == ENOENT) {
            return; // that its directory exists shows when the file is made
        }
        throw Failure(path + ": " + std::strerror(errno));
    }
    if (S_ISDIR(status.st_mode)) {
        throw Failure(path + ": " + std::strerror(EISDIR));
    }
    if (!S_ISREG(status.st_mode)) {
        throw Failure(path + ": not a regular file; it is left as it is");
    }
}

void writeWhole(const std::string &path, const std::string &content, mode_t mode)
{
    checkReplaceable(path);
    std::string temporary = path + ".XXXXXX"; // the node exporter reads *.prom alone
    const int descriptor = mkstemp(temporary.data());
    if (descriptor < 0) {
        throw Failure(path + ": " + std::strerror(errno));
    }
    std::FILE *file = fdopen(descriptor, "w");
    bool written = file != nullptr && fchmod(descriptor, mode) == 0 &&
                   std::fwrite(content.data(), 1, content.size(), file) == content.size();
    written = file != nullptr && std::fclose(file) == 0 && written;
    if (!written || std::rename(temporary.c_str(), path.c_str()) != 0) {
        const int error = errno;
        std::remove(temporary.c_str());
        throw Failure(path + ": " + std::strerror(error));
    }
}

} // namespace tool
