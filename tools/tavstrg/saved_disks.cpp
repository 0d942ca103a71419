// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/disks.h"

#include "tavstrg/failure.h"

#include "disks/book/book_file.h"
#include "disks/find/find.h"

#include <algorithm>
#include <cstring>
#include <fstream>

namespace tool {
namespace {

using namespace tavstrg::disks;

std::string contentOfBook(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    std::string content;
    char bytes[4096];
    while (file.read(bytes, sizeof bytes) || file.gcount() > 0) {
        content.append(bytes, static_cast<size_t>(file.gcount()));
        if (content.size() > kMostBookBytes) {
            throw Failure(path + ": larger than a book can be");
        }
    }
    if (!file.is_open() || file.bad()) {
        throw Failure(path + ": " + std::strerror(errno));
    }
    return content;
}

// Only its writer moves a damaged book aside.
void readWhole(const std::string &path, Book &book)
{
    switch (parseBook(contentOfBook(path), book)) {
    case BookState::whole:
        return;
    case BookState::newer:
        throw Failure(path + ": is of a later version");
    case BookState::noMemory:
        throw Failure(path + ": not enough memory to read it");
    default:
        throw Failure(path + ": is no book of disks, or damaged");
    }
}

// A disk of which sysfs has no number of its own has another identity in the book, where the disk itself gave it one.
const BookEntry *entryOf(const Book &book, const Disk &disk)
{
    const auto found = std::find_if(book.entries.begin(), book.entries.end(), [&disk](const BookEntry &entry) {
        return entry.present && std::strcmp(entry.id, disk.id) == 0;
    });
    if (found != book.entries.end()) {
        return found;
    }
    const auto same = std::find_if(book.entries.begin(), book.entries.end(), [&disk](const BookEntry &entry) {
        return entry.present && std::strcmp(entry.name, disk.name) == 0 &&
               std::strcmp(entry.foundId, disk.foundId) == 0;
    });
    return same == book.entries.end() ? nullptr : same;
}

void remind(Disk &disk, const Book &book)
{
    const BookEntry *const entry = entryOf(book, disk);
    if (entry == nullptr) {
        setHealth(disk.health, HealthState::unknown, "", "it is not in the book yet");
        return;
    }
    std::memcpy(disk.id, entry->id, sizeof disk.id);
    std::memcpy(disk.serial, entry->serial, sizeof disk.serial);
    disk.health = entry->health;
    disk.readings = entry->readings;
    disk.firstSeen.set(entry->firstSeen);
    disk.lastAsked = entry->lastAsked;
}

} // namespace

DiskReport savedDisks(const Arguments &arguments)
{
    Book book;
    readWhole(arguments.fromBook, book);
    Array<Disk> disks;
    if (const FindResult result = findDisks(disks); result == FindResult::noMemory) {
        throw Failure("disks: not enough memory to find them");
    } else if (result == FindResult::notReadable) {
        throw Failure("No disk can be seen: /sys/block cannot be read.");
    }
    DiskReport report;
    for (Disk &disk : disks) {
        remind(disk, book);
        report.disks.push_back(disk);
    }
    for (const BookEntry &entry : book.entries) {
        report.collection.time = std::max(report.collection.time, static_cast<double>(entry.lastSeen));
    }
    return report;
}

} // namespace tool
