# Which system tests script/memcheck runs. Each word is the beginning of tests' names.
# shellcheck shell=sh disable=SC2034 # for that script

# Start, publication, GET, PRINT, QUIT, failed launch, test mode, stop, SIGTERM.
short="Start.SaysSo Start.OfASecond Start.OnAStale Publication.HappensOnce Publication.Replaces Request LaunchedClient"
short="$short FailedLaunch Console.ListsTheTable Stop.EndsTheDaemon Stop.FindsTheLock Termination.OfAnIdle"
short="$short Termination.DuringASweep Termination.LeavesTheClients"

# Not of the running daemon.
left_out="Sandbox IsolatedSandbox DirectSandbox ExampleClient ExampleRequester"
# They look at the memory of the process, at its signal handlers or at its processor time, which are valgrind's.
left_out="$left_out RunningDaemon Start.IgnoresTerminalSignals HostileRequester.ThatIsSilentIsWaitedFor"
left_out="$left_out HostileServer.ThatNeverAcceptsIsWaitedFor WaitedFor/ScriptedServer"
# They look at what a client gets, where valgrind adds descriptors and settings of its own.
left_out="$left_out ClientOfAnyStarter.HasTheStandardDescriptors ClientEnvironment.IgnoresWhat"
left_out="$left_out ClientEnvironment.GetsTheStartersEnv ClientEnvironment.KeepsTheStartersLimits"
left_out="$left_out ClientOfADaemonOfProcessOne.HasTheSame ClientOfTheTestConsole.Shares"
# Started by a shell, and so not wrapped.
left_out="$left_out ConsoleWithoutStandardDescriptors Start.WithoutStandardDescriptors"
left_out="$left_out Termination.OfTheInvokingProcess" # killed before valgrind is up
