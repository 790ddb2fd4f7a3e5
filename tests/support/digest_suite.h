// digest_suite.h - what must hold for every message digest of the library, whichever it is.
//
// A digest is described by a struct with its context and functions, its published vectors, and the
// same digest of OpenSSL as peer; DIGEST_SUITE(Md5) then makes the tests. Sizes and pieces are the
// ones at which block functions go wrong: around multiples of 64, and every one up to 4096.
#pragma once

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <cstring>
#include <memory>

#include "support/buffers.h"

namespace test {

template <size_t kSize>
std::string hex(const std::array<uint8_t, kSize> &digest)
{
    std::string text;
    for (const uint8_t byte : digest) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

template <typename Digest>
struct DigestSuite {
    using Context = typename Digest::Context;
    using Value = std::array<uint8_t, Digest::kSize>;

    static Value peer(const uint8_t *data, size_t length)
    {
        Value value{};
        EVP_Digest(data, length, value.data(), nullptr, Digest::peer(), nullptr);
        return value;
    }
    static Value single(const uint8_t *data, size_t length)
    {
        Value value{};
        Digest::single(data, static_cast<typename Digest::Length>(length), value.data());
        return value;
    }
    static void append(Context &context, const uint8_t *data, size_t length)
    {
        Digest::append(&context, data, static_cast<typename Digest::Length>(length));
    }
    static Value finish(Context &context)
    {
        Value value{};
        Digest::finish(&context, value.data());
        return value;
    }
    static Value in_pieces(const Bytes &data, size_t piece)
    {
        Context context;
        std::memset(&context, 0xAA, sizeof context);
        Digest::init(&context);
        for (size_t at = 0; at < data.size(); at += piece)
            append(context, data.data() + at, std::min(piece, data.size() - at));
        return finish(context);
    }

    static void gives_the_published_digests()
    {
        for (const auto &[message, digest] : Digest::vectors()) {
            const Bytes bytes(message.begin(), message.end());
            EXPECT_EQ(hex(single(bytes.data(), bytes.size())), digest) << message;
            EXPECT_EQ(hex(in_pieces(bytes, 1000)), digest) << message;
            EXPECT_EQ(hex(in_pieces(bytes, 1)), digest) << message;
        }
    }
    static void gives_the_published_digest_of_a_million_letters()
    {
        const Bytes bytes(1'000'000, 'a');
        EXPECT_EQ(hex(single(bytes.data(), bytes.size())), Digest::kMillionLetters);
        EXPECT_EQ(hex(in_pieces(bytes, 999)), Digest::kMillionLetters);
    }
    static void agrees_with_its_peer_for_every_length()
    {
        const Bytes bytes = random_bytes(4096);
        for (size_t length = 0; length <= bytes.size(); ++length)
            ASSERT_EQ(single(bytes.data(), length), peer(bytes.data(), length)) << length;
    }
    static void agrees_with_its_peer_at_every_alignment()
    {
        const Bytes bytes = random_bytes(64 + 300);
        for (size_t shift = 0; shift < 64; ++shift)
            for (size_t length = 0; length <= 300; length += 13)
                ASSERT_EQ(single(bytes.data() + shift, length), peer(bytes.data() + shift, length))
                    << length << " bytes at " << shift;
    }
    static void agrees_with_its_peer_for_every_split()
    {
        const Bytes bytes = random_bytes(260);
        for (size_t length = 0; length <= bytes.size(); length += length < 130 ? 1 : 13)
            for (size_t cut = 0; cut <= length; ++cut) {
                Context context;
                Digest::init(&context);
                append(context, bytes.data(), cut);
                append(context, bytes.data() + cut, length - cut);
                ASSERT_EQ(finish(context), peer(bytes.data(), length)) << cut << " of " << length;
            }
    }
    static void gives_the_same_in_pieces_of_any_size()
    {
        const Bytes bytes = random_bytes(4099);
        const Value expected = peer(bytes.data(), bytes.size());
        for (const size_t piece : {1u, 3u, 55u, 56u, 63u, 64u, 65u, 119u, 127u, 128u, 129u, 1000u})
            EXPECT_EQ(in_pieces(bytes, piece), expected) << piece;
    }
    static void takes_no_bytes_from_nowhere()
    {
        Context context;
        Digest::init(&context);
        append(context, nullptr, 0);
        EXPECT_EQ(finish(context), peer(nullptr, 0));
        EXPECT_EQ(single(nullptr, 0), peer(nullptr, 0));
    }
    static void reads_no_byte_too_many()
    {
        for (const auto edge : {Guarded::kStart, Guarded::kEnd})
            for (size_t length = 0; length <= 200; ++length) {
                const Bytes bytes = random_bytes(length);
                const Guarded guarded(bytes, edge);
                EXPECT_EQ(single(guarded.data(), length), peer(bytes.data(), length));
            }
    }
    static void serves_message_after_message_with_one_context()
    {
        const Bytes bytes = random_bytes(100);
        Context context;
        for (size_t length = 0; length < 100; ++length) {
            Digest::init(&context);
            append(context, bytes.data(), length);
            EXPECT_EQ(finish(context), peer(bytes.data(), length));
        }
    }
    // The length in bits passes 2^32 at 512 MiB.
    static void counts_beyond_four_gigabits()
    {
        const Bytes bytes = random_bytes(16 << 20);
        const std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX *)> other(EVP_MD_CTX_new(),
                                                                        EVP_MD_CTX_free);
        EVP_DigestInit_ex(other.get(), Digest::peer(), nullptr);
        Context context;
        Digest::init(&context);
        for (int round = 0; round < 33; ++round) {
            append(context, bytes.data(), bytes.size());
            EVP_DigestUpdate(other.get(), bytes.data(), bytes.size());
        }
        Value expected{};
        EVP_DigestFinal_ex(other.get(), expected.data(), nullptr);
        EXPECT_EQ(finish(context), expected);
    }
};

} // namespace test

