# Gives the system tests the labels by which script/memcheck chooses: "memcheck" for the short form, "memcheck-long" for
# all that can run under valgrind. Read by CTest when the tests are known. Each expression is the beginning of names,
# and one that fits none is an error.

# Start, GET, PRINT, sweep, stop, SIGTERM, failed launch, test mode, publication.
set(short Request Publication FailedLaunch LaunchedClient LongInstallationPath Console Start Stop Termination)

# They live one story many times.
set(repeated Termination.BySeveralSignals Termination.RightAfterTheStart Stop.LeavesTheSocketFileOnly
    Start.IsRefusedToAnOrdinaryUser)

set(left_out
    Sandbox IsolatedSandbox DirectSandbox ExampleClient ExampleRequester # not of the running daemon
    # They look at the memory of the process, at its signal handlers or at its processor time, which are valgrind's.
    RunningDaemon Start.IgnoresTerminalSignals
    HostileRequester.ThatIsSilentIsWaitedFor HostileServer.ThatNeverAcceptsIsWaitedFor WaitedFor/ScriptedServer
    # They look at what a client gets, where valgrind adds descriptors and settings of its own.
    ClientOfAnyStarter.HasTheStandardDescriptors ClientEnvironment.IgnoresWhat ClientEnvironment.GetsTheStartersEnv
    ClientEnvironment.KeepsTheStartersLimits ClientOfADaemonOfProcessOne.HasTheSame ClientOfTheTestConsole.Shares
    # Started by a shell, and so not wrapped.
    ConsoleWithoutStandardDescriptors Start.WithoutStandardDescriptors
    Termination.OfTheInvokingProcess) # killed before valgrind is up

# select(<variable> <beginning>...): the tests of these names.
function(select variable)
    set(selected)
    foreach(beginning ${ARGN})
        set(found ${system_tests_TESTS})
        list(FILTER found INCLUDE REGEX "^system\\.(.*/)?${beginning}")
        if(NOT found)
            message(FATAL_ERROR "no system test's name begins with ${beginning}")
        endif()
        list(APPEND selected ${found})
    endforeach()
    set(${variable} ${selected} PARENT_SCOPE)
endfunction()

if(system_tests_TESTS) # none before they are built
    select(short ${short})
    select(left_out ${left_out})
    select(repeated ${repeated})
    list(REMOVE_ITEM system_tests_TESTS ${left_out})
    list(REMOVE_ITEM short ${left_out} ${repeated})
    set_tests_properties(${system_tests_TESTS} PROPERTIES LABELS "system;memcheck-long")
    set_tests_properties(${short} PROPERTIES LABELS "system;memcheck-long;memcheck")
endif()
