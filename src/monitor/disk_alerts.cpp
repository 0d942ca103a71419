// SPDX-License-Identifier: Apache-2.0
#include "monitor/disk_alerts.h"

#include "collect/base/text_file.h"
#include "collect/devices/vpd_serial.h"
#include "monitor/alert.h"
#include "runtime/clean_text.h"
#include "runtime/field_text.h"
#include "runtime/send_alert.h"
#include "runtime/trace.h"
#include "runtime/whole.h"
#include "store/replaced_file.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <fcntl.h>
#include <iterator>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

using namespace tavstrg;

namespace {

constexpr char kMovedAside[] = "/opt/qlm/tavkit_sa/data/tavstrgdisks.dat.bad";
constexpr ReplacedFile kPlace = {kDiskBookFile, "/opt/qlm/tavkit_sa/data/tavstrgdisks.dat.tmp",
                                 "/opt/qlm/tavkit_sa/data"};
static_assert(isReplacedFile(kPlace));

constexpr off_t kLongestBook = off_t{64} << 20; // bytes; far more than the disks that a kernel can have
constexpr int32_t kMethod = 3;                  // as for the other alerts that need an answer

struct Text {
    HeapBlock<char> block{nullptr};
    size_t size = 0;

    std::string_view view() const { return {block.get(), size}; }
    bool reserve(size_t bytes)
    {
        size = 0;
        block.reset(bytes > INT32_MAX ? nullptr : memalloc(static_cast<int32_t>(bytes)));
        size = block ? bytes : 0;
        return static_cast<bool>(block);
    }
};

// The file as it should be, while it cannot be written: on a full disk, or if its file system died with a disk. Its
// events are delivered all the same.
Text g_unsaved;

enum class Loaded { book, nothing, failed };

// Text of the file. Returns nothing if there is no file or it is none of ours, failed if it may be readable later.
Loaded readText(Text &text)
{
    constexpr int kFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    FileDesc own(::open(kDiskBookFile, kFlags | O_NOATIME)); // a pass without a change writes nothing, no time either
    const FileDesc file(own || errno != EPERM ? own.handOver() : ::open(kDiskBookFile, kFlags));
    if (!file) {
        return errno == ENOENT ? Loaded::nothing : errno == ELOOP ? Loaded::book : Loaded::failed;
    }
    struct stat info = {};
    if (::fstat(file.get(), &info) != 0) {
        return Loaded::failed;
    }
    if (!S_ISREG(info.st_mode) || info.st_size > kLongestBook || info.st_size < 1) {
        return Loaded::book; // an empty text, which is damaged
    }
    if (!text.reserve(static_cast<size_t>(info.st_size))) {
        return Loaded::failed;
    }
    const ssize_t got = readWhole(file.get(), {text.block.get(), text.size});
    if (got < 0 || static_cast<size_t>(got) != text.size) {
        return Loaded::failed;
    }
    return Loaded::book;
}

Loaded beginAnew(const char *why)
{
    const bool moved = ::rename(kDiskBookFile, kMovedAside) == 0;
    TRACE(kFailure, "%s is %s, disks are compared from now on; %s [%s]", kDiskBookFile, why,
          moved ? "moved to" : "cannot be moved to", kMovedAside);
    return Loaded::nothing;
}

Loaded load(DiskBook &book)
{
    Text text;
    const bool unsaved = g_unsaved.size != 0;
    const Loaded loaded = unsaved ? Loaded::book : readText(text);
    if (loaded != Loaded::book) {
        if (loaded == Loaded::failed) {
            TRACE(kFailure, "%s cannot be read, disks are not compared: errno=[%d]", kDiskBookFile, errno);
        }
        return loaded;
    }
    switch (parseBook(unsaved ? g_unsaved.view() : text.view(), book)) {
    case BookState::good:
        return Loaded::book;
    case BookState::newer:
        return beginAnew("of a newer version");
    case BookState::damaged:
        return beginAnew("damaged");
    case BookState::noMemory:
        break;
    }
    return TRACED(Loaded::failed, kFailure, "disk book alloc Failure!!");
}

// Replaces the file. Returns 0 or an errno.
int saveText(std::string_view text)
{
    int error = 0;
    const FileDesc file(replaceText(kPlace, text, error));
    return error;
}

bool compose(DiskBook &book, Text &text)
{
    if (!text.reserve(bookSize(book))) {
        return TRACED(false, kFailure, "disk book alloc Failure!!");
    }
    composeBook(book, text.block.get());
    return true;
}

void keepInMemory(Text &text)
{
    g_unsaved.block.reset(text.block.handOver());
    g_unsaved.size = text.size;
}

// Saves the book, or keeps it in memory. Returns false if neither is possible.
bool save(DiskBook &book)
{
    Text text;
    if (!compose(book, text)) {
        return false;
    }
    if (const int error = saveText(text.view()); error != 0) {
        TRACE(kFailure, "%s is not saved: errno=[%d]", kDiskBookFile, error);
        keepInMemory(text);
        return true;
    }
    forgetUnsavedDisks();
    return true;
}

// Where the deliveries of events are noted: in the file, or in the text that stands for it.
class Notes {
public:
    Notes() : file_(g_unsaved.size != 0 ? -1 : ::open(kDiskBookFile, O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC))
    {
        struct stat info = {};
        isOwn_ = file_ && ::fstat(file_.get(), &info) == 0 && S_ISREG(info.st_mode) && info.st_uid == ::geteuid() &&
                 info.st_nlink == 1; // nothing outside the directory is written to by way of a link
    }

