// SPDX-License-Identifier: Apache-2.0
// Where the agent is installed; the provider has these paths compiled in.
#pragma once

namespace tool {

constexpr const char *kAgentRoot = "/opt/qlm/tavkit_sa";
constexpr const char *kAgentData = "/opt/qlm/tavkit_sa/data";
constexpr const char *kAgentWork = "/opt/qlm/tavkit_sa/work";
constexpr const char *kTraceLibrary = "/opt/qlm/tavkit_sa/lib/libtavlog.so";
constexpr const char *kAlertLibrary = "/opt/qlm/tavkit_sa/lib/libtavalert.so";

} // namespace tool