#define DIGEST_TEST(Digest, Name, function)                                                        \
    TEST(Digest, Name)                                                                             \
    {                                                                                              \
        test::DigestSuite<::Digest>::function();                                                   \
    }

#define DIGEST_SUITE(Digest)                                                                       \
    DIGEST_TEST(Digest, GivesThePublishedDigests, gives_the_published_digests)                     \
    DIGEST_TEST(Digest, GivesThePublishedDigestOfAMillionLetters,                                  \
                gives_the_published_digest_of_a_million_letters)                                   \
    DIGEST_TEST(Digest, AgreesWithItsPeerForEveryLength, agrees_with_its_peer_for_every_length)    \
    DIGEST_TEST(Digest, AgreesWithItsPeerAtEveryAlignment,                                         \
                agrees_with_its_peer_at_every_alignment)                                           \
    DIGEST_TEST(Digest, AgreesWithItsPeerForEverySplit, agrees_with_its_peer_for_every_split)      \
    DIGEST_TEST(Digest, GivesTheSameInPiecesOfAnySize, gives_the_same_in_pieces_of_any_size)       \
    DIGEST_TEST(Digest, TakesNoBytesFromNowhere, takes_no_bytes_from_nowhere)                      \
    DIGEST_TEST(Digest, ReadsNoByteTooMany, reads_no_byte_too_many)                                \
    DIGEST_TEST(Digest, ServesMessageAfterMessageWithOneContext,                                   \
                serves_message_after_message_with_one_context)

// Without optimisation half a gigabyte takes too long; that the length words carry over is tested
// everywhere, by setting them.
#ifdef __OPTIMIZE__
#define LONG_DIGEST_TEST(Digest)                                                                   \
    DIGEST_TEST(Digest, CountsBeyondFourGigabits, counts_beyond_four_gigabits)
#else
#define LONG_DIGEST_TEST(Digest)
#endif
