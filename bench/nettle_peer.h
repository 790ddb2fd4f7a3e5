// nettle_peer.h - nettle's digests, kept apart because its names are the same as ours.
#pragma once

#include <cstddef>
#include <cstdint>

namespace bench {

void nettle_md5(const uint8_t *data, size_t size, uint8_t *digest);
void nettle_sha1(const uint8_t *data, size_t size, uint8_t *digest);
void nettle_sha256(const uint8_t *data, size_t size, uint8_t *digest);

} // namespace bench
