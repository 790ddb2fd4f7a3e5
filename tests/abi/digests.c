#include "check.h"

static const char *hex(const uint8_t *digest, size_t length)
{
    static char text[65];
    size_t i = 0;
    for (i = 0; i < length; ++i) sprintf(text + 2 * i, "%02x", digest[i]);
    return text;
}

int main(void)
{
    const uint8_t *abc = (const uint8_t *)"abc";
    uint8_t digest[32];
    struct md5_ctx md5;
    struct sha1_ctx sha1;
    struct sha256_ctx sha256;

    md5_single(abc, 0, digest);
    CHECK_TEXT(hex(digest, 16), "d41d8cd98f00b204e9800998ecf8427e");
    md5_init(&md5);
    md5_append(&md5, abc, 1);
    md5_append(&md5, abc + 1, 2);
    md5_append(&md5, abc, -1);
    md5_finish(&md5, digest);
    CHECK_TEXT(hex(digest, 16), "900150983cd24fb0d6963f7d28e17f72");

    sha1_single(abc, 0, digest);
    CHECK_TEXT(hex(digest, 20), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
    sha1_init(&sha1);
    sha1_append(&sha1, abc, 2);
    sha1_append(&sha1, abc + 2, 1);
    sha1_finish(&sha1, digest);
    CHECK_TEXT(hex(digest, 20), "a9993e364706816aba3e25717850c26c9cd0d89d");

    sha256_single(abc, 0, digest);
    CHECK_TEXT(hex(digest, 32), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    sha256_init(&sha256);
    sha256_append(&sha256, abc, 3);
    sha256_append(&sha256, NULL, 0);
    sha256_finish(&sha256, digest);
    CHECK_TEXT(hex(digest, 32), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    return report("digests");
}
