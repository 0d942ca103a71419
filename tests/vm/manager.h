// SPDX-License-Identifier: Apache-2.0
// systemd as the first process of namespaces of its own, with the unit of the monitoring service.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace vm {

inline const std::string kUnitName = "tavstrg-monitor.service";
inline const std::string kUnitFile = "/lib/systemd/system/" + kUnitName;
// Written after each pass.
inline const char *const kMetricsFile = "/var/lib/prometheus/node-exporter/tavstrg.prom";

// From its construction on this process and the commands that it starts are in systemd's namespaces. Its end ends
// systemd and everything under it.
class Manager {
public:
    Manager(); // ends the test if systemd does not come up
    ~Manager();
    Manager(const Manager &) = delete;
    Manager &operator=(const Manager &) = delete;

private:
    pid_t keeper_; // its parent
};

// Whether a command of systemctl succeeds, such as "start x.service".
bool systemctl(const std::string &command);

// A property of the service's unit, as systemctl show prints it.
std::string property(const std::string &name);

// Lines of the unit that set a name, such as "DeviceAllow=block-sd r", without those of its drop-ins.
std::vector<std::string> settings(const std::string &name);

// Starts the service again with these lines added to its section [Service]. False if it does not start; its log then
// says why.
bool restartWith(const std::string &lines);
// Also waits for its metrics; false if it writes none.
bool startWith(const std::string &lines);

// What the journal has of the service, in a format of journalctl; further words may select entries.
std::string journal(const std::string &format, const std::string &words = "");

} // namespace vm
