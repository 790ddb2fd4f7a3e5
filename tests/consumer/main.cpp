// A program of somebody who installed the library: one call of several families, checked.
#include <cstdio>
#include <cstring>

#include <vnlib.h>

int main()
{
    struct clparse_head *head = clparse_start("count=3,opts={on=true}");
    uint64_t count = 0;
    char *text = nullptr;
    if (head == nullptr || clparse_get_number(head, &count, "%s", "count") != 0 || count != 3)
        return 1;
    if (clparse_get_corelink(head, &text, 0) != 0 || strcmp(text, "count=3,opts={on=true}") != 0)
        return 2;
    if (crc32c(reinterpret_cast<const uint8_t *>("123456789"), 9) != 0x839206E3u) return 3;
    if (strcmp(get_command_info(0x12), "INQUIRY") != 0) return 4;
    printf("%s\n", text);
    vn_memcheck_free(vn_free, text, "main.cpp:20");
    clparse_stop(head);
    return 0;
}
