// kivcs2: timecode, captions, formats and text from the shell; a host of the public headers.
#include "Command.h"
#include "Failure.h"
#include "Files.h"
#include "LibraryLog.h"
#include "Output.h"

#include <KIVCoreServices2/KIVCoreServices2.h>

#include <csignal>
#include <new>

namespace
{

constexpr const char *kVersion = "kivcs2 " KIVCS2_TOOL_VERSION;

constexpr const char *kFooter = R"(
Examples:
  kivcs2 tc add 10:00:00:00 250 --rate 25
  kivcs2 caption info programme.scc
  kivcs2 caption convert programme.scc programme.mcc
  kivcs2 caption verify programme.mcc --against programme.scc
  kivcs2 caption show programme.mcc --captions | head
  kivcs2 run --timeout 10 -- ffprobe programme.mxf
  kivcs2 status 0x8000000b

Exit codes: 0 yes, 1 no, 2 usage, 3 malformed input, 4 input or output,
5 not on this machine, 6 time-out, 70 internal.)";

int run(int argc, char **argv)
{
    tool::Context context;
    CLI::App app{"Timecode, captions, video formats and text for broadcast files.", "kivcs2"};
    app.footer(kFooter);
    app.set_version_flag("--version", kVersion);
    app.add_flag("--json", context.json, "Write JSON for programs instead of tables");
    app.require_subcommand(1);
    app.fallthrough();
    app.get_formatter()->column_width(34);
    tool::addTimecodeCommand(app, context);
    tool::addCaptionCommand(app, context);
    tool::addCDPCommand(app, context);
    tool::addFrameCommand(app, context);
    tool::addFormatCommand(app, context);
    tool::addAudioCommand(app, context);
    tool::addRateCommand(app, context);
    tool::addCodecCommand(app, context);
    tool::addCurveCommand(app, context);
    tool::addChecksumCommand(app, context);
    tool::addTextCommand(app, context);
    tool::addJSONCommand(app, context);
    tool::addSharedMemoryCommand(app, context);
    tool::addSensorsCommand(app, context);
    tool::addRunCommand(app, context);
    tool::addSystemCommand(app, context);
    tool::addDoctorCommand(app, context);
    tool::addPipeCommand(app, context);
    tool::addServicesCommand(app, context);
    tool::addNetCommand(app, context);
    tool::addStatusCommand(app, context);

    try
    {
        app.parse(argc, argv);
    }
    catch (const CLI::CallForHelp &)
    {
        tool::out().write(app.help()); // the page of the word that was given
        return tool::kExitYes;
    }
    catch (const CLI::CallForVersion &)
    {
        tool::out().line(kVersion);
        return tool::kExitYes;
    }
    catch (const CLI::ParseError &error)
    {
        // A word that is none of ours shows up as one that is missing.
        const std::vector<std::string> extras = app.remaining(true);
        const bool unknown =
            error.get_exit_code() == static_cast<int>(CLI::ExitCodes::RequiredError) && !extras.empty();
        tool::note(
            (unknown ? "unknown word \"" + tool::visible(extras.front()) + "\"" : std::string{error.what()}) +
            " (kivcs2 --help tells more)");
        return app.got_subcommand("run") ? tool::kExitRunFailed : tool::kExitUsage;
    }

    tool::capLibraryLog();                               // before the task server takes it over
    (void)kivCS2_initWithTaskServer(context.taskServer); // always succeeds
    return context.run();
}

} // namespace

int main(int argc, char **argv)
{
    // A reader that has gone shows as a failed write, which ends the command without a word.
    tool::ignoreWriteSignals();
    tool::occupyStandardStreams();
    try
    {
        const int code = run(argc, argv);
        tool::tellLeftOutMessages();
        tool::out().flush();
        return code;
    }
    catch (const tool::ReaderGone &)
    {
        return tool::kExitYes;
    }
    catch (const tool::Failure &failure)
    {
        try
        {
            tool::out().flush(); // what was found before the failure is still worth reading
        }
        catch (...)
        {
            // The failure below is the one that matters.
        }
        tool::tellLeftOutMessages();
        tool::note(failure.what());
        return failure.code();
    }
    catch (const std::bad_alloc &)
    {
        tool::note("out of memory");
        return tool::kExitInternal;
    }
    catch (const std::exception &error)
    {
        tool::note(std::string{"internal fault: "} + error.what());
        return tool::kExitInternal;
    }
}
