# Runs each test under Valgrind's check of locks.
set(CMAKE_CROSSCOMPILING_EMULATOR
    valgrind --tool=helgrind --quiet --error-exitcode=9 --fair-sched=yes
    "--suppressions=${CMAKE_CURRENT_LIST_DIR}/helgrind.supp")
set(TARVEL_LEFT_OUT_TESTS "${CMAKE_CURRENT_LIST_DIR}/left_out_under_helgrind.cmake")
