// crc32c.cpp - CRC-32C of buffers and vectors; the loop itself is in extend.h.
#include "vnlib/crc32c.h"

#include <span>

#include "crc32c/extend.h"
#include "support/bytes.h"

namespace vn::crc32c {
namespace {

constexpr uint32_t kInitial = 0xFFFF'FFFFu;

// Our callers store the result as it is, and on the wire the checksum is big-endian.
uint32_t finished(uint32_t state)
{
    return bytes::swapped(~state);
}

} // namespace
} // namespace vn::crc32c

// The namespace vn::crc32c and the function crc32c live side by side; no using-directive for the
// one.
extern "C" uint32_t crc32c(const uint8_t *data, unsigned len)
{
    namespace crc = vn::crc32c;
    return crc::finished(crc::extend(crc::kInitial, data, len));
}

extern "C" uint32_t crc32cv(const struct iovec *vec, unsigned count)
{
    namespace crc = vn::crc32c;
    uint32_t state = crc::kInitial;
    for (const iovec &part : std::span(vec, count))
        state = crc::extend(state, static_cast<const uint8_t *>(part.iov_base), part.iov_len);
    return crc::finished(state);
}
