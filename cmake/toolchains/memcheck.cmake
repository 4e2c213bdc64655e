# Runs each test under Valgrind's check of memory. A lost block is an error.
set(CMAKE_CROSSCOMPILING_EMULATOR
    valgrind --quiet --error-exitcode=9 --fair-sched=yes --leak-check=full
    "--suppressions=${CMAKE_CURRENT_LIST_DIR}/memcheck.supp")
set(TARVEL_LEFT_OUT_TESTS "${CMAKE_CURRENT_LIST_DIR}/left_out_under_valgrind.cmake")
