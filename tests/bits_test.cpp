#include "vnlib/bits.h"
TEST(Bits, Placeholder) {}
