// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/check.h"

#include "tavstrg/failure.h"
#include "tavstrg/wrap.h"

#include "collect/base/text_file.h"
#include "collect/inf/data_path.h"
#include "collect/inf/noscsi_inf.h"
#include "collect/inf/storage_inf.h"
#include "endurance/endurance_parse.h"
#include "runtime/options.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

using namespace tavstrg;

namespace tool {
namespace {

namespace fs = std::filesystem;

struct FileKind {
    const char *name;
    size_t largest; // bytes; the provider ignores a larger file, or of the table what follows them
    std::vector<CheckedLine> (*check)(std::string_view text);
    bool agentsRoot; // below the root of the agent's configuration, not below the default one
    const char *absent;
    const char *tooLarge; // null: its beginning is read
    const char *unreadable;
};

constexpr const char *kCollectionFails = "the inventory fails";
constexpr const char *kNothingManaged = "no SCSI host adapter is managed";
constexpr const char *kNothingExcluded = "no disk is excluded";
constexpr const char *kNothingOn = "nothing beyond the base system is on";
constexpr const char *kOptionsStay = "the options stay as they were, at a start all off";
constexpr const char *kNothingCovered = "no drive has a life span";

constexpr FileKind kKinds[] = {
    {kStorageInf, kMaxInfFileSize, checkStorage, true, kNothingManaged, kNothingManaged, kCollectionFails},
    {kNoScsiInf, kMaxInfFileSize, checkNoScsi, true, kNothingExcluded, kNothingExcluded, kCollectionFails},
    {kM2SSDFileName, kMaxM2SSDLines *kM2SSDLineBuffer, checkEndurance, false, kNothingCovered, nullptr,
     kNothingCovered},
    {kOptionsInf, kMaxOptionsSize, checkOptions, true, kNothingOn, kOptionsStay, kOptionsStay},
};

std::string pathOf(const FileKind &kind, const std::string &directory)
{
    if (!directory.empty()) {
        return (fs::path(directory) / kind.name).string();
    }
    if (!kind.agentsRoot) {
        return std::string(kM2SSDRoot) + "data/" + kind.name;
    }
    char path[kDataPathSize];
    makeDataPath(path, kind.name);
    return path;
}

std::string directoryOf(const std::string &root)
{
    if (root.empty()) {
        return root;
    }
    std::error_code error;
    if (!fs::is_directory(root, error)) {
        throw Failure(root + ": " + (error ? error.message() : "not a directory"));
    }
    const fs::path data = fs::path(root) / "data";
    return fs::is_directory(data, error) ? data.string() : root;
}

CheckedFile wholeFile(const std::string &path, FileState state, const std::string &why)
{
    const Verdict verdict = state == FileState::absent ? Verdict::note : Verdict::skipped;
    return {path, state, {{0, verdict, why}}};
}

CheckedFile checkFile(const FileKind &kind, const std::string &path)
{
    const TextFile file(path.c_str());
    if (file.error() == ENOENT) {
        return wholeFile(path, FileState::absent, std::string("absent: ") + kind.absent);
    }
    const auto unreadable = [&](const char *why) {
        return wholeFile(path, FileState::unreadable, std::string(why) + ": " + kind.unreadable);
    };
    if (file.error() != 0) // EINVAL: it opened, but is no regular file
    {
        return unreadable(file.error() == EINVAL ? "not a regular file" : std::strerror(file.error()));
    }
    std::string text(kind.largest + 1, '\0');
    const ssize_t got = file.read({text.data(), text.size()});
    if (got < 0) {
        return unreadable(std::strerror(errno));
    }
    text.resize(static_cast<size_t>(got));
    if (text.size() > kind.largest && kind.tooLarge == nullptr) {
        text.resize(kind.largest);
    }
    if (text.size() > kind.largest) {
        return wholeFile(path, FileState::tooLarge,
                         "larger than " + std::to_string(kind.largest) + " bytes: " + kind.tooLarge);
    }
    return {path, FileState::read, kind.check(text)};
}

} // namespace

std::vector<CheckedFile> checkFiles(const std::string &root)
{
    const std::string directory = directoryOf(root);
    std::vector<CheckedFile> files;
    for (const FileKind &kind : kKinds) {
        files.push_back(checkFile(kind, pathOf(kind, directory)));
    }
    return files;
}

Outcome check(const Arguments &arguments, const TextStyle &style)
{
    std::vector<CheckedFile> files = checkFiles(arguments.root);
    std::vector<MachineFinding> machine;
    if (arguments.root.empty()) { // else the files are for other machines
        takeOptions();            // the machine is checked as a collection would find it
        compareDrivers(adapterDrivers(), files.front().lines);
        machine = checkMachine(!arguments.machine.empty());
    }
    const std::string problems = checkedProblems(files, machine);
    return {problems.empty() ? kDone : kFailed,
            arguments.json ? checkedJson(files, machine) : fitted(checkedText(files, machine), style.width), problems};
}

} // namespace tool
