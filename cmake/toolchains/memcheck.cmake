# Runs each test under Valgrind's check of memory. Leaks are checked by AddressSanitizer (preset asan):
# in a forked child, Valgrind takes what the parent's other threads hold for lost.
set(CMAKE_CROSSCOMPILING_EMULATOR
    valgrind --quiet --error-exitcode=9 --fair-sched=yes --leak-check=no
    "--suppressions=${CMAKE_CURRENT_LIST_DIR}/memcheck.supp")
set(TARVEL_LEFT_OUT_TESTS "${CMAKE_CURRENT_LIST_DIR}/left_out_under_valgrind.cmake")
