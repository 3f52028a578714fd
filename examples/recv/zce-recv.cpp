// zce-recv: receives one DMA channel and tells what comes. The program to start an application
// from: it shows both ways of receiving, and uses the library's headers and the board's message
// bodies alone.
//
//     zce-recv CONFIG [--seconds N] [--print N] [--own-loop] [--nap US] [--names FILE]
//              [--end-with-board]
//
// The last line is "zce-recv channel=C total=T type17=A type18=B type19=C type20=D gaps=G", G being
// the number of messages that the board sent to this channel and that did not arrive; behind it
// " bad=B" if B bodies were not what their type says. Those are not in the counts.
//
// Exit status: 0; 1 if the library's log could not be started, if what it prints or writes could
// not be, or with --end-with-board if the board has gone; 2 for a usage error. The reason is told,
// that of 2 on standard error.

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>

#include "Arguments.h"
#include "Ending.h"
#include "IVelaZceMdApi.h"
#include "Output.h"
#include "Receiver.h"
#include "Reporter.h"

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);  // a reader that is gone is an error of what is printed
    Arguments arguments;
    const int usage = ReadArguments(argc, argv, arguments);
    if (usage != 0) {
        return usage < 0 ? FinishOutput(0) : usage;
    }
    const long lChannel = ConfiguredChannel(arguments.config);
    CatchEarlySignals(lChannel);

    CReceiver receiver(arguments.print, !arguments.namesFile.empty());
    IVelaZceMdApi* api = IVelaZceMdApi::CreateVelaZceMdApi();
    int result = 0;
    {
        const CReporter reporter(receiver, arguments.seconds, arguments.endWithBoard);
        if (arguments.ownLoop) {
            // One's own loop: anything that must not wait for market data can be done in it.
            result = api->VelaStart(receiver, arguments.config.c_str());
            BeginOwnLoop();
            while (result == 0 && g_bStop == 0) {
                const int got = api->VelaRecv();
                if (got == -1) {
                    break;
                }
                if (got == 0 && arguments.napUs > 0) {
                    usleep(static_cast<useconds_t>(arguments.napUs));
                }
            }
        } else {
            // The short way: starts, and polls until SIGINT or SIGTERM.
            result = api->VelaRecvStart(receiver, arguments.config.c_str());
        }
    }
    IVelaZceMdApi::DestroyVelaZceMdApi(*api);

    if (!arguments.namesFile.empty() && !WriteNamesTo(arguments.namesFile, receiver)) {
        TellError("--names: cannot write " + arguments.namesFile, errno);
        result = 1;
    }
    PrintLastLine(lChannel, receiver);
    return FinishOutput(result == 0 ? EndStatus() : 1);
}
