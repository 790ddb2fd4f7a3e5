# One line per test program, in the order of the modules.
vnlib_test(bits)
vnlib_test(queue)
vnlib_fault_test(queue)
vnlib_test(vnstrings)
vnlib_fault_test(vnstrings WRAP vn_memcheck_malloc vn_memcheck_free vn_memcheck_realloc)
vnlib_test(sax)
vnlib_fault_test(sax)
