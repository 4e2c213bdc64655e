# The tests that ctest leaves out under QEMU, each with the reason. QEMU runs the one program that it
# is given: the kernel refuses to start another one of the target.
set(CTEST_CUSTOM_TESTS_IGNORE
  network.ProcessTest.LeavesSignalsAloneAndWorksOnWhileLookupsHang  # QEMU has no seccomp filters.
  library.ClientRunsOnASmallMachine  # A script starts the client. Its limits would hit QEMU.
  library.InstalledCopyBuildsTheExamples  # A script starts the backend and the examples.
  tools.DemoTellsItsStory  # A script starts backends and clients.
  tools.LabTest.EndsAsTheProgram  # This and the next three start the backend.
  tools.LabTest.LeavesNothingWhenItIsKilled
  tools.LabTest.PoisonedNamesDontLeadToAForeignHost
  tools.LabTest.ClientSurvivesDroppedPacketsAndAChangedNetwork
  tools.CommandLineTest.NamesTheWrongArgument  # This and the next ones start the command-line client.
  tools.CommandLineTest.NamesTheWrongArgumentOfInspect
  tools.CommandLineTest.TellsThatOutputIsLost
  tools.CommandLineTest.EndsAtASignalThoughNobodyReads
  tools.CommandLineTest.ReadsTheServersOfAPipe
  tools.CommandLineTest.ExplainsBeforeTheExit
  tools.PageShowsRequestsInABrowser  # A script starts the command-line client.
)
