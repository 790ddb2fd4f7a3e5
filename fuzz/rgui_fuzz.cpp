// rgui_fuzz.cpp - PDUs of any kind, in any order and length, fed into a remote session.
//
// The input is a list of pieces: a length byte, then that many bytes, taken as one PDU. So that the
// fuzzer need not guess the size field, a piece whose first byte has its top bit set gets the right
// one. Where the machine allows a network of our own, a server takes the connections and drops
// them.
#include "vnlib/remote_gui.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>

#include "support/network.h"

namespace {

int discard(unsigned char *pdu, size_t length, void *)
{
    if (pdu == nullptr || length < 8) abort();
    free(pdu);
    return 0;
}

// A server for the session, in a network of our own if there may be one.
const int gui = [] {
    const int fd = test::enter_private_network() ? test::listen_on_loopback(8008) : -1;
    fcntl(fd, F_SETFL, O_NONBLOCK);
    return fd;
}();

void feed(rgui_session *session, const uint8_t *bytes, size_t length)
{
    auto *const pdu = static_cast<unsigned char *>(malloc(length)); // exact: shows a step too far
    if (pdu == nullptr) return;
    memcpy(pdu, bytes, length);
    if (length >= 8 && (pdu[0] & 0x80) != 0) {
        pdu[0] &= 0x7F;
        const auto size = static_cast<uint32_t>(length - 8);
        memcpy(pdu + 4, &size, sizeof size);
    }
    const int result = rgui_data_rx(session, pdu, length);
    if (result != 0 && result != -1) abort();
    free(pdu);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    signal(SIGUSR1, [](int) {}); // libFuzzer's own handler would end the run
    rgui_session *const session = rgui_start_remote(discard, nullptr);
    while (size > 0) {
        const size_t length = std::min<size_t>(data[0], size - 1);
        feed(session, data + 1, length);
        data += 1 + length;
        size -= 1 + length;
    }
    rgui_stop_remote(session);
    if (gui >= 0) // serve nobody, but do not let them queue up
        for (int fd = -1; (fd = accept(gui, nullptr, nullptr)) >= 0; close(fd)) {
        }
    return 0;
}
