// mac.cpp - the hardware address of a network interface, as sysfs shows it ("00:1a:2b:3c:4d:5e").
#include "vnlib/vnsock.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "support/bytes.h"

namespace {

constexpr size_t kPathSize = 4095; // on the heap: small machines have small thread stacks

struct Free {
    void operator()(char *text) const { free(text); }
};
struct CloseFile {
    void operator()(FILE *file) const { fclose(file); }
};

} // namespace

extern "C" {

int vn_getmac(const char *ifname, unsigned char mac[6])
{
    if (ifname == nullptr || mac == nullptr) {
        errno = EINVAL;
        return -1;
    }
    const std::unique_ptr<char, Free> path(static_cast<char *>(calloc(1, kPathSize)));
    if (path == nullptr) return -1;
    snprintf(path.get(), kPathSize, "/sys/class/net/%s/address", ifname);
    const std::unique_ptr<FILE, CloseFile> file(fopen(path.get(), "r"));
    if (file == nullptr) return -1;
    const int pairs = fscanf(file.get(), "%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx", &mac[0], &mac[1],
                             &mac[2], &mac[3], &mac[4], &mac[5]);
    return pairs == 6 ? 0 : -1;
}

uint64_t vn_getmac64(const char *ifname)
{
    unsigned char address[8] = {};
    return vn_getmac(ifname, address + 2) == 0 ? vn::bytes::load_big<uint64_t>(address) : 0;
}
}