    bool put(DiskEvent &event, Delivery delivery) const
    {
        event.delivery = delivery;
        const char letter = static_cast<char>(delivery);
        if (g_unsaved.size != 0) {
            g_unsaved.block[event.deliveryAt] = letter;
            return true;
        }
        if (isOwn_ && ::lseek(file_.get(), static_cast<off_t>(event.deliveryAt), SEEK_SET) >= 0 &&
            ::write(file_.get(), &letter, 1) == 1) {
            return true;
        }
        return TRACED(false, kFailure, "delivery of event %u is not noted: errno=[%d]", event.number, errno);
    }

private:
    FileDesc file_;
    bool isOwn_ = false;
};

// Returns whether the library accepted it.
bool send(const DiskEvent &event, bool repeated)
{
    DiskEventTexts texts = diskEventTexts(event, repeated);
    const char *strings[DiskEventTexts::kMost] = {};
    for (int32_t i = 0; i < texts.count; ++i) {
        strings[i] = texts.texts[i];
        TRACE(kDetail, "cpParam[%d]=[%s]", i, strings[i]);
    }
    const uint32_t id = diskEventId(event.change);
    return TAVSendIndication(kAlertSource, id, typeOfSeverity(id), kMethod, texts.count, strings) == 0;
}

// Returns false if the event, and with it those after it, has to wait for the next pass.
bool deliverOne(DiskBook &book, DiskEvent &event, const Notes &notes)
{
    const Delivery before = event.delivery;
    if (!notes.put(event, Delivery::sending)) {
        return false;
    }
    if (!send(event, before == Delivery::sending)) {
        static_cast<void>(notes.put(event, before));
        return TRACED(false, kFailure, "event %u of a disk is refused, it is sent again later", event.number);
    }
    Text text;
    if (!notes.put(event, Delivery::done) && compose(book, text)) {
        keepInMemory(text);
    }
    return true;
}

// In their order.
void deliver(DiskBook &book)
{
    const auto isOpen = [](const DiskEvent &event) { return event.delivery != Delivery::done; };
    if (std::ranges::none_of(book.events.entries(), isOpen)) {
        return;
    }
    const Notes notes;
    for (DiskEvent &event : book.events.entries()) {
        if (isOpen(event) && !deliverOne(book, event, notes)) {
            return;
        }
    }
}

bool takeSeen(const DiskList &list, Table<SeenDisk> &seen)
{
    if (!seen.reserve(list.disks().size())) {
        return false;
    }
    for (const CollectedDisk &disk : list.disks()) {
        seen.append(seenDisk(disk));
    }
    return true;
}

void compareAndSend(const DiskList &list)
{
    DiskBook last;
    const Loaded loaded = load(last);
    if (loaded == Loaded::failed) {
        return;
    }
    Table<SeenDisk> seen;
    DiskBook next;
    const bool first = loaded == Loaded::nothing;
    if (!takeSeen(list, seen) || !compareDisks(last, first, seen.entries(), next)) {
        TRACE(kFailure, "disk book alloc Failure!!");
        return;
    }
    const bool saves = first || g_unsaved.size != 0 || differs(last, next);
    if (!saves) {
        deliver(last);
    } else if (save(next)) {
        deliver(next);
    }
}

__attribute__((format(printf, 2, 3))) void addText(DiskEventTexts &texts, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    std::vsnprintf(texts.texts[texts.count++], sizeof texts.texts[0], format, args);
    va_end(args);
}

} // namespace

