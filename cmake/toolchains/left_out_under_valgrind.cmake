# The tests that ctest leaves out under Valgrind, each with the reason.
set(CTEST_CUSTOM_TESTS_IGNORE
  library.ClientRunsOnASmallMachine  # Its limits would hit Valgrind.
  library.InstalledCopyBuildsTheExamples  # It starts the programs that it builds without Valgrind.
  tools.LabTest.EndsAsTheProgram  # Valgrind starts no process in new namespaces, here and in the next three.
  tools.LabTest.LeavesNothingWhenItIsKilled
  tools.LabTest.PoisonedNamesDontLeadToAForeignHost
  tools.LabTest.ClientSurvivesDroppedPacketsAndAChangedNetwork
  tools.DemoTellsItsStory  # It checks times to a second.
  tools.CommandLineTest.EndsAtASignalThoughNobodyReads  # Valgrind writes notes on mlock2 into the output.
  tools.CommandLineTest.TellsThatOutputIsLost  # The same.
  # These compile, and start none of our programs.
  library.HeaderCompilesAlone
  library.ExportsFiveFunctionsAndNothingElse
  library.HasTheDefaultsOfItsDeployment
  library.EmbeddedSourcesBuildOrAreRefused
)
