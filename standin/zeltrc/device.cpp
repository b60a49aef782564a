#include "standin/zeltrc/device.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <sys/statvfs.h>
#include <sys/sysinfo.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <memory>
#include <string>

namespace {

// "eth0 10.0.0.2, eth1 10.1.0.2", without the loop-back.
std::string addresses() {
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) return {};
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, &freeifaddrs);
    std::string text;
    for (const ifaddrs* at = list; at != nullptr; at = at->ifa_next) {
        if (at->ifa_addr == nullptr || at->ifa_addr->sa_family != AF_INET || (at->ifa_flags & IFF_LOOPBACK) != 0)
            continue;
        char number[INET_ADDRSTRLEN];
        inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(at->ifa_addr)->sin_addr, number, sizeof number);
        text.append(text.empty() ? "" : ", ").append(at->ifa_name).append(" ").append(number);
    }
    return text;
}

}  // namespace

vorn_retrace::device_info describe_host() {
    vorn_retrace::device_info device;
    if (utsname name; uname(&name) == 0) {
        device.set_host_name(name.nodename);
        device.set_os_name(name.sysname);
        device.set_os_version(name.release);
    }
    device.set_net_info(addresses());
    device.set_cpu_total(std::to_string(sysconf(_SC_NPROCESSORS_ONLN)));
    if (struct sysinfo memory; sysinfo(&memory) == 0)
        device.set_mem_total(std::to_string(uint64_t{memory.totalram} * memory.mem_unit));
    if (struct statvfs disk; statvfs("/", &disk) == 0)
        device.set_disk_total(std::to_string(uint64_t{disk.f_blocks} * disk.f_frsize));
    return device;
}
