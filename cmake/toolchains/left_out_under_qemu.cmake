# The tests that ctest leaves out when the programs run under an emulator, each with the reason.
# QEMU runs the one program that it is given: where that, or a script, starts another program of the
# target, the kernel refuses to.
set(CTEST_CUSTOM_TESTS_IGNORE
  library.ClientRunsOnASmallMachine  # A script starts a client. Its limits would hit the emulator.
  library.InstalledCopyBuildsTheExamples  # A script starts the backend and the examples.
  tools.DemoTellsItsStory  # A script starts backends and clients.
  tools.LabTest.EndsAsTheProgram  # This and the next three start the backend in a private network.
  tools.LabTest.LeavesNothingWhenItIsKilled
  tools.LabTest.PoisonedNamesDontLeadToAForeignHost
  tools.LabTest.ClientSurvivesDroppedPacketsAndAChangedNetwork
  tools.PageShowsRequestsInABrowser  # A script starts the command line client.
)
