#include "check.h"

#include <sys/uio.h>

int main(void)
{
    const uint8_t *digits = (const uint8_t *)"123456789";
    struct iovec parts[3] = {{(void *)"1234", 4}, {(void *)"", 0}, {(void *)"56789", 5}};
    uint8_t many[48];
    char text[80];
    uint8_t back[64];

    CHECK(crc32c(digits, 9) == 0x839206E3u && crc32c(digits, 0) == 0);
    CHECK(crc32cv(parts, 3) == 0x839206E3u && crc32cv(parts, 0) == 0);

    CHECK(base64_encode((const uint8_t *)"Ma", text, 2, false) == 4 &&
          memcmp(text, "TWE=", 4) == 0);
    CHECK(base64_encode(digits, text, 0, true) == 0);
    memset(many, 0x5A, sizeof many);
    CHECK(base64_encode(many, text, sizeof many, true) == 65 && text[64] == '\n');
    CHECK(base64_decode(text, back, 65) == 48 && memcmp(back, many, 48) == 0);
    CHECK(base64_decode("TW\nE=", back, 5) == 2 && memcmp(back, "Ma", 2) == 0);
    CHECK(base64_decode("TWE", back, 3) == 3 && memcmp(back, "Ma\x3E", 3) == 0);
    CHECK(base64_decode("TW", back, 2) == 0);

    many[0] = 0xFF;
    CHECK(base32_encode(many, 1, text, sizeof text, 0) == 2);
    CHECK_TEXT(text, "Z7");
    CHECK(base32_encode(many, 1, text, sizeof text, 3) == 3);
    CHECK_TEXT(text, "Z76");
    CHECK(base32_decode("Z76", back, 3) == 7 && back[0] == 0xFF);
    CHECK(base32_decode("Z75", back, 3) == -1);
    return report("codecs");
}
