// SPDX-License-Identifier: Apache-2.0
// A copy of sysfs in a temporary directory, for tests of what is read from it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace disks_test {

class SysfsTree {
public:
    SysfsTree()
    {
        std::string name = (std::filesystem::temp_directory_path() / "tavsysfs-XXXXXX").string();
        root_ = mkdtemp(name.data());
        std::filesystem::create_directories(root_ / "block");
    }
    ~SysfsTree() { std::filesystem::remove_all(root_); }
    SysfsTree(const SysfsTree &) = delete;
    SysfsTree &operator=(const SysfsTree &) = delete;

    const char *path() const { return root_.c_str(); }

    void write(const std::string &file, const std::string &content)
    {
        std::filesystem::create_directories((root_ / file).parent_path());
        std::ofstream(root_ / file, std::ios::binary) << content;
    }

    void link(const std::string &at, const std::string &target)
    {
        std::filesystem::create_directories((root_ / at).parent_path());
        std::filesystem::create_symlink(target, root_ / at);
    }

    // A block device below devices/PLACE, whose last component is its name; DEVICE of it is where "device" leads.
    void addBlock(const std::string &place, uint64_t sectors)
    {
        const std::string directory = "devices/" + place;
        const std::string name = directory.substr(directory.rfind('/') + 1);
        write(directory + "/size", std::to_string(sectors) + "\n");
        write(directory + "/removable", "0\n");
        write(directory + "/queue/logical_block_size", "512\n");
        write(directory + "/queue/physical_block_size", "4096\n");
        write(directory + "/queue/rotational", "1\n");
        link("block/" + name, "../" + directory);
    }

    // A SCSI disk at 0000:00:1f.2 with the address host:0:0:0. Returns the directory of its device.
    std::string addScsi(const std::string &name, unsigned host, const std::string &vendor = "ATA")
    {
        const std::string number = std::to_string(host);
        const std::string address = number + ":0:0:0";
        const std::string place = "pci0000:00/0000:00:1f.2/ata" + std::to_string(host + 1) + "/host" + number +
                                  "/target" + number + ":0:0/" + address;
        addBlock(place + "/block/" + name, 2097152);
        const std::string device = "devices/" + place;
        link(device + "/block/" + name + "/device", "../../../" + address);
        write(device + "/type", "0\n");
        write(device + "/vendor", vendor + "     \n");
        write(device + "/model", "NORDWIND NW1000 \n");
        write(device + "/rev", "NW01\n");
        return device;
    }

private:
    std::filesystem::path root_;
};

} // namespace disks_test
