#include "check.h"

#include <sys/uio.h>

int main(void)
{
    char bytes[60];
    char flat[60];
    struct iovec vec[3];
    struct iovec spare[3];
    struct iovec *out = NULL;
    unsigned out_count = 0;
    size_t offset = 30;
    int index = 0;
    size_t i = 0;

    for (i = 0; i < sizeof bytes; ++i) bytes[i] = (char)i;
    vec[0].iov_base = bytes;
    vec[0].iov_len = 10;
    vec[1].iov_base = bytes + 10;
    vec[1].iov_len = 20;
    vec[2].iov_base = bytes + 30;
    vec[2].iov_len = 30;

    CHECK(size_iovec(vec, 3) == 60 && size_iovec(vec, 0) == 0 && size_iovec(vec, -1) == 0);
    check_end_of_iov(vec, 3, &offset, &index);
    CHECK(offset == 0 && index == 2);
    linearise_iovec(vec, 3, (uint8_t *)flat, 60);
    CHECK(memcmp(flat, bytes, 60) == 0);
    memset(bytes, 0, sizeof bytes);
    delinearise_to_iovec(vec, 3, (const uint8_t *)flat, 45);
    CHECK(memcmp(flat, bytes, 45) == 0 && bytes[45] == 0);
    CHECK(fill_iovec_subset(&out, &out_count, 20, 5, spare, 3, vec, 3) == 0);
    CHECK(out == spare && out_count == 2);
    CHECK(out[0].iov_base == bytes + 5 && out[0].iov_len == 5);
    CHECK(out[1].iov_base == bytes + 10 && out[1].iov_len == 15);
    CHECK(fill_iovec_subset(&out, &out_count, 20, 10, spare, 3, vec, 3) == 0);
    CHECK(out_count == 1 && out[0].iov_base == bytes + 10 && out[0].iov_len == 10);
    CHECK(fill_iovec_subset(&out, &out_count, 20, 5, NULL, 0, vec, 3) == 0 && out != spare);
    free(out);
    CHECK(fill_iovec_subset(&out, &out_count, 20, 50, spare, 3, vec, 3) == -1);
    return report("iovec");
}
