// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/monitor/agent_event.h"

#include "tavstrg/monitor/report.h"

#include "monitor/alert.h"

namespace tool::monitor {
namespace {

using tavstrg::disks::EventKind;

uint32_t idOf(std::string_view kind)
{
    for (int i = 0; i <= static_cast<int>(EventKind::readable); ++i) {
        const auto one = static_cast<EventKind>(i);
        if (kind == tavstrg::disks::nameOf(one)) {
            return entryOf(one).alertId;
        }
    }
    return 0;
}

void add(AgentEvent &event, const char *label, const std::string &value)
{
    event.strings.push_back((label + value).substr(0, tavstrg::kAlertTextSize - 1));
}

} // namespace

AgentEvent agentEvent(const std::function<std::string(const char *)> &field)
{
    AgentEvent event;
    event.id = idOf(field("TAVSTRG_KIND"));
    if (event.id == 0) {
        return event;
    }
    const std::string serial = field("TAVSTRG_DISK_SERIAL");
    const std::string former = field("TAVSTRG_FORMER_SERIAL");
    add(event, "Place : ", field("TAVSTRG_DISK_PLACE"));
    add(event, "Hard Disk : ", field("TAVSTRG_DISK_MODEL"));
    add(event, "Serial Number : ", serial.empty() ? field("TAVSTRG_DISK_ID") : serial);
    add(event, "Kernel Name : ", field("TAVSTRG_DISK_NAME"));
    add(event, "Event : ", field("TAVSTRG_EVENT") + (field("TAVSTRG_REPEATED").empty() ? "" : " (repeated)"));
    if (event.id == TAV_ALERTID_DISK_REPLACED) {
        add(event, "Replaced Serial Number : ", former.empty() ? field("TAVSTRG_FORMER_ID") : former);
    } else {
        add(event, "Reason : ", field("TAVSTRG_REASON"));
    }
    return event;
}

} // namespace tool::monitor
