# The tests that ctest leaves out under QEMU, each with the reason.
set(CTEST_CUSTOM_TESTS_IGNORE
  library.ClientRunsOnASmallMachine  # Its limits would hit QEMU.
  library.InstalledCopyBuildsTheExamples  # It starts the programs that it builds without QEMU.
)
