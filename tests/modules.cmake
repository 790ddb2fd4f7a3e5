# One line per test program, in the order of the modules.
vnlib_test(bits)
