// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/report.h"

#include "tavstrg/html.h"
#include "tavstrg/json_document.h"
#include "tavstrg/report_parts.h"
#include "tavstrg/sha256.h"
#include "tavstrg/words.h"

#include <algorithm>
#include <iterator>

namespace tool {
namespace {

using namespace tavstrg::disks;

// Its own style and script, by their hashes, and nothing else: what got in by mistake would neither run nor load.
std::string policy()
{
    return "default-src 'none'; style-src '" + policyHash(kReportStyle) + "'; script-src '" +
           policyHash(kReportScript) + "'; base-uri 'none'; form-action 'none'";
}

std::string titleOf(const DiskReport &report)
{
    return "Storage of " + (report.machine.empty() ? hostName() : report.machine + ", a simulated machine");
}

std::string headMarkup(const DiskReport &report)
{
    return "<!DOCTYPE html>\n<html xmlns=\"http://www.w3.org/1999/xhtml\" lang=\"en\">\n<head>\n"
           "<meta charset=\"utf-8\"/>\n<meta http-equiv=\"Content-Security-Policy\" content=\"" +
           policy() +
           "\"/>\n<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"/>\n"
           "<meta name=\"color-scheme\" content=\"light dark\"/>\n<meta name=\"referrer\" content=\"no-referrer\"/>\n"
           "<title>" +
           escapedHtml(titleOf(report)) + "</title>\n<style>" + std::string(kReportStyle) + "</style>\n</head>\n";
}

std::string totalsMarkup(const std::vector<Disk> &disks)
{
    std::string text = "<ul class=\"totals\" aria-label=\"Disks by health\">\n";
    for (const HealthState state : kWorstFirst) {
        const auto number =
            std::count_if(disks.begin(), disks.end(), [state](const Disk &disk) { return disk.health.state == state; });
        if (number != 0) {
            text += std::string("<li class=\"") + nameOf(state) + "\">" + signMarkup(state) + "<span><b>" +
                    std::to_string(number) + "</b> " + nameOf(state) + "</span></li>\n";
        }
    }
    return disks.empty() ? "" : text + "</ul>\n";
}

std::string notesMarkup(const DiskReport &report)
{
    std::string text;
    for (const std::string &note : report.notes) {
        text += "<li>" + escapedHtml(note) + "</li>\n";
    }
    return text.empty() ? "" : "<ul class=\"notes\">\n" + text + "</ul>\n";
}

std::string rowMarkup(const char *what, const std::string &markup)
{
    return markup.empty() ? "" : std::string("<dt>") + what + "</dt><dd>" + markup + "</dd>";
}

std::string cardMarkup(const Disk &disk, size_t row)
{
    const std::string state = nameOf(disk.health.state);
    return "<li class=\"" + state + "\"><h3>" + signMarkup(disk.health.state) + "<span><a href=\"#disk" +
           std::to_string(row) + "\">" + escapedHtml(disk.name) + "</a> " + state + "</span></h3>\n<p>" +
           escapedHtml(disk.health.reason) + "</p>\n<dl>" + rowMarkup("reported by", escapedHtml(disk.health.source)) +
           rowMarkup("since", disk.health.since ? timeMarkup(disk.health.since.value) : "not known without a book") +
           rowMarkup("model", escapedHtml(disk.model)) + rowMarkup("serial number", escapedHtml(disk.serial)) +
           rowMarkup("bay", escapedHtml(disk.bay)) + rowMarkup("address", escapedHtml(disk.address)) + "</dl></li>\n";
}

std::string attentionMarkup(const std::vector<Disk> &disks)
{
    std::vector<size_t> rows;
    for (size_t i = 0; i < disks.size(); ++i) {
        if (needsAttention(disks[i].health.state)) {
            rows.push_back(i);
        }
    }
    std::stable_sort(rows.begin(), rows.end(), [&disks](size_t a, size_t b) {
        return rankOf(disks[a].health.state) < rankOf(disks[b].health.state);
    });
    std::string text = "<h2>Needs attention</h2>\n";
    if (rows.empty()) {
        return text + "<p>No disk reports a problem.</p>\n";
    }
    text += "<ol class=\"cards\">\n";
    for (const size_t row : rows) {
        text += cardMarkup(disks[row], row);
    }
    return text + "</ol>\n";
}

std::string bodyMarkup(const DiskReport &report)
{
    const auto time = static_cast<int64_t>(report.collection.time);
    std::string text = "<body>\n" + std::string(kReportSigns) + "<header>\n<h1>" + escapedHtml(titleOf(report)) +
                       "</h1>\n<p class=\"soft\">As of " + timeMarkup(time) + "</p>\n" + totalsMarkup(report.disks) +
                       "</header>\n<main>\n";
    text += report.disks.empty() ? "<p>" + escapedHtml(report.explanation) + "</p>\n" : attentionMarkup(report.disks);
    text += notesMarkup(report);
    if (!report.disks.empty()) {
        text += "<h2>The machine</h2>\n<p class=\"soft\">In each bay: disk, place, temperature, endurance used.</p>\n" +
                pictureMarkup(report.disks) + "<h2>All disks</h2>\n" + tableMarkup(report.disks);
    }
    return text + "</main>\n<footer>tavstrg " TAV_VERSION
                  ". Disks were only read; sleeping ones were left asleep.</footer>\n";
}

} // namespace

int rankOf(HealthState state)
{
    return static_cast<int>(std::find(std::begin(kWorstFirst), std::end(kWorstFirst), state) - std::begin(kWorstFirst));
}

std::string signMarkup(HealthState state)
{
    return std::string(
               "<svg class=\"sign\" aria-hidden=\"true\" xmlns=\"http://www.w3.org/2000/svg\"><use href=\"#sign-") +
           nameOf(state) + "\"/></svg>";
}

std::string timeMarkup(int64_t seconds)
{
    const std::string exact = utcTime(static_cast<double>(seconds)).substr(0, 19) + "Z";
    return "<time datetime=\"" + exact + "\">" + exact.substr(0, 10) + " " + exact.substr(11, 5) + " UTC</time>";
}

std::string reportPage(const DiskReport &report)
{
    return headMarkup(report) + bodyMarkup(report) + "<script>" + std::string(kReportScript) +
           "</script>\n</body>\n</html>\n";
}

} // namespace tool
