#include "check.h"

int main(void)
{
    const uint64_t five = 5;
    const uint64_t six = 6;
    const uint64_t seven = 7;
    const uint64_t largest = UINT64_MAX;
    const uint64_t zero = 0;
    const unsigned char big_seven[8] = {0, 0, 0, 0, 0, 0, 0, 7};
    const unsigned char big_five[8] = {0, 0, 0, 0, 0, 0, 0, 5};
    uint64_t a = 0;
    uint64_t b = 0;

    CHECK(clz(0) == 32 && clz(1) == 31 && clz(0x80000000u) == 0);
    CHECK(ctz(0) == 32 && ctz(1) == 0 && ctz(0x80000000u) == 31);
    CHECK(vn_ilog2(0) == 0 && vn_ilog2(1) == 0 && vn_ilog2(255) == 7 && vn_ilog2(256) == 8);
    CHECK(vn_ilog2(65535) == 15 && vn_ilog2(65536) == 16 && vn_ilog2(UINT32_MAX) == 31);
    CHECK(vn_ilog2_64(0) == 0 && vn_ilog2_64((uint64_t)1 << 32) == 32);
    CHECK(vn_ilog2_64(UINT64_MAX) == 63);
    CHECK(cmpnumle64(&five, &five) == 0 && cmpnumle64(&six, &five) == 0);
    CHECK(cmpnumle64(&seven, &five) == 1 && cmpnumle64(&five, &six) == -1);
    CHECK(cmpnumle64(&zero, &largest) == 0);
    memcpy(&a, big_seven, sizeof a);
    memcpy(&b, big_five, sizeof b);
    CHECK(cmpnumbe64(&a, &b) == 1 && cmpnumbe64(&b, &a) == -1 && cmpnumbe64(&a, &a) == 0);
    return report("bits");
}
