# One line per test program, in the order of the modules.
vnlib_test(bits)
vnlib_test(queue)
vnlib_fault_test(queue)
