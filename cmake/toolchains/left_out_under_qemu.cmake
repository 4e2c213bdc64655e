# The tests that ctest leaves out under QEMU, each with the reason.
set(CTEST_CUSTOM_TESTS_IGNORE
  library.ClientRunsOnASmallMachine  # Its limits would hit QEMU.
  library.InstalledCopyBuildsTheExamples  # It starts the programs that it builds without QEMU.
  tools.LabTest.EndsAsTheProgram  # QEMU starts no process in new namespaces, here and in the next three.
  tools.LabTest.LeavesNothingWhenItIsKilled
  tools.LabTest.PoisonedNamesDontLeadToAForeignHost
  tools.LabTest.ClientSurvivesDroppedPacketsAndAChangedNetwork
  tools.DemoTellsItsStory  # It expects an answer within the head start of half a second.
)
