# The test of base that ctest leaves out under Helgrind.
set(CTEST_CUSTOM_TESTS_IGNORE
  base.BaseThreadTest.TellsEachCallerThatTheSystemHasNoThread  # Helgrind takes a denied thread for an error.
)