void tavstrg::alertDisks(const DiskList &list)
{
    const TraceScope scope;
    if (!list.isFilled()) {
        return;
    }
    TRACE(kDetail, "_IN_ disks=[%d]", static_cast<int>(list.disks().size()));
    compareAndSend(list);
    TRACE(kDetail, "_OUT_");
}

void tavstrg::forgetUnsavedDisks()
{
    g_unsaved.block.reset(nullptr);
    g_unsaved.size = 0;
}

SeenDisk tavstrg::seenDisk(const CollectedDisk &disk)
{
    alertDiskSt described = {};
    described.Index = disk.index;
    described.InterfaceType = static_cast<uint16_t>(disk.interfaceType);
    described.ControllerIndex = disk.controllerIndex;
    described.Bus = disk.bus;
    described.TargetID = disk.targetId;
    described.LUN = disk.lun;
    described.DrivePosition = static_cast<uint16_t>(disk.drivePosition);
    copyText(described.Vendor, fieldText(disk.vendor));
    copyText(described.Model, fieldText(disk.model));
    copyText(described.FirmwareRevision, fieldText(disk.firmware));
    const DiskTexts texts = diskTexts(described);
    SeenDisk seen = {};
    seen.asked = disk.smartAsked;
    seen.smartStatus = disk.smartStatus;
    seen.facts.controller = disk.controllerIndex;
    copyText(seen.facts.wwid, fieldText(disk.wwid));
    // A disk that does not answer is shown with the serial number that the kernel keeps, or else with its worldwide
    // name. When it answered, its own may have run on into the next field of its identity.
    if (const std::string_view serial = trimmedSerial(fieldText(disk.serial)); serial != fieldText(disk.wwid)) {
        copyText(seen.facts.serial, serial);
    }
    std::snprintf(seen.facts.model, sizeof seen.facts.model, "%s %s", disk.vendor, disk.model);
    copyText(seen.facts.name, fieldText(disk.name));
    copyText(seen.facts.address, fieldText(texts.address));
    copyText(seen.facts.label, fieldText(texts.label));
    return seen;
}

uint32_t tavstrg::diskEventId(DiskChange change)
{
    constexpr uint32_t kIds[] = {TAV_ALERTID_DISK_ADDED,   TAV_ALERTID_DISK_REMOVED,    TAV_ALERTID_DISK_REPLACED,
                                 TAV_ALERTID_DISK_FAILING, TAV_ALERTID_DISK_UNREADABLE, TAV_ALERTID_DISK_READABLE};
    static_assert(std::size(kIds) == static_cast<size_t>(DiskChange::readable) + 1);
    return kIds[static_cast<size_t>(change)];
}

DiskEventTexts tavstrg::diskEventTexts(const DiskEvent &event, bool repeated)
{
    DiskEventTexts texts = {};
    addText(texts, "%s", event.disk.address);
    addText(texts, "%s", event.disk.label);
    char clean[sizeof event.disk.serial];
    const char *const identity = event.disk.serial[0] != '\0' ? event.disk.serial : event.disk.wwid;
    addText(texts, "Serial Number : %s", publishedText(identity, clean));
    addText(texts, "Kernel Name : %s", event.disk.name);
    addText(texts, "Event : %u%s", event.number, repeated ? " (repeated)" : "");
    if (event.change == DiskChange::replaced) {
        addText(texts, "Replaced Serial Number : %s", publishedText(event.former, clean));
    }
    return texts;
}
