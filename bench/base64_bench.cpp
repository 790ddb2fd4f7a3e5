// base64_bench.cpp - base64 with and without lines, beside GLib, OpenSSL and APR. Sizes are of
// the data.
#include "vnlib/base64.h"

#include "codecs.h"

#ifdef VN_BENCH_APRUTIL
#include <apr_base64.h>
#endif
#ifdef VN_BENCH_GLIB
#include <glib.h>
#endif
#ifdef VN_BENCH_OPENSSL
#include <openssl/evp.h>
#endif

namespace {

namespace cpu = vn::cpu;

using Encode = size_t (*)(const uint8_t *, size_t, char *);
using Decode = size_t (*)(const char *, size_t, uint8_t *);

template <bool kWrap>
size_t our_encode(const uint8_t *in, size_t size, char *out)
{
    return base64_encode(in, out, static_cast<unsigned>(size), kWrap);
}

size_t our_decode(const char *in, size_t size, uint8_t *out)
{
    return base64_decode(in, out, static_cast<unsigned>(size));
}

#ifdef VN_BENCH_GLIB
template <bool kWrap> // lines of 72 characters, when wrapped
size_t glib_encode(const uint8_t *in, size_t size, char *out)
{
    gint state = 0;
    gint save = 0;
    const size_t done = g_base64_encode_step(in, size, kWrap, out, &state, &save);
    return done + g_base64_encode_close(kWrap, out + done, &state, &save);
}

size_t glib_decode(const char *in, size_t size, uint8_t *out)
{
    gint state = 0;
    guint save = 0;
    return g_base64_decode_step(in, size, out, &state, &save);
}
#endif

#ifdef VN_BENCH_OPENSSL
size_t openssl_encode(const uint8_t *in, size_t size, char *out)
{
    return static_cast<size_t>(
        EVP_EncodeBlock(reinterpret_cast<uint8_t *>(out), in, static_cast<int>(size)));
}

size_t openssl_decode(const char *in, size_t size, uint8_t *out)
{
    return static_cast<size_t>(
        EVP_DecodeBlock(out, reinterpret_cast<const uint8_t *>(in), static_cast<int>(size)));
}
#endif

#ifdef VN_BENCH_APRUTIL
size_t apr_encode(const uint8_t *in, size_t size, char *out)
{
    return static_cast<size_t>(apr_base64_encode_binary(out, in, static_cast<int>(size))) - 1;
}

size_t apr_decode(const char *in, size_t, uint8_t *out) // up to the text's NUL
{
    return static_cast<size_t>(apr_base64_decode_binary(out, in));
}
#endif

std::string text_of(const std::vector<uint8_t> &bytes, Encode encode)
{
    std::string text(bytes.size() * 2 + 100, '\0');
    text.resize(encode(bytes.data(), bytes.size(), text.data()));
    return text;
}

std::vector<uint8_t> bytes_of(const std::string &text, Decode decode)
{
    std::vector<uint8_t> bytes(text.size() + 8);
    bytes.resize(decode(text.data(), text.size(), bytes.data()));
    return bytes;
}

const std::vector<int64_t> kSizes = {15, 60, 240, 1023, 4098, 65535, 1 << 20};

void add_encode(const std::string &name, Encode encode, uint32_t features = cpu::kEverything)
{
    const auto body = [=](benchmark::State &state, size_t size) {
        const auto bytes = bench::data(size);
        std::string out(2 * size + 100, '\0');
        for (auto _ : state) benchmark::DoNotOptimize(encode(bytes.data(), size, out.data()));
    };
    bench::add(name, body, features, kSizes);
}

void add_decode(const std::string &name, Decode decode, Encode encode,
                uint32_t features = cpu::kEverything)
{
    const auto body = [=](benchmark::State &state, size_t size) {
        const std::string text = text_of(bench::data(size), encode);
        std::vector<uint8_t> out(size + 100);
        for (auto _ : state) benchmark::DoNotOptimize(decode(text.data(), text.size(), out.data()));
    };
    bench::add(name, body, features, kSizes);
}

void check(const std::string &name, Encode plain, Decode decode)
{
    for (const size_t size : {0ul, 3ul, 48ul, 4095ul, 65535ul}) {
        const auto bytes = bench::data(size);
        const std::string text = text_of(bytes, our_encode<false>);
        bench::require(text == text_of(bytes, plain), name + " encode");
        bench::require(bytes_of(text, our_decode) == bytes_of(text, decode), name + " decode");
    }
}

} // namespace

int main(int argc, char **argv)
{
    struct Version {
        std::string name;
        uint32_t features;
    };
    for (const auto &[name, features] :
         {Version{"vnlib", cpu::kEverything}, Version{"vnlib-avx2", cpu::kAvx2 | cpu::kSsse3},
          Version{"vnlib-ssse3", cpu::kSsse3}, Version{"vnlib-portable", cpu::kNothing}}) {
        add_encode("base64-encode/" + name, our_encode<false>, features);
        add_encode("base64-encode-lines/" + name, our_encode<true>, features);
        add_decode("base64-decode/" + name, our_decode, our_encode<false>, features);
        add_decode("base64-decode-lines/" + name, our_decode, our_encode<true>, features);
    }
#ifdef VN_BENCH_GLIB
    check("GLib", glib_encode<false>, glib_decode);
    add_encode("base64-encode/glib", glib_encode<false>);
    add_encode("base64-encode-lines/glib", glib_encode<true>);
    add_decode("base64-decode/glib", glib_decode, our_encode<false>);
    add_decode("base64-decode-lines/glib", glib_decode, our_encode<true>);
#endif
#ifdef VN_BENCH_OPENSSL
    check("OpenSSL", openssl_encode, openssl_decode);
    add_encode("base64-encode/openssl", openssl_encode);
    add_decode("base64-decode/openssl", openssl_decode, our_encode<false>);
#endif
#ifdef VN_BENCH_APRUTIL
    check("APR", apr_encode, apr_decode);
    add_encode("base64-encode/apr", apr_encode);
    add_decode("base64-decode/apr", apr_decode, our_encode<false>);
#endif
    return bench::run(argc, argv, bench::all_agree);
}
