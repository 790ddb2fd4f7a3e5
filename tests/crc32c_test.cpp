#include "vnlib/crc32c.h"

#include "support/buffers.h"

namespace {

using test::Bytes;

uint32_t crc_of(const Bytes &bytes)
{
    return crc32c(bytes.data(), static_cast<unsigned>(bytes.size()));
}

uint32_t crc_of(const std::string &text)
{
    return crc32c(reinterpret_cast<const uint8_t *>(text.data()),
                  static_cast<unsigned>(text.size()));
}

// The checksums of all beginnings of `bytes`, bit by bit.
std::vector<uint32_t> reference(const Bytes &bytes)
{
    std::vector<uint32_t> sums = {0};
    uint32_t crc = 0xFFFF'FFFFu;
    for (const uint8_t byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (crc & 1 ? 0x82F6'3B78u : 0);
        sums.push_back(__builtin_bswap32(~crc));
    }
    return sums;
}

TEST(Crc32c, GivesTheCheckValueByteSwapped)
{
    EXPECT_EQ(crc_of(std::string("123456789")), 0x8392'06E3u);
}

TEST(Crc32c, GivesThePublishedVectors) // RFC 3720, appendix B.4: bytes as they stand on the wire
{
    const auto on_the_wire = [](const Bytes &bytes) {
        const uint32_t crc = crc_of(bytes);
        Bytes stored(4);
        for (size_t i = 0; i < 4; ++i) stored[i] = static_cast<uint8_t>(crc >> (8 * i));
        return stored;
    };
    Bytes descending = test::counting_bytes(32);
    std::reverse(descending.begin(), descending.end());
    // The RFC shows the checksum from its least significant byte on.
    EXPECT_EQ(on_the_wire(Bytes(32, 0x00)), (Bytes{0x8a, 0x91, 0x36, 0xaa}));
    EXPECT_EQ(on_the_wire(Bytes(32, 0xff)), (Bytes{0x62, 0xa8, 0xab, 0x43}));
    EXPECT_EQ(on_the_wire(test::counting_bytes(32)), (Bytes{0x46, 0xdd, 0x79, 0x4e}));
    EXPECT_EQ(on_the_wire(descending), (Bytes{0x11, 0x3f, 0xdb, 0x5c}));
    const Bytes read_command = {0x01, 0xc0, 0, 0, 0, 0, 0, 0, 0,    0, 0, 0,    0, 0, 0, 0,
                                0x14, 0,    0, 0, 0, 0, 4, 0, 0,    0, 0, 0x14, 0, 0, 0, 0x18,
                                0x28, 0,    0, 0, 0, 0, 0, 0, 0x02, 0, 0, 0,    0, 0, 0, 0};
    EXPECT_EQ(on_the_wire(read_command), (Bytes{0xd9, 0x96, 0x3a, 0x56}));
}

TEST(Crc32c, IsZeroForNoBytes)
{
    const uint8_t byte = 1;
    EXPECT_EQ(crc32c(&byte, 0), 0u);
    EXPECT_EQ(crc32c(nullptr, 0), 0u);
}

TEST(Crc32c, IsRightForEveryLength)
{
    const Bytes bytes = test::random_bytes(4096);
    const auto expected = reference(bytes);
    for (size_t length = 0; length <= bytes.size(); ++length)
        ASSERT_EQ(crc32c(bytes.data(), static_cast<unsigned>(length)), expected[length]) << length;
}

TEST(Crc32c, IsRightAtEveryAlignment)
{
    const Bytes bytes = test::random_bytes(1300);
    const auto expected = reference(bytes);
    alignas(64) static uint8_t room[1300 + 64];
    for (size_t shift = 0; shift < 64; ++shift) {
        std::copy(bytes.begin(), bytes.end(), room + shift);
        for (size_t length = 0; length <= bytes.size(); length += length < 300 ? 1 : 37)
            ASSERT_EQ(crc32c(room + shift, static_cast<unsigned>(length)), expected[length])
                << length << " bytes at " << shift;
    }
}

TEST(Crc32c, IsRightForLongBuffers)
{
    const Bytes bytes = test::random_bytes(300'000);
    const auto expected = reference(bytes);
    for (const unsigned length : {8191u, 8192u, 8193u, 16'383u, 65'536u, 65'537u, 100'003u,
                                  131'072u, 262'144u + 63, 299'999u, 300'000u})
        EXPECT_EQ(crc32c(bytes.data(), length), expected[length]) << length;
}

TEST(Crc32c, ReadsNoByteBeyondTheBuffer)
{
    for (const auto edge : {test::Guarded::kStart, test::Guarded::kEnd})
        for (size_t length = 0; length <= 700; ++length) {
            const Bytes bytes = test::random_bytes(length);
            const test::Guarded guarded(bytes, edge);
            EXPECT_EQ(crc32c(guarded.data(), static_cast<unsigned>(length)), crc_of(bytes));
        }
}

TEST(Crc32cv, IsZeroForNoElementsAndForEmptyOnes)
{
    EXPECT_EQ(crc32cv(nullptr, 0), 0u);
    const iovec empty[] = {{nullptr, 0}, {nullptr, 0}};
    EXPECT_EQ(crc32cv(empty, 2), 0u);
}

TEST(Crc32cv, GivesTheCrcOfTheJoinedBytesForEverySplit)
{
    Bytes bytes = test::random_bytes(600);
    for (size_t cut = 0; cut <= bytes.size(); ++cut) {
        const iovec parts[] = {{bytes.data(), cut}, {bytes.data() + cut, bytes.size() - cut}};
        EXPECT_EQ(crc32cv(parts, 2), crc_of(bytes)) << "cut at byte " << cut;
    }
}

TEST(Crc32cv, GivesTheCrcOfTheJoinedBytesForEqualParts)
{
    Bytes bytes = test::random_bytes(20'000);
    for (const size_t size : {1u, 2u, 3u, 7u, 8u, 9u, 37u, 64u, 100u, 1000u, 1024u, 4096u}) {
        std::vector<iovec> parts;
        for (size_t at = 0; at < bytes.size(); at += size) {
            parts.push_back({nullptr, 0}); // contributes nothing
            parts.push_back({bytes.data() + at, std::min(size, bytes.size() - at)});
        }
        EXPECT_EQ(crc32cv(parts.data(), static_cast<unsigned>(parts.size())), crc_of(bytes));
    }
}

TEST(Crc32cv, CountsElementsInOrder)
{
    uint8_t one = 1;
    uint8_t two = 2;
    const iovec forward[] = {{&one, 1}, {&two, 1}};
    const iovec backward[] = {{&two, 1}, {&one, 1}};
    EXPECT_EQ(crc32cv(forward, 2), crc_of(Bytes{1, 2}));
    EXPECT_EQ(crc32cv(backward, 2), crc_of(Bytes{2, 1}));
    EXPECT_EQ(crc32cv(forward, 1), crc_of(Bytes{1}));
}

} // namespace
