// SPDX-License-Identifier: Apache-2.0
#include "collect/scsi/sys_hosts.h"

#include "collect/base/text_file.h"
#include "collect/base/text_scan.h"
#include "collect/scsi/scsi_parse.h"
#include "collect/scsi/scsi_variants.h"
#include "runtime/cancel.h"
#include "runtime/field_text.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <utility>

using namespace tavstrg;

namespace {

SysHosts *current = nullptr;

// The first line is nearly always the whole file. Only where it is blank does the first word come later.
void readDriver(const char *entry, SysHost &host)
{
    char path[sizeof kSysHosts + NAME_MAX + 1 + 16];
    joinText(path, {kSysHosts, "/", entry, "/proc_name"});
    char buffer[kMaxAttributeLine];
    std::string_view text;
    host.driver.result = readFirstLine(path, buffer, text);
    copyText(host.driver.value, attributeValue(text));
    std::string_view word;
    if (TextScan{untilNul(text)}.word(word) ||
        (host.driver.result == ReadResult::done && readBeginning(path, buffer, text) == ReadResult::done &&
         TextScan{untilNul(text)}.word(word))) {
        copyText(host.driverWord, word);
    }
}

} // namespace

int SysHosts::load()
{
    if (hosts_ != nullptr) {
        return 0;
    }
    listing_.emplace(kSysHosts);
    if (listing_->count() < 0) {
        return listing_->error();
    }
    // Not from memalloc: the list replaces readings that allocated nothing, and the trace stays as it was.
    HeapBlock<SysHost> hosts(std::calloc(static_cast<size_t>(listing_->count()) + 1, sizeof(SysHost)));
    if (!hosts) {
        return ENOMEM;
    }
    for (int i = 0; i < listing_->count(); ++i) {
        cancellationPoint();
        SysHost &host = hosts[static_cast<size_t>(i)];
        host.isHost = parseHostName(listing_->name(i), host.host);
        if (host.isHost) {
            readDriver(listing_->name(i), host);
        }
    }
    hosts_ = hosts.handOver();
    return 0;
}

void SysHosts::clear()
{
    std::free(hosts_);
    hosts_ = nullptr;
    listing_.reset();
}

SysHosts &tavstrg::sysHostsOr(SysHosts &own)
{
    return current == nullptr ? own : *current;
}

SysHosts *tavstrg::exchangeSysHosts(SysHosts *hosts)
{
    return std::exchange(current, hosts);
}
