// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/saved_state.h"

#include "tavstrg/failure.h"
#include "tavstrg/json_document.h"
#include "tavstrg/text.h"
#include "tavstrg/wrap.h"

#include "records/records.h"
#include "store/state_file_layout.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <limits>

using namespace tavstrg;

namespace tool {
namespace {

// Eleven classes of 65535 records of at most 352 bytes.
constexpr size_t kLargestState = size_t{TAV_CID_STRG_MAX} * std::numeric_limits<uint16_t>::max() * sizeof(StrgScsiRec);

broker::Value valueOf(const FieldDesc &field, const void *record)
{
    if (field.type == CMPI_chars && !field.key) {
        return broker::Value::text({fieldChars(field, record), strnlen(fieldChars(field, record), field.size)});
    }
    const int64_t number = fieldNumber(field, record);
    if (field.key) // a number in the file, text to every client
    {
        return broker::Value::text(std::to_string(number));
    }
    return number < 0 ? broker::Value::signedNumber(number) : broker::Value::number(static_cast<uint64_t>(number));
}

broker::Instance instanceOf(const ClassDesc &description, std::string_view bytes)
{
    std::vector<char> record(description.recordSize + 1, '\0'); // old totals are shorter: what they lack is 0
    std::copy_n(bytes.begin(), std::min(bytes.size(), record.size() - 1), record.begin());
    broker::Instance instance;
    instance.className = description.cimName;
    for (const FieldDesc &field : description.fields) {
        instance.properties.push_back({field.name, valueOf(field, record.data())});
    }
    return instance;
}

std::string at(size_t offset)
{
    return "at byte " + std::to_string(offset);
}

// Takes blocks from the front of the file until it breaks.
class Reader {
public:
    explicit Reader(std::string_view bytes) : rest_(bytes) {}

    std::string_view take(size_t size)
    {
        const std::string_view taken = rest_.substr(0, size);
        rest_.remove_prefix(taken.size());
        offset_ += taken.size();
        return taken;
    }

    // The records of a class that are whole. False when one is missing.
    bool takeBlock(SavedState &state, int classId, size_t count, size_t recordSize)
    {
        const ClassDesc &description = kClasses[classId];
        StateBlock block{description.cimName, offset_, count, {}};
        const size_t whole = std::min(count, rest_.size() / recordSize);
        for (size_t i = 0; i < whole; ++i) {
            block.records.push_back(instanceOf(description, take(recordSize)));
        }
        if (whole < count) {
            state.damage = block.className + ": record " + std::to_string(whole + 1) + " of " + std::to_string(count) +
                           " is cut off " + at(offset_) + ", " + std::to_string(rest_.size()) + " of its " +
                           std::to_string(recordSize) + " bytes are there";
        }
        if (count > 0) {
            state.blocks.push_back(std::move(block));
        }
        return whole == count;
    }

    size_t left() const { return rest_.size(); }
    std::string_view peek(size_t size) const { return rest_.substr(0, size); }

private:
    std::string_view rest_;
    size_t offset_ = 0;
};

bool takeDevices(Reader &reader, SavedState &state, const StrgTnumRec &totals, FileVersion version)
{
    for (int id = TAV_CID_STRG_CTRL; id < TAV_CID_STRG_MAX; ++id) {
        if (id == TAV_CID_STRG_LIFE && version == FileVersion::old) {
            continue;
        } // the old version has no such block
        if (!reader.takeBlock(state, id, totalOf(totals, id), kClasses[id].recordSize)) {
            return false;
        }
    }
    return true;
}

} // namespace

SavedState parseSavedState(std::string_view bytes)
{
    SavedState state;
    Reader reader(bytes);
    const std::string_view line = reader.take(kVersionLineSize);
    const FileVersion version = fileVersion(line);
    if (line.size() < kVersionLineSize) {
        state.damage = "the version line is cut off " + at(line.size());
        return state;
    }
    if (version != FileVersion::unknown) {
        state.version = version == FileVersion::current ? "1.0.0.1" : "1.0.0.0";
    }
    // The configuration comes before anything that differs between versions.
    if (!reader.takeBlock(state, TAV_CID_STRG_CONF, 1, sizeof(StrgConfRec))) {
        return state;
    }
    if (version == FileVersion::unknown) {
        state.damage = "the version line at byte 0 is none that is known";
        return state;
    }
    const size_t totalsSize = version == FileVersion::current ? sizeof(StrgTnumRec) : size_t{kOldTotalsSize};
    StrgTnumRec totals = {};
    const std::string_view counters = reader.peek(totalsSize);
    std::memcpy(&totals, counters.data(), counters.size());
    if (reader.takeBlock(state, TAV_CID_STRG_TNUM, 1, totalsSize) && takeDevices(reader, state, totals, version)) {
        state.trailing = reader.left();
    }
    return state;
}

std::string readStateFile(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw Failure(path + ": " + std::strerror(errno));
    }
    std::string bytes(4096, '\0');
    std::string content;
    while (file.read(bytes.data(), static_cast<std::streamsize>(bytes.size())) || file.gcount() > 0) {
        content.append(bytes, 0, static_cast<size_t>(file.gcount()));
        if (content.size() > kLargestState) {
            throw Failure(path + ": larger than a saved state can be");
        }
    }
    if (file.bad()) {
        throw Failure(path + ": " + std::strerror(errno));
    }
    return content;
}

std::string savedStateText(const SavedState &state, size_t width)
{
    std::string out =
        fitted("Saved state, version " + (state.version.empty() ? "unknown" : state.version) + "\n", width);
    for (const StateBlock &block : state.blocks) {
        out += fitted("\n" + std::to_string(block.records.size()) + " of " + std::to_string(block.expected) + " " +
                          block.className + " " + at(block.offset) + "\n",
                      width);
        out += instancesText(block.className, block.records, width);
    }
    if (!state.damage.empty()) {
        out += fitted("\nDamaged: " + state.damage + "\n", width);
    }
    if (state.trailing > 0) {
        out += fitted("\n" + std::to_string(state.trailing) + " bytes behind the last record are ignored\n", width);
    }
    return out;
}

std::string savedStateJson(const SavedState &state)
{
    Json json = document("dump-state");
    json["version"] = state.version.empty() ? Json(nullptr) : Json(state.version);
    json["blocks"] = Json::array();
    for (const StateBlock &block : state.blocks) {
        Json records = Json::array();
        for (const broker::Instance &record : block.records) {
            records.push_back(propertiesJson(record));
        }
        json["blocks"].push_back(
            {{"class", block.className}, {"offset", block.offset}, {"expected", block.expected}, {"records", records}});
    }
    json["damage"] = state.damage.empty() ? Json(nullptr) : Json(state.damage);
    json["trailingBytes"] = state.trailing;
    return written(json);
}

} // namespace tool
